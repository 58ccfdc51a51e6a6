// From present functions to "PCIs" rows. The choices that the columns' meaning leaves open
// are the ones the README's machine.json section lists; they are made here and only here.
#include <stdio.h>
#include <string.h>

#include <algorithm>
#include <map>

#include "tools/machine/pci_machine.h"

namespace machine {
namespace {

// Classes of the platform's own integrated functions, left out unless a slot holds them:
// memory controllers (05), simple communication (07: serial ports, the management engine),
// system peripherals (08), docking (0a), processors (0b), serial buses (0c, but Fibre Channel
// 0c04 and InfiniBand 0c06), encryption (10), signal processing (11), instrumentation (13)
// and unassigned (ff).
bool platform_class(uint32_t class_code) {
    unsigned base = class_code >> 16, sub = class_code >> 8 & 0xff;
    switch (base) {
        case 0x05:
        case 0x07:
        case 0x08:
        case 0x0a:
        case 0x0b:
        case 0x10:
        case 0x11:
        case 0x13:
        case 0xff:
            return true;
        case 0x0c:
            return sub != 0x04 && sub != 0x06;
        default:
            return false;
    }
}

// The word of an onboard function's designation when no SMBIOS onboard device names it.
const char* onboard_word(uint32_t class_code) {
    unsigned cls = class_code >> 8;
    switch (cls) {
        case 0x0300:
            return "VGA";
        case 0x0100:
            return "SCSI";
        case 0x0104:
            return "RAID";
        case 0x0106:
            return "SATA";
        case 0x0107:
            return "SAS";
        case 0x0108:
            return "NVMe";
        case 0x0200:
            return "LAN";
        case 0x0403:
            return "Audio";
        default:
            break;
    }
    switch (cls >> 8) {
        case 0x01:
            return "Storage";
        case 0x02:
            return "Network";
        case 0x03:
            return "Display";
        case 0x04:
            return "Multimedia";
        case 0x12:
            return "Accelerator";
        default:
            return "Device";
    }
}

// The SMBIOS slot type of a PCI Express slot of that generation and width, for a slot that
// only the kernel names (no SMBIOS record): the generation's own code for other widths.
unsigned slot_type_of_link(unsigned gen, unsigned width) {
    static const unsigned base[] = {0xa5, 0xa5, 0xab, 0xb1, 0xb8, 0xbe, 0xc4};
    unsigned b = base[gen <= 6 ? gen : 0];
    if (gen == 0 || gen == 6) return b;
    unsigned first = gen == 1 ? 0xa6 : b + 1;
    switch (width) {
        case 1:
            return first;
        case 2:
            return first + 1;
        case 4:
            return first + 2;
        case 8:
            return first + 3;
        case 16:
            return first + 4;
        default:
            return b;
    }
}

bool contains_word(const std::string& s, const char* word) {
    std::string up = s;
    for (char& c : up) c = static_cast<char>(toupper(static_cast<unsigned char>(c)));
    return up.find(word) != std::string::npos;
}

// A mezzanine connector (OCP NIC, LOM, mezzanine card) holds an onboard device, not an
// add-in card: by its SMBIOS type or by the words of its designation.
bool mezzanine(const smbios_slot& s) {
    return (s.type >= 0x26 && s.type <= 0x28) || contains_word(s.designation, "OCP") ||
           contains_word(s.designation, "MEZZ") || contains_word(s.designation, "LOM");
}

class topology {
public:
    topology(const std::vector<pci_function>& functions, const std::string& source) {
        for (const pci_function& f : functions) {
            if (!f.has_bus_range) continue;
            if (f.address.bus >= f.secondary && f.address.bus <= f.subordinate) {
                throw input_error(source, f.line,
                                  "bridge " + f.address.text() + " forwards to its own bus " +
                                      std::to_string(f.address.bus));
            }
            bridges_.push_back(&f);
            // Each bus of the window gets the narrowest window holding it (on a tie, the one
            // that starts higher): a table per segment makes every parent lookup constant.
            std::vector<const pci_function*>& table = below_[f.address.segment];
            if (table.empty()) table.assign(256, nullptr);
            for (unsigned bus = f.secondary; bus <= f.subordinate; ++bus) {
                const pci_function* best = table[bus];
                if (!best || f.subordinate - f.secondary < best->subordinate - best->secondary ||
                    (f.subordinate - f.secondary == best->subordinate - best->secondary &&
                     f.secondary > best->secondary))
                    table[bus] = &f;
            }
        }
    }

    bool knows_bridges() const { return !bridges_.empty(); }

    // The bridge right above a bus: the one with the narrowest window holding it.
    const pci_function* parent(uint32_t segment, unsigned bus) const {
        auto it = below_.find(segment);
        return it == below_.end() ? nullptr : it->second[bus & 0xff];
    }

    // The bridges above a function, nearest first (a window always holds a higher bus than
    // the bridge's own, so the walk ends).
    std::vector<const pci_function*> ancestors(const pci_function& f) const {
        std::vector<const pci_function*> out;
        const pci_function* p = parent(f.address.segment, f.address.bus);
        while (p && out.size() < 256) {
            out.push_back(p);
            p = parent(p->address.segment, p->address.bus);
        }
        return out;
    }

