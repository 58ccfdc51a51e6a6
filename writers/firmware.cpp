// Firmware: the "Firmwares" row of each firmware group of an adapter, and the
// "PldmDeviceFirmware" table brought into line with the parser's PLDM firmware list after
// the walk.
#include <stdlib.h>
#include <string.h>

#include <array>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "ingest/parser.h"
#include "platform/kora_log.h"
#include "platform/mctp.h"
#include "ingest/rows.h"

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
// earlier record (one kept so far).
void drop_duplicates_without_endpoint(std::vector<PLDMFirmwareInfo>& list) {
    int seg_bits = vqmdb_get_pci_seg_bits(0);
    mctp_eid_table_t* table = MctpEidTableGet(seg_bits);
    std::set<std::pair<uint32_t, uint16_t>> kept_ids;
    size_t kept = 0;
    for (size_t i = 0; i < list.size(); ++i) {
        const PLDMFirmwareInfo& r = list[i];
        uint32_t fk = r.PCIFuncKey;
        uint8_t eid = 0;
        if (table) {
            eid = MctpGetEid(table, seg_bits, static_cast<uint8_t>(fk >> 24), static_cast<uint8_t>(fk >> 16),
                             static_cast<uint8_t>(fk >> 8), static_cast<uint8_t>(fk));
        }
        bool first = kept_ids.insert({r.PCIKey, r.SubDeviceId}).second;
        if (eid != 0) {
            kora_log::logInfo("AIM PARSER: slot = %u, func_key = %u, EID = 0x%02x",
                              static_cast<unsigned>(r.SlotNo), static_cast<unsigned>(fk),
                              static_cast<unsigned>(eid));
        } else if (!first) {
            continue;
        }
        if (kept != i) list[kept] = std::move(list[i]);
        ++kept;
    }
    list.resize(kept);
    if (table) MctpEidTableFree(table);
}

// The columns that match a table row to a record, and those that the update of a
// matched record writes.
const char* const pldm_columns[] = {"PCIKey",      "VendorId",      "SubVendorId", "DeviceId",
                                    "SubDeviceId", "PCIFuncKey",    "_id",         "DeviceType",
                                    "Location",    "SlotNo",        "DeviceName",  "Manufacture",
                                    "SoftwareID",  "VersionString", "ReleaseDate"};
const int pldm_match_columns = 7;
const int pldm_column_count = static_cast<int>(sizeof pldm_columns / sizeof pldm_columns[0]);

// What a kept table row holds, read to tell whether an update would change it.
struct pldm_row {
    // PCIKey, SubDeviceId, PCIFuncKey, DeviceType, Location, SlotNo, VendorId, SubVendorId,
    // DeviceId; a NULL or a value that is not an integer is not ok.
    int64_t ints[9];
    bool ints_ok[9];
    std::string texts[5];  // DeviceName, Manufacture, SoftwareID, VersionString, ReleaseDate
    bool texts_ok[5];
};

// The update condition's three keys of a record.
typedef std::array<int64_t, 3> pldm_update_key;
pldm_update_key update_key(const PLDMFirmwareInfo& r) {
    return {static_cast<int64_t>(r.PCIKey), static_cast<int64_t>(r.SubDeviceId),
            static_cast<int64_t>(r.PCIFuncKey)};
}

// The kept rows that one update condition selects, and how many records update them.
struct pldm_key_rows {
    std::vector<const pldm_row*> rows;
    unsigned updates = 0;
};

// Marks the list records that have a table row and returns the condition that selects the
// rows no record matches ("" when there are none), and the rows that stay. False when the
// table cannot be read.
bool match_table_rows(_vqm_db_handle_t* db, std::vector<PLDMFirmwareInfo>& list, std::string& stale,
                      std::vector<pldm_row>& kept) {
    vqm_db_result_t* result = nullptr;
    int rc = vqm_db_query(db, "PldmDeviceFirmware", pldm_columns, pldm_column_count, nullptr, nullptr,
                          nullptr, nullptr, &result);
    if (rc != 0) {
        if (result) vqm_db_free_result(result);
        return false;
    }
    if (!result) return true;
    // The first record of each identity, as a scan of the list in order finds it.
    std::map<std::array<uint32_t, 6>, PLDMFirmwareInfo*> first_record;
    for (PLDMFirmwareInfo& r : list) {
        first_record.emplace(std::array<uint32_t, 6>{r.PCIKey, r.VendorId, r.SubVendorId, r.DeviceId,
                                                     r.SubDeviceId, r.PCIFuncKey},
                             &r);
    }
    std::string ids;
    while (vqm_db_result_step(result) == VQM_DB_ROW) {
        uint32_t v[pldm_match_columns];
        for (int c = 0; c < pldm_match_columns; ++c) {
            if (vqm_db_result_column_uint(result, c, &v[c]) != 0) v[c] = 0;
        }
        // A second row for a record that already has one is deleted as a stale row: a run
        // whose query here failed inserts every record again, and without this the copies
        // would stay in the table for good (every later run matches both to the record).
        auto match = first_record.find({v[0], v[1], v[2], v[3], v[4], v[5]});
        if (match == first_record.end() || match->second->in_table == 1) {
            ids += (ids.empty() ? "" : ",") + std::to_string(v[6]);
            continue;
        }
        match->second->in_table = 1;
        pldm_row row;
        static const int int_columns[9] = {0, 4, 5, 7, 8, 9, 1, 2, 3};
        for (int i = 0; i < 9; ++i)
            row.ints_ok[i] = vqm_db_result_column_int64(result, int_columns[i], &row.ints[i]) == 0;
        for (int i = 0; i < 5; ++i) {
            char text[256];
            row.texts_ok[i] = vqm_db_result_column_text(result, 10 + i, text, sizeof text) == 0;
            // A text that fills the buffer may have been cut: it never counts as equal.
            row.texts_ok[i] = row.texts_ok[i] && strlen(text) < sizeof text - 1;
            if (row.texts_ok[i]) row.texts[i] = text;
        }
        kept.push_back(std::move(row));
    }
    vqm_db_free_result(result);
    if (!ids.empty()) stale = "_id IN (" + ids + ")";
    return true;
}

