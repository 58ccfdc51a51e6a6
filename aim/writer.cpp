// The AIM XML writer: prints the identifying and describing fields of a tree for viewing.
//
// Each element's own lines are indented by depth x unit spaces and its field lines one
// level deeper. Values are written as stored, without escaping; every line is flushed.
#include <fstream>
#include <ostream>
#include <string>

#include "aim/document.h"
#include "platform/os.h"

namespace aim_parser {
namespace {

void indent(std::ostream& os, uint32_t depth, unsigned unit) {
    os << std::string(static_cast<size_t>(depth) * unit, ' ');
}

void line(std::ostream& os, uint32_t depth, unsigned unit, const std::string& text) {
    indent(os, depth, unit);
    os << text << std::endl;
}

void start_tag(std::ostream& os, uint32_t depth, unsigned unit, const char* tag) {
    line(os, depth, unit, std::string("<") + tag + ">");
}

void end_tag(std::ostream& os, uint32_t depth, unsigned unit, const char* tag) {
    line(os, depth, unit, std::string("</") + tag + ">");
}

// A field of the element at `depth`: one line, one level deeper than the element.
void field(std::ostream& os, uint32_t depth, unsigned unit, const char* tag, const std::string& value) {
    line(os, depth + 1, unit, std::string("<") + tag + ">" + value + "</" + tag + ">");
}

}  // namespace

void setting_node::dump(std::ostream& os, unsigned unit) const {
    start_tag(os, depth, unit, TAG);
    field(os, depth, unit, "name", name);
    field(os, depth, unit, "mriName", mri_name);
    field(os, depth, unit, map_data_type(static_cast<setting_data_type>(type)), value);
    field(os, depth, unit, "desc", desc);
    end_tag(os, depth, unit, TAG);
}

void group::dump(std::ostream& os, unsigned unit) const {
    start_tag(os, depth, unit, TAG);
    field(os, depth, unit, "name", name);
    field(os, depth, unit, "mriName", mri_name);
    for (const auto& kv : settings) kv.second->dump(os, unit);
    for (const auto& kv : groups) kv.second->dump(os, unit);
    end_tag(os, depth, unit, TAG);
}

void config::dump(std::ostream& os, unsigned unit) const {
    start_tag(os, depth, unit, TAG);
    field(os, depth, unit, "name", name);
    field(os, depth, unit, "mriName", mri_name);
    line(os, depth + 1, unit, "<pfa>");
    field(os, depth, unit, "segment", segment);
    field(os, depth, unit, "bus", bus);
    field(os, depth, unit, "device", device);
    field(os, depth, unit, "function", function);
    line(os, depth + 1, unit, "</pfa>");
    field(os, depth, unit, "desc", desc);
    for (const auto& kv : groups) kv.second->dump(os, unit);
    end_tag(os, depth, unit, TAG);
}

void configset::dump(std::ostream& os, unsigned unit) const {
    start_tag(os, depth, unit, TAG);
    field(os, depth, unit, "name", name);
    field(os, depth, unit, "mriName", mri_name);
    for (const auto& kv : configs) kv.second->dump(os, unit);
    end_tag(os, depth, unit, TAG);
}

void inventories::dump(std::ostream& os, unsigned unit) const {
    // The root's tags are never indented. Its direct configs are not written.
    os << "<inventories ID=\"\" schema-version=\"3.00\" "
          "xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\" "
          "xsi:noNamespaceSchemaLocation=\"file:setup.xsd\">"
       << std::endl;
    for (const auto& kv : configsets) kv.second->dump(os, unit);
    os << "</inventories>" << std::endl;
}

void document::dump(std::ostream& os, unsigned unit) const {
    os << "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>" << std::endl;
    os << "<?xml-stylesheet type=\"text/xsl\" href=\"setup.xsl\" ?>" << std::endl;
    inventories.dump(os, unit);
}

void document::dump(const char* path) const {
    if (!path) return;
    std::ofstream out(os_path(path).c_str(), std::ios::out | std::ios::trunc);
    dump(out, 0);
}

std::ostream& operator<<(std::ostream& os, const document& doc) {
    doc.dump(os, 2);
    return os;
}

}  // namespace aim_parser
