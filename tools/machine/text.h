// Small text helpers of the machine parsers: lines with their numbers, hex fields of a fixed
// width, and the bracketed ids that `lspci -nn` and `dmidecode` print. No regular expressions:
// the parsers run on untrusted text and must stay linear in its size.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

#include "tools/machine/pci_machine.h"

namespace machine {
namespace text {

struct line {
    unsigned number;
    std::string text;  // without the line end ("\n" or "\r\n")
};

std::vector<line> split_lines(const std::string& s);
std::string trim(const std::string& s);
bool starts_with(const std::string& s, const char* prefix);
// Leading blanks (tabs or spaces) of a line.
size_t indent(const std::string& s);

// Exactly `digits` hex digits at s[pos], into *out.
bool hex_field(const std::string& s, size_t pos, size_t digits, uint32_t* out);
// A whole text of 1 to `max_digits` hex digits.
bool hex_text(const std::string& s, size_t max_digits, uint32_t* out);
// A whole text of decimal digits (at most 9).
bool decimal_text(const std::string& s, unsigned* out);

// "[SSSS:]BB:DD.F" at the start of `s`; *used gets its length. A segment of 4 to 8 hex
// digits; the device must be at most 0x1f and the function 0 to 7, else *impossible is set.
bool parse_address(const std::string& s, pci_address* out, size_t* used, std::string* impossible);

// The last "[hhhh:hhhh]" of `s` (lspci -nn ids), or the last "[hhhh]" with `pair` false.
bool last_bracketed_ids(const std::string& s, bool pair, uint32_t* first, uint32_t* second, size_t* at);

// A PCIe link speed as lspci ("8GT/s") or sysfs ("8.0 GT/s PCIe") prints it, to the
// generation: 2.5, 5, 8, 16, 32, 64 GT/s give 1 to 6, "unknown" 0; false for any other text.
bool link_generation(const std::string& speed, unsigned* gen);

// `s` with every byte that does not belong to a well-formed UTF-8 sequence replaced by U+FFFD:
// BIOS strings may be in any code page, and machine.json is JSON.
std::string valid_utf8(const std::string& s);

}  // namespace text
}  // namespace machine
