// Removal of the previous run's rows before a run, and of the rows of GPUs that are no
// longer present after it.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <string>

#include "ingest/parser.h"
#include "ingest/properties.h"
#include "platform/kora_log.h"
#include "platform/storage.h"
#include "ingest/rows.h"

namespace aim_parser {

namespace {

// Storage controller types and the volume type of each controller's drives.
const int first_ctrl_drive_type = 3;
const int second_ctrl_drive_type = 4;
const int drive_slots = 4;

// Removes the NVIDIA rows of `table` whose GPU the "PCIs" table no longer lists. A failure
// is only logged (with the VPDs text for both tables, as the message always read).
void delete_absent_nvidia_rows(_vqm_db_handle_t* db, const char* table) {
    char sql[160];
    memset(sql, 0, sizeof(sql));
    snprintf(
        sql, sizeof(sql),
        "delete from %s where (Manufacture='%s' and HardwareId NOT in (select HardwareId from PCIs where "
        "VendorId=0x10DE))",
        table, "NVIDIA");
    vqm_db_result_t* result = nullptr;
    int rc = vqm_db_raw_query(db, sql, 160, &result);
    if (rc != 0) kora_log::logErr("failed to delete non-existing NVIDIA GPU info from VPDs table, rc=%d", rc);
    if (result) vqm_db_free_result(result);
}

// Clears stale volume records of controller `index`, which holds volumes of type `type_a`
// or `type_b`: a controller of one type clears the records of the other; a controller of
// any other type clears both, `type_a` first. A failed type read clears nothing.
void clear_volumes(int index, int type_a, int type_b) {
    uint8_t type = 0;
    if (vqmdb_get_mvl_ctrl_type(&type, index) != 0) return;
    if (type == type_a) {
        dmdb_clear_mv_ctrl_vol_info_by_type(type_b);
    } else if (type == type_b) {
        dmdb_clear_mv_ctrl_vol_info_by_type(type_a);
    } else {
        dmdb_clear_mv_ctrl_vol_info_by_type(type_a);
        dmdb_clear_mv_ctrl_vol_info_by_type(type_b);
    }
}

}  // namespace

bool parser::wipe(_vqm_db_handle_t* db) {
    // GPU rows of NVIDIA are kept while the GPU is present; every other typed row goes.
    char kept_gpu[128];
    snprintf(kept_gpu, sizeof(kept_gpu), "((%s=%d OR %s=%d) AND Manufacture!='%s') OR Manufacture IS NULL",
             "HardwareTypeId", 3, "HardwareTypeId", 0, "NVIDIA");

    if (delete_rows(db, "PCIAdapter", nullptr, "PCI Adapter Table") != 0) return false;
    delete_absent_nvidia_rows(db, "VPDs");
    if (delete_rows(db, "VPDs", kept_gpu, "PCI VPD Info") != 0) return false;
    if (delete_rows(db, "PCIMisc", nullptr, "PCI Misc Info") != 0) return false;
    delete_absent_nvidia_rows(db, "Firmwares");
    if (delete_rows(db, "Firmwares", kept_gpu, "PCI Firmware Info") != 0) return false;

    static const char* const tables[][2] = {
        {"PCINetwork", "PCI Network Info"},
        {"PCIPhysicalPort", "PCI Physical Port Info"},
        {"PCIPhysicalPortStat", "PCI Physical Port Stat Info"},
        {"PCILogicalPort", "PCI Logical Port Info"},
        {"AimDisks", "Aim Disk Info"},
        {"PCIGPU", "PCI GPU Info"},
        {"AimDisks", "Aim Disk Info"},
    };
    for (const auto& t : tables) {
        if (delete_rows(db, t[0], nullptr, t[1]) != 0) return false;
    }

    // Controller 0 owns volume types 1 and 3, controller 1 types 2 and 4.
    clear_volumes(0, 3, 1);
    clear_volumes(1, 4, 2);

    int rc = get_drive_presence();
    if (rc != 0) {
        kora_log::logWarn("AIM PARSER: failed to get drive presence, rc=%d", rc);
        drive_presence_known = false;
        return true;
    }
    for (int slot = 0; slot < drive_slots; ++slot) {
        if (!(drive_presence[0] & (1u << slot))) nvme_remove_drv_db_info(first_ctrl_drive_type, slot);
        if (!(drive_presence[1] & (1u << slot))) nvme_remove_drv_db_info(second_ctrl_drive_type, slot);
    }
    drive_presence_known = true;
    return true;
}

int parser::delete_non_exist_gpu(_vqm_db_handle_t* db, std::vector<unsigned>& hardware_ids) {
    std::string where = "Manufacture='";
    where += "NVIDIA";
    where += "'";
    if (!hardware_ids.empty()) {
        where += " AND HardwareId NOT IN (";
        for (size_t i = 0; i < hardware_ids.size(); ++i) {
            char id[16];
            snprintf(id, sizeof(id), "%s%u", i ? "," : "", hardware_ids[i]);
            where += id;
        }
        where += ")";
    }
    delete_rows(db, "VPDs", where.c_str(), "non-exist gpu info");
    return delete_rows(db, "Firmwares", where.c_str(), "non-exist gpu info");
}

// ---- Drive presence ----
//
// The presence of the boot drives is read from the controller's properties database
// ("propertiesdb", table "propertiesDCTbl", columns propName and propValue). Values are
// numbers in automatic base ("0x3", "3" and "03" are the same).
//
// - "...mv/<c>/drive...presence" (controller c = 0 or 1): when the name holds a slot number
//   right after "drive" ("mv/0/drive1/presence"), a non-zero value marks that one slot
//   present; otherwise the value is the whole mask of present slots (bit n: slot n). All
//   matching properties of a controller are or-ed together.
// - "...mv/<c>/slots": the number of drive slots of the controller; presence bits beyond
//   it are dropped. Without the property every bit is kept.
// - "...hdd...type": the kind of drive behind the second controller. Its drives count as
//   present only when the value names 7mm drives ("7mm", any case); otherwise the second
//   mask is 0 and its drive records are removed.
//
// The first mask (M.2 drives of controller 0) is its presence restricted to its slots; the
// second mask is the 7mm presence, i.e. controller 1's presence restricted to its slots.

_vqm_db_handle_t* open_properties_db() { return vqm_db_open("localhost", "root", "", "propertiesdb", 0); }

int query_properties(_vqm_db_handle_t* pdb, const char* where, property_rows& out) {
    static const char* const columns[] = {"propName", "propValue"};
    vqm_db_result_t* result = nullptr;
    int rc = vqm_db_query(pdb, "propertiesDCTbl", columns, 2, where, nullptr, nullptr, nullptr, &result);
    if (rc == 0 && result) {
        while (vqm_db_result_step(result) == VQM_DB_ROW) {
            char name[128] = "", value[64] = "";
            if (vqm_db_result_column_text(result, 0, name, sizeof(name)) != 0) name[0] = '\0';
            if (vqm_db_result_column_text(result, 1, value, sizeof(value)) != 0) value[0] = '\0';
            out.names.push_back(name);
            out.values.push_back(value);
        }
    }
    if (result) vqm_db_free_result(result);
    return rc;
}

namespace {

unsigned number(const std::string& text) { return (unsigned)strtoul(text.c_str(), nullptr, 0); }

// The presence mask of one controller from its drive presence properties.
unsigned presence_mask(const property_rows& rows) {
    unsigned mask = 0;
    for (size_t i = 0; i < rows.names.size(); ++i) {
        const std::string& name = rows.names[i];
        size_t at = name.rfind("drive");
        size_t digits = at == std::string::npos ? std::string::npos : at + 5;
        if (digits < name.size() && name[digits] >= '0' && name[digits] <= '9') {
            unsigned slot = (unsigned)strtoul(name.c_str() + digits, nullptr, 10);
            if (slot < 8 && number(rows.values[i]) != 0) mask |= 1u << slot;
        } else {
            mask |= number(rows.values[i]);
        }
    }
    return mask & 0xFF;
}

// The bits of the controller's slots (all eight without a slots property).
unsigned slot_mask(const property_rows& rows) {
    if (rows.values.empty()) return 0xFF;
    unsigned slots = number(rows.values[0]);
    return slots >= 8 ? 0xFF : (1u << slots) - 1;
}

bool names_7mm(const property_rows& rows) {
    for (const std::string& v : rows.values) {
        for (size_t i = 0; i + 3 <= v.size(); ++i) {
            if (v[i] == '7' && (v[i + 1] == 'm' || v[i + 1] == 'M') && (v[i + 2] == 'm' || v[i + 2] == 'M'))
                return true;
        }
    }
    return false;
}

}  // namespace

int parser::get_drive_presence() {
    _vqm_db_handle_t* pdb = open_properties_db();
    if (!pdb) return -1;
    static const char* const wheres[] = {
        "propName like \"%mv/0/drive%presence\"",
        "propName like \"%mv/0/slots\"",
        "propName like \"%mv/1/drive%presence\"",
        "propName like \"%mv/1/slots\"",
        "propName like \"%hdd%type\"",
    };
    property_rows rows[5];
    int rc = 0;
    for (int i = 0; i < 5 && rc == 0; ++i) rc = query_properties(pdb, wheres[i], rows[i]);
    vqm_db_close(pdb);
    if (rc != 0) return rc;

    unsigned m2_presence = presence_mask(rows[0]);
    unsigned m2_slots = slot_mask(rows[1]);
    unsigned second_presence = presence_mask(rows[2]);
    unsigned presence_7mm = names_7mm(rows[4]) ? second_presence & slot_mask(rows[3]) : 0;
    kora_log::logInfo("AIM PARSER: drive presence = [0x%x, 0x%x]\n", m2_presence, second_presence);
    kora_log::logInfo("AIM PARSER: m2 drive presence = 0x%x, slot = 0x%x\n", m2_presence & m2_slots,
                      m2_slots);
    kora_log::logInfo("AIM PARSER: 7mm drive presence = 0x%x\n", presence_7mm);
    drive_presence[0] = (uint8_t)(m2_presence & m2_slots);
    drive_presence[1] = (uint8_t)presence_7mm;
    return 0;
}

}  // namespace aim_parser
