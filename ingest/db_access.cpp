// Database access (to be written).
#include "ingest/parser.h"

namespace aim_parser {

long long parser::find_db_record(_vqm_db_handle_t*, const char*, const char*) { return -1; }
bool parser::update_pci_function_type(_vqm_db_handle_t*, aim_pci_key_unit*, _VQMDB_PCI_TYPE) { return false; }

}  // namespace aim_parser
