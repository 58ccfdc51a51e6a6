// Disk drives (to be written).
#include "ingest/parser.h"

namespace aim_parser {

int parser::parse_disk_info(_vqm_db_handle_t*, group*, aim_pci_key_unit*, const char*, bool*, bool*, bool*) { return 0; }
void parser::check_raid_sen(_vqm_db_handle_t*, aim_pci_key_unit*) {  }

}  // namespace aim_parser
