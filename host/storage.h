// Host side of the simulated storage and inventory sections of a machine: the present PCI
// functions ("pcis"), the storage controllers ("storage") and the properties database
// ("properties").
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "platform/vqm_db.h"

namespace host {

// Replaces the rows of "PCIs" of `db` by the PCI functions of the current machine (none
// when it has no "pcis"). 0 on success, else the failing database call's code.
int load_machine_pcis(_vqm_db_handle_t* db, std::string* error = nullptr);

// Columns of a table of the inventory schema, in order, with their declared types
// ("INTEGER", "TEXT" or ""); empty for an unknown table.
const std::vector<std::pair<std::string, std::string>>& schema_columns(const std::string& table);

// Name of the properties database (opened with vqm_db_open) and its table.
extern const char* const properties_db_name;  // "propertiesdb"
extern const char* const properties_table;    // "propertiesDCTbl"

}  // namespace host
