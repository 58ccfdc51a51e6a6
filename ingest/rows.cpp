// Row helpers shared by the group writers, the walk and the card actions.
#include "ingest/rows.h"

#include <stdio.h>
#include <string.h>

#include "platform/kora_log.h"

namespace aim_parser {

void put_key_columns(vqm_db_content_values_t* cv, const aim_pci_key_unit* key) {
    put_key_columns(cv, key, 0, key->func_key);
}

void put_key_columns(vqm_db_content_values_t* cv, const aim_pci_key_unit* key, unsigned index,
                     uint32_t func_key) {
    vqm_db_content_put_uint(cv, "SegNo", key->segment);
    vqm_db_content_put_uint(cv, "BusNo", key->bus);
    vqm_db_content_put_uint(cv, "DeviceNo", key->device);
    vqm_db_content_put_uint(cv, "FunctionNo", key->function + index);
    vqm_db_content_put_uint(cv, "NodeNo", key->node_index);
    vqm_db_content_put_uint(cv, "SlotNo", key->slot);
    vqm_db_content_put_uint(cv, "PCIKey", key->dev_key);
    vqm_db_content_put_uint(cv, "PCIFuncKey", func_key);
}

void put_adapter_columns(vqm_db_content_values_t* cv, const aim_pci_key_unit* key, const char* card_name,
                         const char* connector_type, uint32_t aim_supported, uint32_t oob_src) {
    vqm_db_content_put_uint(cv, "SegNo", key->segment);
    vqm_db_content_put_uint(cv, "BusNo", key->bus);
    vqm_db_content_put_uint(cv, "DeviceNo", key->device);
    vqm_db_content_put_uint(cv, "FunctionNo", key->function);
    vqm_db_content_put_uint(cv, "NodeNo", key->node_index);
    vqm_db_content_put_uint(cv, "SlotNo", key->slot);
    if (card_name) vqm_db_content_put_text(cv, "CardName", card_name);
    if (connector_type) vqm_db_content_put_text(cv, "ConnectorType", connector_type);
    vqm_db_content_put_uint(cv, "AIMSupported", aim_supported);
    vqm_db_content_put_uint(cv, "OOBSrc", oob_src);
    vqm_db_content_put_uint(cv, "PCIKey", key->dev_key);
    vqm_db_content_put_uint(cv, "PCIFuncKey", key->func_key);
    vqm_db_content_put_uint(cv, "Location", key->location);
}

void put_placeholder_misc_columns(vqm_db_content_values_t* cv) {
    vqm_db_content_put_text(cv, "MaxDataWidth", "16");
    vqm_db_content_put_text(cv, "ConnectorLayout", "0");
    vqm_db_content_put_text(cv, "PackageType", "9");
    vqm_db_content_put_text(cv, "OtherPackageType", "N/A");
    vqm_db_content_put_text(cv, "AIMSpecVersion", "2.00");
}

int insert_row(_vqm_db_handle_t* db, const char* table, vqm_db_content_values_t* cv, const char* what) {
    int rc = vqm_db_insert(db, table, cv, 0, 0);
    if (rc != 0) kora_log::logWarn("AIM PARSER: failed to insert %s, rc=%d", what, rc);
    return rc;
}

int delete_rows(_vqm_db_handle_t* db, const char* table, const char* where, const char* what) {
    int rc = vqm_db_delete(db, table, where, 0, 0, 0);
    if (rc != 0) kora_log::logErr("failed to delete %s, rc=%d", what, rc);
    return rc;
}

std::string adapter_address_name(const aim_pci_key_unit* key) {
    char name[32];
    snprintf(name, sizeof name, "Adapter %02X:%02X:%02X.%02X", key->segment, key->bus, key->device,
             key->function);
    return name;
}

namespace {

// Puts the column of `c` from the setting `s` (not null).
void put_value(vqm_db_content_values_t* cv, const setting_node* s, const setting_column& c) {
    switch (c.kind) {
        case column_kind::text:
            vqm_db_content_put_text(cv, c.column, s->value.c_str());
            break;
        case column_kind::uint32:
            vqm_db_content_put_uint(cv, c.column, static_cast<uint32_t>(s->get_int64(0)));
            break;
        case column_kind::uint64:
            vqm_db_content_put_uint64(cv, c.column, static_cast<uint64_t>(s->get_int64(0)));
            break;
    }
}

// A group's settings as one array in key order, for many lookups in a row: a lookup reads
// the array instead of walking the tree, and compares only keys of the label's length and
// first byte. Equal keys keep their order, so the first match is the first-added setting.
class setting_index {
public:
    static const size_t capacity = 32;
    // False when the group has more settings than the array holds.
    bool fill(const group* grp) {
        if (grp->settings.size() > capacity) return false;
        count_ = 0;
        for (const auto& kv : grp->settings) entries_[count_++] = {&kv.first, kv.second};
        return true;
    }
    const setting_node* find(const char* label) const {
        size_t len = strlen(label);
        for (size_t i = 0; i < count_; ++i) {
            const std::string& key = *entries_[i].key;
            if (key.size() == len && key[0] == label[0] && memcmp(key.data(), label, len) == 0)
                return entries_[i].node;
        }
        return nullptr;
    }

private:
    struct entry {
        const std::string* key;
        const setting_node* node;
    };
    entry entries_[capacity];
    size_t count_ = 0;
};

// Below this many columns the lookups through the tree cost less than building the array.
const size_t index_from_columns = 4;

}  // namespace

bool put_setting(vqm_db_content_values_t* cv, const group* grp, const setting_column& c) {
    const setting_node* s = grp->get_setting_node(c.label);
    if (!s) return false;
    put_value(cv, s, c);
    return true;
}

unsigned put_settings(vqm_db_content_values_t* cv, const group* grp, const setting_column* columns,
                      size_t count) {
    unsigned found = 0;
    setting_index index;
    if (count < index_from_columns || !index.fill(grp)) {
        for (size_t i = 0; i < count; ++i) found += put_setting(cv, grp, columns[i]) ? 1 : 0;
        return found;
    }
    for (size_t i = 0; i < count; ++i) {
        if (const setting_node* s = index.find(columns[i].label)) {
            put_value(cv, s, columns[i]);
            ++found;
        }
    }
    return found;
}

bool is_suppressed(const group* grp) { return grp->suppress_if == "true"; }

void put_pldm_identity_columns(vqm_db_content_values_t* cv, const pldm_identity& id) {
    vqm_db_content_put_uint(cv, "DeviceType", id.device_type);
    vqm_db_content_put_uint(cv, "PCIKey", id.pci_key);
    vqm_db_content_put_uint(cv, "PCIFuncKey", id.pci_func_key);
    vqm_db_content_put_uint(cv, "Location", id.location);
    vqm_db_content_put_uint(cv, "SlotNo", id.slot);
    vqm_db_content_put_uint(cv, "VendorId", id.vendor_id);
    vqm_db_content_put_uint(cv, "DeviceId", id.device_id);
    vqm_db_content_put_uint(cv, "SubVendorId", id.sub_vendor_id);
    vqm_db_content_put_uint(cv, "SubDeviceId", id.sub_device_id);
    vqm_db_content_put_text(cv, "DeviceName", id.device_name);
    vqm_db_content_put_text(cv, "Manufacture", id.manufacture);
    vqm_db_content_put_text(cv, "SoftwareID", id.software_id);
}

}  // namespace aim_parser
