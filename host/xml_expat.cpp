// sysxml DOM over expat, a conforming XML 1.0 parser.
//
// Well-formedness. Every rule of XML 1.0 is expat's to check: a document that breaks one
// (a bare "&", an undeclared entity, "--" in a comment, a doubled attribute, "<" in an
// attribute value, "]]>" in text, a reference to character 0, an XML declaration that is
// not at the very start, content after the document element, ...) makes the constructor
// throw sysipc::exception with expat's message and the line of the fault.
//
// Entities. Internal entities are expanded by expat, with its amplification limits on: a
// document whose entities expand to more than kMaxAmplification times its own size (past
// kAmplificationThreshold bytes of expansion) is refused, so a "billion laughs" document
// costs a few kilobytes, not gigabytes. At most kMaxEntities entities may be declared,
// which also bounds how deep expat nests the expansion of one entity in another. No
// external entity, external DTD subset or parameter entity is ever read: a reference to an
// external entity is dropped, as a non-validating parser may.
//
// The DOM. The stream is fed to expat in blocks read straight into expat's own buffer, so
// the document never stands whole in memory. Nodes keep element nodes, text nodes (a CDATA
// section its own node, other adjacent text and entity expansions merged into one),
// comments and processing instructions, in document order; the XML declaration and the
// DOCTYPE make no node. The document owns one pool: nodes (of variable size: a text holds
// its bytes, an element its attribute pointers, right after the node), attribute values and
// names are carved from 64 KiB chunks, and freeing the document frees the chunks, whatever
// the tree's shape. Element and attribute names are stored once per distinct name.
// Debian's expat is built with DTD support; its header declares the amplification limits
// only where XML_DTD is defined.
#ifndef XML_DTD
#define XML_DTD
#endif
#include <expat.h>
#include <stdint.h>
#include <string.h>

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

const float kMaxAmplification = 100.0f;
const unsigned long long kAmplificationThreshold = 1024 * 1024;
const unsigned kMaxEntities = 256;
const size_t kReadBlock = 64 * 1024;
const size_t kArenaBlock = 64 * 1024;

// Nodes are of variable size, all beginning with the same header. A text or a comment
// keeps its bytes right after the header; a processing instruction has its target and then
// its data; an element has its name, first child and `length` attribute name and value
// pointers right after it, so that an element without attributes stores none.
struct xnode {
    node_kind kind;
    uint32_t length;  // bytes of a text, comment or instruction data; an element's attributes
    xnode* next_sibling;
};

struct xelement : xnode {
    const char* name;
    xnode* first_child;
    const char** attributes() { return reinterpret_cast<const char**>(this + 1); }
    const char* const* attributes() const { return reinterpret_cast<const char* const*>(this + 1); }
};

struct xpi : xnode {
    const char* target;
};

const char* text_of(const xnode* n) {
    return n->kind == node_kind::pi ? reinterpret_cast<const char*>(static_cast<const xpi*>(n) + 1)
                                    : reinterpret_cast<const char*>(n + 1);
}

// Bump allocator: blocks of kArenaBlock bytes (larger requests get a block of their own),
// all freed together.
class arena {
public:
    void* allocate(size_t size) {
        size = (size + alignof(void*) - 1) & ~(alignof(void*) - 1);
        if (size > left_) {
            size_t block = size > kArenaBlock / 4 ? size : kArenaBlock;
            blocks_.emplace_back(new char[block]);
            next_ = blocks_.back().get();
            left_ = block;
            if (block != kArenaBlock) {  // a large request: keep the current block's rest
                left_ = 0;
                return next_;
            }
        }
        void* p = next_;
        next_ += size;
        left_ -= size;
        return p;
    }
    const char* copy(const char* s, size_t len) {
        char* p = static_cast<char*>(allocate(len + 1));
        memcpy(p, s, len);
        p[len] = '\0';
        return p;
    }

private:
    std::vector<std::unique_ptr<char[]>> blocks_;
    char* next_ = nullptr;
    size_t left_ = 0;
};

