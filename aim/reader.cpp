// The AIM XML reader: walks the DOM that the XML library builds and fills the tree.
//
// The reader is lenient: faults inside the file are logged and the offending piece dropped
// or cut short, while the parse still reports success. Only a wrong root element (7) or an
// exception of the XML library (8) fail it. No input may exhaust the stack: nested groups
// deeper than max_group_depth below their config count as groups that failed to parse,
// and the walk inside a setting keeps its own stack.
#include <string.h>

#include <fstream>
#include <string>
#include <utility>
#include <vector>

#include "aim/document.h"
#include "aim/setting_parser.h"
#include "platform/kora_log.h"
#include "platform/os.h"

namespace aim_parser {

void take_text(sysxml::node& el, std::string& field) {
    sysxml::node first = el.first_child();
    take_first_text(first, field);
}

void take_first_text(sysxml::node& first, std::string& field) {
    // The text of the first child node: an element there has no text of its own (and
    // gathering its descendants' text would make deeply nested input quadratic).
    if (!first || first.is_element()) return;
    std::string text = first.content();
    if (text.empty() || text[0] == '\0' || text[0] == '\n') return;
    field = std::move(text);
}

namespace {

// The element names the reader knows. A setting's walk looks at every element below it and
// each container at every child, so a name is classified once: by its first byte, then by
// an inline comparison with the few known names that begin with it. The classification is
// inlined where it is used: a call per element cost more than its six copies.
enum class known {
    other,
    name,
    mri_name,
    desc,
    redfish,  // "redfish" or "Redfish"
    setting,
    group,
    config,
    configset,
    pfa,
    segment,
    bus,
    device,
    function,
    text_data,
    numeric_data,
    enumerate_data,
    boolean_data,
    instance,
    value,
    choice,
    label,
};

// True when `s` is the literal `lit`. The comparison stops at the first difference, so it
// never reads past the end of a shorter `s`.
template <size_t N>
bool same(const char* s, const char (&lit)[N]) {
    for (size_t i = 0; i < N; ++i) {
        if (s[i] != lit[i]) return false;
    }
    return true;
}

inline __attribute__((always_inline)) known known_of(const char* s) {
    switch (s[0]) {
        case 'n':
            if (same(s, "name")) return known::name;
            if (same(s, "numeric_data")) return known::numeric_data;
            break;
        case 'm':
            if (same(s, "mriName")) return known::mri_name;
            break;
        case 'd':
            if (same(s, "desc")) return known::desc;
            if (same(s, "device")) return known::device;
            break;
        case 'r':
            if (same(s, "redfish")) return known::redfish;
            break;
        case 'R':
            if (same(s, "Redfish")) return known::redfish;
            break;
        case 's':
            if (same(s, "setting")) return known::setting;
            if (same(s, "segment")) return known::segment;
            break;
        case 'g':
            if (same(s, "group")) return known::group;
            break;
        case 'c':
            if (same(s, "config")) return known::config;
            if (same(s, "configset")) return known::configset;
            if (same(s, "choice")) return known::choice;
            break;
        case 'p':
            if (same(s, "pfa")) return known::pfa;
            break;
        case 'b':
            if (same(s, "boolean_data")) return known::boolean_data;
            if (same(s, "bus")) return known::bus;
            break;
        case 'f':
            if (same(s, "function")) return known::function;
            break;
        case 't':
            if (same(s, "text_data")) return known::text_data;
            break;
        case 'e':
            if (same(s, "enumerate_data")) return known::enumerate_data;
            break;
        case 'i':
            if (same(s, "instance")) return known::instance;
            break;
        case 'v':
            if (same(s, "value")) return known::value;
            break;
        case 'l':
            if (same(s, "label")) return known::label;
            break;
        default:
            break;
    }
    return known::other;
}

// The walk inside a setting keeps its pending nodes here: one entry per level, the next
// node to visit there and its depth. A config's settings share one stack.
using walk_stack = std::vector<std::pair<sysxml::node, unsigned>>;

// The two messages of an unexpected child (named `tag`) of a config, group or setting.
void log_unexpected(const char* what, const char* tag, const char* parent_tag) {
    kora_log::logErr("%s", what);
    std::string msg = std::string("Unexpected node '") + tag + "' in " + parent_tag;
    kora_log::logErr("AIM XML ERROR: %s", msg.c_str());
}

uint32_t parse_setting(setting_node& s, sysxml::node& n, walk_stack& stack);

// Parses a group at nesting level `level` below its config (1 for a group directly in a
// config); sub-groups are parsed one level further down, up to max_group_depth.
uint32_t parse_group(group& g, sysxml::node& n, uint32_t level, walk_stack& stack) {
    g.clear_setting_nodes();
    g.clear_groups();
    if (!n.is_element() || !*n.name() || !same(n.name(), "group")) {
        kora_log::logErr("NOT group node");
        return parse_bad_group;
    }
    if (const char* s = n.attribute("suppress-if")) g.suppress_if = s;

    bool fault = false;
    for (sysxml::node c = n.first_child(); c; c = c.next_sibling()) {
        if (c.is_text()) continue;
        const char* tag = c.name();
        const known k = known_of(tag);
        if (k == known::name) {
            take_text(c, g.name);
        } else if (k == known::redfish) {
            take_text(c, g.redfish);
        } else if (k == known::mri_name) {
            take_text(c, g.mri_name);
        } else if (k == known::setting) {
            // Default-initialised: every member has its initialiser, and `new setting_node()`
            // would first zero the whole object.
            auto* s = new setting_node;
            s->depth = g.depth + 1;
            if (parse_setting(*s, c, stack) != parse_ok) {
                delete s;
                kora_log::logErr("AIM Doc: group %s parse failed", g.name.c_str());
                return parse_ok;
            }
            g.add_setting_node(s);
        } else if (k == known::group) {
            if (level >= max_group_depth) {
                kora_log::logErr("AIM Doc: group %s nests groups deeper than %u levels", g.name.c_str(),
                                 static_cast<unsigned>(max_group_depth));
                kora_log::logErr("AIM Doc: group %s parse failed", g.name.c_str());
                return parse_ok;
            }
            auto* sub = new group;
            sub->depth = g.depth + 1;
            if (parse_group(*sub, c, level + 1, stack) != parse_ok) {
                delete sub;
                kora_log::logErr("AIM Doc: group %s parse failed", g.name.c_str());
                return parse_ok;
            }
            g.add_group(sub);
        } else {
            log_unexpected("unknown group field", tag, group::TAG);
            fault = true;
        }
    }
    if (fault) kora_log::logErr("AIM Doc: group %s parse failed", g.name.c_str());
    return parse_ok;
}

// The whole of setting_node::parse, walking the subtree with `stack` (left empty).
uint32_t parse_setting(setting_node& s, sysxml::node& n, walk_stack& stack) {
    if (!n.is_element() || !same(n.name(), "setting")) {
        kora_log::logErr("AIM Doc: NOT element node or setting_node::TAG");
        return parse_bad_setting;
    }
    const char* id_attr = n.attribute("ID");
    if (!id_attr) return parse_bad_setting;
    s.id = id_attr;
    if (const char* suppress = n.attribute("suppress-if")) s.suppress_if = suppress;

    // Depth first, document order, with an explicit stack: on the way down into an
    // element's children its next sibling (when there is one) is kept with its depth, so the
    // stack holds at most one pending sibling per level and a leaf costs no stack entry.
    setting_parser p(&s);
    stack.clear();
    sysxml::node c = n.first_child();
    unsigned d = 0;
    for (;;) {
        if (!c) {
            if (stack.empty()) break;
            c = stack.back().first;
            d = stack.back().second;
            stack.pop_back();
        }
        sysxml::node next = c.next_sibling();
        // Texts, comments and processing instructions have no children and nothing to do.
        if (c.is_element()) {
            sysxml::node child = c.first_child();
            if (p(c, child, d) && child) {
                if (next) stack.emplace_back(next, d);
                c = child;
                ++d;
                continue;
            }
        }
        c = next;
    }

    if (p.status != 0) {
        kora_log::logErr("AIM Doc: setting %s is invalid", s.id.c_str());
        return parse_ok;
    }
    if (s.name.empty()) {
        kora_log::logErr("AIM Doc: setting %s has an empty name", s.id.c_str());
        return parse_bad_setting;
    }
    return parse_ok;
}

}  // namespace

// ---- setting walk ----------------------------------------------------------------------------

bool setting_parser::operator()(sysxml::node& c, sysxml::node& first, unsigned /*depth*/) {
    const char* tag = c.name();
    const known k = known_of(tag);
    if (k == known::name) {
        take_first_text(first, node->name);
    } else if (k == known::mri_name) {
        take_first_text(first, node->mri_name);
    } else if (k == known::desc) {
        take_first_text(first, node->desc);
    } else if (k == known::redfish) {
        take_first_text(first, node->redfish);
    } else if (k == known::text_data) {
        in_enumerate = false;
        if (first) node->type = setting_node::text_data;
    } else if (k == known::numeric_data) {
        in_enumerate = false;
        if (first) node->type = setting_node::numeric_data;
    } else if (k == known::enumerate_data) {
        in_enumerate = true;
        instance_seen = false;
        if (first) node->type = setting_node::enumerate_data;
    } else if (k == known::boolean_data) {
        in_enumerate = false;
        if (first) node->type = setting_node::boolean_data;
    } else if (k == known::instance && in_enumerate) {
        instance_seen = true;
    } else if (k == known::value || k == known::instance) {
        // Inside an enumeration only the values before its first instance count.
        if (!(in_enumerate && instance_seen)) take_first_text(first, node->value);
    } else if ((k == known::choice || k == known::label) && in_enumerate) {
        // Choices and labels of an enumeration are accepted and not stored.
    } else {
        status = parse_bad_setting;
        log_unexpected("unknown setting field", tag, setting_node::TAG);
    }
    return true;
}

uint32_t setting_node::parse(sysxml::node& n) {
    walk_stack stack;
    return parse_setting(*this, n, stack);
}

// ---- group, config, configset, inventories ---------------------------------------------------

uint32_t group::parse(sysxml::node& n) {
    walk_stack stack;
    return parse_group(*this, n, 1, stack);
}

uint32_t config::parse_pfa(sysxml::node& n) {
    if (!n.is_element()) {
        kora_log::logErr("AIM Doc: node is not pfa");
        return parse_bad_config;
    }
    uint32_t result = parse_ok;
    for (sysxml::node c = n.first_child(); c; c = c.next_sibling()) {
        if (c.is_text()) continue;
        const char* tag = c.name();
        const known k = known_of(tag);
        if (k == known::segment) {
            take_text(c, segment);
        } else if (k == known::bus) {
            take_text(c, bus);
        } else if (k == known::device) {
            take_text(c, device);
        } else if (k == known::function) {
            take_text(c, function);
        } else {
            kora_log::logErr("AIM Doc: unknown pfa field");
            result = parse_bad_pfa_field;
        }
    }
    return result;
}

uint32_t config::parse(sysxml::node& n) {
    clear_groups();
    if (!n.is_element() || !same(n.name(), "config")) {
        kora_log::logErr("AIM Doc: node is not config");
        return parse_bad_config;
    }
    const char* id_attr = n.attribute("ID");
    if (!id_attr) {
        kora_log::logErr("AIM Doc: config id is null");
        return parse_bad_config;
    }
    id = id_attr;

    // Room for the levels of an ordinary setting, so that the stack is allocated once.
    walk_stack stack;
    stack.reserve(8);
    bool fault = false;
    for (sysxml::node c = n.first_child(); c; c = c.next_sibling()) {
        if (c.is_text()) continue;
        const char* tag = c.name();
        const known k = known_of(tag);
        if (k == known::name) {
            take_text(c, name);
        } else if (k == known::mri_name) {
            take_text(c, mri_name);
        } else if (k == known::desc) {
            take_text(c, desc);
        } else if (k == known::redfish) {
            take_text(c, redfish);
        } else if (k == known::pfa) {
            if (parse_pfa(c) != parse_ok) {
                kora_log::logErr("AIM Doc: config %s parse failed", id.c_str());
                return parse_ok;
            }
        } else if (k == known::group) {
            auto* g = new group;
            g->depth = depth + 1;
            if (parse_group(*g, c, 1, stack) != parse_ok) {
                delete g;
                kora_log::logErr("AIM Doc: config %s parse failed", id.c_str());
                return parse_ok;
            }
            add_group(g);
        } else {
            log_unexpected("AIM Doc: unknown config field", tag, config::TAG);
            fault = true;
        }
    }
    if (fault) {
        kora_log::logErr("AIM Doc: config %s parse failed", id.c_str());
    } else {
        kora_log::logInfo("AIM Doc: config %s is [OK]", id.c_str());
    }
    return parse_ok;
}

uint32_t configset::parse(sysxml::node& n) {
    clear_configs();
    if (!n.is_element() || !same(n.name(), "configset")) return parse_bad_configset;
    for (sysxml::node c = n.first_child(); c; c = c.next_sibling()) {
        if (c.is_text()) continue;
        const char* tag = c.name();
        const known k = known_of(tag);
        if (k == known::name) {
            take_text(c, name);
        } else if (k == known::mri_name) {
            take_text(c, mri_name);
        } else if (k == known::config) {
            auto* cfg = new config;
            cfg->depth = depth + 1;
            if (cfg->parse(c) != parse_ok) {
                delete cfg;
                return parse_ok;
            }
            add_config(cfg);
        }
    }
    return parse_ok;
}

uint32_t inventories::parse(sysxml::node& root) {
    clear_configsets();
    if (!root.is_element() || !same(root.name(), "inventories")) return parse_bad_root;
    for (sysxml::node c = root.first_child(); c; c = c.next_sibling()) {
        if (c.is_text()) continue;
        const char* tag = c.name();
        const known k = known_of(tag);
        if (k == known::configset) {
            auto* cs = new configset;
            cs->depth = depth + 1;
            if (cs->parse(c) != parse_ok) {
                delete cs;
                return parse_ok;
            }
            add_configset(cs);
        } else if (k == known::config) {
            auto* cfg = new config;
            cfg->depth = depth + 1;
            if (cfg->parse(c) != parse_ok) {
                delete cfg;
                return parse_ok;
            }
            add_config(cfg);
        }
    }
    return parse_ok;
}

// ---- document --------------------------------------------------------------------------------

uint32_t document::parse(sysxml::node& root) { return inventories.parse(root); }

uint32_t document::parse(std::istream& in) {
    sysxml::parser context;
    try {
        xml_document dom(in, false);
        sysxml::node root = dom.root();
        return parse(root);
    } catch (const sysipc::exception& e) {
        if (e.file()) {
            kora_log::logErr("AIM Doc: [exception], msg = %s, file = %s, line = %u", e.message().c_str(),
                             e.file(), e.line());
        } else {
            kora_log::logErr("AIM Doc: [exception], msg = %s", e.message().c_str());
        }
        return parse_xml_exception;
    }
}

uint32_t document::parse(const char* path) {
    {
        std::ifstream debug(os_path(debug_aim_file).c_str());
        if (debug.is_open()) return parse(debug);
    }
    // The controller opens at most 31 characters of the path.
    char buf[32];
    const char* src = path;
    if (!src) {
        std::ofstream out(os_path(aim_file).c_str(), std::ios::out | std::ios::trunc);
        out << "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n"
            << "<?xml-stylesheet type=\"text/xsl\" href=\"setup.xsl\" ?>\n"
            << "<inventories ID=\"\">\n"
            << "</inventories>\n";
        out.close();
        src = aim_file;
    }
    size_t len = strnlen(src, sizeof buf - 1);
    memcpy(buf, src, len);
    buf[len] = '\0';

    std::ifstream in(os_path(buf).c_str());
    uint32_t rc = parse(in);
    in.close();
    return rc;
}

std::istream& operator>>(std::istream& in, document& doc) {
    if (doc.parse(in) != parse_ok) in.setstate(std::ios::failbit);
    return in;
}

}  // namespace aim_parser
