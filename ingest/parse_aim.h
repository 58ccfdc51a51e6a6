// Entry points of the inventory service: ingest an AIM file into the inventory database.
#pragma once

#include "platform/aim_export.h"
#include "platform/vqm_db.h"

extern "C" {
// Wipes the previous run's adapter rows, reads the AIM file at `xml_path` (null: the
// reader's default source) and writes the adapter tables. 0 on success, -1 on failure.
AIM_EXPORT int parse_aim(_vqm_db_handle_t* db, const char* xml_path);
// Refills "PCIPhysicalPortStat" from "PCIPhysicalPort" when it is empty.
AIM_EXPORT int rebuild_tables_in_memory(_vqm_db_handle_t* db);
}
