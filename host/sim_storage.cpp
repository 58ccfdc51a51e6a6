// Simulated storage of the controller: the present PCI functions ("pcis"), the storage
// controllers and their volume and drive records ("storage"), and the properties database
// ("properties").
//
// machine.json:
//   "pcis": [ {"SegNo": 0, "BusNo": "0x3b", ..., "SlotDesignation": "Slot 1"}, ... ]
//       one object per present function; keys are "PCIs" columns, values numbers (or
//       number texts such as "0x10DE") for number columns and texts for text columns.
//   "storage": {"controller_types": [type of controller 0 or null, type of controller 1 or null]}
//   "properties": {"property name": "value", ...}
//       written to table "propertiesDCTbl" (propName, propValue) of the database
//       "propertiesdb" (<database dir>/propertiesdb.db) when the machine is loaded; without
//       the key there is no properties database.
#include <stdint.h>
#include <stdio.h>

#include <filesystem>
#include <map>

#include "host/db.h"
#include "host/machine.h"
#include "host/storage.h"
#include "platform/kora_log.h"
#include "platform/storage.h"

namespace host {

const char* const properties_db_name = "propertiesdb";
const char* const properties_table = "propertiesDCTbl";

namespace {

struct pci_value {
    bool is_text = false;
    unsigned long long number = 0;
    std::string text;
};
typedef std::vector<std::pair<std::string, pci_value>> pci_row;

std::vector<pci_row> g_pcis;
int g_controller_types[2] = {-1, -1};  // -1: not known
std::string g_properties_file;         // the properties database written for this machine

}  // namespace

const std::vector<std::pair<std::string, std::string>>& schema_columns(const std::string& table) {
    static std::map<std::string, std::vector<std::pair<std::string, std::string>>> cache;
    static const std::vector<std::pair<std::string, std::string>> none;
    auto it = cache.find(table);
    if (it != cache.end()) return it->second;
    _vqm_db_handle_t* db = db_open_file(":memory:");
    std::vector<row> rows;
    if (!db || db_apply_schema(db) != 0) {
        if (db) vqm_db_close(db);
        return none;
    }
    std::string quoted;
    for (char c : table) quoted += c == '\'' ? std::string("''") : std::string(1, c);
    db_select(db, "SELECT name, type FROM pragma_table_info('" + quoted + "') ORDER BY cid", rows);
    vqm_db_close(db);
    std::vector<std::pair<std::string, std::string>> cols;
    for (auto& r : rows) cols.emplace_back(r["name"], r["type"]);
    return cache[table] = cols;
}

int load_machine_pcis(_vqm_db_handle_t* db, std::string* error) {
    int rc = vqm_db_delete(db, "PCIs", nullptr, 0, 0, 0);
    if (rc != 0) {
        if (error) *error = "cannot empty table \"PCIs\", rc=" + std::to_string(rc);
        return rc;
    }
    vqm_db_content_values_t* cv = vqm_db_get_content_values();
    for (size_t i = 0; i < g_pcis.size() && rc == 0; ++i) {
        vqm_db_content_clear(cv);
        for (const auto& c : g_pcis[i]) {
            if (c.second.is_text) {
                vqm_db_content_put_text(cv, c.first.c_str(), c.second.text.c_str());
            } else {
                vqm_db_content_put_uint64(cv, c.first.c_str(), c.second.number);
            }
        }
        rc = vqm_db_insert(db, "PCIs", cv, 0, 0);
        if (rc != 0 && error)
            *error = "cannot insert PCI function " + std::to_string(i) + ", rc=" + std::to_string(rc);
    }
    vqm_db_free_content_values(cv);
    return rc;
}

namespace {

void load_pcis(const machine&, const nlohmann::json& v) {
    g_pcis.clear();
    if (v.is_null()) return;
    if (!v.is_array()) throw machine_error("must be a list of PCI functions");
    const auto& columns = schema_columns("PCIs");
    std::vector<pci_row> rows;
    for (size_t i = 0; i < v.size(); ++i) {
        const nlohmann::json& f = v[i];
        std::string where = "function " + std::to_string(i);
        if (!f.is_object()) throw machine_error(where + " must be an object of \"PCIs\" columns");
        pci_row row;
        for (auto it = f.begin(); it != f.end(); ++it) {
            const std::string& key = it.key();
            const std::pair<std::string, std::string>* col = nullptr;
            for (const auto& c : columns) {
                if (c.first == key && key != "_id") col = &c;
            }
            if (!col) throw machine_error(where + ": \"" + key + "\" is not a column of \"PCIs\"");
            std::string what = where + ": \"" + key + "\"";
            pci_value pv;
            if (col->second == "TEXT") {
                if (!it->is_string() && !it->is_number_integer())
                    throw machine_error(what + " must be a text");
                pv.is_text = true;
                pv.text = it->is_string() ? it->get<std::string>() : it->dump();
            } else {
                pv.number = json_number(*it, what, 0, UINT32_MAX);
            }
            row.emplace_back(key, pv);
        }
        rows.push_back(std::move(row));
    }
    g_pcis = std::move(rows);
}

void load_storage(const machine&, const nlohmann::json& v) {
    g_controller_types[0] = g_controller_types[1] = -1;
    if (v.is_null()) return;
    if (!v.is_object()) throw machine_error("must be an object with \"controller_types\"");
    for (auto it = v.begin(); it != v.end(); ++it) {
        if (it.key() != "controller_types") throw machine_error("unknown key \"" + it.key() + "\"");
    }
    auto types = v.find("controller_types");
    if (types == v.end()) return;
    if (!types->is_array() || types->size() > 2) {
        throw machine_error(
            "\"controller_types\" must be a list of at most two controller types (number or null)");
    }
    int parsed[2] = {-1, -1};
    for (size_t i = 0; i < types->size(); ++i) {
        const nlohmann::json& t = (*types)[i];
        if (!t.is_null()) {
            parsed[i] = static_cast<int>(json_number(t, "controller type " + std::to_string(i), 0, 255));
        }
    }
    g_controller_types[0] = parsed[0];
    g_controller_types[1] = parsed[1];
}

void remove_properties_file() {
    if (g_properties_file.empty()) return;
    std::error_code ec;
    for (const char* suffix : {"", "-wal", "-shm"}) std::filesystem::remove(g_properties_file + suffix, ec);
    g_properties_file.clear();
}

void load_properties(const machine&, const nlohmann::json& v) {
    remove_properties_file();
    if (v.is_null()) return;
    if (!v.is_object()) throw machine_error("must be an object from property name to value");
    std::vector<std::pair<std::string, std::string>> props;
    for (auto it = v.begin(); it != v.end(); ++it) {
        std::string what = "property \"" + it.key() + "\"";
        if (it->is_string()) {
            props.emplace_back(it.key(), it->get<std::string>());
        } else if (it->is_number_integer()) {
            props.emplace_back(it.key(), it->dump());
        } else {
            throw machine_error(what + " must be a text or a whole number");
        }
    }
    const std::string& dir = database_dir();
    if (dir.empty()) return;  // no database dir: the controller has no properties database
    std::string path = dir + "/" + properties_db_name + ".db";
    std::error_code ec;
    std::filesystem::create_directories(dir, ec);
    for (const char* suffix : {"", "-wal", "-shm"}) std::filesystem::remove(path + suffix, ec);
    std::string err;
    _vqm_db_handle_t* db = db_open_file(path, &err);
    if (!db) throw machine_error("cannot create the properties database: " + err);
    g_properties_file = path;
    int rc = db_exec_script(db,
                            std::string("CREATE TABLE \"") + properties_table +
                                "\" (\"_id\" INTEGER PRIMARY KEY, \"propName\" TEXT, \"propValue\" TEXT)",
                            &err);
    vqm_db_content_values_t* cv = vqm_db_get_content_values();
    for (size_t i = 0; i < props.size() && rc == 0; ++i) {
        vqm_db_content_clear(cv);
        vqm_db_content_put_text(cv, "propName", props[i].first.c_str());
        vqm_db_content_put_text(cv, "propValue", props[i].second.c_str());
        rc = vqm_db_insert(db, properties_table, cv, 0, 0);
    }
    vqm_db_free_content_values(cv);
    vqm_db_close(db);
    if (rc != 0) throw machine_error("cannot write the properties database " + path + ": " + err);
}

}  // namespace
}  // namespace host

HOST_MACHINE_SECTION("pcis", host::load_pcis);
HOST_MACHINE_SECTION("storage", host::load_storage);
HOST_MACHINE_SECTION("properties", host::load_properties);

extern "C" {

int vqmdb_get_mvl_ctrl_type(uint8_t* type, int index) {
    if (!type || index < 0 || index > 1 || host::g_controller_types[index] < 0) {
        kora_log::logDbg("storage: type of controller %d is not known", index);
        return -1;
    }
    *type = static_cast<uint8_t>(host::g_controller_types[index]);
    kora_log::logDbg("storage: controller %d has type %d", index, host::g_controller_types[index]);
    return 0;
}

int dmdb_clear_mv_ctrl_vol_info_by_type(int type) {
    kora_log::logDbg("storage: clear volumes of controller type %d", type);
    return 0;
}

int nvme_remove_drv_db_info(int controller_type, int slot) {
    kora_log::logDbg("storage: remove drive record, controller type %d, slot %d", controller_type, slot);
    return 0;
}
}
