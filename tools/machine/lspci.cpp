// lspci's two text forms, and what kind of text a file holds.
//
// `lspci -vvnn[D]`: one record per function, a header line at the left margin
//   "0000:3b:00.0 Ethernet controller [0200]: Intel Corporation Device [8086:1592] (rev 02)"
// followed by indented detail lines, of which these are read: "Subsystem: ... [8086:0002]",
// "Physical Slot: 1", "Bus: primary=3a, secondary=3b, subordinate=3b, ..." (bridges), the
// link capability "LnkCap: Port #0, Speed 16GT/s, Width x16, ...", the slot capability
// "SltCap: ..." whose continuation holds "Slot #1, PowerLimit ...", and the SR-IOV
// capability's "Number of VFs: N" and "VF offset: O, stride: S". Every other line is skipped.
//
// `lspci -vvn[D]` prints the same records with numbers only ("0000:3b:00.0 0200: 8086:1592",
// "Subsystem: 8086:0002"); lspci cuts a long name at its buffer's end, and with -nn the ids that
// follow it: such a function keeps ids 0 and is reported.
//
// `lspci -vmmnn[D]`: records of "Key:<TAB>value" lines ("Slot", "Class", "Vendor", "Device",
// "SVendor", "SDevice", "ProgIf", "PhySlot"); it has no link, bridge or SR-IOV details.
#include <string.h>

#include <algorithm>
#include <map>

#include "tools/machine/pci_machine.h"
#include "tools/machine/text.h"

namespace machine {
namespace {

using text::line;

const char* const k_lspci_hint =
    "expected lspci output: records such as '0000:3b:00.0 Ethernet controller [0200]: ... [8086:1592]' "
    "(lspci -vvnnD) or 'Slot:<TAB>0000:3b:00.0' (lspci -vmmnnD)";

bool is_lspci_warning(const std::string& s) { return text::starts_with(s, "pcilib: "); }

// The first run of digits of the slot name that the kernel gives ("1", "1-1", "CPU1 SLOT6"):
// the last number of the name, -1 when it has none.
int slot_number(const std::string& name) {
    int value = -1;
    size_t i = 0;
    while (i < name.size()) {
        if (name[i] >= '0' && name[i] <= '9') {
            size_t j = i;
            while (j < name.size() && name[j] >= '0' && name[j] <= '9') ++j;
            unsigned n = 0;
            if (j - i <= 6 && text::decimal_text(name.substr(i, j - i), &n)) value = static_cast<int>(n);
            i = j;
        } else {
            ++i;
        }
    }
    return value;
}

// The text after `key` up to the next comma (or the end), trimmed.
bool field_after(const std::string& s, const char* key, std::string* out) {
    size_t p = s.find(key);
    if (p == std::string::npos) return false;
    p += strlen(key);
    size_t e = s.find(',', p);
    *out = text::trim(s.substr(p, e == std::string::npos ? std::string::npos : e - p));
    return true;
}

bool decimal_after(const std::string& s, const char* key, unsigned* out) {
    size_t p = s.find(key);
    if (p == std::string::npos) return false;
    p += strlen(key);
    size_t e = p;
    while (e < s.size() && s[e] >= '0' && s[e] <= '9') ++e;
    return text::decimal_text(s.substr(p, e - p), out);
}

// The header of lspci -n after the address: "0200: 8086:1592 ...".
bool numeric_header(const std::string& s, uint32_t* cls, uint32_t* vendor, uint32_t* device) {
    return s.size() >= 15 && s[4] == ':' && s[5] == ' ' && s[10] == ':' && text::hex_field(s, 0, 4, cls) &&
           text::hex_field(s, 6, 4, vendor) && text::hex_field(s, 11, 4, device) &&
           (s.size() == 15 || s[15] == ' ');
}

bool hex_after(const std::string& s, const char* key, uint32_t* out) {
    size_t p = s.find(key);
    return p != std::string::npos && text::hex_field(s, p + strlen(key), 2, out);
}

class vv_parser {
public:
    vv_parser(const std::string& file) : file_(file) {}

