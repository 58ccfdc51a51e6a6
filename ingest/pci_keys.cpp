// PCI key resolution: the "PCIs" row of a PCI address, the slot description of an
// address, and the function keys of one device.
#include <stdio.h>

#include "ingest/parser.h"
#include "ingest/walk_index.h"

namespace aim_parser {

namespace {

// Formats the condition selecting a function by its PCI address into `buf`.
void format_address_condition(char* buf, size_t size, const aim_pci_key_unit* key) {
    snprintf(buf, size, "%s=%d AND %s=%d AND %s=%d AND %s=%d", "SegNo", (int)key->segment, "BusNo",
             (int)key->bus, "DeviceNo", (int)key->device, "FunctionNo", (int)key->function);
}

// Queries "PCIs" at the key's address; null unless a first row is available.
vqm_db_result_t* query_first_row_at(_vqm_db_handle_t* db, const aim_pci_key_unit* key,
                                    const char* const* columns, int count) {
    char where[128];
    format_address_condition(where, sizeof(where), key);
    vqm_db_result_t* result = nullptr;
    int rc = vqm_db_query(db, "PCIs", columns, count, where, nullptr, nullptr, nullptr, &result);
    if (rc == 0 && result && vqm_db_result_step(result) == VQM_DB_ROW) return result;
    if (result) vqm_db_free_result(result);
    return nullptr;
}

// Column `column` of the current row as unsigned, or `dflt` when it cannot be read.
uint32_t column_or(vqm_db_result_t* result, int column, uint32_t dflt) {
    uint32_t value = 0;
    return vqm_db_result_column_uint(result, column, &value) == 0 ? value : dflt;
}

// The SMBIOS system-slot type of a PCI Express generation (1 to 4) and lane count; the
// last entry of a row is the code for a width that is none of x1, x2, x4, x8, x16.
unsigned short refined_slot_type(unsigned short stored, uint16_t generation, uint16_t lanes) {
    static const unsigned short codes[4][6] = {
        {166, 167, 168, 169, 170, 165},
        {172, 173, 174, 175, 176, 171},
        {178, 179, 180, 181, 182, 177},
        {185, 186, 187, 188, 189, 184},
    };
    // Only a generic stored code (above 183) is made specific.
    if (stored <= 183 || generation < 1 || generation > 4) return stored;
    int column;
    switch (lanes) {
        case 1:
            column = 0;
            break;
        case 2:
            column = 1;
            break;
        case 4:
            column = 2;
            break;
        case 8:
            column = 3;
            break;
        case 16:
            column = 4;
            break;
        default:
            column = 5;
            break;
    }
    return codes[generation - 1][column];
}

}  // namespace

int parser::get_pci_node_slot_key_by_pfa(_vqm_db_handle_t* db, aim_pci_key_unit* key) {
    if (!key) return -1;
    static const char* const columns[] = {"NodeIndex",  "SlotNo",         "DevKey",   "FunKey",
                                          "HardwareId", "HardwareTypeId", "Location", "FunType",
                                          "VendorId",   "SubVendorId",    "DeviceId", "SubDeviceId"};
    int rc = 0;
    if (indexed_pci_key(key, &rc)) return rc;
    vqm_db_result_t* result = query_first_row_at(db, key, columns, 12);
    if (!result) return -1;
    read_pci_key_columns(result, 0, key);
    vqm_db_free_result(result);
    return 0;
}

int parser::get_pci_slot_type_by_pfa(_vqm_db_handle_t* db, aim_pci_key_unit* key, unsigned short* slot_type,
                                     char* designation, unsigned size) {
    if (!key || !slot_type) return -1;
    static const char* const columns[] = {"SlotType", "MaxPCIeType", "MaxLanes", "SlotDesignation"};
    vqm_db_result_t* result = query_first_row_at(db, key, columns, 4);
    if (!result) return -1;
    uint16_t type = 0, generation = 0, lanes = 0;
    bool ok = vqm_db_result_column_short_uint(result, 0, &type) == 0;
    *slot_type = type;
    ok = vqm_db_result_column_short_uint(result, 1, &generation) == 0 && ok;
    ok = vqm_db_result_column_short_uint(result, 2, &lanes) == 0 && ok;
    if (designation) ok = vqm_db_result_column_text(result, 3, designation, size) == 0 && ok;
    vqm_db_free_result(result);
    *slot_type = refined_slot_type(*slot_type, generation, lanes);
    return ok ? 0 : -1;
}

unsigned parser::find_pci_func_keys(_vqm_db_handle_t* db, unsigned vendor, unsigned subvendor,
                                    unsigned subdevice, unsigned short segment, unsigned short bus,
                                    unsigned short device, unsigned short function_type,
                                    std::vector<unsigned>& keys) {
    keys.clear();
    // Every function of the device at that bus address whose type matches: neither the
    // device id nor the function number is part of the condition.
    char where[256];
    snprintf(where, sizeof(where),
             "(VendorId=%u) AND (SubVendorId=%u) AND (SubDeviceId=%u) AND (SegNo=%u) AND (BusNo=%u) AND "
             "(DeviceNo=%u) AND (FunType=%u)",
             vendor, subvendor, subdevice, (unsigned)segment, (unsigned)bus, (unsigned)device,
             (unsigned)function_type);
    static const char* const columns[] = {"FunKey"};
    vqm_db_result_t* result = nullptr;
    int rc = vqm_db_query(db, "PCIs", columns, 1, where, nullptr, nullptr, nullptr, &result);
    if (rc == 0 && result) {
        while (vqm_db_result_step(result) == VQM_DB_ROW) keys.push_back(column_or(result, 0, 0));
    }
    if (result) vqm_db_free_result(result);
    return (unsigned)keys.size();
}

}  // namespace aim_parser
