// sysxml DOM over pugixml (to be written).
#include "platform/sysxml.h"

namespace sysipc {
exception::exception(std::string message, std::string file, unsigned line)
    : message_(std::move(message)), file_(std::move(file)), line_(line) {}
const char* exception::what() const noexcept { return message_.c_str(); }
}  // namespace sysipc

namespace sysxml {
node_kind node::kind() const { return node_kind::none; }
const char* node::name() const { return ""; }
std::string node::content() const { return std::string(); }
node node::first_child() const { return node(); }
node node::next_sibling() const { return node(); }
const char* node::attribute(const char*) const { return nullptr; }
parser::parser() {}
parser::~parser() {}
document::document(std::istream&, bool) { throw sysipc::exception("not implemented"); }
document::~document() {}
node document::root() const { return node(); }
}  // namespace sysxml
