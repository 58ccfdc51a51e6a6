// Shared set-up of the fuzz targets: one private controller (sysroot, inventory database
// with the schema, simulated machine) for the whole fuzzing process.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <string>

#include "platform/vqm_db.h"

namespace fuzz {

// Keeps log messages in memory and prints only errors; drop_log() forgets them.
void quiet();
void drop_log();
// The database of the private controller (created, with its sysroot, on first use).
_vqm_db_handle_t* controller();
// A scratch copy of examples/machines/NAME, for targets that rewrite one of its files.
std::string machine_copy(const std::string& name);
// Installs the machine of directory `dir` into the simulated controller; its "PCIs" rows
// only when `pcis` (they stay in the database from one run to the next).
void load_machine(const std::string& dir, bool pcis = true);
// Runs parse_aim on `xml` written to the controller's AIM file; drops the log messages.
int run_aim(const std::string& xml);
// An inventory database file of the example machine NAME after an ingest of its AIM file
// (made once per process, in the private sysroot); its path.
std::string machine_database(const std::string& name);
// Path and content of a file below the source tree (examples).
std::string source_path(const std::string& relative);
std::string source_file(const std::string& relative);
void write_file(const std::string& path, const uint8_t* data, size_t size);

}  // namespace fuzz
