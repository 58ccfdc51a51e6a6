// Adapters after the walk: present functions that the AIM file did not describe. Known
// cards are written by their known-card action, GPUs from the GPU information sources,
// and everything else by the catch-all action.
#include <stdio.h>

#include <string>
#include <vector>

#include "gpu/predicates.h"
#include "ingest/parser.h"
#include "ingest/text.h"
#include "platform/cio.h"
#include "platform/kora_log.h"
#include "ingest/rows.h"

namespace aim_parser {
namespace {

const unsigned type_display = 4;       // FunType of a display controller
const unsigned type_accelerator = 16;  // FunType of a processing accelerator
const uint16_t vendor_xilinx = 0x10EE;
const uint16_t vendor_qualcomm = 0x17CB;

// Width code of the "PCIAdapter" connector from a refined slot type.
unsigned width_code(unsigned short slot_type) {
    switch (slot_type) {
        case 166:
        case 172:
        case 178:
        case 185:
            return 19;  // x1
        case 167:
        case 173:
        case 179:
        case 186:
            return 20;  // x2
        case 168:
        case 174:
        case 180:
        case 187:
            return 21;  // x4
        case 169:
        case 175:
        case 181:
        case 188:
            return 22;  // x8
        case 170:
        case 176:
        case 182:
        case 189:
            return 23;  // x16
    }
    return 0;
}

// What was gathered about one GPU without AIM data.
struct gpu_state {
    gpu_info live;    // from the sources asked in this run
    gpu_info stored;  // the copy kept in the database by an earlier run
    bool found_in_db = false;
    // Rows of an NVIDIA GPU may be kept from an earlier run although they could not be read
    // back: they are replaced rather than repeated.
    bool maybe_stored = false;
    bool ubb = false;     // managed over PLDM on a universal baseboard
    bool kelpie = false;  // of the second firmware family
};

// A controller integer flag; a failure is logged and counts as 0. `named` puts the flag's
// name into the messages.
int read_cio_flag(const char* name, bool named) {
    int handle = -1;
    int value = 0;
    int rc = cio_integer_open(name, &handle);
    if (rc != 0) {
        if (named) {
            kora_log::logInfo("cio_integer_open %s failure: %s", name, get_cio_err_str(rc));
        } else {
            kora_log::logInfo("cio_integer_open failure: %s", get_cio_err_str(rc));
        }
        return 0;
    }
    rc = cio_integer_get(handle, &value);
    if (rc != 0) {
        if (named) {
            kora_log::logInfo("cio_integer_get %s failure: %s", name, get_cio_err_str(rc));
        } else {
            kora_log::logInfo("cio_integer_get failure: %s", get_cio_err_str(rc));
        }
        return 0;
    }
    return value;
}

// Fields the live sources left empty are taken from the stored copy.
void fill_from_stored(gpu_info& live, const gpu_info& stored) {
    std::string gpu_info::*fields[] = {&gpu_info::serial_num, &gpu_info::product_name, &gpu_info::uuid,
                                       &gpu_info::part_num,   &gpu_info::fru_num,      &gpu_info::build_date,
                                       &gpu_info::fw_version};
    for (auto f : fields) {
        if ((live.*f).empty()) live.*f = stored.*f;
    }
}

void gather_nvidia(parser& p, _vqm_db_handle_t* db, aim_pci_key_unit& key, gpu_state& g) {
    g.ubb = is_ubb_nvidia_subdevice(key.subsystem_device_id);
    g.kelpie = is_kelpie_fw(key.subsystem_device_id);
    g.found_in_db = p.read_gpu_info_from_db(db, &key, g.stored, &g.maybe_stored);
    g.live.manufacturer = "NVIDIA";
    kora_log::logInfo("!!!!! slot %d, func_type %d - NVidia GPU, found_gpu_info %d, ubb_gpu %d, is_kelpie %d",
                      key.slot, key.function_type, g.found_in_db, g.ubb, g.kelpie);
    int rs_exist = read_cio_flag("RS_EXIST", true);
    int prop_v2 = read_cio_flag("GPU_PROP_V2_EXIST", true);
    if (prop_v2 != 0) {
        kora_log::logInfo("!!!!! NVidia GPU - read ipmiprop v2 fields");
        if (rs_exist == 0) {
            p.get_gpu_info_ipmiprop_v2(g.live, key.slot);
        } else if (key.slot >= 3 && key.slot <= 6) {
            // The baseboard's GPU cores are numbered from slot 6 downwards.
            p.get_gpu_info_ipmiprop_v2(g.live, static_cast<unsigned short>(6 - key.slot),
                                       "ironwood/gpu_core");
        } else {
            kora_log::logWarn("get_gpu_info failed - unexpected slot (%d)", key.slot);
        }
    } else if (rs_exist != 0) {
        p.get_gpu_info_ipmiprop(g.live, key.bus);
    } else {
        if (!p.get_gpu_info(&key, g.live)) kora_log::logInfo("get_gpu_info failed");
        if (g.found_in_db) fill_from_stored(g.live, g.stored);
    }
}

void gather_amd(parser& p, _vqm_db_handle_t* db, aim_pci_key_unit& key, gpu_state& g) {
    g.ubb = is_ubb_amd_subdevice(key.subsystem_device_id);
    g.found_in_db = p.read_gpu_info_from_db(db, &key, g.stored);
    g.live.manufacturer = "AMD";
    kora_log::logInfo("!!!!! slot %d, func_type %d - AMD GPU, found_gpu_info %d, ubb_gpu %d", key.slot,
                      key.function_type, g.found_in_db, g.ubb);
    if (read_cio_flag("GPU_PROP_V2_EXIST", false) != 0) {
        kora_log::logInfo("!!!!! AMD GPU - read ipmiprop v2 fields");
        p.get_gpu_info_ipmiprop_v2(g.live, key.slot);
    } else {
        if (!p.get_amd_gpu_info(&key, g.live)) kora_log::logInfo("get_amd_gpu_info failed");
        if (g.found_in_db) fill_from_stored(g.live, g.stored);
    }
}

// A gathered id, or the function's own where the sources left it 0.
unsigned id_or(uint32_t gathered, uint16_t own) { return gathered != 0 ? gathered : own; }

// Inserts the row, or, for a GPU an earlier run stored, updates it by its hardware id.
// The message of a failed update names the condition.
int write_by_hardware_id(_vqm_db_handle_t* db, vqm_db_content_values_t* cv, const char* table,
                         const gpu_state& g, uint32_t hardware_id, std::string& where) {
    char cond[48];
    snprintf(cond, sizeof cond, "HardwareId = %u", hardware_id);
    if (!g.found_in_db) {
        // Kept rows that could not be read back would stay beside the new one for good (the
        // wipe keeps the rows of a present NVIDIA GPU): they go first.
        if (g.maybe_stored) {
            int rc = vqm_db_delete(db, table, cond, 0, 0, 0);
            if (rc != 0) {
                kora_log::logWarn("AIM PARSER: failed to delete unreadable GPU rows from %s where %s, rc=%d",
                                  table, cond, rc);
            }
        }
        return vqm_db_insert(db, table, cv, 0, 0);
    }
    where = cond;
    return vqm_db_update(db, table, cv, cond, nullptr, 0, 0);
}

// The "PldmDeviceFirmware" row of a UBB GPU adapter; other GPU adapters get none, their
// firmware is not updated over PLDM. The row is looked up before every write, not only for
// GPUs an earlier run stored (the PLDM table step of this run has already dropped rows no
// longer listed), so that the functions of one adapter share one row: the first inserts
// it, the later ones update it.
void write_ubb_pldm_row(parser& p, _vqm_db_handle_t* db, const aim_pci_key_unit& key, unsigned func_key,
                        const std::string& name, const gpu_state& g, const char* software_id) {
    vqm_db_content_values_t* cv = p.cv;
    char where[160];
    snprintf(where, sizeof where,
             "(VendorId=%u) AND (DeviceId=%u) AND (SubVendorId=%u) AND (SubDeviceId=%u) AND (SlotNo=%u)",
             key.vendor_id, key.device_id, key.subsystem_vendor_id, key.subsystem_device_id, key.slot);
    static const char* const cols[] = {"_id"};
    vqm_db_result_t* result = nullptr;
    int rc = vqm_db_query(db, "PldmDeviceFirmware", cols, 1, where, nullptr, nullptr, nullptr, &result);
    if (rc != 0) {
        if (result) vqm_db_free_result(result);
        kora_log::logWarn("AIM PARSER: failed to query UBB PLDM Adapter Information in slot %d, rc=%d",
                          key.slot, rc);
        return;
    }
    unsigned matches = result ? vqm_db_result_row_count(result) : 0;
    if (result) vqm_db_free_result(result);
    if (matches > 1) {
        kora_log::logWarn(
            "AIM PARSER: failed to insert/update UBB PLDM Adapter Information because of multiple matching "
            "rows in "
            "slot %d, rc=%d",
            key.slot, rc);
        return;
    }
    vqm_db_content_clear(cv);
    if (matches == 1) {
        vqm_db_content_put_text(cv, "SoftwareID", software_id);
        vqm_db_content_put_text(cv, "VersionString", g.live.fw_version.c_str());
        vqm_db_content_put_text(cv, "ReleaseDate", g.live.build_date.c_str());
        rc = vqm_db_update(db, "PldmDeviceFirmware", cv, where, nullptr, 0, 0);
        if (rc != 0) {
            kora_log::logWarn("AIM PARSER: failed to update UBB PLDM Adapter Information in slot %d, rc=%d",
                              key.slot, rc);
        }
        return;
    }
    put_pldm_identity_columns(
        cv, {key.function_type, key.dev_key, func_key, key.location, key.slot, key.vendor_id, key.device_id,
             key.subsystem_vendor_id, key.subsystem_device_id, name.c_str(), g.live.manufacturer.c_str(),
             software_id});
    vqm_db_content_put_text(cv, "VersionString", g.live.fw_version.c_str());
    vqm_db_content_put_text(cv, "ReleaseDate", g.live.build_date.c_str());
    vqm_db_content_put_uint(cv, "UpdateSupport", 1);
    vqm_db_content_put_uint(cv, "UpdateMethod", 1);
    rc = vqm_db_insert(db, "PldmDeviceFirmware", cv, 0, 0);
    if (rc != 0) {
        kora_log::logWarn("AIM PARSER: failed to insert UBB PLDM Adapter Information in slot %d, rc=%d",
                          key.slot, rc);
    }
}

// The rows of function `index` of a GPU adapter without AIM data.
void write_gpu_rows(parser& p, _vqm_db_handle_t* db, const aim_pci_key_unit& key, unsigned index,
                    unsigned func_key, const std::string& name, const gpu_state& g) {
    vqm_db_content_values_t* cv = p.cv;
    const gpu_info& info = g.live;
    uint32_t hardware_id = key.hardware_id + index;
    unsigned type_id = key.untyped_hardware ? 0 : 3;
    std::string where;

    vqm_db_content_clear(cv);
    vqm_db_content_put_text(cv, "UUID", info.uuid.c_str());
    vqm_db_content_put_text(cv, "Manufacture", info.manufacturer.c_str());
    vqm_db_content_put_text(cv, "ProductName", name.c_str());
    vqm_db_content_put_text(cv, "SerialNo", info.serial_num.c_str());
    vqm_db_content_put_text(cv, "FRUNo", info.fru_num.c_str());
    vqm_db_content_put_text(cv, "PartNo", info.part_num.c_str());
    vqm_db_content_put_uint(cv, "HardwareId", hardware_id);
    vqm_db_content_put_uint(cv, "HardwareTypeId", type_id);
    vqm_db_content_put_uint(cv, "SlotNo", key.slot);
    vqm_db_content_put_uint(cv, "Location", key.location);
    vqm_db_content_put_text(cv, "Model", info.product_name.c_str());
    if (!g.found_in_db) {
        kora_log::logWarn("AIM PARSER: !!!!!did not find GPU info fill with gpu_inf data, manuf: %s",
                          info.manufacturer.c_str());
    }
    int rc = write_by_hardware_id(db, cv, "VPDs", g, hardware_id, where);
    if (rc != 0) {
        if (g.found_in_db) {
            kora_log::logWarn(
                "AIM PARSER: failed to update AIM-not-supported VPD Information where %s, rc=%d",
                where.c_str(), rc);
        } else {
            kora_log::logWarn(
                "AIM PARSER: failed to insert AIM-not-supported PCI Adapter VPD Information, rc=%d", rc);
        }
    }

    vqm_db_content_clear(cv);
    put_key_columns(cv, &key, index, func_key);
    put_placeholder_misc_columns(cv);
    insert_row(db, "PCIMisc", cv, "AIM-not-supported PCI Adapter MISC Information");

    vqm_db_content_clear(cv);
    put_key_columns(cv, &key, index, func_key);
    vqm_db_content_put_uint(cv, "NumberofPhysicalPorts", 1);
    vqm_db_content_put_uint(cv, "MaxNumberofLogicalPorts", 1);
    insert_row(db, "PCINetwork", cv, "AIM-not-supported PCI Adapter Network Information");

    vqm_db_content_clear(cv);
    put_key_columns(cv, &key, index, func_key);
    vqm_db_content_put_uint(cv, "Idx", index + 1);
    vqm_db_content_put_uint(cv, "NumberofLogicalPorts", 1);
    vqm_db_content_put_text(cv, "PermanentAddress", "N/A");
    vqm_db_content_put_text(cv, "ConnectorLayout", "0");
    insert_row(db, "PCIPhysicalPort", cv, "AIM-not-supported PCI Adapter Physical Port Information");

    vqm_db_content_clear(cv);
    vqm_db_content_put_int(cv, "PCIFuncKey", static_cast<int32_t>(func_key));
    vqm_db_content_put_int(cv, "Idx", static_cast<int32_t>(index + 1));
    vqm_db_content_put_int(cv, "LinkStatus", 1);
    vqm_db_content_put_int(cv, "LinkSpeed", 0);
    vqm_db_content_put_int(cv, "TxUtil", 0);
    vqm_db_content_put_int(cv, "RxUtil", 0);
    insert_row(db, "PCIPhysicalPortStat", cv,
               "AIM-not-supported PCI Adapter Physical Port State Information");

    vqm_db_content_clear(cv);
    put_key_columns(cv, &key, index, func_key);
    vqm_db_content_put_uint(cv, "MaxDataSize", 12000);
    vqm_db_content_put_text(cv, "PermanentAddress", "000000000000");
    vqm_db_content_put_text(cv, "NetworkAddresses", "000000000000");
    vqm_db_content_put_uint(cv, "PhyIdx", index + 1);
    vqm_db_content_put_uint(cv, "Idx", 1);
    vqm_db_content_put_text(cv, "LinkTechnology", "2");
    vqm_db_content_put_text(cv, "vNICMode", "0");
    vqm_db_content_put_uint64(cv, "MaxSpeed", 1);
    vqm_db_content_put_text(cv, "ProtocolType", "6");
    vqm_db_content_put_text(cv, "Ethernet", "1");
    vqm_db_content_put_text(cv, "FCoEFC", "0");
    vqm_db_content_put_text(cv, "iSCSI", "0");
    // The statistics row's message, on purpose.
    insert_row(db, "PCILogicalPort", cv, "AIM-not-supported PCI Adapter Physical Port State Information");

    // UBB and second-family GPUs are identified by their subsystem ids, the others by their
    // vendor and device ids.
    char swid[16];
    if (g.ubb || g.kelpie) {
        software_id(swid, id_or(info.subsystem_vendor_id, key.subsystem_vendor_id),
                    id_or(info.subsystem_device_id, key.subsystem_device_id));
    } else {
        software_id(swid, id_or(info.vendor_id, key.vendor_id), id_or(info.device_id, key.device_id));
    }
    vqm_db_content_clear(cv);
    vqm_db_content_put_text(cv, "FirmwareName", "Software Bundle");
    vqm_db_content_put_text(cv, "VersionString", info.fw_version.c_str());
    vqm_db_content_put_text(
        cv, "Description",
        "Firmware package containing controller firmware, UEFI Driver, and other sub components.");
    vqm_db_content_put_text(cv, "ReleaseDate", info.build_date.c_str());
    vqm_db_content_put_text(cv, "Manufacture", info.manufacturer.c_str());
    vqm_db_content_put_text(cv, "Classification", "13");
    vqm_db_content_put_text(cv, "SoftwareID", swid);
    vqm_db_content_put_uint(cv, "HardwareId", hardware_id);
    vqm_db_content_put_uint(cv, "HardwareTypeId", type_id);
    rc = write_by_hardware_id(db, cv, "Firmwares", g, hardware_id, where);
    if (rc != 0) {
        if (g.found_in_db) {
            kora_log::logWarn("AIM PARSER: failed to update AIM-not-supported Firmware Information, rc=%d",
                              rc);
        } else {
            kora_log::logWarn("AIM PARSER: failed to insert AIM-not-supported Firmware Information, rc=%d",
                              rc);
        }
    }

    // A UBB GPU's software id is already the one of its subsystem ids.
    if (g.ubb) write_ubb_pldm_row(p, db, key, func_key, name, g, swid);
}

// One present function without AIM data. Only one pass is made per GPU device (at its
// function 0, over all of the device's function keys).
void handle_function(parser& p, _vqm_db_handle_t* db, aim_pci_key_unit& key,
                     std::vector<unsigned>& gpu_keys) {
    bool nvidia = is_nvidia_vendor(key.vendor_id) && key.function_type == type_display;
    bool amd = is_ubb_amd_vendor(key.vendor_id) &&
               (key.function_type == type_display || key.function_type == type_accelerator);
    bool other = key.vendor_id == vendor_qualcomm && key.function_type == type_accelerator;
    bool is_gpu = key.location == 1 && (nvidia || amd || other);
    kora_log::logInfo("!!!!! slot %d, func_type %d, function %d, is_gpu %d", key.slot, key.function_type,
                      key.function, is_gpu);
    if (is_gpu && key.function != 0) return;
    kora_log::logInfo("!!!!! slot %d, func_type %d", key.slot, key.function_type);

    gpu_state g;
    if (key.location == 1 && nvidia) {
        gather_nvidia(p, db, key, g);
    } else if (key.location == 1 && amd) {
        gather_amd(p, db, key, g);
    }

    AdapterInfo info;
    info.clear();
    unsigned short slot_type = 0;
    p.get_pci_slot_type_by_pfa(db, &key, &slot_type, nullptr, 0);
    char width[16];
    snprintf(width, sizeof width, "%u", width_code(slot_type));

    bool gpu_adapter = is_gpu && key.vendor_id != vendor_xilinx;
    std::string name;
    std::vector<unsigned> keys;
    if (gpu_adapter) {
        name = g.live.product_name.empty() ? adapter_address_name(&key) : g.live.product_name;
        p.find_pci_func_keys(db, key.vendor_id, key.subsystem_vendor_id, key.subsystem_device_id, key.segment,
                             key.bus, key.device, static_cast<unsigned short>(key.function_type), keys);
    } else {
        p.hc_set_idx(key.vendor_id, key.device_id, key.subsystem_vendor_id, key.subsystem_device_id);
        p.find_pci_func_keys(db, key.vendor_id, key.subsystem_vendor_id, key.subsystem_device_id, key.segment,
                             key.bus, key.device, static_cast<unsigned short>(key.function_type), keys);
        // An unknown card is one adapter, whatever its functions.
        if (p.hc_is_aim_not_support_dev() && keys.size() > 1) keys.resize(1);
        if (aim_hc_card* card = p.hc_get_table()) name = card->name;
    }

    for (unsigned i = 0; i < keys.size(); ++i) {
        kora_log::logInfo("AIM PARSER: [No AIM Support] Slot %u, [%04X %04X %04X %04X], %s, Is_gpu = %d",
                          key.slot, key.vendor_id, key.device_id, key.subsystem_vendor_id,
                          key.subsystem_device_id, name.c_str(), is_gpu);
        // The "PCIAdapter" row of the function: named after the adapter unless the action
        // names it, its connector the slot's width code unless the action sets it.
        info.segment = key.segment;
        info.bus = key.bus;
        info.device = key.device;
        info.function = static_cast<uint8_t>(key.function + i);
        info.node = key.node_index;
        info.slot = key.slot;
        copy_text(info.card_name, sizeof info.card_name, name.c_str());
        copy_text(info.connector_type, sizeof info.connector_type, width);
        info.aim_supported = 0;
        info.oob_src = 0;
        info.pci_key = key.dev_key;
        info.pci_func_key = keys[i];
        info.location = key.location;
        if (gpu_adapter) {
            write_gpu_rows(p, db, key, i, keys[i], name, g);
            gpu_keys.push_back(keys[i]);
            info.oob_src = 8;  // identity gathered by the controller itself
        } else {
            p.hc_do_action(db, &key, i, keys[i], &info);
        }
        info.insert(db, p.cv);
    }
}

}  // namespace

void parser::handle_adapters_after_walk(_vqm_db_handle_t* db) {
    handle_pldm_firmware_info_table(db);
    get_pci_vnic_supported_info(db);

    std::vector<aim_pci_key_unit> list;
    get_pci_no_aim_supported_node_slot_list(db, list);
    std::vector<unsigned> gpu_keys;
    if (cv) {
        for (aim_pci_key_unit& key : list) handle_function(*this, db, key, gpu_keys);
    }

    int rc = delete_non_exist_gpu(db, gpu_keys);
    if (rc != 0) kora_log::logWarn("AIM PARSER: failed to delete non exist nvidia info, rc=%d", rc);
    rc = vqmdb_merge_aim_ucm_pfa(rc);
    if (rc != 0) kora_log::logWarn("AIM PARSER: failed to merge UCM & AIM, rc=%d", rc);
}

// Present functions whose device neither a config of the AIM file nor the vNIC data
// covered, one row per device: NVM Express controllers (class code 0x010802), functions of
// unknown type (7) and functions at location 2 are left out. Which function of a device
// stands for it is the database's choice (the first one, for the controller's database);
// the per-function steps then collect all of the device's function keys.
//
// The condition carries one "(DevKey <> k) AND " term per covered device. It is built in
// one pass into a buffer sized up front, so building it is linear in the covered devices;
// the database client evaluates such a run of terms on one column as one set test, so the
// query does not grow with the square of the file.
int parser::get_pci_no_aim_supported_node_slot_list(_vqm_db_handle_t* db,
                                                    std::vector<aim_pci_key_unit>& list) {
    static const char devkey_term[] = "(DevKey <> 4294967295) AND ";
    static const char fixed_terms[] =
        "(ClsCode!=67586) AND (FunType!=7) AND (Location!=2)) GROUP BY DevKey,VendorId,DeviceId,SegNo,BusNo";
    std::string where;
    where.reserve(1 + (aim_supported_keys.size() + vnic_supported_keys.size()) * (sizeof devkey_term - 1) +
                  sizeof fixed_terms);
    where += '(';
    for (const std::set<uint32_t>* keys : {&aim_supported_keys, &vnic_supported_keys}) {
        for (uint32_t k : *keys) {
            char term[sizeof devkey_term];
            snprintf(term, sizeof term, "(DevKey <> %u) AND ", k);
            where += term;
        }
    }
    where += fixed_terms;

    static const char* const cols[] = {"SegNo",      "BusNo",          "DeviceNo",    "FunctionNo",
                                       "NodeIndex",  "SlotNo",         "DevKey",      "FunKey",
                                       "HardwareId", "HardwareTypeId", "Location",    "VendorId",
                                       "DeviceId",   "SubVendorId",    "SubDeviceId", "FunType"};
    const int ncols = static_cast<int>(sizeof cols / sizeof cols[0]);
    vqm_db_result_t* result = nullptr;
    int rc = vqm_db_query(db, "PCIs", cols, ncols, where.c_str(), nullptr, nullptr, nullptr, &result);
    if (rc != 0 || !result) {
        if (result) vqm_db_free_result(result);
        if (rc != 0) kora_log::logWarn("AIM PARSER: failed to query AIM-not-supported adapters, rc=%d", rc);
        return rc != 0 ? -1 : 0;
    }
    while (vqm_db_result_step(result) == VQM_DB_ROW) {
        uint32_t v[ncols];
        bool ok[ncols];
        for (int c = 0; c < ncols; ++c) {
            v[c] = 0;
            ok[c] = vqm_db_result_column_uint(result, c, &v[c]) == 0;
        }
        aim_pci_key_unit key;
        key.segment = static_cast<uint8_t>(v[0]);
        key.bus = static_cast<uint8_t>(v[1]);
        key.device = static_cast<uint8_t>(v[2]);
        key.function = static_cast<uint8_t>(v[3]);
        key.node_index = static_cast<uint16_t>(v[4]);
        key.slot = static_cast<uint16_t>(v[5]);
        key.dev_key = v[6];
        key.func_key = v[7];
        key.hardware_id = v[8];
        if (ok[9]) {
            key.hardware_type_id = static_cast<uint8_t>(v[9]);
            key.untyped_hardware = v[9] == 0;
        }
        key.location = static_cast<uint8_t>(v[10]);
        key.vendor_id = static_cast<uint16_t>(v[11]);
        key.device_id = static_cast<uint16_t>(v[12]);
        key.subsystem_vendor_id = static_cast<uint16_t>(v[13]);
        key.subsystem_device_id = static_cast<uint16_t>(v[14]);
        if (ok[15]) key.function_type = v[15];
        list.push_back(key);
        kora_log::logInfo("AIM-not-supported adapter, Key: %u, funcKey: %u", key.dev_key, key.func_key);
    }
    vqm_db_free_result(result);
    return static_cast<int>(list.size());
}

}  // namespace aim_parser
