// Inventory walk (to be written).
#include "ingest/parser.h"

namespace aim_parser {

bool parser::parse_inventories(_vqm_db_handle_t*, inventories*) { return false; }
bool parser::parse_configset(_vqm_db_handle_t*, configset*) { return false; }
bool parser::parse_config(_vqm_db_handle_t*, config*) { return false; }

}  // namespace aim_parser