    // A root bus: no bridge forwards to it. Without bridge windows (lspci -vmm) bus 0 only.
    bool on_root_bus(const pci_function& f) const {
        if (!knows_bridges()) return f.address.bus == 0;
        return parent(f.address.segment, f.address.bus) == nullptr;
    }

private:
    std::vector<const pci_function*> bridges_;
    std::map<uint32_t, std::vector<const pci_function*>> below_;  // segment: bus -> bridge above
};

// The SMBIOS records by what a function is matched with; the first record wins where
// several give the same address or ID, as BIOSes do.
class smbios_index {
public:
    static const size_t none = static_cast<size_t>(-1);

    explicit smbios_index(const smbios_info* smbios) {
        if (!smbios) return;
        for (size_t i = 0; i < smbios->slots.size(); ++i) {
            const smbios_slot& s = smbios->slots[i];
            if (s.valid_address) {
                by_address_.emplace(s.address, i);
                by_device_.emplace(device_of(s.address), i);
            }
            if (s.id >= 0) by_id_.emplace(s.id, i);
        }
        for (const onboard_device& d : smbios->onboard) {
            onboard_at_.emplace(d.address, &d);
            onboard_of_device_.emplace(device_of(d.address), &d);
        }
    }

    // The slot whose bus address names the device of `a` (any function of it).
    size_t slot_of_device(const pci_address& a) const { return find(by_device_, device_of(a)); }
    // The slot whose bus address is exactly `a` (a bridge above a function).
    size_t slot_at(const pci_address& a) const { return find(by_address_, a); }
    size_t slot_with_id(int id) const { return find(by_id_, id); }
    // The onboard device at `a`, else one at another function of its device.
    const onboard_device* onboard_at(const pci_address& a) const {
        auto it = onboard_at_.find(a);
        if (it != onboard_at_.end()) return it->second;
        auto dev = onboard_of_device_.find(device_of(a));
        return dev == onboard_of_device_.end() ? nullptr : dev->second;
    }

private:
    static pci_address device_of(pci_address a) {
        a.function = 0;
        return a;
    }
    template <class Map, class Key>
    static size_t find(const Map& m, const Key& k) {
        auto it = m.find(k);
        return it == m.end() ? none : it->second;
    }

