// Firmware: the "Firmwares" row of each firmware group of an adapter, and the
// "PldmDeviceFirmware" table brought into line with the parser's PLDM firmware list after
// the walk.
#include <stdlib.h>
#include <string.h>

#include <string>

#include "ingest/parser.h"
#include "platform/kora_log.h"
#include "platform/mctp.h"
#include "writers/columns.h"

namespace aim_parser {
namespace {

// The firmware identity texts are compared and copied in at most this many characters.
const size_t firmware_text_max = 31;

std::string firmware_text(const setting_node* s) {
    if (!s) return std::string();
    return std::string(s->value.c_str(), strnlen(s->value.c_str(), firmware_text_max));
}

// The firmware identity of one group, cut as it is compared and copied.
struct firmware_identity {
    std::string classification;
    std::string software_id;
    std::string version;
    std::string release_date;
    std::string manufacturer;
};

// Drops records without an MCTP endpoint that repeat the PCIKey and SubDeviceId of an
// earlier record.
void drop_duplicates_without_endpoint(std::vector<PLDMFirmwareInfo>& list) {
    int seg_bits = vqmdb_get_pci_seg_bits(0);
    mctp_eid_table_t* table = MctpEidTableGet(seg_bits);
    size_t i = 0;
    while (i < list.size()) {
        const PLDMFirmwareInfo& r = list[i];
        uint32_t fk = r.PCIFuncKey;
        uint8_t eid = 0;
        if (table) {
            eid = MctpGetEid(table, seg_bits, static_cast<uint8_t>(fk >> 24), static_cast<uint8_t>(fk >> 16),
                             static_cast<uint8_t>(fk >> 8), static_cast<uint8_t>(fk));
        }
        if (eid != 0) {
            kora_log::logInfo("AIM PARSER: slot = %u, func_key = %u, EID = 0x%02x",
                              static_cast<unsigned>(r.SlotNo), static_cast<unsigned>(fk),
                              static_cast<unsigned>(eid));
            ++i;
            continue;
        }
        bool repeated = false;
        for (size_t j = 0; j < i && !repeated; ++j) {
            repeated = list[j].PCIKey == r.PCIKey && list[j].SubDeviceId == r.SubDeviceId;
        }
        if (repeated) {
            list.erase(list.begin() + static_cast<std::ptrdiff_t>(i));
        } else {
            ++i;
        }
    }
    if (table) MctpEidTableFree(table);
}

// Marks the list records that have a table row and returns the condition that selects the
// rows no record matches ("" when there are none). False when the table cannot be read.
bool match_table_rows(_vqm_db_handle_t* db, std::vector<PLDMFirmwareInfo>& list, std::string& stale) {
    static const char* const columns[] = {"PCIKey",      "VendorId",   "SubVendorId", "DeviceId",
                                          "SubDeviceId", "PCIFuncKey", "_id"};
    vqm_db_result_t* result = nullptr;
    int rc = vqm_db_query(db, "PldmDeviceFirmware", columns, 7, nullptr, nullptr, nullptr, nullptr, &result);
    if (rc != 0) {
        if (result) vqm_db_free_result(result);
        return false;
    }
    if (!result) return true;
    std::string ids;
    while (vqm_db_result_step(result) == VQM_DB_ROW) {
        uint32_t v[7];
        for (int c = 0; c < 7; ++c) {
            if (vqm_db_result_column_uint(result, c, &v[c]) != 0) v[c] = 0;
        }
        PLDMFirmwareInfo* match = nullptr;
        for (PLDMFirmwareInfo& r : list) {
            if (r.PCIKey == v[0] && r.VendorId == v[1] && r.SubVendorId == v[2] && r.DeviceId == v[3] &&
                r.SubDeviceId == v[4] && r.PCIFuncKey == v[5]) {
                match = &r;
                break;
            }
        }
        // A second row for a record that already has one is deleted as a stale row: a run
        // whose query here failed inserts every record again, and without this the copies
        // would stay in the table for good (every later run matches both to the record).
        if (match && match->in_table != 1) {
            match->in_table = 1;
        } else {
            ids += (ids.empty() ? "" : ",") + std::to_string(v[6]);
        }
    }
    vqm_db_free_result(result);
    if (!ids.empty()) stale = "_id IN (" + ids + ")";
    return true;
}

}  // namespace

unsigned parser::parse_firmware_info(_vqm_db_handle_t* db, group* grp, aim_pci_key_unit* key,
                                     bool copy_always) {
    if (!grp || !key) return 0;
    vqm_db_content_clear(cv);
    static const setting_column columns[] = {
        {"Firmware Name", "FirmwareName", column_kind::text},
        {"Version String", "VersionString", column_kind::text},
        {"Description", "Description", column_kind::text},
        {"Release Date", "ReleaseDate", column_kind::text},
        {"Manufacturer", "Manufacture", column_kind::text},
        {"Classification", "Classification", column_kind::text},
        {"Software ID", "SoftwareID", column_kind::text},
    };
    unsigned found = put_settings(cv, grp, columns);
    firmware_identity id;
    id.version = firmware_text(grp->get_setting_node("Version String"));
    id.release_date = firmware_text(grp->get_setting_node("Release Date"));
    id.manufacturer = firmware_text(grp->get_setting_node("Manufacturer"));
    id.classification = firmware_text(grp->get_setting_node("Classification"));
    id.software_id = firmware_text(grp->get_setting_node("Software ID"));

    vqm_db_content_put_uint(cv, "HardwareId", key->hardware_id);
    vqm_db_content_put_uint(cv, "HardwareTypeId", key->untyped_hardware ? 0 : 3);
    if (found == 0) return 1;

    // An identical firmware row (same hardware and identity texts) is kept as it is.
    std::string where = "Classification=\"" + id.classification + "\" AND SoftwareID=\"" + id.software_id +
                        "\" AND VersionString=\"" + id.version + "\" AND ReleaseDate=\"" + id.release_date +
                        "\" AND Manufacture=\"" + id.manufacturer +
                        "\" AND HardwareId=" + std::to_string(key->hardware_id);
    if (find_db_record(db, "Firmwares", where.c_str()) == 0 &&
        insert_row(db, "Firmwares", cv, "Firmware Information") != 0) {
        return 0;
    }

    // Classification 13 is the firmware that the PLDM records of the adapter describe.
    bool pldm_class = strtol(id.classification.c_str(), nullptr, 10) == 13;
    if (pldm_class || copy_always) {
        for (PLDMFirmwareInfo& r : pldm_firmware_list) {
            if (r.PCIKey != key->dev_key || r.SubDeviceId != key->subsystem_device_id || r.aim_matched ||
                r.PCIFuncKey != key->func_key) {
                continue;
            }
            r.Manufacture = id.manufacturer;
            r.SoftwareID = id.software_id;
            r.VersionString = id.version;
            r.ReleaseDate = id.release_date;
            if (pldm_class) r.aim_matched = true;
        }
    }
    return 1;
}

void parser::handle_pldm_firmware_info_table(_vqm_db_handle_t* db) {
    drop_duplicates_without_endpoint(pldm_firmware_list);

    std::string stale;
    if (match_table_rows(db, pldm_firmware_list, stale) && !stale.empty()) {
        int rc = vqm_db_delete(db, "PldmDeviceFirmware", stale.c_str(), 0, 0, 0);
        if (rc != 0) kora_log::logErr("failed to delete records in pldm firmware table: %d", rc);
    }

    for (const PLDMFirmwareInfo& r : pldm_firmware_list) {
        vqm_db_content_clear(cv);
        put_pldm_identity_columns(cv, {r.DeviceType, r.PCIKey, r.PCIFuncKey, r.Location, r.SlotNo, r.VendorId,
                                       r.DeviceId, r.SubVendorId, r.SubDeviceId, r.DeviceName.c_str(),
                                       r.Manufacture.c_str(), r.SoftwareID.c_str()});
        if (r.VersionString.empty()) {
            kora_log::logWarn("AIM PARSER: Empty PLDM VersionString in slot %d", static_cast<int>(r.SlotNo));
        } else {
            vqm_db_content_put_text(cv, "VersionString", r.VersionString.c_str());
        }
        vqm_db_content_put_text(cv, "ReleaseDate", r.ReleaseDate.c_str());

        if (r.in_table == 1) {
            std::string where = "PCIKey=" + std::to_string(r.PCIKey) +
                                " AND SubDeviceId=" + std::to_string(r.SubDeviceId) +
                                " AND PCIFuncKey=" + std::to_string(r.PCIFuncKey);
            int rc = vqm_db_update(db, "PldmDeviceFirmware", cv, where.c_str(), nullptr, 0, 0);
            if (rc != 0) {
                kora_log::logWarn("AIM PARSER: failed to update PLDM Firmware Information in slot %d, rc=%d",
                                  static_cast<int>(r.SlotNo), rc);
            }
        } else if (r.in_table == 0) {
            int rc = vqm_db_insert(db, "PldmDeviceFirmware", cv, 0, 0);
            if (rc != 0) {
                kora_log::logWarn("AIM PARSER: failed to insert PLDM Adapter Information in slot %d, rc=%d",
                                  static_cast<int>(r.SlotNo), rc);
            }
        }
    }
}

}  // namespace aim_parser
