// sysxml DOM over pugixml.
//
// The whole stream is read into memory in large blocks and parsed in place: the DOM's
// names and texts point into that buffer, which lives as long as the DOM. pugixml's parser
// is not recursive and it never loads a DTD or an external entity: only the predefined entities and
// character references are resolved. Text (CDATA included, whitespace-only text kept),
// comments and processing instructions become nodes; the XML declaration and a DOCTYPE do not.
#include <pugixml.hpp>
#include <string.h>

#include <algorithm>
#include <istream>
#include <iterator>
#include <string>
#include <vector>

#include "platform/sysxml.h"

namespace sysipc {
exception::exception(std::string message, std::string file, unsigned line)
    : message_(std::move(message)), file_(std::move(file)), line_(line) {}
const char* exception::what() const noexcept { return message_.c_str(); }
}  // namespace sysipc

namespace sysxml {
namespace {

constexpr unsigned parse_options =
    pugi::parse_default | pugi::parse_ws_pcdata | pugi::parse_comments | pugi::parse_pi | pugi::parse_cdata;

pugi::xml_node to_pugi(void* impl) { return pugi::xml_node(static_cast<pugi::xml_node_struct*>(impl)); }

// The handle of a pugixml node; the internal object of an empty node is null.
node from_pugi(const pugi::xml_node& n) { return node(n.internal_object()); }

bool is_text_type(pugi::xml_node_type t) { return t == pugi::node_pcdata || t == pugi::node_cdata; }

// Offsets of the line feeds of `data`. Parsing in place overwrites some of them (the end of
// a name, a line feed in an attribute value), so an error's line is counted on these.
std::vector<size_t> line_feeds(const std::string& data) {
    std::vector<size_t> out;
    const char* begin = data.data();
    const char* end = begin + data.size();
    for (const char* p = begin;
         (p = static_cast<const char*>(memchr(p, '\n', static_cast<size_t>(end - p)))) != nullptr; ++p)
        out.push_back(static_cast<size_t>(p - begin));
    return out;
}

// 1-based line of a byte offset, given the offsets of the line feeds.
unsigned line_of(const std::vector<size_t>& feeds, ptrdiff_t offset) {
    size_t end = offset < 0 ? 0 : static_cast<size_t>(offset);
    return 1 + static_cast<unsigned>(std::lower_bound(feeds.begin(), feeds.end(), end) - feeds.begin());
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
    if (!impl_) return "";
    pugi::xml_node n = to_pugi(impl_);
    switch (n.type()) {
        case pugi::node_element:
        case pugi::node_pi:
            return n.name();
        case pugi::node_comment:
            return "comment";
        case pugi::node_pcdata:
        case pugi::node_cdata:
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

node node::first_child() const { return impl_ ? from_pugi(to_pugi(impl_).first_child()) : node(); }

node node::next_sibling() const { return impl_ ? from_pugi(to_pugi(impl_).next_sibling()) : node(); }

const char* node::attribute(const char* name) const {
    if (!impl_ || !name) return nullptr;
    pugi::xml_node n = to_pugi(impl_);
    if (n.type() != pugi::node_element) return nullptr;
    pugi::xml_attribute a = n.attribute(name);
    return a ? a.value() : nullptr;
}

parser::parser() {}
parser::~parser() {}

namespace {

// The DOM and the buffer that its names and texts point into.
struct dom {
    std::string data;
    pugi::xml_document doc;
};

// Reads the rest of the stream through its buffer, in blocks that double in size; the
// first block holds all that the buffer says is available (a whole regular file). Like
// reading with a stream-buffer iterator, this leaves the stream's state flags alone.
std::string read_all(std::istream& in) {
    std::string data;
    std::streambuf* buf = in.rdbuf();
    if (!buf) return data;
    std::streamsize available = buf->in_avail();
    size_t block = available > 0 ? static_cast<size_t>(available) + 1 : 64 * 1024;
    for (;;) {
        size_t old = data.size();
        data.resize(old + block);
        std::streamsize got = buf->sgetn(&data[old], static_cast<std::streamsize>(block));
        data.resize(old + static_cast<size_t>(got > 0 ? got : 0));
        if (got < static_cast<std::streamsize>(block)) break;  // fewer than asked: the end
        if (block < 16 * 1024 * 1024) block *= 2;
    }
    return data;
}

}  // namespace

document::document(std::istream& in, bool /*validate: no DTD is ever loaded*/) {
    if (!in) throw sysipc::exception("cannot read the XML stream");
    auto* d = new dom();
    d->data = read_all(in);
    if (in.bad()) {
        delete d;
        throw sysipc::exception("error while reading the XML stream");
    }
    if (d->data.empty()) {
        delete d;
        throw sysipc::exception("empty XML stream", std::string(), 1);
    }

    std::vector<size_t> feeds = line_feeds(d->data);
    pugi::xml_parse_result r =
        d->doc.load_buffer_inplace(&d->data[0], d->data.size(), parse_options, pugi::encoding_auto);
    ptrdiff_t error_offset = r.offset;
    const char* error = r ? nullptr : r.description();
    if (!error) {
        // pugixml accepts several top-level elements; a well-formed document has one.
        int elements = 0;
        for (pugi::xml_node n = d->doc.first_child(); n && !error; n = n.next_sibling()) {
            if (n.type() == pugi::node_element && ++elements > 1) {
                error = "more than one document element";
                error_offset = n.offset_debug();
            }
        }
    }
    if (error) {
        std::string message = error;
        unsigned line = line_of(feeds, error_offset);
        delete d;
        throw sysipc::exception("ill-formed XML at line " + std::to_string(line) + ": " + message,
                                std::string(), line);
    }
    impl_ = d;
}

document::~document() { delete static_cast<dom*>(impl_); }

node document::root() const {
    if (!impl_) return node();
    return from_pugi(static_cast<dom*>(impl_)->doc.document_element());
}

}  // namespace sysxml
