// End-to-end test fixture: a private sysroot, a fresh SQLite inventory database with the
// schema, optional simulated machine, captured log messages, and helpers to run parse_aim
// and read rows back.
#pragma once

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "host/db.h"
#include "host/log.h"
#include "host/sysroot.h"

namespace testutil {

// Path of a file below the source tree (examples, schema).
std::string source_path(const std::string& relative);
std::string read_file(const std::string& path);
void write_file(const std::string& path, const std::string& content);

class IngestTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    // Loads a machine directory (below the source tree when relative) into the simulated
    // controller and copies its files into the sysroot. When the machine has "pcis", they
    // replace the rows of "PCIs" (otherwise rows added with add_pci stay).
    void load_machine(const std::string& dir);
    // Loads a machine from JSON text (files, if any, are written with write_sysroot_file);
    // "pcis" as for load_machine.
    void load_machine_json(const std::string& json);
    void load_machine_pcis();
    // Adds one "PCIs" row; `columns` as "Column=value" pairs joined by commas is awkward,
    // so this takes SQL literal values by column name.
    void add_pci(const std::vector<std::pair<std::string, std::string>>& columns);
    // A "PCIs" row for segment 0 and the given bus, device and function with the usual
    // keys: DevKey = bus<<16 | device<<8 (device key), FunKey = bus<<16|device<<8|function.
    void add_pci_function(unsigned bus, unsigned device, unsigned function, unsigned vendor = 0x8086,
                          unsigned device_id = 0x1572, unsigned subvendor = 0x8086,
                          unsigned subdevice = 0x0001, unsigned slot = 1, unsigned fun_type = 7,
                          unsigned location = 0);

    // Writes `xml` to a file of the sysroot and runs parse_aim on its controller path.
    int run_xml(const std::string& xml);
    int run_file(const char* controller_path);
    // Ingests examples/aim/NAME.xml on the example machine examples/machines/NAME.
    int run_example(const std::string& name);

    // Rows of a table (all columns, as text; NULLs absent), ordered by _id.
    std::vector<host::row> rows(const std::string& table, const std::string& where = std::string());
    size_t count(const std::string& table, const std::string& where = std::string());
    void exec(const std::string& sql);

    // Captured messages.
    bool logged(const std::string& text) const;
    bool logged(host::log_level level, const std::string& text) const;
    size_t logged_count(const std::string& text) const;
    // How many captured messages of `level` begin with `prefix`.
    size_t logged_prefix(host::log_level level, const std::string& prefix) const;
    std::string log_text() const;  // every captured message, one a line, "LEVEL text"

    // A sysroot file of the controller path (e.g. "/tmp/aim.xml").
    std::string sysroot_file(const char* controller_path) const;
    void write_sysroot_file(const char* controller_path, const std::string& content);

    std::unique_ptr<host::scoped_sysroot> sysroot;
    std::string dir;  // private scratch directory (the database lives here)
    _vqm_db_handle_t* db = nullptr;
    std::vector<host::log_message> messages;  // refreshed by run_* and log queries
};

// Expected columns of a row by name.
typedef std::map<std::string, std::string> columns;

// Every column of `expected` has that value in `row` (an empty expected value: NULL).
void expect_columns(const host::row& row, const columns& expected);

// What a run of aimctl gave: its exit status (-1 when it did not exit) and its output.
struct aimctl_result {
    int status = -1;
    std::string out;  // standard output
    std::string err;  // standard error
};

// Runs `aimctl ARGS` (ARGS go through the shell as written); its standard error is kept in
// a file of `scratch_dir` while it runs.
aimctl_result run_aimctl(const std::string& args, const std::string& scratch_dir);

// A minimal AIM document around config elements.
std::string aim_doc(const std::string& body);
// One config element with an address and a "PCI Generic Information" group whose content
// is `generic` (settings and sub-groups).
std::string aim_config(const std::string& id, const std::string& bus, const std::string& device,
                       const std::string& function, const std::string& generic,
                       const std::string& segment = "0");
// A setting element of the given data type ("text_data", "numeric_data", ...).
std::string aim_setting(const std::string& name, const std::string& value,
                        const std::string& type = "text_data", const std::string& id = std::string());
// A group element with the given content.
std::string aim_group(const std::string& name, const std::string& content,
                      const std::string& suppress_if = "");

}  // namespace testutil