// Names stored once: an open-addressing table of the distinct names seen, each entry with
// the name's hash and length, so that a lookup reads the name once and compares it once.
class name_table {
public:
    explicit name_table(arena& a) : arena_(a), slots_(64) {}
    const char* intern(const char* name) {
        size_t len = strlen(name);
        uint32_t h = hash(name, len);
        size_t mask = slots_.size() - 1;
        for (size_t i = h & mask;; i = (i + 1) & mask) {
            entry& e = slots_[i];
            if (!e.name) {
                const char* copy = arena_.copy(name, len);
                e = {copy, h, len};
                if (++count_ * 2 > slots_.size()) grow();
                return copy;
            }
            if (e.hash == h && e.length == len && memcmp(e.name, name, len) == 0) return e.name;
        }
    }

private:
    // Markup names are short and mostly differ in their length, first, middle or last byte.
    static uint32_t hash(const char* s, size_t len) {
        if (len == 0) return 0;
        uint32_t h = static_cast<uint32_t>(len) * 0x9E3779B1u;
        h ^= static_cast<unsigned char>(s[0]) | static_cast<unsigned char>(s[len / 2]) << 8 |
             static_cast<uint32_t>(static_cast<unsigned char>(s[len - 1])) << 16;
        return h ^ (h >> 15);
    }
    struct entry {
        const char* name = nullptr;
        uint32_t hash = 0;
        size_t length = 0;
    };
    void grow() {
        std::vector<entry> old(slots_.size() * 2);
        old.swap(slots_);
        size_t mask = slots_.size() - 1;
        for (const entry& e : old) {
            if (!e.name) continue;
            size_t i = e.hash & mask;
            while (slots_[i].name) i = (i + 1) & mask;
            slots_[i] = e;
        }
    }

    arena& arena_;
    std::vector<entry> slots_;
    size_t count_ = 0;
};

// The DOM of one document.
struct dom {
    arena nodes;
    name_table names{nodes};
    xnode* root = nullptr;  // the document element
};

// Builds a dom from expat's events.
class builder {
public:
    builder(dom& d, XML_Parser p) : dom_(d), parser_(p) { open_.push_back({&top_, nullptr}); }

    static void XMLCALL on_start(void* self, const XML_Char* name, const XML_Char** atts) {
        static_cast<builder*>(self)->start(name, atts);
    }
    static void XMLCALL on_end(void* self, const XML_Char*) { static_cast<builder*>(self)->end(); }
    static void XMLCALL on_text(void* self, const XML_Char* s, int len) {
        static_cast<builder*>(self)->text_.append(s, static_cast<size_t>(len));
    }
    static void XMLCALL on_cdata_start(void* self) {
        builder* b = static_cast<builder*>(self);
        b->flush_text();
        b->in_cdata_ = true;
    }
    static void XMLCALL on_cdata_end(void* self) {
        builder* b = static_cast<builder*>(self);
        b->flush_text();  // a CDATA section is a node of its own, also when empty
        b->in_cdata_ = false;
    }
    static void XMLCALL on_comment(void* self, const XML_Char* data) {
        builder* b = static_cast<builder*>(self);
        b->flush_text();
        b->add_text(node_kind::comment, data, strlen(data));
    }
    static void XMLCALL on_pi(void* self, const XML_Char* target, const XML_Char* data) {
        builder* b = static_cast<builder*>(self);
        b->flush_text();
        size_t length = strlen(data);
        xpi* n = static_cast<xpi*>(b->link(node_kind::pi, sizeof(xpi) + length + 1, length));
        n->target = b->dom_.names.intern(target);
        char* copy = reinterpret_cast<char*>(n + 1);
        memcpy(copy, data, length);
        copy[length] = '\0';
    }
    static void XMLCALL on_entity_decl(void* self, const XML_Char*, int, const XML_Char*, int,
                                       const XML_Char*, const XML_Char*, const XML_Char*, const XML_Char*) {
        builder* b = static_cast<builder*>(self);
        if (++b->entities_ > kMaxEntities) {
            b->refused_ = "more than " + std::to_string(kMaxEntities) + " entity declarations";
            XML_StopParser(b->parser_, XML_FALSE);
        }
    }

