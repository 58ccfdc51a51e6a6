// Row helpers shared by the group writers, the walk and the card actions: the address and
// key columns that begin most adapter rows, the adapter row itself, inserts and deletes that
// log their failure, settings put by label, and the numbered sub-group lookups.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <string>

#include "aim/document.h"
#include "ingest/parser.h"
#include "platform/vqm_db.h"

namespace aim_parser {

// Puts "SegNo", "BusNo", "DeviceNo", "FunctionNo", "NodeNo", "SlotNo", "PCIKey" and
// "PCIFuncKey" of the function, all unsigned.
void put_key_columns(vqm_db_content_values_t* cv, const aim_pci_key_unit* key);
// The same for the function `index` places after the key's function on the same device
// (an adapter written after the walk, one function at a time), with that function's key.
void put_key_columns(vqm_db_content_values_t* cv, const aim_pci_key_unit* key, unsigned index,
                     uint32_t func_key);

// Puts the columns of a "PCIAdapter" row of the key's function; a null card name or
// connector type leaves its column out.
void put_adapter_columns(vqm_db_content_values_t* cv, const aim_pci_key_unit* key, const char* card_name,
                         const char* connector_type, uint32_t aim_supported, uint32_t oob_src);

// Puts the "PCIMisc" columns that stand for the AIM file's description of an adapter
// that has none (after the key columns).
void put_placeholder_misc_columns(vqm_db_content_values_t* cv);

// The identity columns that every "PldmDeviceFirmware" row begins with, from "DeviceType"
// to "SoftwareID" in the table's order; the firmware version and date follow per writer.
struct pldm_identity {
    uint32_t device_type;
    uint32_t pci_key;
    uint32_t pci_func_key;
    uint32_t location;
    uint32_t slot;
    uint32_t vendor_id;
    uint32_t device_id;
    uint32_t sub_vendor_id;
    uint32_t sub_device_id;
    const char* device_name;
    const char* manufacture;
    const char* software_id;
};
void put_pldm_identity_columns(vqm_db_content_values_t* cv, const pldm_identity& id);

// Inserts the row put in `cv` into `table`; a failure is logged as the warning
// "AIM PARSER: failed to insert <what>, rc=<rc>". Returns the insert's result.
int insert_row(_vqm_db_handle_t* db, const char* table, vqm_db_content_values_t* cv, const char* what);

// Deletes the rows of `table` matching `where` (null: all rows); a failure is logged as the
// error "failed to delete <what>, rc=<rc>". Returns the delete's result.
int delete_rows(_vqm_db_handle_t* db, const char* table, const char* where, const char* what);

// The "CardName" of an adapter known only by its address: "Adapter SS:BB:DD.FF" in hexadecimal.
std::string adapter_address_name(const aim_pci_key_unit* key);

// How a setting's value goes into its column.
enum class column_kind {
    text,    // the value text as it stands
    uint32,  // get_int64(0), unsigned 32-bit
    uint64,  // get_int64(0), unsigned 64-bit
};

// One column filled from the setting of the same group with the given label.
struct setting_column {
    const char* label;
    const char* column;
    column_kind kind;
};

// Puts the column of `c` when its setting exists; true when it did.
bool put_setting(vqm_db_content_values_t* cv, const group* grp, const setting_column& c);

// Puts every column of `columns` (in order) whose setting exists; returns how many did.
unsigned put_settings(vqm_db_content_values_t* cv, const group* grp, const setting_column* columns,
                      size_t count);

template <size_t N>
unsigned put_settings(vqm_db_content_values_t* cv, const group* grp, const setting_column (&columns)[N]) {
    return put_settings(cv, grp, columns, N);
}

// True when the group's suppress-if text is exactly "true".
bool is_suppressed(const group* grp);

// Calls fn(sub-group) for i from 1 to the number of sub-groups of `parent`, with the first
// sub-group named `prefix` followed by i in decimal, when it exists and is not suppressed.
// Numbers beyond the sub-group count are never looked up.
template <typename Fn>
void for_each_numbered_group(const group* parent, const char* prefix, Fn fn) {
    size_t n = parent->groups.size();
    for (size_t i = 1; i <= n; ++i) {
        group* sub = parent->get_group((prefix + std::to_string(i)).c_str());
        if (sub && !is_suppressed(sub)) fn(sub);
    }
}

}  // namespace aim_parser
