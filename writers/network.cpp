// Network and ports (to be written).
#include "ingest/parser.h"

namespace aim_parser {

int parser::parse_network_info(_vqm_db_handle_t*, group*, aim_pci_key_unit*) { return 0; }
int parser::parse_physical_port(_vqm_db_handle_t*, group*, aim_pci_key_unit*) { return 0; }
int parser::parse_physical_port_stat(_vqm_db_handle_t*, group*, aim_pci_key_unit*) { return 0; }
int parser::parse_logical_port(_vqm_db_handle_t*, group*, aim_pci_key_unit*, int) { return 0; }

}  // namespace aim_parser
