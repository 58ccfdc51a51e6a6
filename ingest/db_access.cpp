// The parser's own database operations: finding a row by condition and re-typing a
// present PCI function.
#include "ingest/parser.h"
#include "platform/kora_log.h"

namespace aim_parser {

// The "_id" of the first row of `table` matching `where`: 0 when no row matches (a real
// row id is never 0), -1 on a failed query or read.
long long parser::find_db_record(_vqm_db_handle_t* db, const char* table, const char* where) {
    if (!table || !where) return -1;
    static const char* const columns[] = {"_id"};
    vqm_db_result_t* result = nullptr;
    int rc = vqm_db_query(db, table, columns, 1, where, nullptr, nullptr, nullptr, &result);
    if (rc != 0) {
        if (result) vqm_db_free_result(result);
        kora_log::logErr("Failed to query record: %d", rc);
        kora_log::logErr("table=%s", table);
        kora_log::logErr("where=%s", where);
        kora_log::logErr("ret =%d", rc);
        return -1;
    }
    if (!result) return -1;
    long long id = 0;
    if (vqm_db_result_step(result) == VQM_DB_ROW) {
        int64_t value = 0;
        id = vqm_db_result_column_int64(result, 0, &value) == 0 ? (long long)value : -1;
    }
    vqm_db_free_result(result);
    return id;
}

bool parser::update_pci_function_type(_vqm_db_handle_t* db, aim_pci_key_unit* key, _VQMDB_PCI_TYPE type) {
    if (!key) return false;
    vqm_db_content_clear(cv);
    vqm_db_content_put_uint(cv, "FunType", type);
    vqm_db_param_t param;
    param.type = VQM_DB_PARAM_UINT;
    param.value = key->func_key;
    int rc = vqm_db_update(db, "PCIs", cv, "FunKey=?", &param, 1, 0);
    if (rc == 0) {
        indexed_function_type(key->func_key, type);
        return true;
    }
    kora_log::logWarn("AIM PARSER: failed to update pci function type, funkey=%u, type=%d", key->func_key,
                      (int)type);
    return false;
}

}  // namespace aim_parser
