// sysxml DOM over pugixml.
//
// The whole stream is read into memory in large blocks and parsed in place: the DOM's
// names and texts point into that buffer, which lives as long as the DOM. pugixml's parser
// is not recursive and it never loads a DTD or an external entity: only the predefined
// entities and character references are resolved. Text (CDATA included, whitespace-only
// text kept), comments and processing instructions become nodes; the XML declaration and
// a DOCTYPE do not.
#include <pugixml.hpp>
#include <string.h>

#include <algorithm>
#include <istream>
#include <memory>
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

// Offsets of the line feeds of begin[0, size). Parsing in place overwrites some of them
// (the end of a name, a line feed in an attribute value), so an error's line is counted
// on these.
std::vector<size_t> line_feeds(const char* begin, size_t size) {
    std::vector<size_t> out;
    const char* end = begin + size;
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

// The DOM and the text that its names and values point into.
struct dom {
    std::unique_ptr<char[]> data;
    size_t size = 0;
    pugi::xml_document doc;
};

// Reads the rest of the stream through its buffer into `d`, at first as much as the buffer
// says is available (a whole regular file), then into a buffer of twice the size while it
// fills up. Like reading with a stream-buffer iterator, this leaves the stream's state
// flags alone.
void read_all(std::istream& in, dom& d) {
    std::streambuf* buf = in.rdbuf();
    if (!buf) return;
    std::streamsize available = buf->in_avail();
    size_t capacity = available > 0 ? static_cast<size_t>(available) + 1 : 64 * 1024;
    d.data.reset(new char[capacity]);
    for (;;) {
        std::streamsize asked = static_cast<std::streamsize>(capacity - d.size);
        std::streamsize got = buf->sgetn(d.data.get() + d.size, asked);
        if (got > 0) d.size += static_cast<size_t>(got);
        if (got < asked) break;  // fewer than asked: the end
        std::unique_ptr<char[]> larger(new char[capacity * 2]);
        memcpy(larger.get(), d.data.get(), d.size);
        d.data = std::move(larger);
        capacity *= 2;
    }
}

}  // namespace

document::document(std::istream& in, bool /*validate: no DTD is ever loaded*/) {
    if (!in) throw sysipc::exception("cannot read the XML stream");
    std::unique_ptr<dom> d(new dom());
    read_all(in, *d);
    if (in.bad()) throw sysipc::exception("error while reading the XML stream");
    if (d->size == 0) throw sysipc::exception("empty XML stream", std::string(), 1);

    std::vector<size_t> feeds = line_feeds(d->data.get(), d->size);
    pugi::xml_parse_result r =
        d->doc.load_buffer_inplace(d->data.get(), d->size, parse_options, pugi::encoding_auto);
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
        throw sysipc::exception("ill-formed XML at line " + std::to_string(line) + ": " + message,
                                std::string(), line);
    }
    impl_ = d.release();
}

document::~document() { delete static_cast<dom*>(impl_); }

node document::root() const {
    if (!impl_) return node();
    return from_pugi(static_cast<dom*>(impl_)->doc.document_element());
}

}  // namespace sysxml
