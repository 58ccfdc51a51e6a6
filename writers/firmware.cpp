// Firmware and PLDM firmware table (to be written).
#include "ingest/parser.h"

namespace aim_parser {

unsigned parser::parse_firmware_info(_vqm_db_handle_t*, group*, aim_pci_key_unit*, bool) { return 0; }
void parser::handle_pldm_firmware_info_table(_vqm_db_handle_t*) {  }

}  // namespace aim_parser
