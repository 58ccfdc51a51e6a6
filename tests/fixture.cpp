#include "tests/fixture.h"

#include <stdio.h>
#include <stdlib.h>
#include <sys/wait.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "host/machine.h"
#include "host/storage.h"
#include "ingest/parse_aim.h"

namespace fs = std::filesystem;

namespace testutil {

std::string source_path(const std::string& relative) { return std::string(AIM_SOURCE_DIR) + "/" + relative; }

std::string read_file(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

void write_file(const std::string& path, const std::string& content) {
    fs::create_directories(fs::path(path).parent_path());
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << content;
}

void IngestTest::SetUp() {
    host::reset_machine();
    sysroot.reset(new host::scoped_sysroot());
    dir = sysroot->dir() + "/.test";
    fs::create_directories(dir);
    host::set_database_dir(dir);
    std::string err;
    db = host::db_open_file(dir + "/inventory.db", &err);
    ASSERT_NE(nullptr, db) << err;
    ASSERT_EQ(0, host::db_apply_schema(db, &err)) << err;
    host::log_capture_begin();
}

void IngestTest::TearDown() {
    host::log_capture_end();
    if (db) vqm_db_close(db);
    db = nullptr;
    host::reset_machine();
    sysroot.reset();
}

void IngestTest::load_machine(const std::string& machine_dir) {
    std::string d = machine_dir[0] == '/' ? machine_dir : source_path(machine_dir);
    for (const auto& e : fs::directory_iterator(d)) {
        if (e.path().filename() == "machine.json") continue;
        fs::copy(e.path(), fs::path(sysroot->dir()) / e.path().filename(),
                 fs::copy_options::recursive | fs::copy_options::overwrite_existing);
    }
    host::load_machine(d);
    load_machine_pcis();
}

void IngestTest::load_machine_pcis() {
    if (!host::current_machine().json.contains("pcis")) return;
    std::string err;
    ASSERT_EQ(0, host::load_machine_pcis(db, &err)) << err;
}

void IngestTest::load_machine_json(const std::string& json) {
    std::string d = dir + "/machine";
    write_file(d + "/machine.json", json);
    host::load_machine(d);
    load_machine_pcis();
}

void IngestTest::add_pci(const std::vector<std::pair<std::string, std::string>>& columns) {
    std::string names, values;
    for (const auto& c : columns) {
        if (!names.empty()) {
            names += ",";
            values += ",";
        }
        names += "\"" + c.first + "\"";
        values += c.second;
    }
    exec("INSERT INTO PCIs (" + names + ") VALUES (" + values + ")");
}

void IngestTest::add_pci_function(unsigned bus, unsigned device, unsigned function, unsigned vendor,
                                  unsigned device_id, unsigned subvendor, unsigned subdevice, unsigned slot,
                                  unsigned fun_type, unsigned location) {
    unsigned dev_key = (bus << 16) | (device << 8);
    unsigned fun_key = dev_key | function;
    auto s = [](unsigned v) { return std::to_string(v); };
    add_pci({{"SegNo", "0"},
             {"BusNo", s(bus)},
             {"DeviceNo", s(device)},
             {"FunctionNo", s(function)},
             {"NodeIndex", "1"},
             {"SlotNo", s(slot)},
             {"DevKey", s(dev_key)},
             {"FunKey", s(fun_key)},
             {"HardwareId", s(fun_key)},
             {"HardwareTypeId", "1"},
             {"Location", s(location)},
             {"FunType", s(fun_type)},
             {"VendorId", s(vendor)},
             {"DeviceId", s(device_id)},
             {"SubVendorId", s(subvendor)},
             {"SubDeviceId", s(subdevice)},
             {"ClsCode", "131072"},
             {"SlotType", "182"},
             {"MaxPCIeType", "3"},
             {"MaxLanes", "16"},
             {"SlotDesignation", "'Slot " + s(slot) + "'"}});
}

int IngestTest::run_xml(const std::string& xml) {
    write_sysroot_file("/pstorage/cmr/aim.xml", xml);
    return run_file("/pstorage/cmr/aim.xml");
}

int IngestTest::run_file(const char* controller_path) {
    int rc = parse_aim(db, controller_path);
    messages = host::log_captured();
    return rc;
}

int IngestTest::run_example(const std::string& name) {
    load_machine("examples/machines/" + name);
    return run_xml(read_file(source_path("examples/aim/" + name + ".xml")));
}

std::vector<host::row> IngestTest::rows(const std::string& table, const std::string& where) {
    std::vector<host::row> out;
    std::string err;
    std::string sql =
        "SELECT * FROM \"" + table + "\"" + (where.empty() ? "" : " WHERE " + where) + " ORDER BY _id";
    EXPECT_EQ(0, host::db_select(db, sql, out, &err)) << err;
    return out;
}

size_t IngestTest::count(const std::string& table, const std::string& where) {
    return rows(table, where).size();
}

void IngestTest::exec(const std::string& sql) {
    std::string err;
    ASSERT_EQ(0, host::db_exec_script(db, sql, &err)) << err << "\n" << sql;
}

bool IngestTest::logged(const std::string& text) const { return logged_count(text) > 0; }

bool IngestTest::logged(host::log_level level, const std::string& text) const {
    for (const auto& m : host::log_captured()) {
        if (m.level == level && m.text == text) return true;
    }
    return false;
}

size_t IngestTest::logged_count(const std::string& text) const {
    size_t n = 0;
    for (const auto& m : host::log_captured()) n += m.text == text;
    return n;
}

size_t IngestTest::logged_prefix(host::log_level level, const std::string& prefix) const {
    size_t n = 0;
    for (const auto& m : host::log_captured()) n += m.level == level && m.text.rfind(prefix, 0) == 0;
    return n;
}

std::string IngestTest::log_text() const {
    std::string out;
    for (const auto& m : host::log_captured())
        out += std::string(host::log_level_name(m.level)) + " " + m.text + "\n";
    return out;
}

std::string IngestTest::sysroot_file(const char* controller_path) const {
    return sysroot->dir() + controller_path;
}

void IngestTest::write_sysroot_file(const char* controller_path, const std::string& content) {
    write_file(sysroot_file(controller_path), content);
}

void expect_columns(const host::row& row, const columns& expected) {
    for (const auto& c : expected) {
        auto it = row.find(c.first);
        if (c.second.empty()) {
            EXPECT_TRUE(it == row.end()) << c.first << " is " << it->second;
        } else if (it == row.end()) {
            ADD_FAILURE() << c.first << " is NULL, expected " << c.second;
        } else {
            EXPECT_EQ(c.second, it->second) << "column " << c.first;
        }
    }
}

aimctl_result run_aimctl(const std::string& args, const std::string& scratch_dir) {
    aimctl_result r;
    std::string err_file = scratch_dir + "/aimctl-stderr.txt";
    std::string cmd = std::string(AIM_BIN_DIR) + "/aimctl " + args + " 2>'" + err_file + "'";
    FILE* p = popen(cmd.c_str(), "r");
    if (!p) return r;
    char buf[4096];
    size_t n;
    while ((n = fread(buf, 1, sizeof buf, p)) > 0) r.out.append(buf, n);
    int st = pclose(p);
    r.status = WIFEXITED(st) ? WEXITSTATUS(st) : -1;
    r.err = read_file(err_file);
    return r;
}

std::string aim_doc(const std::string& body) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n<inventories ID=\"\" schema-version=\"3.00\">\n"
           "<configset><name>Adapters</name>\n" +
           body + "</configset>\n</inventories>\n";
}

std::string aim_config(const std::string& id, const std::string& bus, const std::string& device,
                       const std::string& function, const std::string& generic, const std::string& segment) {
    return "<config ID=\"" + id + "\"><name>" + id + "</name><pfa><segment>" + segment + "</segment><bus>" +
           bus + "</bus><device>" + device + "</device><function>" + function + "</function></pfa>" +
           aim_group("PCI Generic Information", generic) + "</config>\n";
}

std::string aim_setting(const std::string& name, const std::string& value, const std::string& type,
                        const std::string& id) {
    std::string sid = id.empty() ? name : id;
    return "<setting ID=\"" + sid + "\"><name>" + name + "</name><" + type + "><value>" + value +
           "</value></" + type + "></setting>";
}

std::string aim_group(const std::string& name, const std::string& content, const std::string& suppress_if) {
    std::string attr = suppress_if.empty() ? "" : " suppress-if=\"" + suppress_if + "\"";
    return "<group" + attr + "><name>" + name + "</name>" + content + "</group>";
}

}  // namespace testutil
