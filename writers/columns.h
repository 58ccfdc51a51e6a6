// Row-building helpers shared by the group writers: the address and key columns that begin
// most adapter rows, settings put by label, and the numbered sub-group lookups.
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
