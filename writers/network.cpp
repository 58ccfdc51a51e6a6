// Network and ports: the "PCINetwork" row of an adapter function, its "PCIPhysicalPort"
// rows, the function's "PCIPhysicalPortStat" row and the "PCILogicalPort" rows.
#include <stdlib.h>
#include <string.h>

#include <vector>

#include "ingest/parser.h"
#include "platform/kora_log.h"
#include "ingest/rows.h"

namespace aim_parser {
namespace {

const char* const port_index_label = "Physical Port Index";

const setting_column network_columns[] = {
    {"Number of Physical Ports", "NumberofPhysicalPorts", column_kind::uint32},
    {"Max Number of Logical Ports", "MaxNumberofLogicalPorts", column_kind::uint32},
};

const setting_column physical_port_tail_columns[] = {
    {"Number of Logical Ports", "NumberofLogicalPorts", column_kind::uint32},
    {"Permanent Address", "PermanentAddress", column_kind::text},
};

// Logical port columns before and after the physical port index ("PhyIdx").
const setting_column logical_port_head_columns[] = {
    {"Max Data Size", "MaxDataSize", column_kind::uint32},
    {"Permanent Address", "PermanentAddress", column_kind::text},
    {"Network Addresses", "NetworkAddresses", column_kind::text},
};
const setting_column logical_port_tail_columns[] = {
    {"Logical Port Index", "Idx", column_kind::uint32},
    {"Link Technology", "LinkTechnology", column_kind::text},
    {"vNIC Mode", "vNICMode", column_kind::text},
    {"Max Speed", "MaxSpeed", column_kind::uint64},
    {"Protocol Type", "ProtocolType", column_kind::text},
    {"Current Work Protocol Ethernet", "Ethernet", column_kind::text},
    {"Current Work Protocol FCoE/FC", "FCoEFC", column_kind::text},
    {"Current Work Protocol iSCSI", "iSCSI", column_kind::text},
    {"FCoE Permanent Address", "FCoEPermanentAddress", column_kind::text},
    {"FCoE Network Addresses", "FCoENetworkAddressess", column_kind::text},
    {"Connection Type", "ConnectionType", column_kind::text},
    {"Role", "Role", column_kind::text},
    {"Target Relative Port Number", "TargetRelativePortNumber", column_kind::text},
};

// Port 2 of one Mellanox adapter (15B3:1015, subsystem 0350, location 0) reports the wrong
// connector on the platforms named by RVT_CODENAME; its connector layout is forced to "5".
bool connector_override(const aim_pci_key_unit* key, const setting_node* index) {
    if (!index || index->get_int64(0) != 2) return false;
    if (key->vendor_id != 0x15B3 || key->device_id != 0x1015 || key->subsystem_device_id != 0x0350 ||
        key->location != 0) {
        return false;
    }
    const char* codename = getenv("RVT_CODENAME");
    return codename && (strstr(codename, "tinwhistlers") || strstr(codename, "gravel"));
}

// The function type that a logical port's "Link Technology" selects.
_VQMDB_PCI_TYPE function_type_of_link(const setting_node* link) {
    if (!link) return 9;
    switch (strtol(link->value.c_str(), nullptr, 0)) {
        case 2:
            return 1;
        case 3:
            return 3;
        case 4:
            return 2;
        default:
            return 9;
    }
}

}  // namespace

int parser::parse_network_info(_vqm_db_handle_t* db, group* grp, aim_pci_key_unit* key) {
    if (!grp || !key) return 0;
    vqm_db_content_clear(cv);
    put_key_columns(cv, key);
    if (put_settings(cv, grp, network_columns) > 0 &&
        insert_row(db, "PCINetwork", cv, "Network Information") != 0) {
        return 0;
    }
    std::vector<group*> ports;
    grp->get_group_list("Physical Port", ports);
    for (group* port : ports) {
        if (!is_suppressed(port)) parse_physical_port(db, port, key);
    }
    return 1;
}

int parser::parse_physical_port(_vqm_db_handle_t* db, group* grp, aim_pci_key_unit* key) {
    if (!grp || !key) return 0;
    vqm_db_content_clear(cv);
    put_key_columns(cv, key);
    const setting_node* connector = grp->get_setting_node("Physical Port's Connector Layout");
    const setting_node* index = grp->get_setting_node(port_index_label);
    unsigned found = 0;
    // The override replaces the AIM connector layout, so the column is put once with the
    // value that the row ends up with.
    if (connector_override(key, index)) {
        vqm_db_content_put_text(cv, "ConnectorLayout", "5");
    } else if (connector) {
        vqm_db_content_put_text(cv, "ConnectorLayout", connector->value.c_str());
    }
    if (connector) ++found;
    if (index) {
        vqm_db_content_put_uint(cv, "Idx", static_cast<uint32_t>(index->get_int64(0)));
        ++found;
    }
    found += put_settings(cv, grp, physical_port_tail_columns);
    // A failed physical port row is reported with the logical port's text.
    if (found > 0 && insert_row(db, "PCIPhysicalPort", cv, "Logical Port Information") != 0) return 0;
    parse_physical_port_stat(db, grp, key);

    index = grp->get_setting_node(port_index_label);
    if (!index) {
        kora_log::logWarn("AIM PARSER: No physical port index provided for %s, stop parsing logical ports!",
                          grp->name.c_str());
        return 0;
    }
    uint32_t port_index = static_cast<uint32_t>(index->get_int64(-1));
    if (port_index == 0xFFFFFFFFu) {
        kora_log::logWarn("AIM PARSER: Invalid physical port index for %s, stop parsing logical ports!",
                          grp->name.c_str());
        return 0;
    }
    for_each_numbered_group(grp, "Logical Port ", [&](group* port) {
        parse_logical_port(db, port, key, static_cast<int>(port_index));
    });
    return 1;
}

int parser::parse_physical_port_stat(_vqm_db_handle_t* db, group* grp, aim_pci_key_unit* key) {
    if (!grp || !key) return 0;
    vqm_db_content_clear(cv);
    vqm_db_content_put_int(cv, "PCIFuncKey", static_cast<int32_t>(key->func_key));
    const setting_node* index = grp->get_setting_node(port_index_label);
    if (index) vqm_db_content_put_uint(cv, "Idx", static_cast<uint32_t>(index->get_int64(0)));

    long long existing = indexed_port_stat(key->func_key);
    if (existing == -2) {
        std::string where = "PCIFuncKey=" + std::to_string(key->func_key);
        existing = find_db_record(db, "PCIPhysicalPortStat", where.c_str());
    }
    if (existing != 0 || !index) return 0;
    if (insert_row(db, "PCIPhysicalPortStat", cv, "Physical Port Stat Information") != 0) return 0;
    indexed_port_stat_inserted(key->func_key);
    return 1;
}

int parser::parse_logical_port(_vqm_db_handle_t* db, group* grp, aim_pci_key_unit* key,
                               int physical_port_index) {
    if (!grp || !key) return 0;
    vqm_db_content_clear(cv);
    put_key_columns(cv, key);
    unsigned found = put_settings(cv, grp, logical_port_head_columns);
    vqm_db_content_put_uint(cv, "PhyIdx", static_cast<uint32_t>(physical_port_index));
    found += put_settings(cv, grp, logical_port_tail_columns);
    if (found > 0 && insert_row(db, "PCILogicalPort", cv, "Logical Port Information") != 0) return 0;
    if (key->function_type != 7 && key->function_type != 9) return 1;
    _VQMDB_PCI_TYPE type = function_type_of_link(grp->get_setting_node("Link Technology"));
    return update_pci_function_type(db, key, type) ? 1 : 0;
}

}  // namespace aim_parser
