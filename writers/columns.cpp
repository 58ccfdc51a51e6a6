// Row-building helpers shared by the group writers.
#include "writers/columns.h"

namespace aim_parser {

void put_key_columns(vqm_db_content_values_t* cv, const aim_pci_key_unit* key) {
    vqm_db_content_put_uint(cv, "SegNo", key->segment);
    vqm_db_content_put_uint(cv, "BusNo", key->bus);
    vqm_db_content_put_uint(cv, "DeviceNo", key->device);
    vqm_db_content_put_uint(cv, "FunctionNo", key->function);
    vqm_db_content_put_uint(cv, "NodeNo", key->node_index);
    vqm_db_content_put_uint(cv, "SlotNo", key->slot);
    vqm_db_content_put_uint(cv, "PCIKey", key->dev_key);
    vqm_db_content_put_uint(cv, "PCIFuncKey", key->func_key);
}

bool put_setting(vqm_db_content_values_t* cv, const group* grp, const setting_column& c) {
    const setting_node* s = grp->get_setting_node(c.label);
    if (!s) return false;
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
    return true;
}

unsigned put_settings(vqm_db_content_values_t* cv, const group* grp, const setting_column* columns,
                      size_t count) {
    unsigned found = 0;
    for (size_t i = 0; i < count; ++i) found += put_setting(cv, grp, columns[i]) ? 1 : 0;
    return found;
}

bool is_suppressed(const group* grp) {
    return grp->suppress_if == "true";
}

}  // namespace aim_parser