    const std::string& refused() const { return refused_; }

private:
    struct level {
        xelement* parent;
        xnode* last_child;
    };

    // Allocates a node of `size` bytes and links it as the open element's last child.
    xnode* link(node_kind kind, size_t size, size_t length) {
        xnode* n = static_cast<xnode*>(dom_.nodes.allocate(size));
        n->kind = kind;
        n->length = static_cast<uint32_t>(length);
        n->next_sibling = nullptr;
        level& at = open_.back();
        if (at.last_child) {
            at.last_child->next_sibling = n;
        } else {
            at.parent->first_child = n;
        }
        at.last_child = n;
        return n;
    }

    // A text or comment node holding `length` bytes of `text`.
    void add_text(node_kind kind, const char* text, size_t length) {
        xnode* n = link(kind, sizeof(xnode) + length + 1, length);
        char* copy = reinterpret_cast<char*>(n + 1);
        memcpy(copy, text, length);
        copy[length] = '\0';
    }

    void flush_text() {
        if (text_.empty() && !in_cdata_) return;
        if (text_.size() > UINT32_MAX) {
            refused_ = "a text of more than 4 GiB";
            XML_StopParser(parser_, XML_FALSE);
            text_.clear();
            return;
        }
        add_text(node_kind::text, text_.data(), text_.size());
        text_.clear();
    }

    void start(const XML_Char* name, const XML_Char** atts) {
        flush_text();
        size_t count = 0;
        while (atts[count]) count += 2;
        xelement* e = static_cast<xelement*>(
            link(node_kind::element, sizeof(xelement) + count * sizeof(const char*), count / 2));
        e->name = dom_.names.intern(name);
        e->first_child = nullptr;
        const char** a = e->attributes();
        for (size_t i = 0; i < count; i += 2) {
            a[i] = dom_.names.intern(atts[i]);
            a[i + 1] = dom_.nodes.copy(atts[i + 1], strlen(atts[i + 1]));
        }
        if (open_.size() == 1) dom_.root = e;
        open_.push_back({e, nullptr});
    }

    void end() {
        flush_text();
        open_.pop_back();
    }

    dom& dom_;
    XML_Parser parser_;
    xelement top_{};  // stands for the document: its children are the top-level nodes
    std::vector<level> open_;
    std::string text_;
    bool in_cdata_ = false;
    unsigned entities_ = 0;
    std::string refused_;
};

const xnode* to_node(void* impl) { return static_cast<const xnode*>(impl); }

// Throws the exception of a document that expat (or the builder) refused.
[[noreturn]] void refuse(XML_Parser p, const std::string& builder_reason) {
    unsigned line = static_cast<unsigned>(XML_GetCurrentLineNumber(p));
    std::string reason = builder_reason.empty() ? XML_ErrorString(XML_GetErrorCode(p)) : builder_reason;
    throw sysipc::exception("ill-formed XML at line " + std::to_string(line) + ": " + reason, std::string(),
                            line);
}

struct parser_deleter {
    void operator()(XML_ParserStruct* p) const { XML_ParserFree(p); }
};

}  // namespace

node_kind node::kind() const { return impl_ ? to_node(impl_)->kind : node_kind::none; }

