// Controller XML DOM library. The reader of AIM files walks the DOM that it builds.
//
// Nodes are lightweight handles into a DOM owned by a sysxml::document; they are valid
// while that document lives. The DOM shows element nodes, text nodes (CDATA included,
// whitespace-only text kept), comment nodes (named "comment") and processing
// instructions (named by their target), in document order.
#pragma once

#include <exception>
#include <iosfwd>
#include <string>

namespace sysipc {

// The one exception the XML library throws: a message, an optional source file and a line.
class exception : public std::exception {
public:
    exception(std::string message, std::string file = std::string(), unsigned line = 0);
    const char* what() const noexcept override;
    const std::string& message() const { return message_; }
    // Null when the exception names no source file.
    const char* file() const { return file_.empty() ? nullptr : file_.c_str(); }
    unsigned line() const { return line_; }

private:
    std::string message_;
    std::string file_;
    unsigned line_;
};

}  // namespace sysipc

namespace sysxml {

enum class node_kind { none, element, text, comment, pi };

class node {
public:
    node() = default;
    explicit node(void* impl) : impl_(impl) {}

    explicit operator bool() const { return impl_ != nullptr; }
    node_kind kind() const;
    bool is_element() const { return kind() == node_kind::element; }
    bool is_text() const { return kind() == node_kind::text; }
    // Element name, "comment" for a comment, the target of a processing instruction,
    // "text" for a text node; "" for a null node.
    const char* name() const;
    // Text of a text, comment or processing-instruction node; for an element, the
    // concatenated text of its descendants. Entities are resolved.
    std::string content() const;
    node first_child() const;
    node next_sibling() const;
    bool has_children() const { return static_cast<bool>(first_child()); }
    // Value of the named attribute, or null when the element has none of that name.
    const char* attribute(const char* name) const;

private:
    void* impl_ = nullptr;
};

// Per-call context of the XML library; kept alive while a DOM is built and walked.
class parser {
public:
    parser();
    ~parser();
    parser(const parser&) = delete;
    parser& operator=(const parser&) = delete;
};

class document {
public:
    // Builds the DOM from a whole stream. Throws sysipc::exception for an unreadable,
    // empty or ill-formed (not well-formed XML 1.0) stream, with the line of the fault.
    // Internal entities are expanded; no external entity or external DTD is ever loaded.
    document(std::istream& in, bool validate);
    virtual ~document();
    document(const document&) = delete;
    document& operator=(const document&) = delete;
    // The document element.
    node root() const;

private:
    void* impl_ = nullptr;
};

}  // namespace sysxml
