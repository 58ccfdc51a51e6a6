// Known-card table: PCI functions without AIM data that the parser still recognises by
// their four PCI ids, and the actions that write their inventory rows.
#include <stdio.h>
#include <string.h>

#include "cards/hc_rows.h"
#include "ingest/server_maker.h"
#include "ingest/parser.h"
#include "ingest/text.h"
#include "platform/kora_log.h"
#include "platform/vqm_db.h"
#include "ingest/rows.h"

namespace aim_parser {
namespace {

const uint16_t any_id = 0xFFFF;

// Where the sub-vendor id of a riser bridge row comes from.
enum subvendor_source { maker_vendor_0, maker_vendor_1, broadcom_vendor };

// The server maker's riser bridge cards (Broadcom PEX switch 1000:00B2), one row per
// (sub-vendor, sub-device) pair. The sub-device ids are placeholders kept in this one
// table; a platform overrides any of them by listing the card in its own table, which is
// searched first.
struct riser_ids {
    subvendor_source subvendor;
    uint16_t subdevice;
};
const riser_ids riser_table[22] = {
    {maker_vendor_0, 0xFD00},  {maker_vendor_0, 0xFD01},  {maker_vendor_0, 0xFD02}, {maker_vendor_0, 0xFD03},
    {maker_vendor_0, 0xFD04},  {maker_vendor_0, 0xFD05},  {maker_vendor_0, 0xFD06}, {maker_vendor_0, 0xFD07},
    {maker_vendor_0, 0xFD08},  {maker_vendor_0, 0xFD09},  {maker_vendor_1, 0xFD0A}, {maker_vendor_1, 0xFD0B},
    {maker_vendor_1, 0xFD0C},  {maker_vendor_1, 0xFD0D},  {maker_vendor_1, 0xFD0E}, {maker_vendor_1, 0xFD0F},
    {maker_vendor_1, 0xFD10},  {maker_vendor_1, 0xFD11},  {maker_vendor_1, 0xFD12}, {maker_vendor_1, 0xFD13},
    {broadcom_vendor, 0xFD14}, {broadcom_vendor, 0xFD15},
};

// The Broadcom 450w-16e card is sold under the server maker's first vendor id.
const unsigned pldm_card_maker_vendor = 0;

uint16_t riser_subvendor(subvendor_source s) {
    switch (s) {
        case maker_vendor_0:
            return server_maker_vendor_id(0);
        case maker_vendor_1:
            return server_maker_vendor_id(1);
        case broadcom_vendor:
            break;
    }
    return 0x1000;
}

aim_hc_card make_card(uint16_t vid, uint16_t did, uint16_t svid, uint16_t sdid, const char* name,
                      const char* manufacturer, hc_action_t action) {
    aim_hc_card c;
    memset(&c, 0, sizeof c);
    c.vendor_id = vid;
    c.device_id = did;
    c.subsystem_vendor_id = svid;
    c.subsystem_device_id = sdid;
    copy_text(c.name, sizeof c.name, name);
    copy_text(c.model, sizeof c.model, "N/A");
    copy_text(c.manufacturer, sizeof c.manufacturer, manufacturer);
    c.action = action;
    return c;
}

// The 36 built-in rows, in table order; the last one is the catch-all.
std::vector<aim_hc_card> builtin_cards() {
    std::vector<aim_hc_card> t;
    const char* xilinx = "Xilinx";
    hc_action_t alveo = parser::save_hc_alveo_info;
    t.push_back(make_card(0x10EE, 0x5020, 0x10EE, 0x000E, "Alveo U50 XDMA Platform", xilinx, alveo));
    t.push_back(make_card(0x10EE, 0xD020, 0x10EE, 0x000E, "Alveo U50 Golden Image", xilinx, alveo));
    t.push_back(make_card(0x10EE, 0x5000, 0x10EE, 0x000E, "Alveo U200 XDMA Platform", xilinx, alveo));
    t.push_back(make_card(0x10EE, 0xD000, 0x10EE, 0x000E, "Alveo U200 Golden Image", xilinx, alveo));
    t.push_back(make_card(0x10EE, 0x5004, 0x10EE, 0x000E, "Alveo U250 XDMA Platform", xilinx, alveo));
    t.push_back(make_card(0x10EE, 0x5005, 0x10EE, 0x000E, "Alveo U250", xilinx, alveo));
    t.push_back(make_card(0x10EE, 0xD004, 0x10EE, 0x000E, "Alveo U250 Golden Image", xilinx, alveo));
    for (const riser_ids& r : riser_table) {
        t.push_back(make_card(0x1000, 0x00B2, riser_subvendor(r.subvendor), r.subdevice, "N/A", "N/A",
                              parser::save_young_riser_info));
    }
    t.push_back(make_card(0x8086, 0x0B30, 0x8086, 0x0000, "Intel FPGA PAC N3000", "Intel Corporation",
                          parser::save_hc_intel_info));
    t.push_back(make_card(0x8086, 0x0B32, 0x8086, 0x0000, "Intel FPGA PAC N3000", "Intel Corporation",
                          parser::save_hc_intel_info));
    t.push_back(make_card(0x8086, 0x0CF8, 0x8086, 0x0000, "Intel N3000 XL710 Ethernet NIC", "Intel",
                          parser::save_hc_info));
    t.push_back(make_card(0x8086, 0x0D58, 0x8086, 0x0000, "Intel N3000 XL710 Ethernet NIC", "Intel",
                          parser::save_hc_info));
    t.push_back(make_card(0x8086, 0x0D5C, 0x8086, 0x0000, "Intel ACC100 Accelerating NFV PCIe Gen3", "Intel",
                          parser::save_hc_info));
    t.push_back(make_card(0x1000, 0x00A5, server_maker_vendor_id(pldm_card_maker_vendor), 0x020A, "450w-16e",
                          "Broadcom Inc.", parser::save_hc_info_with_pldm));
    t.push_back(make_card(any_id, any_id, any_id, any_id, "N/A", "N/A", parser::save_aim_not_support_info));
    return t;
}

bool id_matches(uint16_t row, uint16_t asked) { return row == asked || row == any_id; }

// Writes the "PldmDeviceFirmware" row of a card that is updated over PLDM; the ids are
// the table row's, so that every riser of one kind reports the same software id. The
// outcome is logged as the warning `failed` or the information `done`.
void insert_pldm_row(_vqm_db_handle_t* db, vqm_db_content_values_t* cv, aim_pci_key_unit* key,
                     aim_hc_card* card, unsigned func_key, const char* failed, const char* done) {
    char swid[16];
    software_id(swid, card->subsystem_vendor_id, card->subsystem_device_id);
    vqm_db_content_clear(cv);
    put_pldm_identity_columns(cv, {key->function_type, key->dev_key, func_key, key->location, key->slot,
                                   card->vendor_id, card->device_id, card->subsystem_vendor_id,
                                   card->subsystem_device_id, card->name, card->manufacturer, swid});
    vqm_db_content_put_text(cv, "VersionString", "N/A");
    vqm_db_content_put_text(cv, "ReleaseDate", "N/A");
    if (vqm_db_insert(db, "PldmDeviceFirmware", cv, 0, 0) != 0) {
        kora_log::logWarn("%s", failed);
    } else {
        kora_log::logInfo("%s", done);
    }
}

}  // namespace

void filter_ascii(std::string& text) {
    size_t out = 0;
    for (size_t i = 0; i < text.size(); ++i) {
        if (static_cast<unsigned char>(text[i]) < 0x80) text[out++] = text[i];
    }
    text.resize(out);
}

void AdapterInfo::clear() { memset(this, 0, sizeof *this); }

int AdapterInfo::insert(_vqm_db_handle_t* db, vqm_db_content_values_t* cv) {
    vqm_db_content_clear(cv);
    vqm_db_content_put_uint(cv, "SegNo", segment);
    vqm_db_content_put_uint(cv, "BusNo", bus);
    vqm_db_content_put_uint(cv, "DeviceNo", device);
    vqm_db_content_put_uint(cv, "FunctionNo", function);
    vqm_db_content_put_uint(cv, "NodeNo", node);
    vqm_db_content_put_uint(cv, "SlotNo", slot);
    vqm_db_content_put_text(cv, "CardName", card_name);
    vqm_db_content_put_text(cv, "ConnectorType", connector_type);
    vqm_db_content_put_uint(cv, "AIMSupported", aim_supported);
    vqm_db_content_put_uint(cv, "OOBSrc", oob_src);
    vqm_db_content_put_uint(cv, "PCIKey", pci_key);
    vqm_db_content_put_uint(cv, "PCIFuncKey", pci_func_key);
    vqm_db_content_put_uint(cv, "Location", location);
    int rc = vqm_db_insert(db, "PCIAdapter", cv, 0, 0);
    if (rc != 0)
        kora_log::logWarn("AIM PARSER: failed to insert PCI Adapter Info, Slot = %d, rc = %d\n", slot, rc);
    return rc;
}

// The platform's own rows come first, each written by the generic action; a built-in row
// that one of them already matches only lends it its action, the others are appended.
void parser::init_hc_cards() {
    hc_cards.clear();
    hc_idx = -1;
    unsigned n = vqmdb_get_hc_card_count();
    for (unsigned i = 0; i < n; ++i) {
        // The platform's name field need not be terminated: make_card reads it no further
        // than the card's own name field holds.
        const vqmdb_hc_card_t& e = hc_card_table[i];
        hc_cards.push_back(make_card(e.vendor_id, e.device_id, e.subsystem_vendor_id, e.subsystem_device_id,
                                     e.name, "N/A", save_hc_info));
    }
    for (const aim_hc_card& b : builtin_cards()) {
        int i = hc_find(b.vendor_id, b.device_id, b.subsystem_vendor_id, b.subsystem_device_id);
        if (i >= 0) {
            hc_cards[static_cast<size_t>(i)].action = b.action;
        } else {
            hc_cards.push_back(b);
        }
    }
}

int parser::hc_find(unsigned short vid, unsigned short did, unsigned short svid, unsigned short sdid) {
    for (size_t i = 0; i < hc_cards.size(); ++i) {
        const aim_hc_card& c = hc_cards[i];
        if (id_matches(c.vendor_id, vid) && id_matches(c.device_id, did) &&
            id_matches(c.subsystem_vendor_id, svid) && id_matches(c.subsystem_device_id, sdid)) {
            return static_cast<int>(i);
        }
    }
    return -1;
}

int parser::hc_set_idx(unsigned short vid, unsigned short did, unsigned short svid, unsigned short sdid) {
    hc_idx = hc_find(vid, did, svid, sdid);
    if (hc_idx < 0 || hc_is_aim_not_support_dev()) {
        kora_log::logInfo("%s: not find [0x%02x 0x%02x 0x%02x 0x%02x] in hardcode table, index = %d\n",
                          "hc_set_idx", vid, did, svid, sdid, hc_idx);
    } else {
        kora_log::logInfo("%s: find [0x%02x 0x%02x 0x%02x 0x%02x] in hardcode table, index = %d\n",
                          "hc_set_idx", vid, did, svid, sdid, hc_idx);
    }
    return hc_idx;
}

bool parser::hc_is_aim_not_support_dev() {
    return hc_idx >= 0 && static_cast<size_t>(hc_idx) + 1 == hc_cards.size();
}

aim_hc_card* parser::hc_get_table() {
    if (hc_idx < 0 || static_cast<size_t>(hc_idx) >= hc_cards.size()) return nullptr;
    return &hc_cards[static_cast<size_t>(hc_idx)];
}

void parser::hc_do_action(_vqm_db_handle_t* db, aim_pci_key_unit* key, unsigned int index,
                          unsigned int func_key, AdapterInfo* info) {
    aim_hc_card* card = hc_get_table();
    if (!card || !key || !info) return;
    kora_log::logInfo(
        "AIM PARSER: %s slot = %u, funckey 0x%x, vid(0x%x) did(0x%x) svid(0x%x) sdid(0x%x) index %d name %s "
        "model %s "
        "manufacturer %s\n",
        "hc_do_action", key->slot, func_key, key->vendor_id, key->device_id, key->subsystem_vendor_id,
        key->subsystem_device_id, index, card->name, card->model, card->manufacturer);
    if (card->action) card->action(this, db, cv, key, card, index, func_key, info);
}

void write_hc_rows(_vqm_db_handle_t* db, vqm_db_content_values_t* cv, const aim_pci_key_unit* key,
                   unsigned int index, unsigned int func_key, const hc_card_texts& texts) {
    // A failed row is logged with its kind ("VPD", "MISC" or "FW"), the slot and the index.
    auto insert = [&](const char* table, const char* kind) {
        int rc = vqm_db_insert(db, table, cv, 0, 0);
        if (rc != 0) {
            kora_log::logWarn(
                "AIM PARSER: failed to insert hard code card %s Info, Slot = %d, Index = %d, rc = %d\n", kind,
                key->slot, index, rc);
        }
    };

    vqm_db_content_clear(cv);
    vqm_db_content_put_text(cv, "UUID", "N/A");
    vqm_db_content_put_text(cv, "ProductName", texts.product_name);
    vqm_db_content_put_text(cv, "Manufacture", texts.manufacturer);
    vqm_db_content_put_text(cv, "Model", texts.model);
    vqm_db_content_put_text(cv, "SerialNo", texts.serial_no);
    vqm_db_content_put_text(cv, "FRUNo", texts.fru_no);
    vqm_db_content_put_text(cv, "PartNo", texts.part_no);
    vqm_db_content_put_uint(cv, "HardwareId", key->hardware_id + index);
    vqm_db_content_put_uint(cv, "HardwareTypeId", 3);
    vqm_db_content_put_uint(cv, "SlotNo", key->slot);
    vqm_db_content_put_uint(cv, "Location", key->location);
    insert("VPDs", "VPD");

    vqm_db_content_clear(cv);
    put_key_columns(cv, key, index, func_key);
    put_placeholder_misc_columns(cv);
    insert("PCIMisc", "MISC");

    char swid[16];
    software_id(swid, key->subsystem_vendor_id, key->subsystem_device_id);
    vqm_db_content_clear(cv);
    vqm_db_content_put_text(cv, "FirmwareName", "Software Bundle");
    vqm_db_content_put_text(cv, "VersionString", texts.version);
    vqm_db_content_put_text(cv, "Description", texts.description);
    vqm_db_content_put_text(cv, "ReleaseDate", "N/A");
    vqm_db_content_put_text(cv, "Manufacture", texts.manufacturer);
    vqm_db_content_put_text(cv, "Classification", "13");
    vqm_db_content_put_text(cv, "SoftwareID", swid);
    vqm_db_content_put_uint(cv, "HardwareId", key->hardware_id + index);
    vqm_db_content_put_uint(cv, "HardwareTypeId", 3);
    insert("Firmwares", "FW");
}

void parser::save_hc_info(parser*, _vqm_db_handle_t* db, vqm_db_content_values_t* cv, aim_pci_key_unit* key,
                          aim_hc_card* card, unsigned int index, unsigned int func_key, AdapterInfo* info) {
    info->oob_src = 8;
    copy_text(info->card_name, sizeof info->card_name, card->name);
    write_hc_rows(db, cv, key, index, func_key,
                  {card->name, card->manufacturer, card->model, "N/A", "N/A", "N/A", "N/A",
                   "Firmware package containing controller firmware, UEFI Driver"});
}

void parser::save_young_riser_info(parser* p, _vqm_db_handle_t* db, vqm_db_content_values_t* cv,
                                   aim_pci_key_unit* key, aim_hc_card* card, unsigned int index,
                                   unsigned int func_key, AdapterInfo* info) {
    save_hc_info(p, db, cv, key, card, index, func_key, info);
    insert_pldm_row(db, cv, key, card, func_key,
                    "AIM PARSER: failed to insert young riser to PLDM Adapter Information",
                    "AIM PARSER: success to insert young riser to PLDM Adapter Information");
}

void parser::save_hc_info_with_pldm(parser* p, _vqm_db_handle_t* db, vqm_db_content_values_t* cv,
                                    aim_pci_key_unit* key, aim_hc_card* card, unsigned int index,
                                    unsigned int func_key, AdapterInfo* info) {
    save_hc_info(p, db, cv, key, card, index, func_key, info);
    insert_pldm_row(db, cv, key, card, func_key,
                    "AIM PARSER: failed to insert the device to PLDM Firmware Table",
                    "AIM PARSER: success to insert tha device to PLDM Firmware Table");
}

// The catch-all: no table rows, only the adapter's name and connector for "PCIAdapter".
void parser::save_aim_not_support_info(parser* p, _vqm_db_handle_t* db, vqm_db_content_values_t*,
                                       aim_pci_key_unit* key, aim_hc_card*, unsigned int, unsigned int,
                                       AdapterInfo* info) {
    unsigned short slot_type = 0;
    char designation[64] = {0};
    p->get_pci_slot_type_by_pfa(db, key, &slot_type, designation, sizeof designation);
    designation[sizeof designation - 1] = '\0';
    snprintf(info->connector_type, sizeof info->connector_type, "%d", slot_type);

    if (strlen(designation) > 7 && strncmp(designation, "Slot", 4) != 0) {
        const char* cx4 = "Mellanox CX4 -";
        const char* name = strncmp(designation, cx4, strlen(cx4)) == 0 ? "Mellanox CX4" : designation;
        copy_text(info->card_name, sizeof info->card_name, name);
        info->oob_src = 2;
    } else if (key->vendor_id == 0x1A03 && key->device_id == 0x2000) {
        copy_text(info->card_name, sizeof info->card_name, "VGA Display Controller");
        info->oob_src = 8;
    } else {
        copy_text(info->card_name, sizeof info->card_name, adapter_address_name(key).c_str());
    }
    info->aim_supported = 0;
    kora_log::logInfo("AIM PARSER: [No AIM Support] slot = %u, name = %s, table: PCIAdapter\n", key->slot,
                      info->card_name);
}

}  // namespace aim_parser
