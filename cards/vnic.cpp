// vNIC capability data: the PCI functions that the host firmware reports able to run as
// virtual NICs, with their MAC addresses. Functions that the AIM file did not describe get
// a minimal adapter description, and their device keys keep them out of the list of
// adapters without AIM data.
#include <stdio.h>

#include <map>
#include <string>
#include <vector>

#include "cards/vnic_data.h"
#include "ingest/parser.h"
#include "platform/datastore.h"
#include "platform/kora_log.h"
#include "ingest/rows.h"

namespace aim_parser {
namespace {

// One vNIC-capable function kept for writing.
struct vnic_pci_info {
    aim_pci_key_unit key;
    char mac[13];
};

typedef std::multimap<uint32_t, vnic_pci_info> vnic_map;

// Reads the data set and keeps the vNIC-capable functions that the AIM file did not cover.
//
// The device count is trusted as stored, but nothing is read outside the body: a record
// that does not lie wholly inside the body ends the walk (the records after it would lie
// further out), and so does a record whose MAC address would lie outside it; such a
// record is dropped. Both cases are logged.
void read_vnic_data(parser& p, _vqm_db_handle_t* db, vnic_map& found) {
    int ds = DSOpen("iscsi-cap-data", 1, static_cast<int>(vnic::data_set_size), 0);
    if (ds < 1) {
        kora_log::logWarn("AIM_PARSER: Fail to open iscsi-cap-data");
        return;
    }
    uint8_t head[vnic::header_size] = {0};
    if (DSRead(ds, 0, vnic::header_size, head) < 0) {
        kora_log::logWarn("AIM_PARSER: Fail to read iscsi-cap-data");
        DSClose(ds);
        return;
    }
    vnic::header h = vnic::decode_header(head);
    kora_log::logDbg("AIM_PARSER: In vnic data, file_size: %d, %4X, device_count: %d, %2X", h.size, h.size,
                     h.count, h.count);
    unsigned len = vnic::body_length(h.size);
    if (len == 0) {
        kora_log::logErr("AIM_PARSER: Invalid iscsi-cap-data");
        DSClose(ds);
        return;
    }
    std::vector<uint8_t> body(len, 0);
    if (DSRead(ds, vnic::header_size, static_cast<int>(len), body.data()) < 0) {
        kora_log::logWarn("AIM_PARSER: Fail to read iscsi-cap-data");
        DSClose(ds);
        return;
    }

    size_t mac_off = vnic::mac_table_offset(h.count);
    for (unsigned n = 0; n < h.count; ++n) {
        vnic::record r;
        if (!vnic::get_record(body.data(), body.size(), n, r)) {
            kora_log::logWarn("AIM_PARSER: iscsi-cap-data ends inside device record %u of %u", n, h.count);
            break;
        }
        if (!r.vnic()) continue;
        aim_pci_key_unit key;
        key.segment = 0;
        key.bus = r.bus;
        key.device = r.device;
        key.function = r.function;
        key.function_type = 7;
        key.hardware_type_id = 0;
        if (p.get_pci_node_slot_key_by_pfa(db, &key) != 0) {
            kora_log::logErr(
                "AIM_PARSER: No PCI Info in CDS PCIs table for vnic data, bus: %2X, device: %2X, fun: %2X",
                r.bus, r.device, r.function);
            mac_off += vnic::mac_size;
            continue;
        }
        kora_log::logDbg(
            "AIM_PARSER: Device found in vnic data, bus: %2X, device: %2X, fun: %2X, support: %2X", r.bus,
            r.device, r.function, r.flags);
        if (p.aim_supported_keys.count(key.dev_key)) {
            kora_log::logDbg("AIM PARSER: IN AIM list: VNIC-supported adapter found, Key: %u, funcKey=%u",
                             key.dev_key, key.func_key);
            mac_off += vnic::mac_size;
            continue;
        }
        vnic_pci_info info;
        info.key = key;
        if (!vnic::mac_text(body.data(), body.size(), mac_off, info.mac)) {
            kora_log::logWarn("AIM_PARSER: iscsi-cap-data ends inside the MAC address of device record %u",
                              n);
            break;
        }
        p.vnic_supported_keys.insert(key.dev_key);
        found.insert(std::make_pair(key.dev_key, info));
        mac_off += vnic::mac_size;
    }
    DSClose(ds);
}

// The rows of one vNIC-capable function, `n` its place among its device's functions.
void write_vnic_function(parser& p, _vqm_db_handle_t* db, vnic_pci_info& v, unsigned n) {
    vqm_db_content_values_t* cv = p.cv;
    aim_pci_key_unit& k = v.key;
    std::string name = adapter_address_name(&k);
    unsigned short slot_type = 0;
    p.get_pci_slot_type_by_pfa(db, &k, &slot_type, nullptr, 0);
    char connector[16];
    snprintf(connector, sizeof connector, "%d", slot_type);

    vqm_db_content_clear(cv);
    put_adapter_columns(cv, &k, name.c_str(), connector, 2, 8);
    if (vqm_db_insert(db, "PCIAdapter", cv, 0, 0) != 0) {
        kora_log::logWarn(
            "AIM PARSER: failed to insert PCI Adapter Information for vnic data, bus: %2X, device: %2X, "
            "fun: %2X",
            k.bus, k.device, k.function);
        return;
    }
    kora_log::logInfo("AIM PARSER: [VNIC Support] slot = %u, name = %s, table: PCIAdapter", k.slot,
                      name.c_str());

    vqm_db_content_clear(cv);
    put_key_columns(cv, &k);
    vqm_db_content_put_text(cv, "ConnectorLayout", connector);
    vqm_db_content_put_uint(cv, "Idx", n);
    vqm_db_content_put_uint(cv, "NumberofLogicalPorts", 1);
    vqm_db_content_put_text(cv, "PermanentAddress", v.mac);
    int rc = vqm_db_insert(db, "PCIPhysicalPort", cv, 0, 0);
    if (rc != 0) {
        kora_log::logWarn(
            "AIM PARSER: failed to insert vnic Physical Port Information, rc=%d, bus: %2X, device: %2X, fun: "
            "%2X",
            rc, k.bus, k.device, k.function);
        return;
    }

    vqm_db_content_clear(cv);
    put_key_columns(cv, &k);
    vqm_db_content_put_text(cv, "PermanentAddress", v.mac);
    vqm_db_content_put_uint(cv, "PhyIdx", n);
    vqm_db_content_put_uint(cv, "Ethernet", 1);
    vqm_db_content_put_uint(cv, "Idx", 1);
    rc = vqm_db_insert(db, "PCILogicalPort", cv, 0, 0);
    if (rc != 0) {
        kora_log::logWarn(
            "AIM PARSER: failed to insert Logical Port Information, rc=%d, bus: %2X, device: %2X, fun: %2X",
            rc, k.bus, k.device, k.function);
        return;
    }

    vqm_db_content_clear(cv);
    put_key_columns(cv, &k);
    vqm_db_content_put_uint(cv, "NumberofPhysicalPorts", 1);
    vqm_db_content_put_uint(cv, "MaxNumberofLogicalPorts", 1);
    rc = vqm_db_insert(db, "PCINetwork", cv, 0, 0);
    if (rc != 0) {
        kora_log::logWarn(
            "AIM PARSER: failed to insert Network Information, rc=%d, bus: %2X, device: %2X, fun: %2X", rc,
            k.bus, k.device, k.function);
    }

    char uuid[33];
    snprintf(uuid, sizeof uuid, "00000000000000000000%s", v.mac);
    vqm_db_content_clear(cv);
    vqm_db_content_put_text(cv, "UUID", uuid);
    vqm_db_content_put_uint(cv, "HardwareId", k.hardware_id);
    vqm_db_content_put_uint(cv, "HardwareTypeId", k.untyped_hardware ? 0 : 3);
    rc = vqm_db_insert(db, "VPDs", cv, 0, 0);
    if (rc != 0) {
        kora_log::logWarn(
            "AIM PARSER: failed to insert VPD Information, rc=%d, bus: %2X, device: %2X, fun: %2X", rc, k.bus,
            k.device, k.function);
    }
}

}  // namespace

void parser::get_pci_vnic_supported_info(_vqm_db_handle_t* db) {
    vnic_map found;
    read_vnic_data(*this, db, found);
    if (!cv) return;
    for (uint32_t dev_key : vnic_supported_keys) {
        auto range = found.equal_range(dev_key);
        unsigned n = 0;
        for (auto it = range.first; it != range.second; ++it, ++n)
            write_vnic_function(*this, db, it->second, n);
    }
}

}  // namespace aim_parser
