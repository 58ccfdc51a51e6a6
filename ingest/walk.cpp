// The inventory walk: every config of the AIM tree is matched to its present PCI function
// and handed, group by group, to the writers.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "ingest/parser.h"
#include "platform/kora_log.h"
#include "ingest/rows.h"

namespace aim_parser {

namespace {

const char* const generic_group = "PCI Generic Information";
const char* const drive_group = "Disk Drive Information";
const char* const firmware_group = "Firmware Information";

// Value of a setting of `grp`, or null when the group has no such setting.
const char* setting_value(const group* grp, const char* name) {
    const setting_node* s = grp->get_setting_node(name);
    return s ? s->value.c_str() : nullptr;
}

bool contains(const char* text, const char* part) { return text && strstr(text, part) != nullptr; }

// A pfa text converted in automatic base ("0x3b", "59" and "073" are all 59), kept in 8 bits.
uint8_t pfa_number(const std::string& text) { return (uint8_t)strtoul(text.c_str(), nullptr, 0); }

// A drive config whose card names an M.2 drive (SSD, capacity or SED) without a RAID
// controller in front of it.
bool is_non_raid_m2(const char* card_name) {
    if (!contains(card_name, "M.2")) return false;
    static const char* const marks[] = {"SSD", "GB", "TB", "SED"};
    for (const char* mark : marks) {
        if (contains(card_name, mark)) return true;
    }
    return false;
}

}  // namespace

bool parser::parse_inventories(_vqm_db_handle_t* db, inventories* inv) {
    if (!inv) return false;
    bool result = walk_configs(db, inv);
    handle_adapters_after_walk(db);
    return result;
}

bool parser::walk_configs(_vqm_db_handle_t* db, inventories* inv) {
    if (!inv) return false;
    pldm_firmware_list.clear();
    load_walk_index(db);
    bool result = false;
    std::vector<configset*> sets;
    inv->get_configset_list(sets);
    for (configset* cs : sets) {
        if (cs) result = parse_configset(db, cs);
    }
    std::vector<config*> configs;
    inv->get_config_list(configs);
    for (config* cfg : configs) {
        if (cfg) result = parse_config(db, cfg);
    }
    drop_walk_index();
    return result;
}

bool parser::parse_configset(_vqm_db_handle_t* db, configset* cs) {
    if (!cs) return false;
    bool result = false;
    std::vector<config*> configs;
    cs->get_config_list(configs);
    for (config* cfg : configs) {
        if (cfg) result = parse_config(db, cfg);
    }
    return result;
}

bool parser::parse_config(_vqm_db_handle_t* db, config* cfg) {
    if (!cfg) return false;
    const char* id = cfg->id.c_str();
    aim_pci_key_unit key;
    key.segment = pfa_number(cfg->segment);
    key.bus = pfa_number(cfg->bus);
    key.device = pfa_number(cfg->device);
    key.function = pfa_number(cfg->function);

    group* generic = cfg->get_group(generic_group);
    if (!generic) {
        kora_log::logErr(
            "AIM_PARSER: No PCI Generic Information field in AIM XML file under config node: %s!", id);
        return false;
    }
    std::vector<group*> drives;
    generic->get_group(drive_group, drives);
    const bool drive_config = !drives.empty();
    const char* card_name = setting_value(generic, "Card Name");
    const char* connector = setting_value(generic, "Connector Layout");

    if (get_pci_node_slot_key_by_pfa(db, &key) != 0) {
        if (!drive_config) {
            kora_log::logErr("AIM_PARSER: No PCI Info in CDS PCIs table for config: %s!", id);
            return false;
        }
        // The drives are still recorded, under the unresolved key.
        kora_log::logErr("AIM_PARSER: No PCI Info in CDS PCIs table for drive config: %s!", id);
    }

    // The disk writer reports hot-swap drives, VROC members it left out and drive rows it
    // wrote; the walk uses the first and the third.
    bool hot_swap = false, third_flag = false, non_raid_m2 = false;
    if (drive_config) {
        non_raid_m2 = is_non_raid_m2(card_name);
        const char* serial = setting_value(generic, "Serial Number");
        for (group* drive : drives) {
            if (is_suppressed(drive)) continue;
            // A flag holds when any drive group of the config reports it.
            bool hs = false, second = false, third = false;
            parse_disk_info(db, drive, &key, serial, &hs, &second, &third);
            hot_swap = hot_swap || hs;
            third_flag = third_flag || third;
        }
        kora_log::logInfo(
            "AIM PARSER: Find %d instance of Disk Drive(hotswap=%d, bNonRaidM2NVMeDrive=%d), controller slot "
            "= %d\n",
            (int)drives.size(), hot_swap ? 1 : 0, non_raid_m2 ? 1 : 0, (int)key.slot);
    }
    if (hot_swap && !third_flag) return true;
    if (non_raid_m2) {
        aim_supported_keys.insert(key.dev_key);
        kora_log::logInfo("AIM PARSER: [AIM-supported] slot = %u, func_key = %u", (unsigned)key.slot,
                          key.func_key);
        return true;
    }

    vqm_db_content_clear(cv);
    put_adapter_columns(cv, &key, card_name, connector, 1, 1);

    // The duplicate check compares the address texts as the file wrote them. A condition
    // that does not fit the buffer is never cut: it counts as a failed lookup, which the
    // check treats like an existing row. The text only ever reaches a single SELECT.
    // Plain numbers are answered from the walk's index, anything else by the database.
    const char* const texts[4] = {cfg->segment.c_str(), cfg->bus.c_str(), cfg->device.c_str(),
                                  cfg->function.c_str()};
    long long existing = indexed_adapter(texts);
    if (existing == -2) {
        char where[256];
        int len = snprintf(where, sizeof(where), "SegNo=%s AND BusNo=%s AND DeviceNo=%s AND FunctionNo=%s",
                           texts[0], texts[1], texts[2], texts[3]);
        existing = (len < 0 || (size_t)len >= sizeof(where)) ? -1 : find_db_record(db, "PCIAdapter", where);
    }
    if (existing != 0) {
        kora_log::logErr("AIM_PARSER:There is a same config in the table already,conif %s", id);
    } else {
        int rc = vqm_db_insert(db, "PCIAdapter", cv, 0, 0);
        if (rc != 0) {
            kora_log::logWarn("AIM PARSER: failed to insert PCI Adapter Information in config %s, rc=%d", id,
                              rc);
            return false;
        }
        indexed_adapter_inserted(&key);
    }

    if (!contains(card_name, "PCH Integrated SATA")) {
        PLDMFirmwareInfo info;
        info.DeviceType = key.function_type;
        info.PCIKey = key.dev_key;
        info.PCIFuncKey = key.func_key;
        info.Location = key.location;
        info.SlotNo = key.slot;
        info.VendorId = key.vendor_id;
        info.DeviceId = key.device_id;
        info.SubVendorId = key.subsystem_vendor_id;
        info.SubDeviceId = key.subsystem_device_id;
        if (card_name) info.DeviceName = card_name;
        pldm_firmware_list.push_back(info);
    }

    aim_supported_keys.insert(key.dev_key);
    kora_log::logInfo("AIM PARSER: [AIM-supported] slot = %u, func_key = %u", (unsigned)key.slot,
                      key.func_key);

    vqm_db_content_clear(cv);
    put_key_columns(cv, &key);
    int optional = 0;
    if (const char* width = setting_value(generic, "Max Data Width")) {
        // The integer value of the setting, read in automatic base like numeric settings.
        vqm_db_content_put_uint(cv, "MaxDataWidth", (uint32_t)strtoll(width, nullptr, 0));
        ++optional;
    }
    static const char* const misc_texts[][2] = {{"Connector Layout", "ConnectorLayout"},
                                                {"Package Type", "PackageType"},
                                                {"Other Package Type", "OtherPackageType"},
                                                {"AIM Spec Version", "AIMSpecVersion"}};
    for (const auto& m : misc_texts) {
        if (const char* value = setting_value(generic, m[0])) {
            vqm_db_content_put_text(cv, m[1], value);
            ++optional;
        }
    }
    if (optional > 0) {
        int rc = vqm_db_insert(db, "PCIMisc", cv, 0, 0);
        if (rc != 0) {
            kora_log::logWarn("AIM PARSER: failed to insert PCI Misc Information in config %s, rc=%d", id,
                              rc);
            return false;
        }
    }

    if (group* network = generic->get_group("Network Information")) parse_network_info(db, network, &key);
    if (group* gpu = generic->get_group("GPU Information")) parse_gpu_info(db, gpu, &key);

    if (key.untyped_hardware) {
        // Untyped hardware is an LSI RAID controller whose rows are rewritten from the AIM data.
        check_raid_sen(db, &key);
        char hw_where[64];
        snprintf(hw_where, sizeof(hw_where), "HardwareId=%u AND HardwareTypeId=0", key.hardware_id);
        delete_rows(db, "VPDs", hw_where, "LSI Raid Controller VPD Info");
        delete_rows(db, "Firmwares", hw_where, "LSI Raid Controller Firmware Info");
        indexed_firmwares_changed();
    }

    insert_aim_vpd_info(db, generic, &key);

    std::vector<group*> firmwares;
    generic->get_group(firmware_group, firmwares);
    for (size_t i = 0; i < firmwares.size(); ++i) {
        if (!is_suppressed(firmwares[i])) parse_firmware_info(db, firmwares[i], &key, i == 0);
    }

    // Broadcom functions of type 8 are re-typed to 0 once their rows are written.
    if (key.vendor_id == 0x1000 && key.function_type == 8) update_pci_function_type(db, &key, 0);
    return true;
}

}  // namespace aim_parser
