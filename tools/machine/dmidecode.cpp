// dmidecode's text: records that start "Handle 0x0009, DMI type 9, 17 bytes", a title line,
// then "Key: value" lines one tab in. Read are the system slots (type 9: "Designation",
// "Type", "ID", "Bus Address") and the onboard devices (type 41: "Reference Designation",
// "Bus Address"); every other record is skipped. SMBIOS 2.x tables before 2.6 print no bus
// address; BIOSes mark an empty or unknown slot with bus ff or segment ffff, which names no
// device here.
#include <string.h>

#include "tools/machine/pci_machine.h"
#include "tools/machine/text.h"

namespace machine {
namespace {

// SMBIOS system slot types (SMBIOS 3.x, 7.10.1) by the names dmidecode prints.
const struct {
    const char* name;
    unsigned code;
} k_slot_types[] = {
    {"Other", 0x01},
    {"Unknown", 0x02},
    {"ISA", 0x03},
    {"MCA", 0x04},
    {"EISA", 0x05},
    {"PCI", 0x06},
    {"PC Card (PCMCIA)", 0x07},
    {"VLB", 0x08},
    {"Proprietary", 0x09},
    {"Processor Card", 0x0a},
    {"Proprietary Memory Card", 0x0b},
    {"I/O Riser Card", 0x0c},
    {"NuBus", 0x0d},
    {"PCI-66", 0x0e},
    {"AGP", 0x0f},
    {"AGP 2x", 0x10},
    {"AGP 4x", 0x11},
    {"PCI-X", 0x12},
    {"AGP 8x", 0x13},
    {"M.2 Socket 1-DP", 0x14},
    {"M.2 Socket 1-SD", 0x15},
    {"M.2 Socket 2", 0x16},
    {"M.2 Socket 3", 0x17},
    {"MXM Type I", 0x18},
    {"MXM Type II", 0x19},
    {"MXM Type III", 0x1a},
    {"MXM Type III-HE", 0x1b},
    {"MXM Type IV", 0x1c},
    {"MXM 3.0 Type A", 0x1d},
    {"MXM 3.0 Type B", 0x1e},
    {"PCI Express 2 SFF-8639 (U.2)", 0x1f},
    {"PCI Express 2 SFF-8639", 0x1f},
    {"PCI Express 3 SFF-8639 (U.2)", 0x20},
    {"PCI Express 3 SFF-8639", 0x20},
    {"PCI Express Mini 52-pin with bottom-side keep-outs", 0x21},
    {"PCI Express Mini 52-pin without bottom-side keep-outs", 0x22},
    {"PCI Express Mini 76-pin", 0x23},
    {"PCI Express 4 SFF-8639 (U.2)", 0x24},
    {"PCI Express 5 SFF-8639 (U.2)", 0x25},
    {"OCP NIC 3.0 Small Form Factor (SFF)", 0x26},
    {"OCP NIC 3.0 Large Form Factor (LFF)", 0x27},
    {"OCP NIC Prior to 3.0", 0x28},
    {"CXL Flexbus 1.0", 0x30},
    {"CXL FLexbus 1.0", 0x30},
    {"PC-98/C20", 0xa0},
    {"PC-98/C24", 0xa1},
    {"PC-98/E", 0xa2},
    {"PC-98/Local Bus", 0xa3},
    {"PC-98/Card", 0xa4},
    {"PCI Express", 0xa5},
    {"PCI Express x1", 0xa6},
    {"PCI Express x2", 0xa7},
    {"PCI Express x4", 0xa8},
    {"PCI Express x8", 0xa9},
    {"PCI Express x16", 0xaa},
    {"PCI Express 2", 0xab},
    {"PCI Express 2 x1", 0xac},
    {"PCI Express 2 x2", 0xad},
    {"PCI Express 2 x4", 0xae},
    {"PCI Express 2 x8", 0xaf},
    {"PCI Express 2 x16", 0xb0},
    {"PCI Express 3", 0xb1},
    {"PCI Express 3 x1", 0xb2},
    {"PCI Express 3 x2", 0xb3},
    {"PCI Express 3 x4", 0xb4},
    {"PCI Express 3 x8", 0xb5},
    {"PCI Express 3 x16", 0xb6},
    {"PCI Express 4", 0xb8},
    {"PCI Express 4 x1", 0xb9},
    {"PCI Express 4 x2", 0xba},
    {"PCI Express 4 x4", 0xbb},
    {"PCI Express 4 x8", 0xbc},
    {"PCI Express 4 x16", 0xbd},
    {"PCI Express 5", 0xbe},
    {"PCI Express 5 x1", 0xbf},
    {"PCI Express 5 x2", 0xc0},
    {"PCI Express 5 x4", 0xc1},
    {"PCI Express 5 x8", 0xc2},
    {"PCI Express 5 x16", 0xc3},
    {"PCI Express 6+", 0xc4},
    {"EDSFF E1", 0xc5},
    {"EDSFF E3", 0xc6},
};

// The bus widths that older dmidecode prints in front of the type ("x16 PCI Express 3 x16").
const char* const k_widths[] = {"Other ", "Unknown ", "8-bit ", "16-bit ", "32-bit ", "64-bit ", "128-bit ",
                                "x1 ",    "x2 ",      "x4 ",    "x8 ",     "x12 ",    "x16 ",    "x32 "};

bool lookup(const std::string& name, unsigned* code) {
    for (const auto& t : k_slot_types) {
        if (name == t.name) {
            *code = t.code;
            return true;
        }
    }
    return false;
}

struct record {
    unsigned line = 0;  // of its "Handle" line
    unsigned type = 0;
    std::vector<std::pair<std::string, std::pair<std::string, unsigned>>> fields;  // key, value, line

