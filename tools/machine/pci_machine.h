// A real server's PCI topology, read from what the server itself prints (`lspci -vvnnD`,
// `lspci -vmmnnD`, `dmidecode`, or its sysfs), and turned into the "PCIs" rows that the
// controller keeps: one row per present function that is neither a bridge nor one of the
// platform's own integrated functions, with the keys, ids, slot and link that the library reads.
//
// Every parser is strict: input that is not what the tool prints, a record cut short, an
// address given twice or a number no PCI device can have throws `input_error`, naming the
// file and line. Nothing is guessed from broken text. Off the controller only (aimctl).
#pragma once

#include <stdint.h>

#include <stdexcept>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace machine {

// "FILE:LINE: what" (LINE left out when the fault is not on one line).
struct input_error : std::runtime_error {
    input_error(const std::string& file, unsigned line, const std::string& what);
};

struct pci_address {
    uint32_t segment = 0;  // PCI domain as lspci prints it (up to 8 hex digits)
    uint8_t bus = 0, device = 0, function = 0;

    bool same_device(const pci_address& o) const {
        return segment == o.segment && bus == o.bus && device == o.device;
    }
    bool operator==(const pci_address& o) const { return same_device(o) && function == o.function; }
    bool operator<(const pci_address& o) const;
    std::string text() const;  // "0000:3b:00.0"
};

// One present function, as the tools print it.
struct pci_function {
    pci_address address;
    unsigned line = 0;        // where its record starts (0 for sysfs)
    uint32_t class_code = 0;  // class, subclass, programming interface (0x010802)
    uint16_t vendor = 0, device = 0, subvendor = 0, subdevice = 0;
    unsigned link_generation = 0;  // from the link capability: 1 (2.5 GT/s) to 6 (64 GT/s); 0 none
    unsigned link_width = 0;       // lanes of the link capability; 0 none
    int physical_slot = -1;        // "Physical Slot:" (the kernel's slot of the function), -1 none
    // Bridges: the buses they forward to, and the slot number of their slot capability.
    bool has_bus_range = false;
    uint8_t secondary = 0, subordinate = 0;
    int capability_slot = -1;  // "SltCap: ... Slot #N", -1 none
    // SR-IOV physical functions: the enabled virtual functions' routing ids follow from these.
    unsigned vf_count = 0, vf_offset = 0, vf_stride = 0;
    bool virtual_function = false;  // known to be a VF (sysfs physfn, or by its PF's SR-IOV)
    bool ids_cut = false;           // lspci cut the name and the ids with it: ids 0
};

// One SMBIOS system slot (type 9 record).
struct smbios_slot {
    unsigned line = 0;
    std::string designation;
    unsigned type = 2;           // SMBIOS slot type code (2 Unknown when dmidecode names none)
    int id = -1;                 // slot ID, -1 when absent
    bool has_address = false;    // a bus address was printed ...
    bool valid_address = false;  // ... and names a device (not ff:... nor ffff:...)
    pci_address address;
};

// One SMBIOS onboard device (type 41 record) with a bus address.
struct onboard_device {
    unsigned line = 0;
    std::string designation;
    pci_address address;
};

struct smbios_info {
    std::vector<smbios_slot> slots;
    std::vector<onboard_device> onboard;
};

enum class input_kind { lspci, lspci_machine, dmidecode, unknown };
// What a text is, by its first lines.
input_kind detect(const std::string& text);

// `lspci -vvnn[D]` or `lspci -vmmnn[D]` text (without -D the segment is 0).
std::vector<pci_function> parse_lspci(const std::string& text, const std::string& file);
// `dmidecode` text, whole or `-t slot`: its type 9 and type 41 records.
smbios_info parse_dmidecode(const std::string& text, const std::string& file);
// ROOT/sys/bus/pci/devices/* and ROOT/sys/bus/pci/slots/*/address of a running host.
std::vector<pci_function> read_sysfs(const std::string& root);

// SMBIOS slot type code of dmidecode's "Type:" text, without or with the bus width in front
// ("x16 PCI Express 3 x16", "PCI Express 5 x16"); 2 (Unknown) for a name it does not know.
unsigned smbios_slot_type(const std::string& text);

// One "PCIs" row, in the columns and meanings the library reads.
struct pcis_row {
    pci_address address;
    unsigned node_index = 1;
    unsigned slot = 0;
    uint32_t dev_key = 0, fun_key = 0, hardware_id = 0;
    unsigned hardware_type = 1;
    unsigned location = 0;  // 0 onboard, 1 in a slot, 2 the platform's own (root bus)
    unsigned fun_type = 7;
    uint16_t vendor = 0, device = 0, subvendor = 0, subdevice = 0;
    uint32_t class_code = 0;
    unsigned slot_type = 165;
    unsigned max_pcie_type = 0, max_lanes = 1;
    std::string designation;
};

struct build_report {
    unsigned functions = 0;            // functions read
    unsigned left_out_bridges = 0;     // class 06
    unsigned left_out_platform = 0;    // the platform's own functions (no slot, integrated classes)
    unsigned left_out_vfs = 0;         // SR-IOV virtual functions
    unsigned slots_matched = 0;        // SMBIOS slots that hold at least one row
    unsigned slots_invalid = 0;        // SMBIOS slots whose address names no device
    unsigned slots_shared = 0;         // SMBIOS slots whose valid address another slot gives too
    std::vector<pci_address> ids_cut;  // rows whose ids lspci cut off (written as 0)
};

// The rows of a machine, in address order. `smbios` may be null (no dmidecode given).
// Throws input_error, naming `source` (where the functions were read), when a bridge forwards
// to its own bus or two functions would get the same key.
std::vector<pcis_row> build_rows(const std::vector<pci_function>& functions, const std::string& source,
                                 const smbios_info* smbios, build_report* report = nullptr);

// The function-type and hardware-type codes of a class code (the table in the README).
unsigned function_type_of(uint32_t class_code);
unsigned hardware_type_of(uint32_t class_code);

// The "pcis" list as machine.json holds it (numbers and hex texts as the example machines write).
nlohmann::ordered_json rows_json(const std::vector<pcis_row>& rows);

}  // namespace machine
