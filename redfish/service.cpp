// The Redfish resources of the inventory database (see redfish/service.h).
#include "redfish/service.h"

#include <ctype.h>
#include <stdint.h>
#include <stdio.h>

#include <algorithm>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <tuple>

namespace redfish {
namespace {

// The schema version of each resource type: the first version that holds every property
// the service sends for it.
const char* const kServiceRoot = "#ServiceRoot.v1_1_0.ServiceRoot";
const char* const kComputerSystem = "#ComputerSystem.v1_2_0.ComputerSystem";
const char* const kPCIeDevice = "#PCIeDevice.v1_9_0.PCIeDevice";
const char* const kPCIeFunction = "#PCIeFunction.v1_6_0.PCIeFunction";
const char* const kProcessor = "#Processor.v1_7_0.Processor";
const char* const kStorage = "#Storage.v1_0_0.Storage";
const char* const kDrive = "#Drive.v1_6_0.Drive";
const char* const kChassis = "#Chassis.v1_10_0.Chassis";
const char* const kNetworkAdapter = "#NetworkAdapter.v1_5_0.NetworkAdapter";
const char* const kPort = "#Port.v1_4_0.Port";
const char* const kNetworkDeviceFunction = "#NetworkDeviceFunction.v1_5_0.NetworkDeviceFunction";
const char* const kSoftwareInventory = "#SoftwareInventory.v1_2_0.SoftwareInventory";
const char* const kUpdateService = "#UpdateService.v1_0_0.UpdateService";
const char* const kManager = "#Manager.v1_0_0.Manager";
const char* const kSessionService = "#SessionService.v1_0_0.SessionService";
const char* const kMessage = "#Message.v1_1_1.Message";
const char* const kBaseRegistry = "Base.1.13.0.";

const std::string kRoot = "/redfish/v1";
const std::string kSystem = kRoot + "/Systems/system";
const std::string kChassisUri = kRoot + "/Chassis/chassis";
const std::string kManagerUri = kRoot + "/Managers/bmc";

json link(const std::string& uri) { return json{{"@odata.id", uri}}; }

json links(const std::vector<std::string>& uris) {
    json out = json::array();
    for (const auto& u : uris) out.push_back(link(u));
    return out;
}

json enabled() { return json{{"State", "Enabled"}}; }

// A resource's opening members.
json resource(const std::string& uri, const char* type, const std::string& id, const std::string& name) {
    return json{{"@odata.id", uri}, {"@odata.type", type}, {"Id", id}, {"Name", name}};
}

json collection(const std::string& uri, const char* type, const std::string& name,
                const std::vector<std::string>& members) {
    return json{{"@odata.id", uri},
                {"@odata.type", type},
                {"Name", name},
                {"Members", links(members)},
                {"Members@odata.count", members.size()}};
}

void put(json& j, const char* key, const std::optional<std::string>& v) {
    if (v) j[key] = *v;
}
void put(json& j, const char* key, const std::optional<int64_t>& v) {
    if (v) j[key] = *v;
}
// Adds `value` under `key` when it is not an empty object or array.
void put(json& j, const char* key, json value) {
    if (!value.empty()) j[key] = std::move(value);
}

std::string hex(int64_t v, int digits) {
    char buf[32];
    snprintf(buf, sizeof buf, "0x%0*llX", digits, static_cast<unsigned long long>(v) & 0xFFFFFFFFull);
    return buf;
}

bool all_hex(const std::string& s) {
    return !s.empty() &&
           std::all_of(s.begin(), s.end(), [](char c) { return isxdigit(static_cast<unsigned char>(c)); });
}

// A MAC address as Redfish writes it ("00:0A:F7:6B:2C:40") from twelve hexadecimal digits,
// with or without separators; nothing for anything else.
std::optional<std::string> mac(const std::optional<std::string>& v) {
    if (!v) return std::nullopt;
    std::string digits;
    for (char c : *v) {
        if (c == ':' || c == '-' || c == '.') continue;
        digits += static_cast<char>(toupper(static_cast<unsigned char>(c)));
    }
    if (digits.size() != 12 || !all_hex(digits)) return std::nullopt;
    std::string out;
    for (size_t i = 0; i < 12; i += 2) out += (i ? ":" : "") + digits.substr(i, 2);
    return out;
}

// A UUID in its 8-4-4-4-12 form (NVIDIA writes a GPU's as "GPU-" and that form).
std::optional<std::string> uuid(const std::optional<std::string>& v) {
    if (!v) return std::nullopt;
    std::string s = v->compare(0, 4, "GPU-") == 0 ? v->substr(4) : *v;
    if (s.size() != 36) return std::nullopt;
    for (size_t i = 0; i < s.size(); ++i) {
        bool dash = i == 8 || i == 13 || i == 18 || i == 23;
        if (dash ? s[i] != '-' : !isxdigit(static_cast<unsigned char>(s[i]))) return std::nullopt;
    }
    return s;
}

// A release date as Redfish's date-time: "YYYY-MM-DD" or "MM/DD/YYYY" at midnight UTC.
std::optional<std::string> release_date(const std::optional<std::string>& v) {
    if (!v) return std::nullopt;
    unsigned y = 0, m = 0, d = 0;
    char tail = 0;
    if (sscanf(v->c_str(), "%4u-%2u-%2u%c", &y, &m, &d, &tail) != 3 &&
        sscanf(v->c_str(), "%2u/%2u/%4u%c", &m, &d, &y, &tail) != 3)
        return std::nullopt;
    if (y < 1970 || m < 1 || m > 12 || d < 1 || d > 31) return std::nullopt;
    char buf[32];
    snprintf(buf, sizeof buf, "%04u-%02u-%02uT00:00:00Z", y, m, d);
    return std::string(buf);
}

// An Id made of letters, digits, "_", "-" and ".": anything else becomes "_".
std::string id_of(const std::string& s) {
    std::string out;
    for (char c : s) out += isalnum(static_cast<unsigned char>(c)) || c == '-' || c == '.' ? c : '_';
    return out.empty() ? "_" : out;
}

// The first value of `column` in `rows` that says something.
std::optional<std::string> first_text(const std::vector<rec>& rows, const char* column) {
    for (const rec& r : rows) {
        if (auto v = r.text(column)) return v;
    }
    return std::nullopt;
}

// Every column of a row that holds a value, for Oem.AIM: numbers as numbers, texts as texts.
json columns_of(const rec& r) {
    json out = json::object();
    for (const auto& kv : r.values()) {
        if (kv.first == "_id") continue;
        const cell& c = *kv.second;
        if (c.kind == cell::integer) out[kv.first] = c.i;
        if (c.kind == cell::real) out[kv.first] = c.d;
        if (c.kind == cell::text) out[kv.first] = c.s;
    }
    return out;
}

}  // namespace

// ---- The model: the tables grouped by adapter --------------------------------------------------

struct service::model {
    struct device {
        std::string id, uri;
        int64_t key = 0;
        bool present = false;
        std::vector<rec> functions;  // "PCIs", by function number
        std::vector<rec> adapters, misc, vpds, firmwares, pldm, networks, ports, stats, logical, gpus, chips;
        std::vector<std::string> processors;
        std::string adapter_uri;  // of its NetworkAdapter; empty when it has none
        // Ids of `ports` and `logical`, in their order: the function and index(es) of each row.
        std::vector<std::string> port_ids, logical_ids;
        std::optional<std::string> name() const {
            if (auto v = first_text(adapters, "CardName")) return v;
            if (auto v = first_text(vpds, "ProductName")) return v;
            return first_text(pldm, "DeviceName");
        }
        std::optional<std::string> firmware_version() const {
            if (auto v = first_text(firmwares, "VersionString")) return v;
            return first_text(pldm, "VersionString");
        }
        std::optional<std::string> slot_label() const {
            if (auto v = first_text(functions, "SlotDesignation")) return v;
            if (auto s = slot()) return "Slot " + std::to_string(*s);
            return std::nullopt;
        }
        std::optional<int64_t> slot() const {
            for (const auto* rows : {&functions, &adapters}) {
                for (const rec& r : *rows) {
                    if (auto v = r.number("SlotNo")) return v;
                }
            }
            return std::nullopt;
        }
        std::string port_uri(size_t i) const { return adapter_uri + "/Ports/" + port_ids[i]; }
        std::string logical_uri(size_t i) const {
            return adapter_uri + "/NetworkDeviceFunctions/" + logical_ids[i];
        }
        std::string function_uri(int64_t function) const {
            return uri + "/PCIeFunctions/" + std::to_string(function);
        }
        // The URI of function `function` when the device has it ("PCIs" lists it).
        std::optional<std::string> function_link(const std::optional<int64_t>& function) const {
            for (const rec& f : functions) {
                if (f.number("FunctionNo").value_or(0) == function.value_or(0))
                    return function_uri(function.value_or(0));
            }
            return std::nullopt;
        }
    };
    struct processor {
        std::string id, uri;
        const device* dev;
        std::optional<rec> gpu, chip;  // its "PCIGPU" and "PCIGPUChip" rows, when it has them
    };
    struct storage {
        std::string id, uri;
        const device* dev = nullptr;
        std::vector<rec> drives;
        std::vector<std::string> drive_ids;
        std::string drive_uri(size_t i) const { return uri + "/Drives/" + drive_ids[i]; }
    };
    struct firmware {
        std::string id, uri;
        rec row;
        bool pldm = false;
        const device* dev = nullptr;
    };