// True when every kept row that the record's update selects already holds what the update
// writes (the matching identity columns included), so that it would change nothing.
bool update_changes_nothing(const PLDMFirmwareInfo& r, const std::vector<const pldm_row*>& rows) {
    const int64_t ints[9] = {r.PCIKey, r.SubDeviceId, r.PCIFuncKey,  r.DeviceType, r.Location,
                             r.SlotNo, r.VendorId,    r.SubVendorId, r.DeviceId};
    const std::string* texts[5] = {&r.DeviceName, &r.Manufacture, &r.SoftwareID, &r.VersionString,
                                   &r.ReleaseDate};
    for (const pldm_row* row : rows) {
        for (int i = 0; i < 9; ++i) {
            if (!row->ints_ok[i] || row->ints[i] != ints[i]) return false;
        }
        for (int i = 0; i < 5; ++i) {
            if (i == 3 && r.VersionString.empty()) continue;  // an empty version is not written
            if (!row->texts_ok[i] || row->texts[i] != texts[i]->c_str()) return false;
        }
    }
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
    const char* const texts[5] = {id.classification.c_str(), id.software_id.c_str(), id.version.c_str(),
                                  id.release_date.c_str(), id.manufacturer.c_str()};
    long long existing = indexed_firmware(key->hardware_id, texts);
    if (existing == -2) {
        std::string where = "Classification=\"" + id.classification + "\" AND SoftwareID=\"" +
                            id.software_id + "\" AND VersionString=\"" + id.version +
                            "\" AND ReleaseDate=\"" + id.release_date + "\" AND Manufacture=\"" +
                            id.manufacturer + "\" AND HardwareId=" + std::to_string(key->hardware_id);
        existing = find_db_record(db, "Firmwares", where.c_str());
    }
    if (existing == 0) {
        if (insert_row(db, "Firmwares", cv, "Firmware Information") != 0) return 0;
        // The row as put: the settings' whole texts.
        const char* const labels[5] = {"Classification", "Software ID", "Version String", "Release Date",
                                       "Manufacturer"};
        const char* stored[5];
        for (int i = 0; i < 5; ++i) {
            const setting_node* s = grp->get_setting_node(labels[i]);
            stored[i] = s ? s->value.c_str() : nullptr;
        }
        indexed_firmware_inserted(key->hardware_id, stored);
    }

    // Classification 13 is the firmware that the PLDM records of the adapter describe.
    bool pldm_class = strtol(id.classification.c_str(), nullptr, 10) == 13;
    if (pldm_class || copy_always) {
        auto copy_identity = [&](PLDMFirmwareInfo& r) {
            if (r.PCIKey != key->dev_key || r.SubDeviceId != key->subsystem_device_id || r.aim_matched ||
                r.PCIFuncKey != key->func_key) {
                return;
            }
            r.Manufacture = id.manufacturer;
            r.SoftwareID = id.software_id;
            r.VersionString = id.version;
            r.ReleaseDate = id.release_date;
            if (pldm_class) r.aim_matched = true;
        };
        // The records of this key, first to last: from the walk's index, else the whole list.
        if (const std::vector<uint32_t>* at = indexed_pldm_records(key)) {
            for (uint32_t i : *at) copy_identity(pldm_firmware_list[i]);
        } else {
            for (PLDMFirmwareInfo& r : pldm_firmware_list) copy_identity(r);
        }
    }
    return 1;
}

void parser::handle_pldm_firmware_info_table(_vqm_db_handle_t* db) {
    drop_duplicates_without_endpoint(pldm_firmware_list);

    std::string stale;
    std::vector<pldm_row> kept;
    bool rows_known = match_table_rows(db, pldm_firmware_list, stale, kept);
    if (rows_known && !stale.empty()) {
        int rc = vqm_db_delete(db, "PldmDeviceFirmware", stale.c_str(), 0, 0, 0);
        if (rc != 0) kora_log::logErr("failed to delete records in pldm firmware table: %d", rc);
        // The stale rows may still be there and be selected by an update.
        if (rc != 0) rows_known = false;
    }
    // An update that would write what its rows already hold is left out. Only when it is
    // the one update of its rows: the updates of one row run in order, the last one wins.
    std::map<pldm_update_key, pldm_key_rows> by_key;
    if (rows_known) {
        for (const pldm_row& row : kept) {
            if (row.ints_ok[0] && row.ints_ok[1] && row.ints_ok[2])
                by_key[{row.ints[0], row.ints[1], row.ints[2]}].rows.push_back(&row);
        }
        for (const PLDMFirmwareInfo& r : pldm_firmware_list) {
            if (r.in_table == 1) ++by_key[update_key(r)].updates;
        }
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

        if (r.in_table == 1 && rows_known) {
            const pldm_key_rows& selected = by_key[update_key(r)];
            if (selected.updates == 1 && update_changes_nothing(r, selected.rows)) continue;
        }
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
