// Wipe and stale-record removal (to be written).
#include "ingest/parser.h"

namespace aim_parser {

bool parser::wipe(_vqm_db_handle_t*) { return false; }
int parser::delete_non_exist_gpu(_vqm_db_handle_t*, std::vector<unsigned>&) { return 0; }
int parser::get_drive_presence() { return 0; }

}  // namespace aim_parser
