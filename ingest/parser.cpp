// Lifecycle and entry (to be written).
#include "ingest/parser.h"

namespace aim_parser {

bool parser::init() { return false; }
void parser::clear() {  }
bool parser::filter_xml(const char*, const char*) { return false; }
bool parser::parse(_vqm_db_handle_t*, const char*) { return false; }

}  // namespace aim_parser

#include "ingest/parse_aim.h"

namespace aim_parser {
parser::parser() { init_hc_cards(); }
parser::~parser() { clear(); }
}  // namespace aim_parser

extern "C" int parse_aim(_vqm_db_handle_t* db, const char* xml_path) {
    aim_parser::parser p;
    if (!db) return -1;
    return p.parse(db, xml_path) ? 0 : -1;
}

extern "C" int rebuild_tables_in_memory(_vqm_db_handle_t*) { return 0; }
