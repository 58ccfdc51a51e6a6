// Inventory database client over SQLite (to be written).
#include "platform/vqm_db.h"

extern "C" {
_vqm_db_handle_t* vqm_db_open(const char*, const char*, const char*, const char*, int) { return nullptr; }
void vqm_db_close(_vqm_db_handle_t*) {}
vqm_db_content_values_t* vqm_db_get_content_values(void) { return nullptr; }
void vqm_db_free_content_values(vqm_db_content_values_t*) {}
void vqm_db_content_clear(vqm_db_content_values_t*) {}
int vqm_db_content_put_text(vqm_db_content_values_t*, const char*, const char*) { return -1; }
int vqm_db_content_put_uint(vqm_db_content_values_t*, const char*, uint32_t) { return -1; }
int vqm_db_content_put_int(vqm_db_content_values_t*, const char*, int32_t) { return -1; }
int vqm_db_content_put_uint64(vqm_db_content_values_t*, const char*, uint64_t) { return -1; }
int vqm_db_content_put_uchar(vqm_db_content_values_t*, const char*, uint8_t) { return -1; }
int vqm_db_insert(_vqm_db_handle_t*, const char*, vqm_db_content_values_t*, int, int) { return -1; }
int vqm_db_update(_vqm_db_handle_t*, const char*, vqm_db_content_values_t*, const char*, const vqm_db_param_t*, int,
                  int) {
    return -1;
}
int vqm_db_delete(_vqm_db_handle_t*, const char*, const char*, int, int, int) { return -1; }
int vqm_db_query(_vqm_db_handle_t*, const char*, const char* const*, int, const char*, void*, void*, void*,
                 vqm_db_result_t** result) {
    if (result) *result = nullptr;
    return -1;
}
int vqm_db_raw_query(_vqm_db_handle_t*, const char*, int, vqm_db_result_t** result) {
    if (result) *result = nullptr;
    return -1;
}
int vqm_db_result_step(vqm_db_result_t*) { return 0; }
unsigned vqm_db_result_row_count(vqm_db_result_t*) { return 0; }
int vqm_db_result_column_uint(vqm_db_result_t*, int, uint32_t*) { return -1; }
int vqm_db_result_column_short_uint(vqm_db_result_t*, int, uint16_t*) { return -1; }
int vqm_db_result_column_int64(vqm_db_result_t*, int, int64_t*) { return -1; }
int vqm_db_result_column_text(vqm_db_result_t*, int, char*, unsigned) { return -1; }
int vqm_db_result_column_blob(vqm_db_result_t*, int, void*, unsigned) { return -1; }
void vqm_db_free_result(vqm_db_result_t*) {}
int extract_str_column_from_result(vqm_db_result_t*, const char*, char*, unsigned) { return -1; }
}

#include "host/db.h"

namespace host {
_vqm_db_handle_t* db_open_file(const std::string&, std::string*) { return nullptr; }
int db_apply_schema(_vqm_db_handle_t*, std::string*) { return -1; }
void set_database_dir(const std::string&) {}
const std::string& database_dir() {
    static std::string d;
    return d;
}
int db_select(_vqm_db_handle_t*, const std::string&, std::vector<row>&, std::string*) { return -1; }
int db_exec_script(_vqm_db_handle_t*, const std::string&, std::string*) { return -1; }
void db_fail_writes(_vqm_db_handle_t*, const std::string&, const std::string&) {}
}  // namespace host