const char* node::name() const {
    if (!impl_) return "";
    const xnode* n = to_node(impl_);
    switch (n->kind) {
        case node_kind::element:
            return static_cast<const xelement*>(n)->name;
        case node_kind::pi:
            return static_cast<const xpi*>(n)->target;
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
    const xnode* n = to_node(impl_);
    if (n->kind != node_kind::element) return std::string(text_of(n), n->length);
    // Concatenated text of every descendant, in document order, walked without recursion.
    std::string out;
    std::vector<const xnode*> pending;
    for (const xnode* c = static_cast<const xelement*>(n)->first_child; c || !pending.empty();) {
        if (!c) {
            c = pending.back()->next_sibling;
            pending.pop_back();
            continue;
        }
        const xnode* below =
            c->kind == node_kind::element ? static_cast<const xelement*>(c)->first_child : nullptr;
        if (c->kind == node_kind::text) out.append(text_of(c), c->length);
        if (below) {
            pending.push_back(c);
            c = below;
        } else {
            c = c->next_sibling;
        }
    }
    return out;
}

node node::first_child() const {
    const xnode* n = to_node(impl_);
    return node(n && n->kind == node_kind::element ? static_cast<const xelement*>(n)->first_child : nullptr);
}

node node::next_sibling() const { return node(impl_ ? to_node(impl_)->next_sibling : nullptr); }

const char* node::attribute(const char* name) const {
    if (!impl_ || !name) return nullptr;
    const xnode* n = to_node(impl_);
    if (n->kind != node_kind::element) return nullptr;
    const char* const* a = static_cast<const xelement*>(n)->attributes();
    for (uint32_t i = 0; i < n->length; ++i, a += 2) {
        if (strcmp(a[0], name) == 0) return a[1];
    }
    return nullptr;
}

parser::parser() {}
parser::~parser() {}

document::document(std::istream& in, bool /*validate: no DTD is ever loaded*/) {
    if (!in) throw sysipc::exception("cannot read the XML stream");
    std::streambuf* buf = in.rdbuf();
    if (!buf) throw sysipc::exception("cannot read the XML stream");

    std::unique_ptr<dom> d(new dom());
    std::unique_ptr<XML_ParserStruct, parser_deleter> p(XML_ParserCreate(nullptr));
    if (!p) throw sysipc::exception("cannot create the XML parser");
    builder b(*d, p.get());
    XML_SetUserData(p.get(), &b);
    XML_SetElementHandler(p.get(), builder::on_start, builder::on_end);
    XML_SetCharacterDataHandler(p.get(), builder::on_text);
    XML_SetCdataSectionHandler(p.get(), builder::on_cdata_start, builder::on_cdata_end);
    XML_SetCommentHandler(p.get(), builder::on_comment);
    XML_SetProcessingInstructionHandler(p.get(), builder::on_pi);
    XML_SetEntityDeclHandler(p.get(), builder::on_entity_decl);
    XML_SetParamEntityParsing(p.get(), XML_PARAM_ENTITY_PARSING_NEVER);
    XML_SetBillionLaughsAttackProtectionMaximumAmplification(p.get(), kMaxAmplification);
    XML_SetBillionLaughsAttackProtectionActivationThreshold(p.get(), kAmplificationThreshold);

    // Blocks are read straight into expat's buffer; like reading with a stream-buffer
    // iterator, this leaves the stream's state flags alone.
    bool any = false;
    for (;;) {
        void* block = XML_GetBuffer(p.get(), static_cast<int>(kReadBlock));
        if (!block) refuse(p.get(), "out of memory");
        std::streamsize got = buf->sgetn(static_cast<char*>(block), static_cast<std::streamsize>(kReadBlock));
        if (got < 0) got = 0;
        if (got == 0 && !any) throw sysipc::exception("empty XML stream", std::string(), 1);
        any = true;
        bool last = got < static_cast<std::streamsize>(kReadBlock);
        if (XML_ParseBuffer(p.get(), static_cast<int>(got), last ? XML_TRUE : XML_FALSE) != XML_STATUS_OK)
            refuse(p.get(), b.refused());
        if (last) break;
    }
    impl_ = d.release();
}

document::~document() { delete static_cast<dom*>(impl_); }

node document::root() const {
    if (!impl_) return node();
    return node(static_cast<dom*>(impl_)->root);
}

}  // namespace sysxml
