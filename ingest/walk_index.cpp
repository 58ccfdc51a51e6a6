// The walk's lookup index: read once when the walk starts, answered in memory per config.
#include "ingest/walk_index.h"

#include <string.h>

#include "platform/kora_log.h"

namespace aim_parser {

namespace {

// Packs an address of four values 0 to 255; false when one is outside that range.
bool pack_address(const int64_t (&a)[4], uint32_t* packed) {
    uint32_t out = 0;
    for (int64_t v : a) {
        if (v < 0 || v > 255) return false;
        out = (out << 8) | static_cast<uint32_t>(v);
    }
    *packed = out;
    return true;
}

uint32_t pack_address(const aim_pci_key_unit* key) {
    return (uint32_t(key->segment) << 24) | (uint32_t(key->bus) << 16) | (uint32_t(key->device) << 8) |
           key->function;
}

// Columns 0-3 of the current row as integers; false when one is not an integer (such a
// row never equals a condition of integer literals).
bool read_address(vqm_db_result_t* result, int64_t (&a)[4]) {
    for (int c = 0; c < 4; ++c) {
        if (vqm_db_result_column_int64(result, c, &a[c]) != 0) return false;
    }
    return true;
}

// Runs a query over every row of `table`; null when it fails. A failure is logged: the
// walk then looks that table's rows up config by config, with the same rows as result.
vqm_db_result_t* query_all(_vqm_db_handle_t* db, const char* table, const char* const* columns, int count) {
    vqm_db_result_t* result = nullptr;
    int rc = vqm_db_query(db, table, columns, count, nullptr, nullptr, nullptr, nullptr, &result);
    if (rc == 0 && result) return result;
    if (result) vqm_db_free_result(result);
    kora_log::logWarn("AIM PARSER: failed to read %s before the walk, rc=%d; looking it up per config", table,
                      rc);
    return nullptr;
}

void load_pcis(_vqm_db_handle_t* db, walk_index& index) {
    static const char* const columns[] = {"SegNo",      "BusNo",          "DeviceNo", "FunctionNo",
                                          "NodeIndex",  "SlotNo",         "DevKey",   "FunKey",
                                          "HardwareId", "HardwareTypeId", "Location", "FunType",
                                          "VendorId",   "SubVendorId",    "DeviceId", "SubDeviceId"};
    vqm_db_result_t* result = query_all(db, "PCIs", columns, 16);
    if (!result) return;
    index.pcis.reserve(vqm_db_result_row_count(result));
    while (vqm_db_result_step(result) == VQM_DB_ROW) {
        int64_t a[4];
        uint32_t packed = 0;
        if (!read_address(result, a) || !pack_address(a, &packed)) continue;
        if (index.pcis.count(packed)) continue;  // a later row of the same address
        walk_index::pci_row& row = index.pcis[packed];
        read_pci_key_columns(result, 4, &row.key);
        uint32_t func_key = 0;
        row.func_key_known = vqm_db_result_column_uint(result, 7, &func_key) == 0;
        if (row.func_key_known) index.pcis_by_func_key.emplace(func_key, packed);
    }
    vqm_db_free_result(result);
    index.pcis_loaded = true;
}

void load_adapters(_vqm_db_handle_t* db, walk_index& index) {
    static const char* const columns[] = {"SegNo", "BusNo", "DeviceNo", "FunctionNo"};
    vqm_db_result_t* result = query_all(db, "PCIAdapter", columns, 4);
    if (!result) return;
    while (vqm_db_result_step(result) == VQM_DB_ROW) {
        int64_t a[4];
        if (read_address(result, a)) index.adapters.insert({a[0], a[1], a[2], a[3]});
    }
    vqm_db_free_result(result);
    index.adapters_loaded = true;
}

void load_firmwares(_vqm_db_handle_t* db, walk_index& index) {
    static const char* const columns[] = {"HardwareId",    "Classification", "SoftwareID",
                                          "VersionString", "ReleaseDate",    "Manufacture"};
    vqm_db_result_t* result = query_all(db, "Firmwares", columns, 6);
    if (!result) return;
    while (vqm_db_result_step(result) == VQM_DB_ROW) {
        std::pair<int64_t, walk_index::firmware_texts> row;
        bool ok = vqm_db_result_column_int64(result, 0, &row.first) == 0;
        for (int i = 0; i < 5 && ok; ++i) {
            // A longer text never equals the identity texts, which are cut to 31 characters.
            char text[64];
            ok = vqm_db_result_column_text(result, 1 + i, text, sizeof text) == 0 &&
                 strlen(text) < sizeof text - 1;
            if (ok) row.second[i] = text;
        }
        if (ok) index.firmwares.insert(std::move(row));
    }
    vqm_db_free_result(result);
    index.firmwares_loaded = true;
}

void load_port_stats(_vqm_db_handle_t* db, walk_index& index) {
    static const char* const columns[] = {"PCIFuncKey"};
    vqm_db_result_t* result = query_all(db, "PCIPhysicalPortStat", columns, 1);
    if (!result) return;
    while (vqm_db_result_step(result) == VQM_DB_ROW) {
        int64_t k = 0;
        if (vqm_db_result_column_int64(result, 0, &k) == 0) index.port_stats.insert(k);
    }
    vqm_db_free_result(result);
    index.port_stats_loaded = true;
}

}  // namespace

void read_pci_key_columns(vqm_db_result_t* result, int first, aim_pci_key_unit* key) {
    aim_pci_key_unit unresolved;
    auto column_or = [&](int column, uint32_t dflt) {
        uint32_t value = 0;
        return vqm_db_result_column_uint(result, first + column, &value) == 0 ? value : dflt;
    };
    key->node_index = (uint16_t)column_or(0, unresolved.node_index);
    key->slot = (uint16_t)column_or(1, unresolved.slot);
    key->dev_key = column_or(2, unresolved.dev_key);
    key->func_key = column_or(3, unresolved.func_key);
    key->hardware_id = column_or(4, unresolved.hardware_id);
    uint32_t hw_type = 0;
    if (vqm_db_result_column_uint(result, first + 5, &hw_type) == 0) {
        key->hardware_type_id = (uint8_t)hw_type;
        key->untyped_hardware = hw_type == 0 ? 1 : 0;
    } else {
        key->hardware_type_id = unresolved.hardware_type_id;
        key->untyped_hardware = 0;
    }
    key->location = (uint8_t)column_or(6, unresolved.location);
    key->function_type = column_or(7, unresolved.function_type);
    key->vendor_id = (uint16_t)column_or(8, unresolved.vendor_id);
    key->subsystem_vendor_id = (uint16_t)column_or(9, unresolved.subsystem_vendor_id);
    key->device_id = (uint16_t)column_or(10, unresolved.device_id);
    key->subsystem_device_id = (uint16_t)column_or(11, unresolved.subsystem_device_id);
}

bool plain_integer(const char* text, int64_t* value) {
    if (!text) return false;
    size_t len = strlen(text);
    bool hex = len > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
    size_t digits = hex ? len - 2 : len;
    // Short enough that no value overflows or turns negative.
    if (digits == 0 || digits > (hex ? 15u : 18u)) return false;
    int64_t v = 0;
    for (const char* p = text + (hex ? 2 : 0); *p; ++p) {
        int d;
        if (*p >= '0' && *p <= '9') {
            d = *p - '0';
        } else if (hex && *p >= 'a' && *p <= 'f') {
            d = *p - 'a' + 10;
        } else if (hex && *p >= 'A' && *p <= 'F') {
            d = *p - 'A' + 10;
        } else {
            return false;
        }
        v = v * (hex ? 16 : 10) + d;
    }
    *value = v;
    return true;
}

void parser::load_walk_index(_vqm_db_handle_t* db) {
    walk_cache.reset(new walk_index);
    load_pcis(db, *walk_cache);
    load_adapters(db, *walk_cache);
    load_port_stats(db, *walk_cache);
    load_firmwares(db, *walk_cache);
}

void parser::drop_walk_index() { walk_cache.reset(); }

bool parser::indexed_pci_key(aim_pci_key_unit* key, int* rc) const {
    if (!walk_cache || !walk_cache->pcis_loaded) return false;
    auto it = walk_cache->pcis.find(pack_address(key));
    if (it == walk_cache->pcis.end()) {
        *rc = -1;
        return true;
    }
    uint8_t segment = key->segment, bus = key->bus, device = key->device, function = key->function;
    *key = it->second.key;
    key->segment = segment;
    key->bus = bus;
    key->device = device;
    key->function = function;
    *rc = 0;
    return true;
}

void parser::indexed_function_type(uint32_t func_key, uint32_t type) {
    if (!walk_cache || !walk_cache->pcis_loaded) return;
    auto range = walk_cache->pcis_by_func_key.equal_range(func_key);
    for (auto it = range.first; it != range.second; ++it) {
        auto row = walk_cache->pcis.find(it->second);
        if (row != walk_cache->pcis.end()) row->second.key.function_type = type;
    }
}

long long parser::indexed_adapter(const char* const (&texts)[4]) const {
    if (!walk_cache || !walk_cache->adapters_loaded) return -2;
    std::array<int64_t, 4> a;
    for (int i = 0; i < 4; ++i) {
        if (!plain_integer(texts[i], &a[i])) return -2;
    }
    return walk_cache->adapters.count(a) ? 1 : 0;
}

void parser::indexed_adapter_inserted(const aim_pci_key_unit* key) {
    if (walk_cache && walk_cache->adapters_loaded)
        walk_cache->adapters.insert({key->segment, key->bus, key->device, key->function});
}

long long parser::indexed_firmware(uint32_t hardware_id, const char* const (&texts)[5]) const {
    if (!walk_cache || !walk_cache->firmwares_loaded) return -2;
    std::pair<int64_t, walk_index::firmware_texts> row;
    row.first = hardware_id;
    for (int i = 0; i < 5; ++i) {
        // A double quote ends the condition's text early: only the database can say what
        // such a condition does.
        if (strchr(texts[i], '"')) return -2;
        row.second[i] = texts[i];
    }
    return walk_cache->firmwares.count(row) ? 1 : 0;
}

void parser::indexed_firmware_inserted(uint32_t hardware_id, const char* const (&texts)[5]) {
    if (!walk_cache || !walk_cache->firmwares_loaded) return;
    std::pair<int64_t, walk_index::firmware_texts> row;
    row.first = hardware_id;
    for (int i = 0; i < 5; ++i) {
        if (!texts[i]) return;  // a column left NULL equals no text
        row.second[i] = texts[i];
    }
    walk_cache->firmwares.insert(std::move(row));
}

void parser::indexed_firmwares_changed() {
    if (!walk_cache) return;
    walk_cache->firmwares_loaded = false;
    walk_cache->firmwares.clear();
}

long long parser::indexed_port_stat(uint32_t func_key) const {
    if (!walk_cache || !walk_cache->port_stats_loaded) return -2;
    return walk_cache->port_stats.count(static_cast<int64_t>(func_key)) ? 1 : 0;
}

const std::vector<uint32_t>* parser::indexed_pldm_records(const aim_pci_key_unit* key) {
    if (!walk_cache) return nullptr;
    walk_index& w = *walk_cache;
    // The list only grows during a walk; should it have been emptied, it is indexed anew.
    if (w.pldm_indexed > pldm_firmware_list.size()) {
        w.pldm_records.clear();
        w.pldm_indexed = 0;
    }
    for (; w.pldm_indexed < pldm_firmware_list.size(); ++w.pldm_indexed) {
        const PLDMFirmwareInfo& r = pldm_firmware_list[w.pldm_indexed];
        w.pldm_records[{r.PCIKey, r.SubDeviceId, r.PCIFuncKey}].push_back(
            static_cast<uint32_t>(w.pldm_indexed));
    }
    static const std::vector<uint32_t> none;
    auto it = w.pldm_records.find({key->dev_key, key->subsystem_device_id, key->func_key});
    return it == w.pldm_records.end() ? &none : &it->second;
}

void parser::indexed_port_stat_inserted(uint32_t func_key) {
    // The row's "PCIFuncKey" is put as a signed 32-bit number.
    if (walk_cache && walk_cache->port_stats_loaded)
        walk_cache->port_stats.insert(static_cast<int32_t>(func_key));
}

}  // namespace aim_parser
