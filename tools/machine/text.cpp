#include "tools/machine/text.h"

#include <stdio.h>
#include <string.h>

namespace machine {

input_error::input_error(const std::string& file, unsigned line, const std::string& what)
    : std::runtime_error(file + (line ? ":" + std::to_string(line) : std::string()) + ": " + what) {}

bool pci_address::operator<(const pci_address& o) const {
    if (segment != o.segment) return segment < o.segment;
    if (bus != o.bus) return bus < o.bus;
    if (device != o.device) return device < o.device;
    return function < o.function;
}

std::string pci_address::text() const {
    char buf[32];
    snprintf(buf, sizeof buf, "%04x:%02x:%02x.%u", static_cast<unsigned>(segment), static_cast<unsigned>(bus),
             static_cast<unsigned>(device), static_cast<unsigned>(function));
    return buf;
}

namespace text {
namespace {

int hex_digit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

// Hex digits at s[pos] (up to `max`), their count in *n.
uint32_t hex_run(const std::string& s, size_t pos, size_t max, size_t* n) {
    uint32_t v = 0;
    size_t i = 0;
    while (pos + i < s.size() && i < max && hex_digit(s[pos + i]) >= 0) {
        v = v * 16 + static_cast<uint32_t>(hex_digit(s[pos + i]));
        ++i;
    }
    *n = i;
    return v;
}

}  // namespace

std::vector<line> split_lines(const std::string& s) {
    std::vector<line> out;
    size_t start = 0;
    unsigned number = 1;
    while (start < s.size()) {
        size_t end = s.find('\n', start);
        if (end == std::string::npos) end = s.size();
        size_t stop = end;
        if (stop > start && s[stop - 1] == '\r') --stop;
        out.push_back(line{number++, s.substr(start, stop - start)});
        start = end + 1;
    }
    return out;
}

std::string trim(const std::string& s) {
    size_t b = s.find_first_not_of(" \t");
    if (b == std::string::npos) return std::string();
    size_t e = s.find_last_not_of(" \t");
    return s.substr(b, e - b + 1);
}

bool starts_with(const std::string& s, const char* prefix) {
    return s.compare(0, strlen(prefix), prefix) == 0;
}

size_t indent(const std::string& s) {
    size_t i = 0;
    while (i < s.size() && (s[i] == '\t' || s[i] == ' ')) ++i;
    return i;
}

bool hex_field(const std::string& s, size_t pos, size_t digits, uint32_t* out) {
    size_t n = 0;
    uint32_t v = hex_run(s, pos, digits, &n);
    if (n != digits) return false;
    *out = v;
    return true;
}

bool hex_text(const std::string& s, size_t max_digits, uint32_t* out) {
    size_t p = starts_with(s, "0x") || starts_with(s, "0X") ? 2 : 0;
    size_t n = 0;
    uint32_t v = hex_run(s, p, max_digits, &n);
    if (n == 0 || p + n != s.size()) return false;
    *out = v;
    return true;
}

bool decimal_text(const std::string& s, unsigned* out) {
    if (s.empty() || s.size() > 9) return false;
    unsigned v = 0;
    for (char c : s) {
        if (c < '0' || c > '9') return false;
        v = v * 10 + static_cast<unsigned>(c - '0');
    }
    *out = v;
    return true;
}

bool parse_address(const std::string& s, pci_address* out, size_t* used, std::string* impossible) {
    size_t n1 = 0;
    uint32_t first = hex_run(s, 0, 9, &n1);
    if (n1 == 0 || n1 >= s.size() || s[n1] != ':') return false;
    pci_address a;
    size_t pos = 0;
    // With a segment the text is SSSS:BB:DD.F, else BB:DD.F.
    size_t n2 = 0;
    hex_run(s, n1 + 1, 3, &n2);
    bool has_segment = n2 == 2 && n1 + 3 < s.size() && s[n1 + 3] == ':';
    if (has_segment) {
        if (n1 < 4) return false;
        if (n1 > 8) {
            *impossible = "segment " + s.substr(0, n1) + " is wider than 32 bits";
            return false;
        }
        a.segment = first;
        pos = n1 + 1;
    } else if (n1 != 2) {
        return false;
    }
    uint32_t bus = 0, dev = 0, fn = 0;
    if (!hex_field(s, pos, 2, &bus) || pos + 2 >= s.size() || s[pos + 2] != ':') return false;
    pos += 3;
    if (!hex_field(s, pos, 2, &dev) || pos + 2 >= s.size() || s[pos + 2] != '.') return false;
    pos += 3;
    size_t nf = 0;
    fn = hex_run(s, pos, 2, &nf);
    if (nf != 1) {
        if (nf == 2) *impossible = "function " + s.substr(pos, 2) + " is not 0 to 7";
        return false;
    }
    if (dev > 0x1f) {
        *impossible = "device " + s.substr(pos - 3, 2) + " is above 1f";
        return false;
    }
    if (fn > 7) {
        *impossible = "function " + s.substr(pos, 1) + " is not 0 to 7";
        return false;
    }
    a.bus = static_cast<uint8_t>(bus);
    a.device = static_cast<uint8_t>(dev);
    a.function = static_cast<uint8_t>(fn);
    *out = a;
    *used = pos + 1;
    return true;
}

bool last_bracketed_ids(const std::string& s, bool pair, uint32_t* first, uint32_t* second, size_t* at) {
    const size_t width = pair ? 11 : 6;  // "[hhhh:hhhh]" or "[hhhh]"
    if (s.size() < width) return false;
    for (size_t i = s.size() - width + 1; i-- > 0;) {
        if (s[i] != '[' || s[i + width - 1] != ']') continue;
        uint32_t a = 0, b = 0;
        if (!hex_field(s, i + 1, 4, &a)) continue;
        if (pair && (s[i + 5] != ':' || !hex_field(s, i + 6, 4, &b))) continue;
        *first = a;
        if (second) *second = b;
        if (at) *at = i;
        return true;
    }
    return false;
}

bool link_generation(const std::string& speed, unsigned* gen) {
    if (starts_with(speed, "unknown") || starts_with(speed, "Unknown")) {
        *gen = 0;
        return true;
    }
    size_t n = speed.find_first_not_of("0123456789.");
    if (n == 0 || n == std::string::npos) return false;
    std::string number = speed.substr(0, n);
    if (number.size() > 2 && number.compare(number.size() - 2, 2, ".0") == 0)
        number.resize(number.size() - 2);
    size_t unit = speed.find_first_not_of(' ', n);
    if (unit == std::string::npos || speed.compare(unit, 4, "GT/s") != 0) return false;
    static const char* const rates[] = {"2.5", "5", "8", "16", "32", "64"};
    for (unsigned i = 0; i < 6; ++i) {
        if (number == rates[i]) {
            *gen = i + 1;
            return true;
        }
    }
    return false;
}

std::string valid_utf8(const std::string& s) {
    std::string out;
    out.reserve(s.size());
    size_t i = 0;
    while (i < s.size()) {
        unsigned char c = static_cast<unsigned char>(s[i]);
        size_t n = c < 0x80 ? 1 : (c >> 5) == 0x6 ? 2 : (c >> 4) == 0xe ? 3 : (c >> 3) == 0x1e ? 4 : 0;
        bool ok = n > 0 && i + n <= s.size();
        uint32_t cp = n == 1 ? c : n == 2 ? (c & 0x1fu) : n == 3 ? (c & 0x0fu) : (c & 0x07u);
        for (size_t k = 1; ok && k < n; ++k) {
            unsigned char t = static_cast<unsigned char>(s[i + k]);
            ok = (t & 0xc0) == 0x80;
            cp = cp << 6 | (t & 0x3fu);
        }
        // No overlong forms, no surrogates, nothing above U+10FFFF.
        static const uint32_t least[] = {0, 0, 0x80, 0x800, 0x10000};
        ok = ok && cp >= least[n] && cp <= 0x10ffff && !(cp >= 0xd800 && cp <= 0xdfff);
        if (ok) {
            out.append(s, i, n);
            i += n;
        } else {
            out += "\xEF\xBF\xBD";
            ++i;
        }
    }
    return out;
}

}  // namespace text
}  // namespace machine