    std::vector<device> devices;  // by slot, then address
    std::vector<processor> processors;
    std::vector<storage> storages;
    std::vector<firmware> firmwares;

    explicit model(const snapshot& db);
    const device* device_by_key(int64_t key) const;
    const device* device_by_function_key(int64_t func_key) const;
    const device* device_by_hardware_id(int64_t hardware_id) const;
    std::vector<std::string> device_uris() const {
        std::vector<std::string> out;
        for (const auto& d : devices) out.push_back(d.uri);
        return out;
    }
    std::vector<const device*> network_adapters() const {
        std::vector<const device*> out;
        for (const auto& d : devices) {
            if (!d.adapter_uri.empty()) out.push_back(&d);
        }
        return out;
    }
};

namespace {

// Rows of `rows` whose `column` is one of `keys`.
std::vector<rec> matching(const std::vector<rec>& rows, const char* column, const std::set<int64_t>& keys) {
    std::vector<rec> out;
    for (const rec& r : rows) {
        auto v = r.number(column);
        if (v && keys.count(*v)) out.push_back(r);
    }
    return out;
}

// The address Id of a row's segment, bus and device.
std::string address_id(const rec& r) {
    char buf[32];
    snprintf(buf, sizeof buf, "%04X_%02X_%02X", static_cast<unsigned>(r.number("SegNo").value_or(0)) & 0xFFFF,
             static_cast<unsigned>(r.number("BusNo").value_or(0)) & 0xFF,
             static_cast<unsigned>(r.number("DeviceNo").value_or(0)) & 0xFF);
    return buf;
}

// A GPU that the AIM file did not describe, as the controller recognises one on the system
// board (location 1): an NVIDIA display controller, an AMD display controller or processing
// accelerator, a Qualcomm processing accelerator ("FunType" 4 display, 16 accelerator).
bool gpu_without_aim_data(const service::model::device& d) {
    if (!d.present) return false;
    const rec& f = d.functions.front();
    int64_t vendor = f.number("VendorId").value_or(0), type = f.number("FunType").value_or(0);
    if (f.number("Location") != 1) return false;
    return (vendor == 0x10DE && type == 4) || (vendor == 0x1002 && (type == 4 || type == 16)) ||
           (vendor == 0x17CB && type == 16);
}

// Makes every Id of `ids` unique by appending "_2", "_3", ... to repeats.
void unique_ids(std::vector<std::string*> ids) {
    std::map<std::string, int> seen;
    for (std::string* id : ids) {
        int n = ++seen[*id];
        if (n > 1) *id += "_" + std::to_string(n);
    }
}

}  // namespace

service::model::model(const snapshot& db) {
    // Devices: every device key of "PCIAdapter", present when "PCIs" has its functions.
    std::map<std::string, std::vector<rec>> t;
    for (const char* const* name = snapshot::table_names; *name; ++name) t.emplace(*name, db.rows(*name));
    const std::vector<rec>& pcis = t.at("PCIs");
    std::set<int64_t> keys;
    for (const rec& a : t.at("PCIAdapter")) {
        if (auto k = a.number("PCIKey")) keys.insert(*k);  // a row without its key belongs to no device
    }
    for (int64_t key : keys) {
        device d;
        d.key = key;
        d.functions = matching(pcis, "DevKey", {key});
        std::stable_sort(d.functions.begin(), d.functions.end(), [](const rec& a, const rec& b) {
            return a.number("FunctionNo").value_or(0) < b.number("FunctionNo").value_or(0);
        });
        // One function per number: a repeated "PCIs" row of the same function is left out.
        d.functions.erase(std::unique(d.functions.begin(), d.functions.end(),
                                      [](const rec& a, const rec& b) {
                                          return a.number("FunctionNo").value_or(0) ==
                                                 b.number("FunctionNo").value_or(0);
                                      }),
                          d.functions.end());
        d.present = !d.functions.empty();
        d.adapters = matching(t.at("PCIAdapter"), "PCIKey", {key});
        std::set<int64_t> hardware_ids, function_keys;
        for (const rec& f : d.functions) {
            if (auto h = f.number("HardwareId")) hardware_ids.insert(*h);
            if (auto k = f.number("FunKey")) function_keys.insert(*k);
        }
        for (const rec& a : d.adapters) {
            if (auto k = a.number("PCIFuncKey")) function_keys.insert(*k);
        }
        d.misc = matching(t.at("PCIMisc"), "PCIKey", {key});
        d.vpds = matching(t.at("VPDs"), "HardwareId", hardware_ids);
        d.firmwares = matching(t.at("Firmwares"), "HardwareId", hardware_ids);
        d.pldm = matching(t.at("PldmDeviceFirmware"), "PCIKey", {key});
        d.networks = matching(t.at("PCINetwork"), "PCIKey", {key});
        d.ports = matching(t.at("PCIPhysicalPort"), "PCIKey", {key});
        d.stats = matching(t.at("PCIPhysicalPortStat"), "PCIFuncKey", function_keys);
        d.logical = matching(t.at("PCILogicalPort"), "PCIKey", {key});
        d.gpus = matching(t.at("PCIGPU"), "PCIKey", {key});
        d.chips = matching(t.at("PCIGPUChip"), "PCIKey", {key});
        d.id = address_id(d.present ? d.functions.front() : d.adapters.front());
        devices.push_back(std::move(d));
    }
    std::stable_sort(devices.begin(), devices.end(), [](const device& a, const device& b) {
        int64_t sa = a.slot().value_or(INT64_MAX), sb = b.slot().value_or(INT64_MAX);
        return sa != sb ? sa < sb : a.id < b.id;
    });
    std::vector<std::string*> ids;
    for (auto& d : devices) ids.push_back(&d.id);
    unique_ids(ids);
    for (auto& d : devices) d.uri = kSystem + "/PCIeDevices/" + d.id;

    // Processors: one per GPU chip, else one per GPU row.
    for (auto& d : devices) {
        for (const rec& chip : d.chips) {
            processor p{d.id + "_GPU" + std::to_string(chip.number("GPUChipIndex").value_or(0)), "", &d,
                        std::nullopt, chip};
            auto func = chip.number("PCIFuncKey");
            for (const rec& g : d.gpus) {
                if (g.number("PCIFuncKey") == func) p.gpu = g;
            }
            processors.push_back(p);
        }
        for (const rec& g : d.gpus) {
            bool has_chip = false;
            for (const rec& chip : d.chips)
                has_chip = has_chip || chip.number("PCIFuncKey") == g.number("PCIFuncKey");
            if (!has_chip) processors.push_back({d.id + "_GPU", "", &d, g, std::nullopt});
        }
        if (d.gpus.empty() && d.chips.empty() && gpu_without_aim_data(d))
            processors.push_back({d.id + "_GPU", "", &d, {}, {}});
    }
    ids.clear();
    for (auto& p : processors) ids.push_back(&p.id);
    unique_ids(ids);
    for (auto& p : processors) {
        p.uri = kSystem + "/Processors/" + p.id;
        devices[static_cast<size_t>(p.dev - devices.data())].processors.push_back(p.uri);
    }

    // Storage: the drives of each controller (its function key and slot).
    std::map<std::pair<int64_t, int64_t>, size_t> controllers;
    for (const rec& disk : t.at("AimDisks")) {
        auto at = std::make_pair(disk.number("PCIFuncKey").value_or(0), disk.number("SlotNo").value_or(0));
        auto it = controllers.find(at);
        if (it == controllers.end()) {
            storage s;
            s.dev = device_by_function_key(at.first);
            if (!s.dev) s.dev = device_by_key(disk.number("PCIKey").value_or(-1));
            s.id = s.dev ? s.dev->id : "Slot" + std::to_string(at.second);
            it = controllers.emplace(at, storages.size()).first;
            storages.push_back(s);
        }
        storage& s = storages[it->second];
        s.drives.push_back(disk);
        auto bay = disk.text("BayNo");
        bool numbered =
            bay && std::all_of(bay->begin(), bay->end(), [](char c) { return c >= '0' && c <= '9'; });
        s.drive_ids.push_back(!bay       ? "Drive_" + std::to_string(disk.id())
                              : numbered ? "Bay_" + *bay
                                         : id_of(*bay));
    }
    ids.clear();
    for (auto& s : storages) ids.push_back(&s.id);
    unique_ids(ids);
    for (auto& s : storages) {
        s.uri = kSystem + "/Storage/" + s.id;
        std::vector<std::string*> drive_ids;
        for (auto& id : s.drive_ids) drive_ids.push_back(&id);
        unique_ids(drive_ids);
    }

    // Firmware inventory: every "Firmwares" and "PldmDeviceFirmware" row.
    for (const rec& f : t.at("Firmwares")) {
        firmware fw{"FW_" + std::to_string(f.id()), "", f, false, nullptr};
        if (auto h = f.number("HardwareId")) fw.dev = device_by_hardware_id(*h);
        firmwares.push_back(fw);
    }
    for (const rec& f : t.at("PldmDeviceFirmware")) {
        firmware fw{"PLDM_" + std::to_string(f.id()), "", f, true, nullptr};
        if (auto k = f.number("PCIKey")) fw.dev = device_by_key(*k);
        firmwares.push_back(fw);
    }
    for (auto& fw : firmwares) fw.uri = kRoot + "/UpdateService/FirmwareInventory/" + fw.id;

    for (auto& d : devices) {
        if (d.networks.empty() && d.ports.empty() && d.logical.empty()) continue;
        d.adapter_uri = kChassisUri + "/NetworkAdapters/" + d.id;
        auto number = [](const rec& r, const char* c) { return std::to_string(r.number(c).value_or(0)); };
        for (const rec& p : d.ports)
            d.port_ids.push_back(id_of(number(p, "FunctionNo") + "_" + number(p, "Idx")));
        for (const rec& l : d.logical) {
            d.logical_ids.push_back(
                id_of(number(l, "FunctionNo") + "_" + number(l, "PhyIdx") + "_" + number(l, "Idx")));
        }
        for (auto* list : {&d.port_ids, &d.logical_ids}) {
            std::vector<std::string*> ptrs;
            for (auto& id : *list) ptrs.push_back(&id);
            unique_ids(ptrs);
        }
    }
}

const service::model::device* service::model::device_by_key(int64_t key) const {
    for (const auto& d : devices) {
        if (d.key == key) return &d;
    }
    return nullptr;
}

const service::model::device* service::model::device_by_function_key(int64_t func_key) const {
    for (const auto& d : devices) {
        for (const auto* rows : {&d.functions, &d.adapters}) {
            for (const rec& r : *rows) {
                if (r.number(rows == &d.functions ? "FunKey" : "PCIFuncKey") == func_key) return &d;
            }
        }
    }
    return nullptr;
}

const service::model::device* service::model::device_by_hardware_id(int64_t hardware_id) const {
    for (const auto& d : devices) {
        for (const rec& f : d.functions) {
            if (f.number("HardwareId") == hardware_id) return &d;
        }
    }
    return nullptr;
}

// ---- Resources ---------------------------------------------------------------------------------

namespace {

using device = service::model::device;

const char* const pcie_generations[] = {"Gen1", "Gen2", "Gen3", "Gen4", "Gen5", "Gen6"};

std::optional<std::string> pcie_type(const std::optional<int64_t>& gen) {
    if (!gen || *gen < 1 || *gen > 6) return std::nullopt;
    return std::string(pcie_generations[*gen - 1]);
}

// The PCI device class of a class code's base class.
std::optional<std::string> device_class(int64_t class_code) {
    switch ((class_code >> 16) & 0xFF) {
        case 0x01:
            return std::string("MassStorageController");
        case 0x02:
            return std::string("NetworkController");
        case 0x03:
            return std::string("DisplayController");
        case 0x04:
            return std::string("MultimediaController");
        case 0x06:
            return std::string("Bridge");
        case 0x0C:
            return std::string("SerialBusController");
        case 0x12:
            return std::string("ProcessingAccelerators");
        default:
            return std::nullopt;
    }
}

json location(const std::optional<std::string>& label, const std::optional<int64_t>& ordinal,
              const char* type) {
    json part = json::object();
    put(part, "ServiceLabel", label);
    if (ordinal) part["LocationOrdinalValue"] = *ordinal;
    if (!part.empty() && type) part["LocationType"] = type;
    json out = json::object();
    put(out, "PartLocation", part);
    return out;
}

json pcie_device(const device& d) {
    json j = resource(d.uri, kPCIeDevice, d.id, d.name().value_or("PCIe device " + d.id));
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
    json oem = json::object();
    for (const auto& rows : {std::make_pair("Adapters", &d.adapters), std::make_pair("Misc", &d.misc),
                             std::make_pair("VPDs", &d.vpds)}) {
        json list = json::array();
        for (const rec& r : *rows.second) list.push_back(columns_of(r));
        put(oem, rows.first, list);
    }
    j["Oem"] = json{{"AIM", oem}};
    return j;
}

json pcie_function(const device& d, const rec& f) {
    int64_t number = f.number("FunctionNo").value_or(0);
    std::string id = std::to_string(number);
    json j = resource(d.function_uri(number), kPCIeFunction, id, "PCIe function " + id);
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
    j["Oem"] = json{{"AIM", columns_of(f)}};
    return j;
}

json processor(const service::model::processor& p) {
    const device& d = *p.dev;
    auto chip = [&](const char* c) { return p.chip ? p.chip->text(c) : std::nullopt; };
    json j = resource(p.uri, kProcessor, p.id, chip("GPUChipName").value_or(d.name().value_or("GPU")));
    j["ProcessorType"] = "GPU";
    put(j, "Manufacturer",
        chip("GPUChipManufacturer") ? chip("GPUChipManufacturer") : first_text(d.vpds, "Manufacture"));
    put(j, "Model", chip("GPUChipModel") ? chip("GPUChipModel") : first_text(d.vpds, "Model"));
    put(j, "SerialNumber",
        chip("GPUChipSerialNumber") ? chip("GPUChipSerialNumber") : first_text(d.vpds, "SerialNo"));
    put(j, "PartNumber",
        chip("GPUChipPartNumber") ? chip("GPUChipPartNumber") : first_text(d.vpds, "PartNo"));
    put(j, "UUID",
        uuid(chip("GPUChipUniqueID")) ? uuid(chip("GPUChipUniqueID")) : uuid(first_text(d.vpds, "UUID")));
    put(j, "FirmwareVersion", d.firmware_version());
    if (p.chip) {
        put(j, "MaxSpeedMHz", p.chip->number("GPUChipMaxClockSpeed"));
        put(j, "TotalCores", p.chip->number("GPUChipNumberOfEnabledCores"));
    }
    put(j, "Location", location(d.slot_label(), d.slot(), "Slot"));
    j["Status"] = enabled();
    j["Links"] = json{{"PCIeDevice", link(d.uri)}, {"Chassis", link(kChassisUri)}};
    json oem = json::object();
    if (p.gpu) oem["GPU"] = columns_of(*p.gpu);
    if (p.chip) oem["GPUChip"] = columns_of(*p.chip);
    j["Oem"] = json{{"AIM", oem}};
    return j;
}

json drive(const service::model::storage& s, size_t i) {
    const rec& r = s.drives[i];
    auto bay = r.text("BayNo");
    json j = resource(s.drive_uri(i), kDrive, s.drive_ids[i], bay ? "Drive in bay " + *bay : "Drive");
    auto media = r.number("MediaTypeId");
    auto type = r.number("DriveTypeId");
    if (!media) media = type == 4 ? std::optional<int64_t>(2) : type;
    if (media == 1) j["MediaType"] = "HDD";
    if (media == 2) j["MediaType"] = "SSD";
    if (type == 4) j["Protocol"] = "NVMe";
    if (auto c = r.number("Capacity")) {
        if (*c >= 0) j["CapacityBytes"] = *c;
    }
    put(j, "SerialNumber", r.text("SerialNo"));
    put(j, "Model", r.text("Model"));
    put(j, "Manufacturer", r.text("Manufacturer") ? r.text("Manufacturer") : r.text("Manufacture"));
    put(j, "PartNumber", r.text("PartNo"));
    put(j, "SKU", r.text("FruNo"));
    put(j, "Revision", r.text("FwVersion"));
    if (auto id = r.text("UUID")) {
        const char* format = uuid(id) ? "UUID" : all_hex(*id) && id->size() == 16 ? "NAA" : nullptr;
        if (format)
            j["Identifiers"] = json::array({json{{"DurableName", *id}, {"DurableNameFormat", format}}});
    }
    put(j, "PhysicalLocation", location(bay, r.number("LocationId"), "Bay"));
    auto presence = r.number("Presence");
    if (presence) j["Status"] = *presence ? enabled() : json{{"State", "Absent"}};
    json l = json{{"Chassis", link(kChassisUri)}};
    if (auto f = s.dev ? s.dev->function_link(r.number("FunctionNo")) : std::nullopt)
        l["PCIeFunctions"] = links({*f});
    j["Links"] = l;
    j["Oem"] = json{{"AIM", columns_of(r)}};
    return j;
}

json storage(const service::model::storage& s) {
    std::optional<std::string> owner = s.dev ? s.dev->name() : std::nullopt;
    json j = resource(s.uri, kStorage, s.id, owner ? "Storage of " + *owner : "Storage " + s.id);
    std::vector<std::string> drives;
    for (size_t i = 0; i < s.drives.size(); ++i) drives.push_back(s.drive_uri(i));
    j["Drives"] = links(drives);
    j["Drives@odata.count"] = drives.size();
    j["Status"] = enabled();
    if (s.dev) j["Links"] = json{{"Enclosures", links({kChassisUri})}};
    return j;
}

json port(const device& d, size_t i) {
    const rec& p = d.ports[i];
    auto index = p.number("Idx");
    std::string label = std::to_string(index.value_or(0));
    json j = resource(d.port_uri(i), kPort, d.port_ids[i], "Port " + label);
    j["PortId"] = label;
    if (auto m = mac(p.text("PermanentAddress")))
        j["Ethernet"] = json{{"AssociatedMACAddresses", json::array({*m})}};
    // The statistics row of the port's function and index.
    for (const rec& s : d.stats) {
        if (s.number("PCIFuncKey") != p.number("PCIFuncKey") || s.number("Idx") != index) continue;
        auto status = s.number("LinkStatus");
        if (status == 1) j["LinkStatus"] = "LinkUp";
        if (status == 2) j["LinkStatus"] = "LinkDown";
        auto speed = s.number("LinkSpeed");
        if (speed && *speed > 0) j["CurrentSpeedGbps"] = static_cast<double>(*speed) / 1000.0;
        j["Oem"]["AIM"]["Statistics"] = columns_of(s);
    }
    j["Status"] = enabled();
    j["Oem"]["AIM"]["Port"] = columns_of(p);
    return j;
}

json network_device_function(const device& d, size_t i) {
    const rec& l = d.logical[i];
    const std::string& id = d.logical_ids[i];
    json j = resource(d.logical_uri(i), kNetworkDeviceFunction, id, "Network device function " + id);
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
    j["Oem"] = json{{"AIM", columns_of(l)}};
    return j;
}

json network_adapter(const device& d) {
    json j = resource(d.adapter_uri, kNetworkAdapter, d.id, d.name().value_or("Network adapter " + d.id));
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
    json oem = json::array();
    for (const rec& n : d.networks) oem.push_back(columns_of(n));
    if (!oem.empty()) j["Oem"] = json{{"AIM", {{"Network", oem}}}};
    return j;
}

json firmware(const service::model::firmware& fw) {
    const rec& r = fw.row;
    std::string name = r.text(fw.pldm ? "DeviceName" : "FirmwareName").value_or("Firmware");
    if (fw.pldm) name += " (PLDM)";
    json j = resource(fw.uri, kSoftwareInventory, fw.id, name);
    put(j, "Description", r.text("Description"));
    put(j, "Version", r.text("VersionString"));
    put(j, "Manufacturer", r.text("Manufacture"));
    put(j, "SoftwareId", r.text("SoftwareID"));
    put(j, "ReleaseDate", release_date(r.text("ReleaseDate")));
    if (fw.pldm) {
        if (auto u = r.number("UpdateSupport")) j["Updateable"] = *u != 0;
    }
    std::vector<std::string> related;
    if (fw.dev) {
        related.push_back(fw.dev->uri);
        related.insert(related.end(), fw.dev->processors.begin(), fw.dev->processors.end());
    }
    if (!related.empty()) {
        j["RelatedItem"] = links(related);
        j["RelatedItem@odata.count"] = related.size();
    }
    j["Status"] = enabled();
    j["Oem"] = json{{"AIM", columns_of(r)}};
    return j;
}

}  // namespace

// ---- Routing -----------------------------------------------------------------------------------

json error_body(int status, const std::string& detail) {
    std::string id, message, resolution;
    json args = json::array();
    if (status == 404) {
        id = "ResourceMissingAtURI";
        message = "The resource at the URI " + detail + " was not found.";
        resolution = "Place a valid resource at the URI or correct the URI and resubmit the request.";
        args.push_back(detail);
    } else if (status == 405) {
        id = "OperationNotAllowed";
        message = "The HTTP method is not allowed on this resource.";
        resolution = "None.";
    } else {
        id = "GeneralError";
        message = "A general error has occurred. See Resolution for information on how to resolve the error.";
        resolution = detail.empty() ? "None." : detail;
    }
    json info =
        json{{"@odata.type", kMessage}, {"MessageId", kBaseRegistry + id}, {"Message", message},
             {"MessageArgs", args},     {"MessageSeverity", "Critical"},   {"Resolution", resolution}};
    return json{
        {"error", {{"code", kBaseRegistry + id}, {"message", message}, {"@Message.ExtendedInfo", {info}}}}};
}

std::string to_text(const json& body, int indent) {
    return body.dump(indent, ' ', false, json::error_handler_t::replace);
}

service::service(const snapshot& db) : m_(new model(db)) {}
service::~service() { delete m_; }

std::vector<std::string> service::uris() const {
    const model& m = *m_;
    std::vector<std::string> out = {"/redfish", kRoot, kRoot + "/Systems", kSystem, kSystem + "/PCIeDevices"};
    for (const auto& d : m.devices) {
        out.push_back(d.uri);
        if (!d.present) continue;
        out.push_back(d.uri + "/PCIeFunctions");
        for (const rec& f : d.functions) out.push_back(d.function_uri(f.number("FunctionNo").value_or(0)));
    }
    out.push_back(kSystem + "/Processors");
    for (const auto& p : m.processors) out.push_back(p.uri);
    out.push_back(kSystem + "/Storage");
    for (const auto& s : m.storages) {
        out.push_back(s.uri);
        for (size_t i = 0; i < s.drives.size(); ++i) out.push_back(s.drive_uri(i));
    }
    out.insert(out.end(), {kRoot + "/Chassis", kChassisUri, kChassisUri + "/PCIeDevices",
                           kChassisUri + "/NetworkAdapters"});
    for (const device* d : m.network_adapters()) {
        const std::string& a = d->adapter_uri;
        out.insert(out.end(), {a, a + "/Ports"});
        for (size_t i = 0; i < d->ports.size(); ++i) out.push_back(d->port_uri(i));
        out.push_back(a + "/NetworkDeviceFunctions");
        for (size_t i = 0; i < d->logical.size(); ++i) out.push_back(d->logical_uri(i));
    }
    out.insert(out.end(), {kRoot + "/Managers", kManagerUri, kRoot + "/UpdateService",
                           kRoot + "/UpdateService/FirmwareInventory"});
    for (const auto& fw : m.firmwares) out.push_back(fw.uri);
    out.insert(out.end(), {kRoot + "/SessionService", kRoot + "/SessionService/Sessions"});
    return out;
}

response service::get(const std::string& raw) const {
    const model& m = *m_;
    std::string uri = raw;
    while (uri.size() > 1 && uri.back() == '/') uri.pop_back();
    auto found = [](json body) { return response{200, std::move(body)}; };

    if (uri == "/redfish") return found(json{{"v1", "/redfish/v1/"}});
    if (uri == kRoot) {
        json j = resource(kRoot, kServiceRoot, "RootService", "Root Service");
        j["RedfishVersion"] = "1.13.0";
        j["Systems"] = link(kRoot + "/Systems");
        j["Chassis"] = link(kRoot + "/Chassis");
        j["Managers"] = link(kRoot + "/Managers");
        j["UpdateService"] = link(kRoot + "/UpdateService");
        j["SessionService"] = link(kRoot + "/SessionService");
        j["Links"] = json{{"Sessions", link(kRoot + "/SessionService/Sessions")}};
        return found(j);
    }
    if (uri == kRoot + "/Systems")
        return found(collection(uri, "#ComputerSystemCollection.ComputerSystemCollection",
                                "Computer System Collection", {kSystem}));
    if (uri == kSystem) {
        json j = resource(kSystem, kComputerSystem, "system", "System");
        j["SystemType"] = "Physical";
        j["Boot"] = json::object();
        j["Actions"] = json::object();
        j["Status"] = enabled();
        j["PCIeDevices"] = links(m.device_uris());
        j["PCIeDevices@odata.count"] = m.devices.size();
        j["Processors"] = link(kSystem + "/Processors");
        j["Storage"] = link(kSystem + "/Storage");
        j["Links"] = json{{"Chassis", links({kChassisUri})}, {"ManagedBy", links({kManagerUri})}};
        return found(j);
    }
    if (uri == kSystem + "/PCIeDevices" || uri == kChassisUri + "/PCIeDevices")
        return found(collection(uri, "#PCIeDeviceCollection.PCIeDeviceCollection", "PCIe Device Collection",
                                m.device_uris()));
    for (const auto& d : m.devices) {
        if (uri == d.uri) return found(pcie_device(d));
        if (!d.present) continue;
        if (uri == d.uri + "/PCIeFunctions") {
            std::vector<std::string> members;
            for (const rec& f : d.functions)
                members.push_back(d.function_uri(f.number("FunctionNo").value_or(0)));
            return found(collection(uri, "#PCIeFunctionCollection.PCIeFunctionCollection",
                                    "PCIe Function Collection", members));
        }
        for (const rec& f : d.functions) {
            if (uri == d.function_uri(f.number("FunctionNo").value_or(0))) return found(pcie_function(d, f));
        }
    }
    if (uri == kSystem + "/Processors") {
        std::vector<std::string> members;
        for (const auto& p : m.processors) members.push_back(p.uri);
        return found(
            collection(uri, "#ProcessorCollection.ProcessorCollection", "Processor Collection", members));
    }
    for (const auto& p : m.processors) {
        if (uri == p.uri) return found(processor(p));
    }
    if (uri == kSystem + "/Storage") {
        std::vector<std::string> members;
        for (const auto& s : m.storages) members.push_back(s.uri);
        return found(collection(uri, "#StorageCollection.StorageCollection", "Storage Collection", members));
    }
    for (const auto& s : m.storages) {
        if (uri == s.uri) return found(storage(s));
        for (size_t i = 0; i < s.drives.size(); ++i) {
            if (uri == s.drive_uri(i)) return found(drive(s, i));
        }
    }
    if (uri == kRoot + "/Chassis")
        return found(
            collection(uri, "#ChassisCollection.ChassisCollection", "Chassis Collection", {kChassisUri}));
    if (uri == kChassisUri) {
        json j = resource(kChassisUri, kChassis, "chassis", "Chassis");
        j["ChassisType"] = "Other";
        j["Status"] = enabled();
        j["PCIeDevices"] = link(kChassisUri + "/PCIeDevices");
        j["NetworkAdapters"] = link(kChassisUri + "/NetworkAdapters");
        std::vector<std::string> drives;
        for (const auto& s : m.storages) {
            for (size_t i = 0; i < s.drives.size(); ++i) drives.push_back(s.drive_uri(i));
        }
        json l = json{{"ComputerSystems", links({kSystem})}, {"ManagedBy", links({kManagerUri})}};
        l["Drives"] = links(drives);
        l["Drives@odata.count"] = drives.size();
        j["Links"] = l;
        return found(j);
    }
    if (uri == kChassisUri + "/NetworkAdapters") {
        std::vector<std::string> members;
        for (const device* d : m.network_adapters()) members.push_back(d->adapter_uri);
        return found(collection(uri, "#NetworkAdapterCollection.NetworkAdapterCollection",
                                "Network Adapter Collection", members));
    }
    for (const device* d : m.network_adapters()) {
        const std::string& a = d->adapter_uri;
        if (uri == a) return found(network_adapter(*d));
        std::vector<std::string> ports, functions;
        for (size_t i = 0; i < d->ports.size(); ++i) ports.push_back(d->port_uri(i));
        for (size_t i = 0; i < d->logical.size(); ++i) functions.push_back(d->logical_uri(i));
        if (uri == a + "/Ports")
            return found(collection(uri, "#PortCollection.PortCollection", "Port Collection", ports));
        if (uri == a + "/NetworkDeviceFunctions")
            return found(collection(uri, "#NetworkDeviceFunctionCollection.NetworkDeviceFunctionCollection",
                                    "Network Device Function Collection", functions));
        for (size_t i = 0; i < ports.size(); ++i) {
            if (uri == ports[i]) return found(port(*d, i));
        }
        for (size_t i = 0; i < functions.size(); ++i) {
            if (uri == functions[i]) return found(network_device_function(*d, i));
        }
    }
    if (uri == kRoot + "/Managers")
        return found(
            collection(uri, "#ManagerCollection.ManagerCollection", "Manager Collection", {kManagerUri}));
    if (uri == kManagerUri) {
        json j = resource(kManagerUri, kManager, "bmc", "Baseboard management controller");
        j["ManagerType"] = "BMC";
        j["Status"] = enabled();
        j["Links"] =
            json{{"ManagerForServers", links({kSystem})}, {"ManagerForChassis", links({kChassisUri})}};
        return found(j);
    }
    if (uri == kRoot + "/UpdateService") {
        json j = resource(uri, kUpdateService, "UpdateService", "Update Service");
        j["ServiceEnabled"] = false;
        j["FirmwareInventory"] = link(uri + "/FirmwareInventory");
        j["Actions"] = json::object();
        j["Status"] = enabled();
        return found(j);
    }
    if (uri == kRoot + "/UpdateService/FirmwareInventory") {
        std::vector<std::string> members;
        for (const auto& fw : m.firmwares) members.push_back(fw.uri);
        return found(collection(uri, "#SoftwareInventoryCollection.SoftwareInventoryCollection",
                                "Firmware Inventory Collection", members));
    }
    for (const auto& fw : m.firmwares) {
        if (uri == fw.uri) return found(firmware(fw));
    }
    if (uri == kRoot + "/SessionService") {
        json j = resource(uri, kSessionService, "SessionService", "Session Service");
        j["ServiceEnabled"] = false;
        j["Status"] = enabled();
        j["Sessions"] = link(uri + "/Sessions");
        return found(j);
    }
    if (uri == kRoot + "/SessionService/Sessions")
        return found(collection(uri, "#SessionCollection.SessionCollection", "Session Collection", {}));
    return response{404, error_body(404, raw)};
}

}  // namespace redfish
