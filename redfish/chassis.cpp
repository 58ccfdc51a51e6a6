// The chassis, and the network adapters in it (one per adapter with "PCINetwork",
// "PCIPhysicalPort" or "PCILogicalPort" rows) with their ports and network device functions.
#include "redfish/resources.h"

namespace redfish {
namespace {

using device = model::device;

json port(const device& d, size_t i) {
    const rec& p = d.ports[i];
    auto index = p.number("Idx");
    std::string label = std::to_string(index.value_or(0));
    json j = resource(d.port_uri(i), kPortType, d.port_ids[i], "Port " + label);
    j["PortId"] = label;
    if (auto m = mac(p.text("PermanentAddress")))
        j["Ethernet"] = json{{"AssociatedMACAddresses", json::array({*m})}};
    // The statistics row of the port's function and index.
    json rows = json::object();
    for (const rec& s : d.stats) {
        if (s.number("PCIFuncKey") != p.number("PCIFuncKey") || s.number("Idx") != index) continue;
        auto status = s.number("LinkStatus");
        if (status == 1) j["LinkStatus"] = "LinkUp";
        if (status == 2) j["LinkStatus"] = "LinkDown";
        auto speed = s.number("LinkSpeed");
        if (speed && *speed > 0) j["CurrentSpeedGbps"] = static_cast<double>(*speed) / 1000.0;
        rows["PCIPhysicalPortStat"] = row_of(s);
    }
    j["Status"] = enabled();
    rows["PCIPhysicalPort"] = row_of(p);
    put(j, "Oem", oem("Port", rows));
    return j;
}

json network_device_function(const device& d, size_t i) {
    const rec& l = d.logical[i];
    const std::string& id = d.logical_ids[i];
    json j = resource(d.logical_uri(i), kNetworkDeviceFunctionType, id, "Network device function " + id);
    auto truthy = [&](const char* c) {
        auto v = l.text(c);
        return v && (*v == "1" || *v == "true" || *v == "True");
    };
    if (truthy("Ethernet"))
        j["NetDevFuncType"] = "Ethernet";
    else if (truthy("iSCSI"))
        j["NetDevFuncType"] = "iSCSI";
    else if (truthy("FCoEFC"))
        j["NetDevFuncType"] = "FibreChannelOverEthernet";
    json eth = json::object();
    put(eth, "MACAddress", mac(l.text("NetworkAddresses")));
    put(eth, "PermanentMACAddress", mac(l.text("PermanentAddress")));
    put(j, "Ethernet", eth);
    j["Status"] = enabled();
    json lk = json::object();
    if (auto f = d.function_link(l.number("FunctionNo"))) lk["PCIeFunction"] = link(*f);
    for (size_t p = 0; p < d.ports.size(); ++p) {
        if (d.ports[p].number("PCIFuncKey") == l.number("PCIFuncKey") &&
            d.ports[p].number("Idx") == l.number("PhyIdx"))
            lk["PhysicalNetworkPortAssignment"] = link(d.port_uri(p));
    }
    j["Links"] = lk;
    put(j, "Oem", oem("NetworkDeviceFunction", json{{"PCILogicalPort", row_of(l)}}));
    return j;
}

json network_adapter(const device& d) {
    json j = resource(d.adapter_uri, kNetworkAdapterType, d.id, d.name().value_or("Network adapter " + d.id));
    put(j, "Manufacturer", first_text(d.vpds, "Manufacture"));
    put(j, "Model", first_text(d.vpds, "Model"));
    put(j, "PartNumber", first_text(d.vpds, "PartNo"));
    put(j, "SerialNumber", first_text(d.vpds, "SerialNo"));
    j["Ports"] = link(d.adapter_uri + "/Ports");
    j["NetworkDeviceFunctions"] = link(d.adapter_uri + "/NetworkDeviceFunctions");
    json controller = json::object();
    put(controller, "FirmwarePackageVersion", d.firmware_version());
    json caps = json::object();
    for (const rec& n : d.networks) {
        if (auto count = n.number("NumberofPhysicalPorts")) caps["NetworkPortCount"] = *count;
    }
    put(controller, "ControllerCapabilities", caps);
    controller["Links"] = json{{"PCIeDevices", links({d.uri})}};
    j["Controllers"] = json::array({controller});
    j["Status"] = enabled();
    if (!d.networks.empty()) put(j, "Oem", oem("NetworkAdapter", json{{"PCINetwork", rows_of(d.networks)}}));
    return j;
}

json chassis(const model& m) {
    json j = resource(kChassisUri, kChassisType, "chassis", "Chassis");
    j["ChassisType"] = "Other";
    j["Status"] = enabled();
    j["PCIeDevices"] = link(kChassisUri + "/PCIeDevices");
    j["NetworkAdapters"] = link(kChassisUri + "/NetworkAdapters");
    std::vector<std::string> drives = m.drive_uris();
    json l = json{{"ComputerSystems", links({kSystem})}, {"ManagedBy", links({kManagerUri})}};
    l["Drives"] = links(drives);
    l["Drives@odata.count"] = drives.size();
    j["Links"] = l;
    return j;
}

}  // namespace

void add_chassis(const model& m, routes& out) {
    out.push_back({kRoot + "/Chassis", [] {
                       return found(collection(kRoot + "/Chassis", collection_type("ChassisCollection"),
                                               "Chassis Collection", {kChassisUri}));
                   }});
    out.push_back({kChassisUri, [&m] { return found(chassis(m)); }});
    std::vector<std::string> adapters;
    for (const device* d : m.network_adapters()) adapters.push_back(d->adapter_uri);
    out.push_back({kChassisUri + "/NetworkAdapters", [adapters] {
                       return found(collection(kChassisUri + "/NetworkAdapters",
                                               collection_type("NetworkAdapterCollection"),
                                               "Network Adapter Collection", adapters));
                   }});
    for (const device* d : m.network_adapters()) {
        const std::string& a = d->adapter_uri;
        std::vector<std::string> ports, functions;
        for (size_t i = 0; i < d->ports.size(); ++i) ports.push_back(d->port_uri(i));
        for (size_t i = 0; i < d->logical.size(); ++i) functions.push_back(d->logical_uri(i));
        out.push_back({a, [d] { return found(network_adapter(*d)); }});
        out.push_back({a + "/Ports", [a, ports] {
                           return found(collection(a + "/Ports", collection_type("PortCollection"),
                                                   "Port Collection", ports));
                       }});
        for (size_t i = 0; i < ports.size(); ++i)
            out.push_back({ports[i], [d, i] { return found(port(*d, i)); }});
        out.push_back({a + "/NetworkDeviceFunctions", [a, functions] {
                           return found(collection(a + "/NetworkDeviceFunctions",
                                                   collection_type("NetworkDeviceFunctionCollection"),
                                                   "Network Device Function Collection", functions));
                       }});
        for (size_t i = 0; i < functions.size(); ++i)
            out.push_back({functions[i], [d, i] { return found(network_device_function(*d, i)); }});
    }
}

}  // namespace redfish