    std::vector<pci_function> run(const std::vector<line>& lines) {
        for (const line& l : lines) {
            if (text::trim(l.text).empty()) {
                cur_ = nullptr;
                continue;
            }
            if (text::indent(l.text) == 0) {
                if (is_lspci_warning(l.text)) continue;
                header(l);
            } else {
                if (!cur_)
                    throw input_error(file_, l.number, "a detail line outside any record: '" + l.text + "'");
                detail(l);
            }
        }
        std::vector<pci_function> out;
        out.reserve(functions_.size());
        for (auto& f : functions_) out.push_back(f.second);
        return out;
    }

private:
    void header(const line& l) {
        const std::string& s = l.text;
        pci_function f;
        f.line = l.number;
        size_t used = 0;
        std::string impossible;
        if (!text::parse_address(s, &f.address, &used, &impossible)) {
            if (!impossible.empty()) throw input_error(file_, l.number, impossible);
            throw input_error(file_, l.number, "not an lspci record header: '" + s + "'");
        }
        if (used >= s.size() || s[used] != ' ')
            throw input_error(file_, l.number, "a record header cut short: '" + s + "'");
        std::string rest = s.substr(used + 1);
        uint32_t cls = 0, vendor = 0, device = 0;
        size_t ids_at = 0;
        if (numeric_header(rest, &cls, &vendor, &device)) {
            // lspci -n: "0200: 8086:1592 (rev 02)".
            ids_at = 5;
        } else {
            // lspci -nn: the class code in brackets, then a colon: "Ethernet controller [0200]: ".
            size_t cls_end = std::string::npos;
            for (size_t i = 0; i + 7 <= rest.size(); ++i) {
                if (rest[i] == '[' && text::hex_field(rest, i + 1, 4, &cls) && rest[i + 5] == ']' &&
                    rest[i + 6] == ':') {
                    cls_end = i + 7;
                    break;
                }
            }
            if (cls_end == std::string::npos) {
                throw input_error(
                    file_, l.number,
                    "no numeric class code such as '[0200]:' in the record header (capture with lspci -nn)");
            }
            rest = rest.substr(cls_end);
            if (!text::last_bracketed_ids(rest, true, &vendor, &device, &ids_at)) {
                // lspci cuts a long name at its buffer's end ("... 5.0GT/s In... (rev a0)"), and the
                // ids after it with the name: the function is kept with ids 0, and reported.
                if (rest.find("...") == std::string::npos) {
                    throw input_error(
                        file_, l.number,
                        "no numeric ids such as '[8086:1592]' in the record header (capture with lspci -nn)");
                }
                f.ids_cut = true;
            }
        }
        uint32_t prog_if = 0;
        size_t p = rest.find("(prog-if ", ids_at);
        if (p != std::string::npos && !text::hex_field(rest, p + 9, 2, &prog_if))
            throw input_error(file_, l.number, "a programming interface that is not two hex digits");
        f.class_code = cls << 8 | prog_if;
        f.vendor = static_cast<uint16_t>(vendor);
        f.device = static_cast<uint16_t>(device);
        auto seen = functions_.find(f.address);
        if (seen != functions_.end()) {
            throw input_error(file_, l.number,
                              "function " + f.address.text() + " is listed twice (first on line " +
                                  std::to_string(seen->second.line) + ")");
        }
        cur_ = &(functions_[f.address] = f);
        slot_cap_indent_ = 0;
    }

