// sysxml DOM over pugixml.
//
// The whole stream is read into memory and parsed in one go. pugixml's parser is not
// recursive and it never loads a DTD or an external entity: only the predefined entities and
// character references are resolved. Text (CDATA included, whitespace-only text kept),
// comments and processing instructions become nodes; the XML declaration and a DOCTYPE do not.
#include <pugixml.hpp>

#include <istream>
#include <iterator>
#include <string>

#include "platform/sysxml.h"

namespace sysipc {
exception::exception(std::string message, std::string file, unsigned line)
    : message_(std::move(message)), file_(std::move(file)), line_(line) {}
const char* exception::what() const noexcept {
    return message_.c_str();
}
}  // namespace sysipc

namespace sysxml {
namespace {

constexpr unsigned parse_options =
    pugi::parse_default | pugi::parse_ws_pcdata | pugi::parse_comments | pugi::parse_pi | pugi::parse_cdata;

pugi::xml_node to_pugi(void* impl) {
    return pugi::xml_node(static_cast<pugi::xml_node_struct*>(impl));
}

node from_pugi(const pugi::xml_node& n) {
    return node(n ? static_cast<void*>(n.internal_object()) : nullptr);
}

bool is_text_type(pugi::xml_node_type t) {
    return t == pugi::node_pcdata || t == pugi::node_cdata;
}

// 1-based line of a byte offset into `data`.
unsigned line_of(const std::string& data, ptrdiff_t offset) {
    size_t end = offset < 0 ? 0 : static_cast<size_t>(offset);
    if (end > data.size()) end = data.size();
    unsigned line = 1;
    for (size_t i = 0; i < end; ++i) {
        if (data[i] == '\n') ++line;
    }
    return line;
}

}  // namespace

node_kind node::kind() const {
    if (!impl_) return node_kind::none;
    switch (to_pugi(impl_).type()) {
        case pugi::node_element:
            return node_kind::element;
        case pugi::node_pcdata:
        case pugi::node_cdata:
            return node_kind::text;
        case pugi::node_comment:
            return node_kind::comment;
        case pugi::node_pi:
            return node_kind::pi;
        default:
            return node_kind::none;
    }
}

const char* node::name() const {
    switch (kind()) {
        case node_kind::element:
        case node_kind::pi:
            return to_pugi(impl_).name();
        case node_kind::comment:
            return "comment";
        case node_kind::text:
            return "text";
        default:
            return "";
    }
}

std::string node::content() const {
    if (!impl_) return std::string();
    pugi::xml_node n = to_pugi(impl_);
    if (n.type() != pugi::node_element) return n.value();
    // Concatenated text of every descendant, in document order, walked without recursion.
    std::string out;
    pugi::xml_node cur = n.first_child();
    while (cur) {
        if (is_text_type(cur.type())) out += cur.value();
        if (cur.first_child()) {
            cur = cur.first_child();
            continue;
        }
        while (cur && cur != n && !cur.next_sibling()) cur = cur.parent();
        if (!cur || cur == n) break;
        cur = cur.next_sibling();
    }
    return out;
}

node node::first_child() const {
    return impl_ ? from_pugi(to_pugi(impl_).first_child()) : node();
}

node node::next_sibling() const {
    return impl_ ? from_pugi(to_pugi(impl_).next_sibling()) : node();
}

const char* node::attribute(const char* name) const {
    if (!impl_ || !name || kind() != node_kind::element) return nullptr;
    pugi::xml_attribute a = to_pugi(impl_).attribute(name);
    return a ? a.value() : nullptr;
}

parser::parser() {}
parser::~parser() {}

document::document(std::istream& in, bool /*validate: no DTD is ever loaded*/) {
    if (!in) throw sysipc::exception("cannot read the XML stream");
    std::string data((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (in.bad()) throw sysipc::exception("error while reading the XML stream");
    if (data.empty()) throw sysipc::exception("empty XML stream", std::string(), 1);

    auto* doc = new pugi::xml_document();
    pugi::xml_parse_result r = doc->load_buffer(data.data(), data.size(), parse_options, pugi::encoding_auto);
    ptrdiff_t error_offset = r.offset;
    const char* error = r ? nullptr : r.description();
    if (!error) {
        // pugixml accepts several top-level elements; a well-formed document has one.
        int elements = 0;
        for (pugi::xml_node n = doc->first_child(); n && !error; n = n.next_sibling()) {
            if (n.type() == pugi::node_element && ++elements > 1) {
                error = "more than one document element";
                error_offset = n.offset_debug();
            }
        }
    }
    if (error) {
        std::string message = error;
        delete doc;
        unsigned line = line_of(data, error_offset);
        throw sysipc::exception("ill-formed XML at line " + std::to_string(line) + ": " + message,
                                std::string(), line);
    }
    impl_ = doc;
}

document::~document() {
    delete static_cast<pugi::xml_document*>(impl_);
}

node document::root() const {
    if (!impl_) return node();
    return from_pugi(static_cast<pugi::xml_document*>(impl_)->document_element());
}

}  // namespace sysxml