    std::map<pci_address, size_t> by_address_, by_device_;
    std::map<int, size_t> by_id_;
    std::map<pci_address, const onboard_device*> onboard_at_, onboard_of_device_;
};

}  // namespace

unsigned function_type_of(uint32_t class_code) {
    unsigned cls = class_code >> 8;
    switch (cls) {
        case 0x0100:
        case 0x0104:
        case 0x0107:
            return 8;  // SCSI, RAID, SAS controllers
        case 0x0108:
            return 5;  // NVM Express
        case 0x0200:
            return 1;  // Ethernet
        case 0x0207:
        case 0x0c06:
            return 2;  // InfiniBand
        case 0x0c04:
            return 3;  // Fibre Channel
        case 0x0300:
        case 0x0301:
            return 6;  // VGA and XGA display
        case 0x0302:
        case 0x0380:
            return 4;  // 3D and other display: GPUs
        case 0x0b40:
            return 16;  // co-processors
        default:
            break;
    }
    switch (cls >> 8) {
        case 0x02:
            return 9;  // other network: the link technology of the AIM data decides
        case 0x12:
            return 16;  // processing accelerators
        default:
            return 7;  // any other function: no type
    }
}

unsigned hardware_type_of(uint32_t class_code) { return (class_code >> 8) == 0x0104 ? 0 : 1; }

std::vector<pcis_row> build_rows(const std::vector<pci_function>& in, const std::string& source,
                                 const smbios_info* smbios, build_report* report) {
    std::vector<pci_function> functions = in;
    std::sort(functions.begin(), functions.end(),
              [](const pci_function& a, const pci_function& b) { return a.address < b.address; });
    topology topo(functions, source);
    smbios_index index(smbios);
    build_report r;
    r.functions = static_cast<unsigned>(functions.size());
    std::vector<bool> slot_used(smbios ? smbios->slots.size() : 0, false);
    std::vector<pcis_row> rows;
    std::map<uint32_t, pci_address> keys;

    for (const pci_function& f : functions) {
        if (f.virtual_function) {
            ++r.left_out_vfs;
            continue;
        }
        if ((f.class_code >> 16) == 0x06) {
            ++r.left_out_bridges;
            continue;
        }
        std::vector<const pci_function*> up = topo.ancestors(f);
        // The slot that holds the function: an SMBIOS slot whose bus address names its device or
        // a bridge above it (nearest first); else the slot number the kernel or the nearest slot
        // capability gives, matched to an SMBIOS slot ID when there is one.
        size_t slot_index = smbios_index::none;
        for (size_t level = 0; level <= up.size() && slot_index == smbios_index::none; ++level)
            slot_index = level == 0 ? index.slot_of_device(f.address) : index.slot_at(up[level - 1]->address);
        // An SMBIOS onboard device at the function's address outranks a slot number that a
        // root port's slot capability hands down (boards wire onboard chips to such ports).
        const onboard_device* named =
            slot_index == smbios_index::none ? index.onboard_at(f.address) : nullptr;
        int number = f.physical_slot > 0 && !named ? f.physical_slot : -1;
        for (size_t i = 0; i < up.size() && number <= 0 && !named; ++i) {
            if (up[i]->capability_slot > 0)
                number = up[i]->capability_slot;
            else if (up[i]->physical_slot > 0)
                number = up[i]->physical_slot;
        }
        if (slot_index == smbios_index::none && number > 0) slot_index = index.slot_with_id(number);
        const smbios_slot* slot = slot_index == smbios_index::none ? nullptr : &smbios->slots[slot_index];

        pcis_row row;
        if (slot) {
            slot_used[slot_index] = true;
            row.slot = slot->id >= 0 ? static_cast<unsigned>(slot->id)
                                     : (number > 0 ? static_cast<unsigned>(number) : 0);
            row.designation = slot->designation;
            row.slot_type = slot->type;
            row.location = mezzanine(*slot) ? 0 : 1;
        } else if (number > 0) {
            row.slot = static_cast<unsigned>(number);
            row.designation = "Slot " + std::to_string(number);
            row.slot_type = slot_type_of_link(f.link_generation, f.link_width);
            row.location = 1;
        } else {
            if (platform_class(f.class_code)) {
                ++r.left_out_platform;
                continue;
            }
            row.slot = 0;
            row.slot_type = 0xa5;
            row.location = topo.on_root_bus(f) ? 2 : 0;
            row.designation =
                named ? named->designation : std::string("Onboard ") + onboard_word(f.class_code);
        }
        row.address = f.address;
        row.dev_key = (f.address.segment & 0xffu) << 24 | static_cast<uint32_t>(f.address.bus) << 16 |
                      static_cast<uint32_t>(f.address.device) << 8;
        row.fun_key = row.dev_key | f.address.function;
        row.hardware_id = row.fun_key;
        auto clash = keys.find(row.fun_key);
        if (clash != keys.end()) {
            throw input_error(source, f.line,
                              "functions " + clash->second.text() + " and " + f.address.text() +
                                  " get the same key (the controller keeps 8 bits of the segment)");
        }
        keys[row.fun_key] = f.address;
        row.hardware_type = hardware_type_of(f.class_code);
        row.fun_type = function_type_of(f.class_code);
        row.vendor = f.vendor;
        row.device = f.device;
        row.subvendor = f.subvendor;
        row.subdevice = f.subdevice;
        row.class_code = f.class_code;
        row.max_pcie_type = f.link_generation;
        row.max_lanes = f.link_width ? f.link_width : 1;
        if (f.ids_cut) r.ids_cut.push_back(f.address);
        rows.push_back(row);
    }
    if (smbios) {
        for (size_t i = 0; i < smbios->slots.size(); ++i) {
            const smbios_slot& s = smbios->slots[i];
            if (slot_used[i]) ++r.slots_matched;
            if (s.has_address && !s.valid_address) ++r.slots_invalid;
            if (!s.valid_address) continue;
            for (size_t j = 0; j < smbios->slots.size(); ++j) {
                if (j != i && smbios->slots[j].valid_address && smbios->slots[j].address == s.address) {
                    ++r.slots_shared;
                    break;
                }
            }
        }
    }
    if (report) *report = r;
    return rows;
}

nlohmann::ordered_json rows_json(const std::vector<pcis_row>& rows) {
    auto hex = [](unsigned digits, uint32_t v) {
        char buf[16];
        snprintf(buf, sizeof buf, "0x%0*X", static_cast<int>(digits), static_cast<unsigned>(v));
        return std::string(buf);
    };
    nlohmann::ordered_json out = nlohmann::ordered_json::array();
    for (const pcis_row& r : rows) {
        nlohmann::ordered_json o;
        o["SegNo"] = r.address.segment;
        o["BusNo"] = hex(2, r.address.bus);
        o["DeviceNo"] = hex(2, r.address.device);
        o["FunctionNo"] = r.address.function;
        o["NodeIndex"] = r.node_index;
        o["SlotNo"] = r.slot;
        o["DevKey"] = hex(8, r.dev_key);
        o["FunKey"] = hex(8, r.fun_key);
        o["HardwareId"] = hex(8, r.hardware_id);
        o["HardwareTypeId"] = r.hardware_type;
        o["Location"] = r.location;
        o["FunType"] = r.fun_type;
        o["VendorId"] = hex(4, r.vendor);
        o["DeviceId"] = hex(4, r.device);
        o["SubVendorId"] = hex(4, r.subvendor);
        o["SubDeviceId"] = hex(4, r.subdevice);
        o["ClsCode"] = hex(6, r.class_code);
        o["SlotType"] = r.slot_type;
        o["MaxPCIeType"] = r.max_pcie_type;
        o["MaxLanes"] = r.max_lanes;
        o["SlotDesignation"] = r.designation;
        out.push_back(o);
    }
    return out;
}

}  // namespace machine
