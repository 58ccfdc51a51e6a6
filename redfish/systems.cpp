// The computer system and its PCIe devices and functions. The devices are the chassis's
// (/redfish/v1/Chassis/chassis/PCIeDevices/{device}, the collection that Chassis.PCIeDevices
// links); the system links each of them in its PCIeDevices.
#include <tuple>

#include "redfish/resources.h"

namespace redfish {
namespace {

using device = model::device;

json pcie_device(const device& d) {
    json j = resource(d.uri, kPCIeDeviceType, d.id, d.name().value_or("PCIe device " + d.id));
    put(j, "Manufacturer",
        first_text(d.vpds, "Manufacture") ? first_text(d.vpds, "Manufacture")
                                          : first_text(d.pldm, "Manufacture"));
    put(j, "Model", first_text(d.vpds, "Model"));
    put(j, "PartNumber", first_text(d.vpds, "PartNo"));
    put(j, "SerialNumber", first_text(d.vpds, "SerialNo"));
    put(j, "SparePartNumber", first_text(d.vpds, "FRUNo"));
    put(j, "UUID", uuid(first_text(d.vpds, "UUID")));
    if (d.present) j["DeviceType"] = d.functions.size() > 1 ? "MultiFunction" : "SingleFunction";
    put(j, "FirmwareVersion", d.firmware_version());
    if (d.present) {
        const rec& f0 = d.functions.front();
        json iface = json::object();
        put(iface, "MaxPCIeType", pcie_type(f0.number("MaxPCIeType")));
        put(iface, "MaxLanes", f0.number("MaxLanes"));
        put(j, "PCIeInterface", iface);
        json slot = json::object();
        put(slot, "Location", location(d.slot_label(), d.slot(), "Slot"));
        put(slot, "Lanes", f0.number("MaxLanes"));
        put(slot, "PCIeType", pcie_type(f0.number("MaxPCIeType")));
        put(j, "Slot", slot);
    }
    j["Status"] = d.present ? enabled() : json{{"State", "Absent"}};
    if (d.present) j["PCIeFunctions"] = link(d.uri + "/PCIeFunctions");
    j["Links"] = json{{"Chassis", links({kChassisUri})}};
    // The rows of the adapter's functions, as the tables hold them.
    json rows = json::object();
    put(rows, "PCIAdapter", rows_of(d.adapters));
    put(rows, "PCIMisc", rows_of(d.misc));
    put(rows, "VPDs", rows_of(d.vpds));
    put(j, "Oem", oem("PCIeDevice", rows));
    return j;
}

json pcie_function(const device& d, const rec& f) {
    int64_t number = f.number("FunctionNo").value_or(0);
    std::string id = std::to_string(number);
    json j = resource(d.function_uri(number), kPCIeFunctionType, id, "PCIe function " + id);
    j["FunctionId"] = number;
    j["FunctionType"] = "Physical";
    if (auto c = f.number("ClsCode")) {
        put(j, "DeviceClass", device_class(*c));
        j["ClassCode"] = hex(*c & 0xFFFFFF, 6);
    }
    const std::pair<const char*, const char*> ids[] = {{"VendorId", "VendorId"},
                                                       {"DeviceId", "DeviceId"},
                                                       {"SubsystemVendorId", "SubVendorId"},
                                                       {"SubsystemId", "SubDeviceId"}};
    for (const auto& p : ids) {
        if (auto v = f.number(p.second)) j[p.first] = hex(*v & 0xFFFF, 4);
    }
    // The address, as hexadecimal texts of the widths that PCI gives them.
    const std::tuple<const char*, const char*, int64_t, int> address[] = {
        {"SegmentNumber", "SegNo", 0xFFFF, 4},
        {"BusNumber", "BusNo", 0xFF, 2},
        {"DeviceNumber", "DeviceNo", 0x1F, 2},
        {"FunctionNumber", "FunctionNo", 0x7, 1}};
    for (const auto& a : address) {
        auto v = f.number(std::get<1>(a));
        if (v && *v >= 0 && *v <= std::get<2>(a)) j[std::get<0>(a)] = hex(*v, std::get<3>(a));
    }
    j["Status"] = enabled();
    json l = json{{"PCIeDevice", link(d.uri)}};
    j["Links"] = l;
    put(j, "Oem", oem("PCIeFunction", json{{"PCIs", row_of(f)}}));
    return j;
}

json system(const model& m) {
    json j = resource(kSystem, kComputerSystemType, "system", "System");
    j["SystemType"] = "Physical";
    j["Boot"] = json::object();
    j["Actions"] = json::object();
    j["Status"] = enabled();
    j["PCIeDevices"] = links(m.device_uris());
    j["PCIeDevices@odata.count"] = m.devices.size();
    j["Processors"] = link(kSystem + "/Processors");
    j["Storage"] = link(kSystem + "/Storage");
    j["Links"] = json{{"Chassis", links({kChassisUri})}, {"ManagedBy", links({kManagerUri})}};
    return j;
}

}  // namespace

void add_systems(const model& m, routes& out) {
    out.push_back({kRoot + "/Systems", [] {
                       return found(collection(kRoot + "/Systems",
                                               collection_type("ComputerSystemCollection"),
                                               "Computer System Collection", {kSystem}));
                   }});
    out.push_back({kSystem, [&m] { return found(system(m)); }});
    const std::string devices = kChassisUri + "/PCIeDevices";
    out.push_back({devices, [&m, devices] {
                       return found(collection(devices, collection_type("PCIeDeviceCollection"),
                                               "PCIe Device Collection", m.device_uris()));
                   }});
    for (const device& d : m.devices) {
        out.push_back({d.uri, [&d] { return found(pcie_device(d)); }});
        if (!d.present) continue;
        std::vector<std::string> functions;
        for (const rec& f : d.functions)
            functions.push_back(d.function_uri(f.number("FunctionNo").value_or(0)));
        out.push_back({d.uri + "/PCIeFunctions", [&d, functions] {
                           return found(collection(d.uri + "/PCIeFunctions",
                                                   collection_type("PCIeFunctionCollection"),
                                                   "PCIe Function Collection", functions));
                       }});
        for (size_t i = 0; i < d.functions.size(); ++i) {
            const rec& f = d.functions[i];
            out.push_back({functions[i], [&d, &f] { return found(pcie_function(d, f)); }});
        }
    }
}

}  // namespace redfish