    const std::pair<std::string, unsigned>* field(const char* key) const {
        for (const auto& f : fields) {
            if (f.first == key) return &f.second;
        }
        return nullptr;
    }
};

// A bus address field: "0000:3b:00.0". Sets *valid unless it is BIOS's mark of no device.
pci_address bus_address(const std::string& file, const std::pair<std::string, unsigned>& f, bool* valid) {
    pci_address a;
    size_t used = 0;
    std::string impossible;
    if (!text::parse_address(f.first, &a, &used, &impossible) || used != f.first.size()) {
        // BIOSes fill absent slots with all ones, which a device number can exceed: no device.
        if (text::starts_with(f.first, "ffff:") || text::starts_with(f.first, "ff:")) {
            *valid = false;
            return a;
        }
        throw input_error(file, f.second,
                          impossible.empty() ? "not a bus address: '" + f.first + "'" : impossible);
    }
    *valid = a.segment != 0xffff && a.bus != 0xff;
    return a;
}

void require(const std::string& file, const record& r, const char* key, const char* what) {
    if (!r.field(key)) {
        throw input_error(
            file, r.line,
            std::string("the ") + what + " record has no '" + key + ":' line (a record cut short?)");
    }
}

}  // namespace

unsigned smbios_slot_type(const std::string& type_text) {
    std::string t = text::trim(type_text);
    unsigned code = 2;
    if (lookup(t, &code)) return code;
    for (const char* w : k_widths) {
        if (text::starts_with(t, w) && lookup(t.substr(strlen(w)), &code)) return code;
    }
    return 2;
}

smbios_info parse_dmidecode(const std::string& s, const std::string& file) {
    switch (detect(s)) {
        case input_kind::dmidecode:
            break;
        case input_kind::lspci:
        case input_kind::lspci_machine:
            throw input_error(file, 0, "this is lspci output, not dmidecode output (give it with --lspci)");
        case input_kind::unknown:
            throw input_error(
                file, 0,
                "expected dmidecode output: records such as 'Handle 0x0009, DMI type 9, 17 bytes' "
                "(dmidecode -t slot)");
    }
    std::vector<record> records;
    record* cur = nullptr;
    for (const text::line& l : text::split_lines(s)) {
        if (text::starts_with(l.text, "Handle 0x")) {
            record r;
            r.line = l.number;
            size_t p = l.text.find("DMI type ");
            size_t e = p == std::string::npos ? p : l.text.find(',', p);
            unsigned type = 0;
            if (e == std::string::npos || !text::decimal_text(l.text.substr(p + 9, e - p - 9), &type) ||
                type > 255)
                throw input_error(file, l.number, "a record header without its DMI type: '" + l.text + "'");
            r.type = type;
            records.push_back(r);
            cur = &records.back();
            continue;
        }
        if (text::trim(l.text).empty()) {
            cur = nullptr;
            continue;
        }
        // "Key: value" one tab in; deeper lines are lists ("Characteristics:") and are skipped.
        if (!cur || text::indent(l.text) != 1) continue;
        std::string t = text::trim(l.text);
        size_t colon = t.find(':');
        if (colon == std::string::npos) continue;
        cur->fields.push_back({t.substr(0, colon), {text::trim(t.substr(colon + 1)), l.number}});
    }

    smbios_info info;
    for (const record& r : records) {
        if (r.type == 9) {
            require(file, r, "Designation", "system slot");
            require(file, r, "Type", "system slot");
            smbios_slot slot;
            slot.line = r.line;
            slot.designation = text::valid_utf8(r.field("Designation")->first);
            slot.type = smbios_slot_type(r.field("Type")->first);
            unsigned id = 0;
            if (const auto* f = r.field("ID")) {
                if (text::decimal_text(f->first, &id) && id <= 0xffff) slot.id = static_cast<int>(id);
            }
            if (const auto* f = r.field("Bus Address")) {
                slot.has_address = true;
                slot.address = bus_address(file, *f, &slot.valid_address);
            }
            info.slots.push_back(slot);
        } else if (r.type == 41) {
            require(file, r, "Reference Designation", "onboard device");
            const auto* f = r.field("Bus Address");
            if (!f) continue;
            onboard_device d;
            d.line = r.line;
            d.designation = text::valid_utf8(r.field("Reference Designation")->first);
            bool valid = false;
            d.address = bus_address(file, *f, &valid);
            if (valid) info.onboard.push_back(d);
        }
    }
    return info;
}

}  // namespace machine
