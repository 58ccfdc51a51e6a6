// aimctl fru IMAGE: parses a FRU image file with the library's fru_parser and prints the
// product and board info areas as one JSON object.
#include <stdio.h>

#include <string>
#include <vector>

#include "fru/fru_parser.h"
#include "tools/aimctl/command.h"

namespace aimctl {
namespace {

// A JSON string of a text: its bytes up to the first zero byte (the arrays are always
// terminated); bytes outside printable ASCII become \u00XX.
std::string json_text(const char* text) {
    std::string out = "\"";
    for (const unsigned char* p = reinterpret_cast<const unsigned char*>(text); *p; ++p) {
        if (*p == '"' || *p == '\\') {
            out += '\\';
            out += static_cast<char>(*p);
        } else if (*p >= 0x20 && *p < 0x7F) {
            out += static_cast<char>(*p);
        } else {
            char esc[8];
            snprintf(esc, sizeof esc, "\\u%04X", static_cast<unsigned>(*p));
            out += esc;
        }
    }
    return out + "\"";
}

// Writes `"name": value` members, one a line, at an indentation of `indent` spaces.
struct json_object {
    explicit json_object(int indent_) : indent(indent_) {}
    void add(const char* name, const std::string& value) {
        body += first ? "" : ",\n";
        body += std::string(indent, ' ') + "\"" + name + "\": " + value;
        first = false;
    }
    void add(const char* name, unsigned value) { add(name, std::to_string(value)); }
    void add_bool(const char* name, bool value) { add(name, std::string(value ? "true" : "false")); }
    void add_text(const char* name, const char* text) { add(name, json_text(text)); }
    std::string close() const { return "{\n" + body + "\n" + std::string(indent - 2, ' ') + "}"; }

    int indent;
    bool first = true;
    std::string body;
};

std::string product_json(const aim_parser::fru_product_info& p) {
    json_object o(4);
    o.add_bool("valid", p.valid != 0);
    o.add("version", p.version);
    o.add("language", p.language);
    o.add_text("manufacturer", p.manufacturer);
    o.add_text("product_name", p.product_name);
    o.add_text("part_number", p.part_number);
    o.add_text("product_version", p.product_version);
    o.add_text("serial_number", p.serial_number);
    o.add_text("asset_tag", p.asset_tag);
    o.add_text("fru_file_id", p.fru_file_id);
    return o.close();
}

std::string board_json(const aim_parser::fru_board_info& b) {
    json_object o(4);
    o.add_bool("valid", b.valid != 0);
    o.add("version", b.version);
    o.add("language", b.language);
    o.add("mfg_date", "[" + std::to_string(b.mfg_date[0]) + ", " + std::to_string(b.mfg_date[1]) + ", " +
                          std::to_string(b.mfg_date[2]) + "]");
    o.add_text("manufacturer", b.manufacturer);
    o.add_text("product_name", b.product_name);
    o.add_text("serial_number", b.serial_number);
    o.add_text("part_number", b.part_number);
    o.add_text("fru_file_id", b.fru_file_id);
    return o.close();
}

// Reads the whole file; false when it cannot be opened or read, or is larger than any FRU
// EEPROM (the parser takes an unsigned int size).
bool read_image(const char* path, std::vector<unsigned char>& image) {
    const size_t max_image = 16u << 20;
    FILE* f = fopen(path, "rb");
    if (!f) return false;
    unsigned char buf[4096];
    size_t n;
    while ((n = fread(buf, 1, sizeof buf, f)) > 0 && image.size() <= max_image)
        image.insert(image.end(), buf, buf + n);
    bool ok = !ferror(f) && image.size() <= max_image;
    fclose(f);
    return ok;
}

int run_fru(const std::vector<std::string>& args) {
    if (args.size() != 1) return usage_error("fru", args.empty() ? "missing IMAGE" : "expected one IMAGE");
    if (!args[0].empty() && args[0][0] == '-') return usage_error("fru", "unknown option '" + args[0] + "'");
    std::vector<unsigned char> image;
    if (!read_image(args[0].c_str(), image)) {
        fprintf(stderr, "aimctl fru: cannot read '%s'\n", args[0].c_str());
        return exit_failed;
    }

    aim_parser::fru_parser fru(static_cast<unsigned int>(image.size()), image.data());
    bool ok = fru.parser();
    json_object top(2);
    top.add_bool("ok", ok);
    top.add("multirecord_offset", fru.multirecord_area_offset);
    top.add("product", product_json(fru.product));
    top.add("board", board_json(fru.board));
    printf("%s\n", top.close().c_str());
    return ok ? exit_ok : exit_failed;
}

}  // namespace

AIMCTL_COMMAND("fru", "parse a FRU image and print its product and board areas as JSON",
               "usage: aimctl fru IMAGE\n\n"
               "Parses the IPMI FRU image in the file IMAGE (common header, product info area, board\n"
               "info area) and prints one JSON object:\n"
               "  {\"ok\", \"multirecord_offset\", \"product\": {...}, \"board\": {...}}\n"
               "Texts are the stored bytes up to the first zero byte; bytes outside printable ASCII\n"
               "are written as \\u00XX. The parser's messages go to standard error.\n\n"
               "Exit status: 0 when the image parsed, 1 when it did not or IMAGE cannot be read,\n"
               "2 for bad arguments.\n",
               run_fru);

}  // namespace aimctl
