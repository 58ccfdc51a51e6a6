// Hardware VPD: the "VPDs" row of an adapter from its AIM group and, for the functions of
// the hardware VPD table, the identity that the card's own VPD memory holds, read through
// the controller's OEM IPMI command.
#include <stdlib.h>
#include <string.h>

#include <string>
#include <vector>

#include "ingest/server_maker.h"
#include "ingest/parser.h"
#include "platform/ipmi_cmd.h"
#include "platform/kora_log.h"
#include "ingest/rows.h"

namespace aim_parser {
namespace {

// One IPMI answer: the completion code in byte 0, the data from byte 1 on.
const size_t vpd_response_size = 256;

// A text field of the card's VPD memory.
struct vpd_field {
    uint16_t offset;
    uint16_t length;
    const char* column;
    const char* label;  // logged before the text
};

// Reads `length` bytes at `offset` of the card's VPD memory into a zeroed response buffer.
// True when the request went through and the card answered with completion code 0.
bool read_vpd(parser& p, uint16_t device, uint16_t offset, uint16_t length,
              char (&response)[vpd_response_size]) {
    memset(response, 0, sizeof(response));
    return p.read_hw_vpd(device, offset, length, response) && response[0] == 0;
}

// Reads a text field: the NUL-terminated text after the completion code, without leading
// and trailing blanks, tabs, carriage returns and line feeds.
bool read_vpd_text(parser& p, uint16_t device, uint16_t offset, uint16_t length, std::string& text) {
    char response[vpd_response_size];
    if (!read_vpd(p, device, offset, length, response)) return false;
    text.assign(response + 1, strnlen(response + 1, vpd_response_size - 1));
    static const char* const blanks = " \t\r\n";
    size_t first = text.find_first_not_of(blanks);
    if (first == std::string::npos) {
        text.clear();
    } else {
        text = text.substr(first, text.find_last_not_of(blanks) - first + 1);
    }
    return true;
}

// Reads a field and puts it when its text is not empty; true when it was put. A model of
// "N/A" keeps the model that the AIM file gave.
bool put_vpd_field(parser& p, uint16_t device, const vpd_field& f) {
    std::string text;
    if (!read_vpd_text(p, device, f.offset, f.length, text) || text.empty()) return false;
    if (strcmp(f.column, "Model") == 0 && text == "N/A") return false;
    vqm_db_content_put_text(p.cv, f.column, text.c_str());
    kora_log::logInfo("%s: %s", f.label, text.c_str());
    return true;
}

// Updates the function's "VPDs" row with the columns put; 0 when the update failed.
int update_vpd_row(parser& p, _vqm_db_handle_t* db, const aim_pci_key_unit* key, const char* failure) {
    std::string where = "HardwareId=" + std::to_string(key->hardware_id) +
                        " AND HardwareTypeId=" + std::to_string(key->hardware_type_id);
    if (vqm_db_update(db, "VPDs", p.cv, where.c_str(), nullptr, 0, 0) != 0) {
        kora_log::logWarn("%s", failure);
        return 0;
    }
    return 1;
}

// The platform number of PLATFORM_NO_REV (hexadecimal, "0x" optional), 0 when unset.
uint32_t platform_number() {
    const char* text = getenv("PLATFORM_NO_REV");
    return text ? static_cast<uint32_t>(strtoul(text, nullptr, 16)) : 0;
}

// The first hardware VPD table row of the function's ids on this platform, or null.
const hw_vpd_info* find_hw_vpd_row(const std::vector<hw_vpd_info>& table, const aim_pci_key_unit* key,
                                   uint32_t platform) {
    for (const hw_vpd_info& r : table) {
        if (r.vendor_id == key->vendor_id && r.device_id == key->device_id &&
            r.sub_vendor_id == key->subsystem_vendor_id && r.sub_device_id == key->subsystem_device_id &&
            r.platform == platform) {
            return &r;
        }
    }
    return nullptr;
}

const setting_column vpd_columns[] = {
    {"Manufacturer", "Manufacture", column_kind::text}, {"Serial Number", "SerialNo", column_kind::text},
    {"Part Number", "PartNo", column_kind::text},       {"Model", "Model", column_kind::text},
    {"Card SKU", "FRUNo", column_kind::text},
};

const vpd_field part_number_256 = {14, 12, "PartNo", "256 Byte Part Number"};
const vpd_field fru_number_256 = {26, 12, "FRUNo", "256 Byte FRU Number"};

const vpd_field basic_1kb_fields[] = {
    {270, 129, "ProductName", "1KB Product Name"}, {96, 5, "Manufacture", "1KB Manufacturer"},
    {84, 13, "SerialNo", "1KB Serial Number"},     {60, 13, "PartNo", "1KB Part Number"},
    {14, 8, "Model", "1KB Machine Type/Model"},    {72, 13, "FRUNo", "1KB FRU Number"},
};
const vpd_field extended_1kb_fields[] = {
    {640, 32, "Model", "1KB Machine Type/Model"},
    {704, 32, "PartNo", "1KB Part Number"},
    {736, 32, "SerialNo", "1KB Serial Number"},
    {800, 32, "Manufacture", "1KB Company Name"},
};

}  // namespace

unsigned parser::insert_aim_vpd_info(_vqm_db_handle_t* db, group* grp, aim_pci_key_unit* key) {
    if (!grp || !key) return 0;
    vqm_db_content_clear(cv);
    unsigned found = 0;
    const setting_node* uuid = grp->get_setting_node("UUID");
    if (uuid) {
        vqm_db_content_put_text(cv, "UUID", uuid->value.c_str());
        found = 1;
    }
    kora_log::logDbg("AIM PARSER: Get UUID from AIM file, location/slot = %d/%d, func_key = %d, uuid = %s",
                     static_cast<int>(key->location), static_cast<int>(key->slot),
                     static_cast<int>(key->func_key), uuid ? uuid->value.c_str() : "");

    if (remembered_func_key != 0 && key->func_key == remembered_func_key) {
        vqm_db_content_put_text(cv, "ProductName", remembered_product_name.c_str());
    } else {
        found += put_setting(cv, grp, {"Card Name", "ProductName", column_kind::text}) ? 1 : 0;
    }
    found += put_settings(cv, grp, vpd_columns);
    vqm_db_content_put_uint(cv, "HardwareId", key->hardware_id);
    vqm_db_content_put_uint(cv, "HardwareTypeId", key->untyped_hardware ? 0 : 3);
    vqm_db_content_put_uint(cv, "SlotNo", key->slot);
    vqm_db_content_put_uint(cv, "Location", key->location);
    if (found != 0 && insert_row(db, "VPDs", cv, "VPD Information") != 0) return 0;

    uint32_t platform = platform_number();
    const hw_vpd_info* row = find_hw_vpd_row(hw_vpd_table, key, platform);
    if (!row || row->vpd_device_id == 255) {
        kora_log::logDbg(
            "AIM PARSER: no need to update vpd, vendor:0x%04X, sub_vendor:0x%04X, device:0x%04X, "
            "sub_device:0x%04X, platform=0x%x",
            static_cast<unsigned>(key->vendor_id), static_cast<unsigned>(key->subsystem_vendor_id),
            static_cast<unsigned>(key->device_id), static_cast<unsigned>(key->subsystem_device_id),
            static_cast<unsigned>(platform));
        return 1;
    }

    kora_log::logInfo(
        "AIM PARSER: update_hw_vpd, vendor:0x%04X, sub_vendor:0x%04X, device:0x%04X, sub_device:0x%04X, "
        "vpd_device_id=0x%x",
        static_cast<unsigned>(key->vendor_id), static_cast<unsigned>(key->subsystem_vendor_id),
        static_cast<unsigned>(key->device_id), static_cast<unsigned>(key->subsystem_device_id),
        static_cast<unsigned>(row->vpd_device_id));
    char response[vpd_response_size] = {0};
    read_hw_vpd(row->vpd_device_id, 0, 2, response);
    if (response[0] != 0) return 1;
    uint8_t mark0 = static_cast<uint8_t>(response[1]), mark1 = static_cast<uint8_t>(response[2]);
    if (mark0 == 0xFE && mark1 == 0x00) {
        kora_log::logInfo("AIM PARSER: update_hw_vpd_256Byte");
        update_hw_vpd_256Byte(db, key, row->vpd_device_id);
    } else if (mark0 == 0x03 && mark1 == 0xFE) {
        kora_log::logInfo("AIM PARSER: update_hw_vpd_1KB");
        update_hw_vpd_1KB(db, key, row->vpd_device_id);
    }
    return 1;
}

void parser::init_hw_vpd_table() {
    hw_vpd_table.push_back({0x1B4B, 0x9230, server_maker_vendor_id(0), 0x0301, 0x0050002D, 0x42});
}

bool parser::read_hw_vpd(uint16_t vpd_device_id, uint16_t offset, uint16_t length, char* response) {
    const uint8_t request[8] = {0x20,
                                0x3A,
                                0x00,
                                0x0B,
                                static_cast<uint8_t>(offset & 0xFF),
                                static_cast<uint8_t>(offset >> 8),
                                static_cast<uint8_t>(vpd_device_id & 0xFF),
                                static_cast<uint8_t>(length & 0xFF)};
    kora_log::logWarn("AIM PARSER: ipmicmd 0x3A 0x0B 0x%02X 0x%02X 0x%02X 0x%02X",
                      static_cast<unsigned>(request[4]), static_cast<unsigned>(request[5]),
                      static_cast<unsigned>(request[6]), static_cast<unsigned>(request[7]));
    int response_length = 0;
    return send_ipmi_cmd(request, 8, reinterpret_cast<uint8_t*>(response), &response_length) == 0;
}

int parser::update_hw_vpd_256Byte(_vqm_db_handle_t* db, aim_pci_key_unit* key, uint16_t vpd_device_id) {
    vqm_db_content_clear(cv);
    unsigned found = 0;
    char response[vpd_response_size];
    read_vpd(*this, vpd_device_id, 7, 1, response);
    uint8_t barcode = static_cast<uint8_t>(response[1]);
    kora_log::logInfo("256 Byte Barcode : %02X", static_cast<unsigned>(barcode));
    // Either barcode bit says that the card carries a serial number.
    if (barcode & 0x03) {
        std::string serial;
        if (read_vpd_text(*this, vpd_device_id, 38, 12, serial)) {
            vqm_db_content_put_text(cv, "SerialNo", serial.c_str());
            kora_log::logInfo("256 Byte Serial Number: %s", serial.c_str());
            found = 1;
        }
    }
    found += put_vpd_field(*this, vpd_device_id, part_number_256) ? 1 : 0;
    found += put_vpd_field(*this, vpd_device_id, fru_number_256) ? 1 : 0;
    if (found == 0) return 1;
    return update_vpd_row(*this, db, key, "AIM PARSER: 256 Byte failed to update hw vpd");
}

int parser::update_hw_vpd_1KB(_vqm_db_handle_t* db, aim_pci_key_unit* key, uint16_t vpd_device_id) {
    vqm_db_content_clear(cv);
    unsigned found = 0;
    char response[vpd_response_size];
    if (!read_vpd(*this, vpd_device_id, 10, 3, response)) return 0;
    bool extended = static_cast<uint8_t>(response[1]) == 0xFF && static_cast<uint8_t>(response[2]) == 0xEE;
    const vpd_field* fields = extended ? extended_1kb_fields : basic_1kb_fields;
    size_t count = extended ? sizeof(extended_1kb_fields) / sizeof(extended_1kb_fields[0])
                            : sizeof(basic_1kb_fields) / sizeof(basic_1kb_fields[0]);
    for (size_t i = 0; i < count; ++i) found += put_vpd_field(*this, vpd_device_id, fields[i]) ? 1 : 0;

    if (read_vpd(*this, vpd_device_id, 159, 17, response)) {
        // Every byte after the completion code, 255 bytes and so 510 digits: the UUID field
        // followed by the zeros of the rest of the buffer.
        static const char digits[] = "0123456789ABCDEF";
        std::string uuid;
        for (size_t i = 1; i < vpd_response_size; ++i) {
            uint8_t b = static_cast<uint8_t>(response[i]);
            uuid += digits[b >> 4];
            uuid += digits[b & 0x0F];
        }
        vqm_db_content_put_text(cv, "UUID", uuid.c_str());
        kora_log::logInfo("1KB UUID: %s", uuid.c_str());
    } else if (found == 0) {
        return 1;
    }
    return update_vpd_row(*this, db, key, "AIM PARSER: 1KB failed to update hw vpd");
}

}  // namespace aim_parser