    void detail(const line& l) {
        size_t ind = text::indent(l.text);
        std::string t = text::trim(l.text);
        // Continuation lines of the slot capability: "Slot #1, PowerLimit 75W; ...".
        if (slot_cap_indent_ && ind > slot_cap_indent_) {
            slot_capability(l, t);
            return;
        }
        slot_cap_indent_ = 0;
        if (text::starts_with(t, "Subsystem:")) {
            uint32_t sv = 0, sd = 0;
            std::string ids = text::trim(t.substr(10));
            bool numeric = ids.size() == 9 && ids[4] == ':' && text::hex_field(ids, 0, 4, &sv) &&
                           text::hex_field(ids, 5, 4, &sd);  // lspci -n
            if (!numeric && !text::last_bracketed_ids(t, true, &sv, &sd, nullptr)) {
                if (t.find("...") == std::string::npos) {
                    throw input_error(
                        file_, l.number,
                        "a subsystem without numeric ids such as '[8086:0002]' (capture with lspci -nn)");
                }
                cur_->ids_cut = true;  // cut with its name, as in the header
            }
            cur_->subvendor = static_cast<uint16_t>(sv);
            cur_->subdevice = static_cast<uint16_t>(sd);
        } else if (text::starts_with(t, "Physical Slot:")) {
            cur_->physical_slot = slot_number(text::trim(t.substr(14)));
        } else if (text::starts_with(t, "Bus: primary=")) {
            uint32_t sec = 0, sub = 0;
            if (!hex_after(t, "secondary=", &sec) || !hex_after(t, "subordinate=", &sub))
                throw input_error(file_, l.number,
                                  "a bridge's bus line without secondary and subordinate buses");
            if (sub < sec)
                throw input_error(file_, l.number,
                                  "a bridge whose subordinate bus is below its secondary bus");
            cur_->has_bus_range = true;
            cur_->secondary = static_cast<uint8_t>(sec);
            cur_->subordinate = static_cast<uint8_t>(sub);
        } else if (text::starts_with(t, "LnkCap:")) {
            if (cur_->link_width || cur_->link_generation) return;  // the first link capability counts
            std::string speed, width;
            if (!field_after(t, "Speed ", &speed) || !field_after(t, "Width x", &width))
                throw input_error(file_, l.number, "a link capability without speed and width: '" + t + "'");
            unsigned gen = 0, lanes = 0;
            if (!text::link_generation(speed, &gen))
                throw input_error(file_, l.number, "an unknown link speed '" + speed + "'");
            if (!text::decimal_text(width, &lanes) || lanes > 32)
                throw input_error(file_, l.number,
                                  "a link width 'x" + width + "' that PCI Express does not have");
            cur_->link_generation = gen;
            cur_->link_width = lanes;
        } else if (text::starts_with(t, "SltCap:")) {
            slot_cap_indent_ = ind;
            slot_capability(l, t);
        } else if (text::starts_with(t, "Initial VFs:")) {
            unsigned n = 0;
            if (!decimal_after(t, "Number of VFs: ", &n) || n > 65535)
                throw input_error(file_, l.number, "an SR-IOV line without a number of VFs: '" + t + "'");
            cur_->vf_count = n;
        } else if (text::starts_with(t, "VF offset:")) {
            unsigned off = 0, stride = 0;
            if (!decimal_after(t, "VF offset: ", &off) || !decimal_after(t, "stride: ", &stride) ||
                off > 65535 || stride > 65535)
                throw input_error(file_, l.number,
                                  "an SR-IOV line without VF offset and stride: '" + t + "'");
            cur_->vf_offset = off;
            cur_->vf_stride = stride;
        }
    }

    void slot_capability(const line& l, const std::string& t) {
        unsigned n = 0;
        if (t.find("Slot #") == std::string::npos) return;
        if (!decimal_after(t, "Slot #", &n) || n > 65535)
            throw input_error(file_, l.number,
                              "a slot capability whose slot number is not a number: '" + t + "'");
        cur_->capability_slot = static_cast<int>(n);
    }

