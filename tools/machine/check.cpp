#include "tools/machine/check.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <map>
#include <set>

namespace machine {
namespace {

// The walk converts each pfa text in automatic base and keeps 8 bits of it.
uint8_t pfa_number(const std::string& text) {
    return static_cast<uint8_t>(strtoul(text.c_str(), nullptr, 0));
}

// The slot number that a config's name gives: "Slot3.Func0", "NIC.Slot.1-1", "Disk.Bay.4";
// 0 for "Onboard..."; -1 when it names none.
int named_slot(const std::string& name) {
    std::string up = name;
    for (char& c : up) c = static_cast<char>(toupper(static_cast<unsigned char>(c)));
    for (const char* word : {"SLOT", "BAY"}) {
        size_t p = up.find(word);
        if (p == std::string::npos) continue;
        p += strlen(word);
        while (p < up.size() && (up[p] == '.' || up[p] == '_' || up[p] == ' ' || up[p] == '-')) ++p;
        size_t e = p;
        while (e < up.size() && e - p < 5 && up[e] >= '0' && up[e] <= '9') ++e;
        if (e > p) return atoi(up.substr(p, e - p).c_str());
    }
    if (up.find("ONBOARD") != std::string::npos) return 0;
    return -1;
}

std::string ids_text(uint16_t a, uint16_t b) {
    char buf[16];
    snprintf(buf, sizeof buf, "%04X%04X", static_cast<unsigned>(a), static_cast<unsigned>(b));
    return buf;
}

std::string upper(std::string s) {
    for (char& c : s) c = static_cast<char>(toupper(static_cast<unsigned char>(c)));
    return s;
}

using row_index = std::map<pci_address, const pcis_row*>;

void check_config(const aim_parser::config& cfg, const row_index& rows, aim_check& out) {
    config_check c;
    c.id = cfg.id;
    c.address.segment = pfa_number(cfg.segment);
    c.address.bus = pfa_number(cfg.bus);
    c.address.device = pfa_number(cfg.device);
    c.address.function = pfa_number(cfg.function);
    c.aim_slot = named_slot(cfg.id);
    if (c.aim_slot < 0) c.aim_slot = named_slot(cfg.mri_name);
    auto found = rows.find(c.address);
    if (found != rows.end()) c.row = found->second;
    if (const aim_parser::group* generic = cfg.get_group("PCI Generic Information")) {
        std::vector<aim_parser::group*> firmware;
        generic->get_group("Firmware Information", firmware);
        for (const aim_parser::group* g : firmware) {
            if (const aim_parser::setting_node* s = g->get_setting_node("Software ID")) {
                if (!s->value.empty()) c.software_ids.push_back(s->value);
            }
        }
    }
    if (c.row) {
        ++out.found;
        c.slot_differs = c.aim_slot >= 0 && static_cast<unsigned>(c.aim_slot) != c.row->slot;
        if (!c.software_ids.empty()) {
            std::string own = ids_text(c.row->vendor, c.row->device);
            std::string sub = ids_text(c.row->subvendor, c.row->subdevice);
            c.ids_differ = true;
            for (const std::string& id : c.software_ids) {
                if (upper(id) == own || upper(id) == sub) c.ids_differ = false;
            }
        }
    } else {
        ++out.missing;
    }
    out.configs.push_back(c);
}

// What fills a present function after the walk when no config describes it: nothing for the
// device of an AIM adapter, the platform's own functions, NVMe drives and untyped functions;
// the known-card table, the GPU queries or the vNIC data for the others.
std::string filled_by(const pcis_row& r, const std::map<uint32_t, std::string>& covered_devices) {
    auto it = covered_devices.find(r.dev_key);
    if (it != covered_devices.end()) return "its device is config " + it->second + "'s";
    if (r.location == 2) return "nothing: the platform's own function";
    if (r.class_code == 0x010802) return "nothing: an NVMe drive";
    if (r.fun_type == 7) return "nothing: no function type";
    return "the known-card table, a GPU query or the vNIC data";
}

std::string status_text(const config_check& c) {
    if (!c.row) return "missing";
    std::string s = "found";
    if (c.slot_differs) s += ", slot differs";
    if (c.ids_differ) s += ", ids differ";
    return s;
}

std::string slot_text(int n) { return n < 0 ? "-" : std::to_string(n); }

}  // namespace

aim_check check_aim(const aim_parser::document& doc, const std::vector<pcis_row>& rows) {
    aim_check out;
    row_index by_address;
    for (const pcis_row& r : rows) by_address.emplace(r.address, &r);
    std::vector<aim_parser::configset*> sets;
    doc.inventories.get_configset_list(sets);
    for (const aim_parser::configset* cs : sets) {
        std::vector<aim_parser::config*> configs;
        cs->get_config_list(configs);
        for (const aim_parser::config* c : configs) check_config(*c, by_address, out);
    }
    std::vector<aim_parser::config*> direct;
    doc.inventories.get_config_list(direct);
    for (const aim_parser::config* c : direct) check_config(*c, by_address, out);

    std::set<const pcis_row*> described;
    std::map<uint32_t, std::string> covered_devices;
    for (const config_check& c : out.configs) {
        if (!c.row) continue;
        described.insert(c.row);
        covered_devices.emplace(c.row->dev_key, c.id);
    }
    for (const pcis_row& r : rows) {
        if (!described.count(&r))
            out.uncovered.push_back(uncovered_function{&r, filled_by(r, covered_devices)});
    }
    return out;
}

std::string check_table(const aim_check& c) {
    std::vector<std::vector<std::string>> t;
    t.push_back({"CONFIG", "ADDRESS", "AIM SLOT", "SLOT", "DESIGNATION", "STATUS"});
    for (const config_check& k : c.configs) {
        t.push_back({k.id.empty() ? "-" : k.id, k.address.text(), slot_text(k.aim_slot),
                     k.row ? std::to_string(k.row->slot) : "-", k.row ? k.row->designation : "-",
                     status_text(k)});
    }
    std::vector<std::vector<std::string>> u;
    u.push_back({"ADDRESS", "SLOT", "DESIGNATION", "IDS", "CLASS", "FILLED BY"});
    for (const uncovered_function& f : c.uncovered) {
        char cls[16];
        snprintf(cls, sizeof cls, "%06X", static_cast<unsigned>(f.row->class_code));
        u.push_back(
            {f.row->address.text(), std::to_string(f.row->slot), f.row->designation,
             ids_text(f.row->vendor, f.row->device) + " " + ids_text(f.row->subvendor, f.row->subdevice), cls,
             f.filled_by});
    }
    auto render = [](const std::vector<std::vector<std::string>>& rows) {
        std::vector<size_t> w(rows[0].size(), 0);
        for (const auto& r : rows)
            for (size_t i = 0; i < r.size(); ++i) w[i] = std::max(w[i], r[i].size());
        std::string s;
        for (const auto& r : rows) {
            std::string line;
            for (size_t i = 0; i < r.size(); ++i) {
                line += r[i];
                if (i + 1 < r.size()) line += std::string(w[i] - r[i].size() + 2, ' ');
            }
            s += line + "\n";
        }
        return s;
    };
    std::string s = render(t);
    s += "\n";
    if (c.uncovered.empty()) {
        s += "Every present function is described by a config.\n";
    } else {
        s += "Present functions that no config describes:\n" + render(u);
    }
    s += "\n" + std::to_string(c.configs.size()) + " configs: " + std::to_string(c.found) + " found, " +
         std::to_string(c.missing) + " missing; " + std::to_string(c.uncovered.size()) +
         " present functions without a config\n";
    return s;
}

nlohmann::ordered_json check_json(const aim_check& c) {
    nlohmann::ordered_json out;
    out["configs"] = nlohmann::ordered_json::array();
    for (const config_check& k : c.configs) {
        nlohmann::ordered_json o;
        o["id"] = k.id;
        o["address"] = k.address.text();
        o["aim_slot"] = k.aim_slot < 0 ? nlohmann::ordered_json() : nlohmann::ordered_json(k.aim_slot);
        o["slot"] = k.row ? nlohmann::ordered_json(k.row->slot) : nlohmann::ordered_json();
        o["designation"] = k.row ? nlohmann::ordered_json(k.row->designation) : nlohmann::ordered_json();
        o["status"] = k.row ? "found" : "missing";
        o["slot_differs"] = k.slot_differs;
        o["ids_differ"] = k.ids_differ;
        o["software_ids"] = k.software_ids;
        out["configs"].push_back(o);
    }
    out["functions_without_config"] = nlohmann::ordered_json::array();
    for (const uncovered_function& f : c.uncovered) {
        char cls[16];
        snprintf(cls, sizeof cls, "0x%06X", static_cast<unsigned>(f.row->class_code));
        nlohmann::ordered_json o;
        o["address"] = f.row->address.text();
        o["slot"] = f.row->slot;
        o["designation"] = f.row->designation;
        o["ids"] = ids_text(f.row->vendor, f.row->device) + ids_text(f.row->subvendor, f.row->subdevice);
        o["class"] = cls;
        o["filled_by"] = f.filled_by;
        out["functions_without_config"].push_back(o);
    }
    out["found"] = c.found;
    out["missing"] = c.missing;
    return out;
}

}  // namespace machine
