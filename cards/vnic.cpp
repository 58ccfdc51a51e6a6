// vNIC capability data (to be written).
#include "ingest/parser.h"

namespace aim_parser {

void parser::get_pci_vnic_supported_info(_vqm_db_handle_t*) {  }

}  // namespace aim_parser
