// The inventory tables grouped by adapter (see redfish/model.h).
#include "redfish/model.h"

#include <ctype.h>
#include <stdio.h>

#include <algorithm>
#include <map>
#include <set>

namespace redfish {

const std::string kRoot = "/redfish/v1";
const std::string kSystem = kRoot + "/Systems/system";
const std::string kChassisUri = kRoot + "/Chassis/chassis";
const std::string kManagerUri = kRoot + "/Managers/bmc";

std::optional<std::string> first_text(const std::vector<rec>& rows, const char* column) {
    for (const rec& r : rows) {
        if (auto v = r.text(column)) return v;
    }
    return std::nullopt;
}

std::optional<std::string> model::device::name() const {
    if (auto v = first_text(adapters, "CardName")) return v;
    if (auto v = first_text(vpds, "ProductName")) return v;
    return first_text(pldm, "DeviceName");
}

std::optional<std::string> model::device::firmware_version() const {
    if (auto v = first_text(firmwares, "VersionString")) return v;
    return first_text(pldm, "VersionString");
}

std::optional<std::string> model::device::slot_label() const {
    if (auto v = first_text(functions, "SlotDesignation")) return v;
    if (auto s = slot()) return "Slot " + std::to_string(*s);
    return std::nullopt;
}

std::optional<int64_t> model::device::slot() const {
    for (const auto* rows : {&functions, &adapters}) {
        for (const rec& r : *rows) {
            if (auto v = r.number("SlotNo")) return v;
        }
    }
    return std::nullopt;
}

std::optional<std::string> model::device::function_link(const std::optional<int64_t>& function) const {
    for (const rec& f : functions) {
        if (f.number("FunctionNo").value_or(0) == function.value_or(0))
            return function_uri(function.value_or(0));
    }
    return std::nullopt;
}

namespace {

// An Id made of letters, digits, "_", "-" and ".": anything else becomes "_".
std::string id_of(const std::string& s) {
    std::string out;
    for (char c : s) out += isalnum(static_cast<unsigned char>(c)) || c == '-' || c == '.' ? c : '_';
    return out.empty() ? "_" : out;
}

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
bool gpu_without_aim_data(const model::device& d) {
    if (!d.present) return false;
    const rec& f = d.functions.front();
    int64_t vendor = f.number("VendorId").value_or(0), type = f.number("FunType").value_or(0);
    if (f.number("Location") != 1) return false;
    return (vendor == 0x10DE && type == 4) || (vendor == 0x1002 && (type == 4 || type == 16)) ||
           (vendor == 0x17CB && type == 16);
}

// Makes every Id of `ids` unique: a repeat gets "_2", "_3", ... (the first suffix that no
// other Id has).
void unique_ids(const std::vector<std::string*>& ids) {
    std::set<std::string> taken;
    for (const std::string* id : ids) taken.insert(*id);
    std::set<std::string> seen;
    for (std::string* id : ids) {
        if (seen.insert(*id).second) continue;
        for (int n = 2;; ++n) {
            std::string next = *id + "_" + std::to_string(n);
            if (!taken.count(next)) {
                *id = next;
                break;
            }
        }
        taken.insert(*id);
        seen.insert(*id);
    }
}

}  // namespace

model::model(const snapshot& db) {
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
    for (auto& d : devices) d.uri = kChassisUri + "/PCIeDevices/" + d.id;

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

    // Storage: the drives of each controller (its function key and slot). The drives are
    // the chassis's, so their Ids are unique over every controller.
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
        auto bay = disk.text("BayNo");
        bool numbered =
            bay && std::all_of(bay->begin(), bay->end(), [](char c) { return c >= '0' && c <= '9'; });
        std::string id = !bay ? "Drive_" + std::to_string(disk.id()) : numbered ? "Bay_" + *bay : id_of(*bay);
        storages[it->second].drives.push_back({id, "", disk});
    }
    ids.clear();
    for (auto& s : storages) ids.push_back(&s.id);
    unique_ids(ids);
    ids.clear();
    for (auto& s : storages) {
        s.uri = kSystem + "/Storage/" + s.id;
        for (auto& d : s.drives) ids.push_back(&d.id);
    }
    unique_ids(ids);
    for (auto& s : storages) {
        for (auto& d : s.drives) d.uri = kChassisUri + "/Drives/" + d.id;
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

const model::device* model::device_by_key(int64_t key) const {
    for (const auto& d : devices) {
        if (d.key == key) return &d;
    }
    return nullptr;
}

const model::device* model::device_by_function_key(int64_t func_key) const {
    for (const auto& d : devices) {
        for (const auto* rows : {&d.functions, &d.adapters}) {
            for (const rec& r : *rows) {
                if (r.number(rows == &d.functions ? "FunKey" : "PCIFuncKey") == func_key) return &d;
            }
        }
    }
    return nullptr;
}

const model::device* model::device_by_hardware_id(int64_t hardware_id) const {
    for (const auto& d : devices) {
        for (const rec& f : d.functions) {
            if (f.number("HardwareId") == hardware_id) return &d;
        }
    }
    return nullptr;
}

std::vector<std::string> model::device_uris() const {
    std::vector<std::string> out;
    for (const auto& d : devices) out.push_back(d.uri);
    return out;
}

std::vector<std::string> model::drive_uris() const {
    std::vector<std::string> out;
    for (const auto& s : storages) {
        for (const auto& d : s.drives) out.push_back(d.uri);
    }
    return out;
}

std::vector<const model::device*> model::network_adapters() const {
    std::vector<const device*> out;
    for (const auto& d : devices) {
        if (!d.adapter_uri.empty()) out.push_back(&d);
    }
    return out;
}

}  // namespace redfish
