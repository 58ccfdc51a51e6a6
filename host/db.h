// Host-only calls of the SQLite inventory database client, for aimctl and the tests.
#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "platform/vqm_db.h"

namespace host {

// Opens (creating when absent) the SQLite file at `path`. Null on failure, with the reason
// in `*error` when given.
_vqm_db_handle_t* db_open_file(const std::string& path, std::string* error = nullptr);
// Creates every table and index of the inventory schema (schema/inventory.sql) that does
// not exist yet. 0 on success.
int db_apply_schema(_vqm_db_handle_t* db, std::string* error = nullptr);
// Directory in which vqm_db_open(server, user, password, NAME, flags) finds NAME.db.
void set_database_dir(const std::string& dir);
const std::string& database_dir();

// One row of a host query: column name to value as text; NULL columns are absent.
typedef std::map<std::string, std::string> row;
// Runs one read-only SQL statement on the handle's own connection and returns its rows.
// 0 on success.
int db_select(_vqm_db_handle_t* db, const std::string& sql, std::vector<row>& rows,
              std::string* error = nullptr);
// Runs SQL text that may hold several statements (schema, test set-up). Host only: the
// client calls of the library never run more than one statement. 0 on success.
int db_exec_script(_vqm_db_handle_t* db, const std::string& sql, std::string* error = nullptr);
// Commits the writes that the handle holds in its open batch, so that other connections
// see them before the handle is closed (vqm_db_close commits too). 0 on success.
int db_commit(_vqm_db_handle_t* db);
// The age after which the handle commits its open batch (checked at its next call), 200 ms
// unless set; 0: batches are committed by their count of writes only, as when a run is
// timed under an instrumenting tool that slows it many times.
void db_set_batch_age(_vqm_db_handle_t* db, unsigned milliseconds);
// Makes every later call of the handle on `table` ("*": any table) fail with a non-zero code,
// for tests of failure paths. `op` is "insert", "update", "delete" (raw writes included),
// "query", or "" for every write. Each call adds a rule; an empty `table` removes them all.
void db_fail_writes(_vqm_db_handle_t* db, const std::string& table, const std::string& op = std::string());

// Failure injection over every handle, counted in client calls (insert, update, delete,
// query, raw query) since the last db_set_fault. The environment sets the first one:
// AIM_DB_FAIL_CALL=N, AIM_DB_FAIL_OP=kind, AIM_DB_FAIL_DIE=1.
struct db_fault {
    unsigned long call = 0;  // this call (1: the first) fails with a non-zero code; 0: none
    std::string op;          // every call of this kind fails: "insert", "update", "delete", "query"
    bool die = false;        // at `call` the process ends at once instead, as if killed
};
void db_set_fault(const db_fault& fault);
// The kind of each client call since the last db_set_fault and the table it named (a raw
// query's kind is that of its statement, prefixed with "raw "); at most the first million,
// and none before the first db_set_fault of the process.
const std::vector<std::pair<std::string, std::string>>& db_calls();

}  // namespace host
