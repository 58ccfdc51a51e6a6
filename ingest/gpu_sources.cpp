// GPU information sources: the NVIDIA device query, the AMD FRU tool, the controller's
// IPMI properties (two generations of keys) and the rows an earlier run stored.
#include <stdarg.h>
#include <stdio.h>
#include <string.h>

#include "gpu/gpu_dev_info.h"
#include "ingest/parser.h"
#include "platform/ipmi_prop.h"
#include "platform/kora_log.h"
#include "platform/os.h"

namespace aim_parser {
namespace {

const char* const prop_root = "/ac/hxsd/dm/planar/0/";

// Reads one property into `field`; on failure the field becomes "N/A" when `na` is set,
// else it keeps its value. Returns the store's code (0 on success).
int read_prop(const char* key, std::string& field, bool na) {
    char value[128];
    memset(value, 0, sizeof value);
    int rc = propdb_get_string(key, value);
    value[sizeof value - 1] = '\0';
    if (rc == 0) {
        field = value;
    } else if (na) {
        field = "N/A";
    }
    return rc;
}

// Formats a property key below the planar root into a 128-byte buffer.
__attribute__((format(printf, 2, 3))) void prop_key(char (&key)[128], const char* fmt, ...) {
    size_t root = strlen(prop_root);
    memcpy(key, prop_root, root);
    va_list ap;
    va_start(ap, fmt);
    vsnprintf(key + root, sizeof key - root, fmt, ap);
    va_end(ap);
}

// Build dates are stored by the baseboard as DDMMYYYY; they are shown as MM/DD/YYYY. A
// value too short to be such a date is kept as read.
std::string reformat_ddmmyyyy(const std::string& d) {
    if (d.size() < 8) return d;
    char out[16];
    snprintf(out, sizeof out, "%c%c/%c%c/%c%c%c%c", d[2], d[3], d[0], d[1], d[4], d[5], d[6], d[7]);
    return out;
}

// The property holding the first-generation GPU core index of a PCI bus, or -1.
int core_of_bus(unsigned char bus) {
    switch (bus) {
        case 0x06:
            return 0;
        case 0x0C:
        case 0x16:
            return 1;
        case 0x26:
        case 0x96:
            return 2;
        case 0x2C:
        case 0xE6:
            return 3;
    }
    return -1;
}

void log_ipmiprop_summary(const gpu_info& info) {
    kora_log::logInfo(
        "AIM PARSER: NVIDIA GPU, IPMI properties:  product_name = %s, part_num = %s, serial_num = %s, "
        "fw_version = "
        "%s, build_data = %s",
        info.product_name.c_str(), info.part_num.c_str(), info.serial_num.c_str(), info.fw_version.c_str(),
        info.build_date.c_str());
}

// A text column of the current row, cut to the buffer (terminator included).
template <size_t N>
void copy_column(vqm_db_result_t* result, const char* column, char (&buffer)[N]) {
    if (extract_str_column_from_result(result, column, buffer, N) != 0) buffer[0] = '\0';
    buffer[N - 1] = '\0';
}

}  // namespace

int parser::get_gpu_info(aim_pci_key_unit* key, gpu_info& info) {
    char path[64];
    snprintf(path, sizeof path, "/tmp/.slot%d_cioname", key->slot);
    FILE* f = fopen(os_path(path).c_str(), "r");
    if (!f) {
        kora_log::logErr("parser::get_gpu_info: Get cio_name failed!!!");
        return 0;
    }
    // The device name is the file's first word; it is cut to the buffer.
    char name[64] = {0};
    if (fscanf(f, "%63s", name) != 1) name[0] = '\0';
    fclose(f);
    kora_log::logInfo("####12/18-1:parser::get_gpu_info cio_name = %s", name);
    gpu_dev_info dev;
    if (!dev.read_gpu_data(name, info, key->vendor_id, key->device_id, key->subsystem_vendor_id,
                           key->subsystem_device_id)) {
        kora_log::logInfo("parser::get_gpu_info, get Nvidia GPU data info failed!");
        return 0;
    }
    return 1;
}

int parser::get_amd_gpu_info(aim_pci_key_unit* key, gpu_info& info) {
    char name[32];
    snprintf(name, sizeof name, "pci%d_amd_gpu_temp", key->slot);
    kora_log::logInfo("parser::get_amd_gpu_info cio_name = %s", name);
    gpu_dev_info dev;
    if (!dev.read_amd_gpu_data(name, info)) {
        kora_log::logInfo("parser::get_amd_gpu_info, read AMD GPU data failed!");
        return 0;
    }
    return 1;
}

// First generation: one GPU baseboard ("ironwood") whose cores are selected by bus.
void parser::get_gpu_info_ipmiprop(gpu_info& info, unsigned char busnum) {
    char key[128];
    int rc = 0;
    prop_key(key, "%s", "ironwood/product_name");
    rc |= read_prop(key, info.product_name, false);
    prop_key(key, "%s", "ironwood/part_num");
    rc |= read_prop(key, info.part_num, false);

    int core = core_of_bus(busnum);
    if (core < 0) {
        kora_log::logWarn(
            "AIM PARSER: Failed to get gpuid for busnum 0x%02x. Deprecated usage needs upgrade to V2.",
            busnum);
        info.serial_num = "N/A";
        info.fw_version = "N/A";
        info.build_date = "N/A";
    } else {
        prop_key(key, "ironwood/gpu_core/%d/sn", core);
        rc |= read_prop(key, info.serial_num, false);
        // Firmware version and build date are the baseboard's, kept under core 0.
        prop_key(key, "%s", "ironwood/gpu_core/0/fw_version");
        rc |= read_prop(key, info.fw_version, false);
        prop_key(key, "%s", "ironwood/gpu_core/0/build_date");
        std::string date;
        int drc = read_prop(key, date, false);
        if (drc == 0) info.build_date = reformat_ddmmyyyy(date);
        rc |= drc;
    }
    if (rc != 0) {
        kora_log::logWarn("AIM PARSER: failed to get NVIDAGPU information from IPMI property, rc=%d", rc);
    }
    log_ipmiprop_summary(info);
}

// Second generation, one set of keys per PCI slot; the build date is kept as stored.
void parser::get_gpu_info_ipmiprop_v2(gpu_info& info, unsigned short slot) {
    kora_log::logInfo("get_gpu_info_ipmiprop_v2() - called slotnum %d", slot);
    struct item {
        const char* name;
        std::string* field;
    };
    const item items[] = {
        {"model", &info.product_name},    {"uuid", &info.uuid},
        {"mfgr", &info.manufacturer},     {"sn", &info.serial_num},
        {"fru", &info.fru_num},           {"pn", &info.part_num},
        {"fw_version", &info.fw_version}, {"build_date", &info.build_date},
    };
    int rc = 0;
    char key[128];
    for (const item& it : items) {
        prop_key(key, "gpu_pci_slot/%d/%s", slot, it.name);
        rc |= read_prop(key, *it.field, true);
    }
    if (rc != 0)
        kora_log::logWarn("AIM PARSER: failed to some GPU data from IPMI properties (v2), rc=%d", rc);
    kora_log::logInfo(
        "AIM PARSER: GPU, IPMI properties (v2):  product_name = %s, part_num = %s, fru_num = %s, serial_num "
        "= %s, "
        "fw_version = %s, build_date = %s",
        info.product_name.c_str(), info.part_num.c_str(), info.fru_num.c_str(), info.serial_num.c_str(),
        info.fw_version.c_str(), info.build_date.c_str());
}

// Second generation under a named node: the baseboard's name and part number, then the
// GPU's own serial number, firmware version and build date. The error code keeps one bit
// per read, the product name's the highest.
void parser::get_gpu_info_ipmiprop_v2(gpu_info& info, unsigned short index, const char* node) {
    static const char* const fn = "get_gpu_info_ipmiprop_v2";
    kora_log::logWarn("%s() - called slotnum %d", fn, index);
    if (!node) node = "";
    char key[128];
    int codes = 0;
    auto read = [&](bool na, std::string& field) {
        kora_log::logWarn("%s() - target prop %s", fn, key);
        int rc = read_prop(key, field, na);
        codes = (codes << 1) | rc;
        return rc;
    };
    prop_key(key, "%s", "ironwood/product_name");
    read(false, info.product_name);
    prop_key(key, "%s", "ironwood/part_num");
    read(false, info.part_num);
    prop_key(key, "%s/%d/sn", node, index);
    read(true, info.serial_num);
    prop_key(key, "%s/%d/fw_version", node, index);
    read(true, info.fw_version);
    prop_key(key, "%s/%d/build_date", node, index);
    std::string date;
    if (read(true, date) == 0) {
        info.build_date = reformat_ddmmyyyy(date);
    } else {
        info.build_date = "N/A";
    }
    if (codes != 0) {
        kora_log::logWarn("AIM PARSER: failed to some GPU data from IPMI properties (v2), errorCodes=%d",
                          codes);
    }
    log_ipmiprop_summary(info);
}

bool parser::read_gpu_info_from_db(_vqm_db_handle_t* db, aim_pci_key_unit* key, gpu_info& info,
                                   bool* maybe_stored) {
    char where[64];
    snprintf(where, sizeof where, "HardwareId=%u", key->func_key);
    static const char* const fw_cols[] = {"VersionString", "ReleaseDate"};
    static const char* const vpd_cols[] = {"SerialNo", "PartNo", "FRUNo", "UUID", "Model"};
    vqm_db_result_t* fw = nullptr;
    vqm_db_result_t* vpd = nullptr;
    int rc_fw = vqm_db_query(db, "Firmwares", fw_cols, 2, where, nullptr, nullptr, nullptr, &fw);
    int rc_vpd = vqm_db_query(db, "VPDs", vpd_cols, 5, where, nullptr, nullptr, nullptr, &vpd);
    bool found = rc_fw == 0 && rc_vpd == 0 && fw && vpd && vqm_db_result_row_count(fw) > 0 &&
                 vqm_db_result_row_count(vpd) > 0 && vqm_db_result_step(fw) == VQM_DB_ROW &&
                 vqm_db_result_step(vpd) == VQM_DB_ROW;
    if (maybe_stored) {
        *maybe_stored = rc_fw != 0 || rc_vpd != 0 || (fw && vqm_db_result_row_count(fw) > 0) ||
                        (vpd && vqm_db_result_row_count(vpd) > 0);
    }
    if (found) {
        char version[33] = {0}, date[17] = {0}, serial[17] = {0}, part[17] = {0}, fru[17] = {0},
             model[33] = {0}, uuid[65] = {0};
        copy_column(fw, "VersionString", version);
        copy_column(fw, "ReleaseDate", date);
        copy_column(vpd, "SerialNo", serial);
        copy_column(vpd, "PartNo", part);
        copy_column(vpd, "FRUNo", fru);
        copy_column(vpd, "Model", model);
        copy_column(vpd, "UUID", uuid);
        info.fw_version = version;
        info.build_date = date;
        info.serial_num = serial;
        info.part_num = part;
        info.fru_num = fru;
        info.product_name = model;
        info.uuid = uuid;
        kora_log::logInfo(
            "AIM PARSER: NVIDIA GPU, old info: part_num = %s, serial_num = %s, fw_version = %s, build_data = "
            "%s, "
            "fru_num = %s, uuid = %s, model = %s",
            part, serial, version, date, fru, uuid, model);
    }
    if (fw) vqm_db_free_result(fw);
    if (vpd) vqm_db_free_result(vpd);
    return found;
}

}  // namespace aim_parser
