// GPU records (to be written).
#include "ingest/parser.h"

namespace aim_parser {

int parser::parse_gpu_info(_vqm_db_handle_t*, group*, aim_pci_key_unit*) { return 0; }
int parser::parse_gpu_chip(_vqm_db_handle_t*, group*, aim_pci_key_unit*) { return 0; }

}  // namespace aim_parser