    std::string file_;
    std::map<pci_address, pci_function> functions_;
    pci_function* cur_ = nullptr;
    size_t slot_cap_indent_ = 0;
};

std::vector<pci_function> parse_machine_readable(const std::vector<line>& lines, const std::string& file) {
    std::vector<pci_function> out;
    std::map<pci_address, unsigned> seen;
    pci_function f;
    bool open = false;
    unsigned fields = 0;  // bit 0 Class, 1 Vendor, 2 Device
    auto close = [&]() {
        if (!open) return;
        static const char* const names[] = {"Class", "Vendor", "Device"};
        for (unsigned i = 0; i < 3; ++i) {
            if (!(fields & (1u << i))) {
                throw input_error(file, f.line,
                                  "the record of " + f.address.text() + " has no '" + names[i] +
                                      ":' line (a record cut short?)");
            }
        }
        out.push_back(f);
        open = false;
    };
    for (const line& l : lines) {
        std::string t = text::trim(l.text);
        if (t.empty()) {
            close();
            continue;
        }
        size_t colon = l.text.find(':');
        if (colon == std::string::npos || text::indent(l.text) != 0)
            throw input_error(file, l.number, "not a 'Key:<TAB>value' line of lspci -vmm: '" + l.text + "'");
        std::string key = l.text.substr(0, colon);
        std::string value = text::trim(l.text.substr(colon + 1));
        if (key == "Slot") {
            close();
            f = pci_function();
            f.line = l.number;
            size_t used = 0;
            std::string impossible;
            if (!text::parse_address(value, &f.address, &used, &impossible) || used != value.size())
                throw input_error(file, l.number,
                                  impossible.empty() ? "not a PCI address: '" + value + "'" : impossible);
            auto it = seen.find(f.address);
            if (it != seen.end()) {
                throw input_error(file, l.number,
                                  "function " + f.address.text() + " is listed twice (first on line " +
                                      std::to_string(it->second) + ")");
            }
            seen[f.address] = l.number;
            open = true;
            fields = 0;
            continue;
        }
        if (!open) throw input_error(file, l.number, "a '" + key + ":' line before any 'Slot:' line");
        uint32_t a = 0, b = 0;
        auto id = [&](const char* what) {
            if (!text::last_bracketed_ids(value, false, &a, &b, nullptr))
                throw input_error(file, l.number,
                                  std::string("a ") + what +
                                      " without a numeric id such as '[8086]' (capture with lspci -nn)");
            return static_cast<uint16_t>(a);
        };
        if (key == "Class") {
            f.class_code = (f.class_code & 0xff) | static_cast<uint32_t>(id("class")) << 8;
            fields |= 1;
        } else if (key == "Vendor") {
            f.vendor = id("vendor");
            fields |= 2;
        } else if (key == "Device") {
            f.device = id("device");
            fields |= 4;
        } else if (key == "SVendor") {
            f.subvendor = id("subsystem vendor");
        } else if (key == "SDevice") {
            f.subdevice = id("subsystem device");
        } else if (key == "ProgIf") {
            if (!text::hex_text(value, 2, &a))
                throw input_error(file, l.number, "a programming interface that is not hex: '" + value + "'");
            f.class_code = (f.class_code & ~0xffu) | a;
        } else if (key == "PhySlot") {
            f.physical_slot = slot_number(value);
        }
    }
    close();
    return out;
}

// Marks the virtual functions that each SR-IOV physical function has enabled: routing id of
// VF i = the PF's routing id + offset + i * stride, on the PF's segment.
void mark_virtual_functions(std::vector<pci_function>& functions) {
    std::map<pci_address, size_t> index;
    for (size_t i = 0; i < functions.size(); ++i) index[functions[i].address] = i;
    for (const pci_function& pf : functions) {
        if (!pf.vf_count || !pf.vf_offset) continue;
        uint32_t rid =
            static_cast<uint32_t>(pf.address.bus) << 8 | pf.address.device << 3 | pf.address.function;
        for (uint32_t i = 0; i < pf.vf_count; ++i) {
            uint32_t vf = rid + pf.vf_offset + i * pf.vf_stride;
            if (vf > 0xffff) break;
            pci_address a;
            a.segment = pf.address.segment;
            a.bus = static_cast<uint8_t>(vf >> 8);
            a.device = static_cast<uint8_t>(vf >> 3 & 0x1f);
            a.function = static_cast<uint8_t>(vf & 7);
            auto it = index.find(a);
            if (it != index.end()) functions[it->second].virtual_function = true;
            if (!pf.vf_stride) break;
        }
    }
}

}  // namespace

input_kind detect(const std::string& s) {
    std::vector<line> lines = text::split_lines(s);
    for (const line& l : lines) {
        if (text::starts_with(l.text, "Handle 0x") || text::starts_with(l.text, "# dmidecode"))
            return input_kind::dmidecode;
    }
    for (const line& l : lines) {
        if (text::trim(l.text).empty() || is_lspci_warning(l.text)) continue;
        if (text::starts_with(l.text, "Slot:")) return input_kind::lspci_machine;
        pci_address a;
        size_t used = 0;
        std::string impossible;
        if (text::parse_address(l.text, &a, &used, &impossible) && used < l.text.size() &&
            l.text[used] == ' ')
            return input_kind::lspci;
        if (!impossible.empty()) return input_kind::lspci;  // a header with a bad number: the parser names it
        return input_kind::unknown;
    }
    return input_kind::unknown;
}

std::vector<pci_function> parse_lspci(const std::string& s, const std::string& file) {
    std::vector<line> lines = text::split_lines(s);
    unsigned first = 0;
    for (const line& l : lines) {
        if (!text::trim(l.text).empty()) {
            first = l.number;
            break;
        }
    }
    std::vector<pci_function> out;
    switch (detect(s)) {
        case input_kind::lspci:
            out = vv_parser(file).run(lines);
            break;
        case input_kind::lspci_machine:
            out = parse_machine_readable(lines, file);
            std::sort(out.begin(), out.end(),
                      [](const pci_function& a, const pci_function& b) { return a.address < b.address; });
            break;
        case input_kind::dmidecode:
            throw input_error(file, 0,
                              "this is dmidecode output, not lspci output (give it with --dmidecode)");
        case input_kind::unknown:
            if (!first) throw input_error(file, 0, std::string("the file is empty; ") + k_lspci_hint);
            throw input_error(file, first, k_lspci_hint);
    }
    mark_virtual_functions(out);
    return out;
}

}  // namespace machine
