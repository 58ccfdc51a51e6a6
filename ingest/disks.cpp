// Disk drives of drive configs ("AimDisks" rows) and the renaming of storage expansion
// units behind RAID controllers.
#include <ctype.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>

#include <string>

#include "ingest/parser.h"
#include "ingest/properties.h"
#include "platform/kora_log.h"
#include "ingest/rows.h"

namespace aim_parser {

namespace {

// "CtrlType": the kind of storage controller that the drive sits behind.
const uint32_t ctrl_other = 0;
const uint32_t ctrl_intel_vmd = 1;  // Intel VMD 8086:28C0: its NVMe drives make up VROC arrays
const uint32_t ctrl_marvell = 3;    // Marvell (vendor 0x1B4B) boot drive controllers

// A text of the AIM file and the id that stands for it in "AimDisks".
struct name_id {
    const char* name;
    uint32_t id;
};

// "Drive Type" to "DriveTypeId". The host's AIM enumeration codes are 1 HDD, 2 SSD and
// 4 NVMe SSD; a number is kept as the host wrote it, a text takes the id of the first
// name it contains (any case), in this order, so that "NVMe SSD" is an NVMe drive.
const name_id drive_types[] = {{"NVMe", 4}, {"SSD", 2}, {"HDD", 1}};
const uint32_t drive_nvme = 4;

// "Media Type" ("SSD") or "Media Type With Rotation Rate" ("HDD 7200 RPM") to
// "MediaTypeId", matched like the drive type.
const name_id media_types[] = {{"SSD", 2}, {"HDD", 1}};

// The bay ("Bay" setting) to "LocationId": the internal 7 mm and M.2 bays by name, any
// other bay is a bay of the hot-swap backplane; a drive without a bay has location 0.
const name_id bay_kinds[] = {{"7mm Bay", 3}, {"M.2 Bay", 4}};
const uint32_t location_none = 0;
const uint32_t location_backplane = 1;
const uint32_t location_7mm = 3;
const uint32_t location_m2 = 4;

// The universal identifier: the first of these settings that exists.
const char* const identifier_labels[] = {"Universal Identifier", "WWN / UUID", "SAS Address", "NGUID"};

// Plain text columns of the drive, in the row's order.
const setting_column drive_texts[] = {
    {"Vondel 8S FRU PN", "FruNo", column_kind::text},
    {"Vondel 8S L2 PN", "PartNo", column_kind::text},
};
const setting_column drive_details[] = {
    {"Manufacturer", "Manufacturer", column_kind::text},
    {"Model Number", "Model", column_kind::text},
    {"FW Version", "FwVersion", column_kind::text},
    {"Drive Capacity", "Capacity", column_kind::text},
};

// The platform whose single Marvell controller carries the 7 mm bays as well as the M.2
// bays, so that its 7 mm drives are found in the first presence mask.
const char* const single_marvell_platform = "Quarn";

const char* const expansion_unit_mark = "Storage Expansion Unit";

const char* value_of(const group* grp, const char* label) {
    const setting_node* s = grp->get_setting_node(label);
    return s ? s->value.c_str() : nullptr;
}

bool contains_nocase(const char* text, const char* part) {
    size_t n = strlen(part);
    for (; *text; ++text) {
        if (strncasecmp(text, part, n) == 0) return true;
    }
    return false;
}

bool all_digits(const char* text) {
    if (!*text) return false;
    for (; *text; ++text) {
        if (!isdigit(static_cast<unsigned char>(*text))) return false;
    }
    return true;
}

// The id of the first table name that `value` contains, 0 when none.
template <size_t N>
uint32_t name_to_id(const char* value, const name_id (&table)[N]) {
    for (const name_id& e : table) {
        if (contains_nocase(value, e.name)) return e.id;
    }
    return 0;
}

// The id of `value`: a decimal number as it stands, else as name_to_id.
template <size_t N>
uint32_t lookup_id(const char* value, const name_id (&table)[N]) {
    if (all_digits(value)) return static_cast<uint32_t>(strtoul(value, nullptr, 10));
    return name_to_id(value, table);
}

// The number that ends the bay text ("M.2 Bay 1" is bay 1), 0 when it has none.
unsigned bay_number(const char* bay) {
    size_t end = strlen(bay);
    size_t start = end;
    while (start > 0 && isdigit(static_cast<unsigned char>(bay[start - 1]))) --start;
    if (start == end || end - start > 3) return 0;
    return static_cast<unsigned>(strtoul(bay + start, nullptr, 10));
}

uint32_t controller_type(const aim_pci_key_unit* key) {
    if (key->vendor_id == 0x8086 && key->device_id == 0x28C0) return ctrl_intel_vmd;
    if (key->vendor_id == 0x1B4B) return ctrl_marvell;
    return ctrl_other;
}

}  // namespace

// Writes the "AimDisks" row of one drive group. The flags it reports to the walk:
// - hot_swap: the drive says "Hot Swap Capable" true;
// - second_flag: the drive is a member of a VROC array and was left out (VROC drives are
//   kept by the controller's own NVMe drive records, not by the AIM file);
// - third_flag: the drive's row was written. A config whose hot-swap drives were all left
//   out describes no adapter of its own, so the walk writes no adapter row for it.
// Returns 0, or the insert's result when it failed.
int parser::parse_disk_info(_vqm_db_handle_t* db, group* grp, aim_pci_key_unit* key, const char* serial,
                            bool* hot_swap, bool* second_flag, bool* third_flag) {
    bool dummy[3];
    bool& hs = hot_swap ? *hot_swap : dummy[0];
    bool& vroc = second_flag ? *second_flag : dummy[1];
    bool& written = third_flag ? *third_flag : dummy[2];
    hs = vroc = written = false;
    if (!grp || !key || !cv) return 0;

    const setting_node* hot = grp->get_setting_node("Hot Swap Capable");
    hs = hot && hot->get_int64(0) != 0;
    const uint32_t ctrl = controller_type(key);
    const char* drive_type = value_of(grp, "Drive Type");
    const uint32_t drive_type_id = drive_type ? lookup_id(drive_type, drive_types) : 0;
    const char* bay = value_of(grp, "Bay");
    uint32_t location = location_none;
    if (bay) location = name_to_id(bay, bay_kinds) != 0 ? name_to_id(bay, bay_kinds) : location_backplane;

    if (ctrl == ctrl_intel_vmd && drive_type_id == drive_nvme) {
        kora_log::logInfo(
            "AIM PARSER:skip insert Aim Disk Information for vroc dirve,driveTypeId:%d,locationId:%d,"
            "locationStr%s \n",
            static_cast<int>(drive_type_id), static_cast<int>(location), bay ? bay : "");
        vroc = true;
        return 0;
    }

    vqm_db_content_clear(cv);
    put_key_columns(cv, key);
    vqm_db_content_put_uint(cv, "CtrlType", ctrl);
    unsigned found = 0;
    if (drive_type) {
        vqm_db_content_put_uint(cv, "DriveTypeId", drive_type_id);
        ++found;
    }
    if (bay) {
        // A bay that is a plain number is stored as a number, a named bay as written.
        if (all_digits(bay)) {
            vqm_db_content_put_uint(cv, "BayNo", static_cast<uint32_t>(strtoul(bay, nullptr, 10)));
        } else {
            vqm_db_content_put_text(cv, "BayNo", bay);
        }
        ++found;
    }
    vqm_db_content_put_uint(cv, "LocationId", location);

    // The host reported the drive, so it is present, except that a Marvell controller's
    // M.2 and 7 mm bays follow the controller's own presence masks when they are known
    // (first mask: M.2 bays; second: 7 mm bays, or the first on the single-controller
    // platform), bit n for bay n.
    uint32_t presence = 1;
    if (ctrl == ctrl_marvell && drive_presence_known &&
        (location == location_m2 || location == location_7mm)) {
        const char* platform = getenv("RVT_PLATFORM");
        bool single = platform && strcmp(platform, single_marvell_platform) == 0;
        uint8_t mask = location == location_m2 || single ? drive_presence[0] : drive_presence[1];
        unsigned n = bay_number(bay);
        if (n < 8) presence = (mask >> n) & 1u;
    }
    vqm_db_content_put_uint(cv, "Presence", presence);

    const char* media = value_of(grp, "Media Type");
    if (!media) media = value_of(grp, "Media Type With Rotation Rate");
    if (media) {
        vqm_db_content_put_uint(cv, "MediaTypeId", lookup_id(media, media_types));
        ++found;
    }
    found += put_settings(cv, grp, drive_texts);
    // The serial number of the drive's own label. Without one, a hot-swap NVMe drive that
    // sits behind no storage controller (a U.2 or E3.S drive in a front bay) is the
    // config's own PCI function, so the config's serial number is the drive's; a drive
    // behind a controller never takes the controller's serial number.
    if (const char* sn = value_of(grp, "Vondel 8S SN")) {
        vqm_db_content_put_text(cv, "SerialNo", sn);
        ++found;
    } else if (serial && hs && ctrl == ctrl_other && drive_type_id == drive_nvme) {
        vqm_db_content_put_text(cv, "SerialNo", serial);
    }
    const char* uuid = nullptr;
    for (const char* label : identifier_labels) {
        if ((uuid = value_of(grp, label)) != nullptr) break;
    }
    if (uuid) {
        vqm_db_content_put_text(cv, "UUID", uuid);
        ++found;
    }
    found += put_settings(cv, grp, drive_details);
    // A group without any drive setting describes no drive; a drive without an identifier
    // is still recorded, with a warning.
    if (found == 0) return 0;
    if (!uuid) kora_log::logWarn("AIM PARSER: No Universal Identifier in group Disk Drive Information\n");

    int rc = vqm_db_insert(db, "AimDisks", cv, 0, 0);
    if (rc != 0) {
        kora_log::logWarn("AIM PARSER: failed to insert Aim Disk Information, rc=%d", rc);
        return rc;
    }
    written = true;
    // The drive kind as its type names it ("NVMe ", "SSD ", "HDD "), empty when unknown.
    std::string kind;
    for (const name_id& e : drive_types) {
        if (e.id == drive_type_id) kind = std::string(e.name) + " ";
    }
    const char* capacity = value_of(grp, "Drive Capacity");
    kora_log::logInfo("AIM PARSER: Parsed a %sDrive, capacity %s\n", kind.c_str(),
                      capacity ? capacity : "N/A");
    return 0;
}

// A RAID controller that stands in a storage expansion unit (SEN/Harrow) is named after
// the unit. The product name comes from the controller's storage service, which
// publishes it as the property "...raid/<slot>/product_name" of the properties database;
// the AIM file names only the RAID chip. The adapter row ("CardName" by "PCIFuncKey") and
// any "VPDs" row already written for the controller (by "HardwareId" and
// "HardwareTypeId") are renamed, and the name is remembered so that the controller's AIM
// "VPDs" row, written next, carries it instead of the AIM "Card Name". Property values are
// read up to 63 characters, which is as long as the unit names run.
void parser::check_raid_sen(_vqm_db_handle_t* db, aim_pci_key_unit* key) {
    if (!key || !cv) return;
    _vqm_db_handle_t* pdb = open_properties_db();
    if (!pdb) return;
    char where[96];
    snprintf(where, sizeof where, "propName like \"%%raid/%u/product_name\"",
             static_cast<unsigned>(key->slot));
    property_rows rows;
    int rc = query_properties(pdb, where, rows);
    vqm_db_close(pdb);
    if (rc != 0 || rows.values.empty() || rows.values[0].find(expansion_unit_mark) == std::string::npos)
        return;
    const std::string& name = rows.values[0];
    kora_log::logInfo("SEN/Harrow found");
    kora_log::logInfo("product name of SEN/Harrow: %s", name.c_str());
    remembered_func_key = key->func_key;
    remembered_product_name = name;

    char cond[96];
    vqm_db_content_clear(cv);
    vqm_db_content_put_text(cv, "CardName", name.c_str());
    snprintf(cond, sizeof cond, "PCIFuncKey=%u", key->func_key);
    int adapter_rc = vqm_db_update(db, "PCIAdapter", cv, cond, nullptr, 0, 0);
    vqm_db_content_clear(cv);
    vqm_db_content_put_text(cv, "ProductName", name.c_str());
    snprintf(cond, sizeof cond, "HardwareId=%u AND HardwareTypeId=%u", key->hardware_id,
             key->untyped_hardware ? 0u : 3u);
    int vpd_rc = vqm_db_update(db, "VPDs", cv, cond, nullptr, 0, 0);
    if (adapter_rc != 0 || vpd_rc != 0)
        kora_log::logWarn("AIM PARSER: failed to update adapter name for SEN/Harrow");
}

}  // namespace aim_parser
