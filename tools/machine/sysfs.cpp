// The running host's PCI functions from sysfs: ROOT/sys/bus/pci/devices/SSSS:BB:DD.F holds
// "vendor", "device", "subsystem_vendor", "subsystem_device" and "class" (hex), the link
// capability as "max_link_speed" ("16.0 GT/s PCIe") and "max_link_width", a bridge's
// "secondary_bus_number" and "subordinate_bus_number", and "physfn" for an SR-IOV virtual
// function. ROOT/sys/bus/pci/slots/NAME/address ("0000:3b:00") names the device in slot NAME.
#include <dirent.h>
#include <errno.h>
#include <string.h>
#include <sys/stat.h>

#include <algorithm>
#include <fstream>
#include <sstream>

#include "tools/machine/pci_machine.h"
#include "tools/machine/text.h"

namespace machine {
namespace {

bool read_small_file(const std::string& path, std::string* out) {
    std::ifstream in(path.c_str());
    if (!in) return false;
    char buf[256];
    in.read(buf, sizeof buf);
    std::string v(buf, static_cast<size_t>(in.gcount()));
    while (!v.empty() && (v.back() == '\n' || v.back() == '\r')) v.pop_back();
    *out = text::trim(v);
    return true;
}

std::vector<std::string> entries(const std::string& dir, bool* exists) {
    std::vector<std::string> names;
    DIR* d = opendir(dir.c_str());
    *exists = d != nullptr;
    if (!d) return names;
    for (;;) {
        errno = 0;
        struct dirent* e = readdir(d);
        if (!e) break;
        std::string n = e->d_name;
        if (n != "." && n != "..") names.push_back(n);
    }
    int err = errno;
    closedir(d);
    if (err) throw input_error(dir, 0, std::string("cannot be listed: ") + strerror(err));
    std::sort(names.begin(), names.end());
    return names;
}

uint32_t hex_attribute(const std::string& dir, const char* name, size_t digits) {
    std::string path = dir + "/" + name, value;
    if (!read_small_file(path, &value)) throw input_error(path, 0, "cannot be read");
    uint32_t v = 0;
    if (!text::hex_text(value, digits, &v))
        throw input_error(
            path, 0, "not a hex number of at most " + std::to_string(digits) + " digits: '" + value + "'");
    return v;
}

bool decimal_attribute(const std::string& dir, const char* name, unsigned limit, unsigned* out) {
    std::string path = dir + "/" + name, value;
    if (!read_small_file(path, &value)) return false;
    if (!text::decimal_text(value, out) || *out > limit)
        throw input_error(path, 0, "not a number from 0 to " + std::to_string(limit) + ": '" + value + "'");
    return true;
}

// "8.0 GT/s PCIe" to the generation; an absent file or "Unknown" to 0.
unsigned speed_attribute(const std::string& dir) {
    std::string path = dir + "/max_link_speed", value;
    unsigned gen = 0;
    if (!read_small_file(path, &value)) return 0;
    if (!text::link_generation(value, &gen))
        throw input_error(path, 0, "an unknown link speed '" + value + "'");
    return gen;
}

}  // namespace

std::vector<pci_function> read_sysfs(const std::string& root) {
    const std::string devices = root + "/sys/bus/pci/devices";
    bool exists = false;
    std::vector<std::string> names = entries(devices, &exists);
    if (!exists) throw input_error(devices, 0, "no such directory (is this a Linux host's root?)");
    std::vector<pci_function> out;
    for (const std::string& name : names) {
        pci_function f;
        size_t used = 0;
        std::string impossible;
        if (!text::parse_address(name, &f.address, &used, &impossible) || used != name.size())
            throw input_error(devices + "/" + name, 0,
                              impossible.empty() ? "not a PCI function address" : impossible);
        const std::string dir = devices + "/" + name;
        f.vendor = static_cast<uint16_t>(hex_attribute(dir, "vendor", 4));
        f.device = static_cast<uint16_t>(hex_attribute(dir, "device", 4));
        f.subvendor = static_cast<uint16_t>(hex_attribute(dir, "subsystem_vendor", 4));
        f.subdevice = static_cast<uint16_t>(hex_attribute(dir, "subsystem_device", 4));
        f.class_code = hex_attribute(dir, "class", 6);
        f.link_generation = speed_attribute(dir);
        unsigned width = 0;
        if (decimal_attribute(dir, "max_link_width", 32, &width)) f.link_width = width;
        unsigned sec = 0, sub = 0;
        if (decimal_attribute(dir, "secondary_bus_number", 255, &sec) &&
            decimal_attribute(dir, "subordinate_bus_number", 255, &sub) && sec && sub >= sec) {
            f.has_bus_range = true;
            f.secondary = static_cast<uint8_t>(sec);
            f.subordinate = static_cast<uint8_t>(sub);
        }
        struct stat st;
        f.virtual_function = lstat((dir + "/physfn").c_str(), &st) == 0;
        out.push_back(f);
    }
    // Slots: the kernel's slot NAME holds the device at its address (all its functions).
    const std::string slots = root + "/sys/bus/pci/slots";
    for (const std::string& name : entries(slots, &exists)) {
        std::string path = slots + "/" + name + "/address", value;
        if (!read_small_file(path, &value)) continue;
        pci_address a;
        size_t used = 0;
        std::string impossible;
        if (!text::parse_address(value + ".0", &a, &used, &impossible) || used != value.size() + 2)
            throw input_error(path, 0, "not a slot address such as 0000:3b:00: '" + value + "'");
        unsigned number = 0;
        if (!text::decimal_text(name, &number)) {
            size_t d = name.find_last_not_of("0123456789");
            if (d + 1 >= name.size() || !text::decimal_text(name.substr(d + 1), &number)) continue;
        }
        for (pci_function& f : out) {
            if (f.address.same_device(a)) f.physical_slot = static_cast<int>(number);
        }
    }
    return out;
}

}  // namespace machine
