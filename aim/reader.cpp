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
    // The text of the first child node: an element there has no text of its own (and
    // gathering its descendants' text would make deeply nested input quadratic).
    sysxml::node first = el.first_child();
    if (!first || first.is_element()) return;
    std::string text = first.content();
    if (text.empty() || text[0] == '\0' || text[0] == '\n') return;
    field = std::move(text);
}

namespace {

bool named(sysxml::node& n, const char* name) {
    return strcmp(n.name(), name) == 0;
}

// The two messages of an unexpected child of a config, group or setting.
void log_unexpected(const char* what, sysxml::node& child, const char* tag) {
    kora_log::logErr("%s", what);
    std::string msg = std::string("Unexpected node '") + child.name() + "' in " + tag;
    kora_log::logErr("AIM XML ERROR: %s", msg.c_str());
}

// Parses a group at nesting level `level` below its config (1 for a group directly in a
// config); sub-groups are parsed one level further down, up to max_group_depth.
uint32_t parse_group(group& g, sysxml::node& n, uint32_t level) {
    g.clear_setting_nodes();
    g.clear_groups();
    if (!n.is_element() || !*n.name() || !named(n, "group")) {
        kora_log::logErr("NOT group node");
        return parse_bad_group;
    }
    if (const char* s = n.attribute("suppress-if")) g.suppress_if = s;

    bool fault = false;
    for (sysxml::node c = n.first_child(); c; c = c.next_sibling()) {
        if (c.is_text()) continue;
        if (named(c, "name")) {
            take_text(c, g.name);
        } else if (named(c, "redfish") || named(c, "Redfish")) {
            take_text(c, g.redfish);
        } else if (named(c, "mriName")) {
            take_text(c, g.mri_name);
        } else if (named(c, "setting")) {
            auto* s = new setting_node();
            s->depth = g.depth + 1;
            if (s->parse(c) != parse_ok) {
                delete s;
                kora_log::logErr("AIM Doc: group %s parse failed", g.name.c_str());
                return parse_ok;
            }
            g.add_setting_node(s);
        } else if (named(c, "group")) {
            if (level >= max_group_depth) {
                kora_log::logErr("AIM Doc: group %s nests groups deeper than %u levels", g.name.c_str(),
                                 static_cast<unsigned>(max_group_depth));
                kora_log::logErr("AIM Doc: group %s parse failed", g.name.c_str());
                return parse_ok;
            }
            auto* sub = new group();
            sub->depth = g.depth + 1;
            if (parse_group(*sub, c, level + 1) != parse_ok) {
                delete sub;
                kora_log::logErr("AIM Doc: group %s parse failed", g.name.c_str());
                return parse_ok;
            }
            g.add_group(sub);
        } else {
            log_unexpected("unknown group field", c, group::TAG);
            fault = true;
        }
    }
    if (fault) kora_log::logErr("AIM Doc: group %s parse failed", g.name.c_str());
    return parse_ok;
}

}  // namespace

// ---- setting walk ----------------------------------------------------------------------------

bool setting_parser::operator()(sysxml::node& c, unsigned /*depth*/) {
    if (!c.is_element()) return true;
    if (named(c, "name")) {
        take_text(c, node->name);
    } else if (named(c, "mriName")) {
        take_text(c, node->mri_name);
    } else if (named(c, "desc")) {
        take_text(c, node->desc);
    } else if (named(c, "redfish") || named(c, "Redfish")) {
        take_text(c, node->redfish);
    } else if (named(c, "text_data")) {
        in_enumerate = false;
        if (c.has_children()) node->type = setting_node::text_data;
    } else if (named(c, "numeric_data")) {
        in_enumerate = false;
        if (c.has_children()) node->type = setting_node::numeric_data;
    } else if (named(c, "enumerate_data")) {
        in_enumerate = true;
        instance_seen = false;
        if (c.has_children()) node->type = setting_node::enumerate_data;
    } else if (named(c, "boolean_data")) {
        in_enumerate = false;
        if (c.has_children()) node->type = setting_node::boolean_data;
    } else if (named(c, "instance") && in_enumerate) {
        instance_seen = true;
    } else if (named(c, "value") || named(c, "instance")) {
        // Inside an enumeration only the values before its first instance count.
        if (!(in_enumerate && instance_seen)) take_text(c, node->value);
    } else if ((named(c, "choice") || named(c, "label")) && in_enumerate) {
        // Choices and labels of an enumeration are accepted and not stored.
    } else {
        status = parse_bad_setting;
        log_unexpected("unknown setting field", c, setting_node::TAG);
    }
    return true;
}

uint32_t setting_node::parse(sysxml::node& n) {
    if (!n.is_element() || !named(n, "setting")) {
        kora_log::logErr("AIM Doc: NOT element node or setting_node::TAG");
        return parse_bad_setting;
    }
    const char* id_attr = n.attribute("ID");
    if (!id_attr) return parse_bad_setting;
    id = id_attr;
    if (const char* s = n.attribute("suppress-if")) suppress_if = s;

    // Depth first, document order, with an explicit stack: each entry is the next node to
    // visit at its depth, so the stack holds at most one pending sibling per level.
    setting_parser p(this);
    std::vector<std::pair<sysxml::node, unsigned>> stack;
    if (sysxml::node first = n.first_child()) stack.emplace_back(first, 0u);
    while (!stack.empty()) {
        sysxml::node c = stack.back().first;
        unsigned d = stack.back().second;
        stack.pop_back();
        bool descend = p(c, d);
        if (sysxml::node next = c.next_sibling()) stack.emplace_back(next, d);
        if (descend) {
            if (sysxml::node child = c.first_child()) stack.emplace_back(child, d + 1);
        }
    }

    if (p.status != 0) {
        kora_log::logErr("AIM Doc: setting %s is invalid", id.c_str());
        return parse_ok;
    }
    if (name.empty()) {
        kora_log::logErr("AIM Doc: setting %s has an empty name", id.c_str());
        return parse_bad_setting;
    }
    return parse_ok;
}

// ---- group, config, configset, inventories ---------------------------------------------------

uint32_t group::parse(sysxml::node& n) {
    return parse_group(*this, n, 1);
}

uint32_t config::parse_pfa(sysxml::node& n) {
    if (!n.is_element()) {
        kora_log::logErr("AIM Doc: node is not pfa");
        return parse_bad_config;
    }
    uint32_t result = parse_ok;
    for (sysxml::node c = n.first_child(); c; c = c.next_sibling()) {
        if (c.is_text()) continue;
        if (named(c, "segment")) {
            take_text(c, segment);
        } else if (named(c, "bus")) {
            take_text(c, bus);
        } else if (named(c, "device")) {
            take_text(c, device);
        } else if (named(c, "function")) {
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
    if (!n.is_element() || !named(n, "config")) {
        kora_log::logErr("AIM Doc: node is not config");
        return parse_bad_config;
    }
    const char* id_attr = n.attribute("ID");
    if (!id_attr) {
        kora_log::logErr("AIM Doc: config id is null");
        return parse_bad_config;
    }
    id = id_attr;

    bool fault = false;
    for (sysxml::node c = n.first_child(); c; c = c.next_sibling()) {
        if (c.is_text()) continue;
        if (named(c, "name")) {
            take_text(c, name);
        } else if (named(c, "mriName")) {
            take_text(c, mri_name);
        } else if (named(c, "desc")) {
            take_text(c, desc);
        } else if (named(c, "redfish") || named(c, "Redfish")) {
            take_text(c, redfish);
        } else if (named(c, "pfa")) {
            if (parse_pfa(c) != parse_ok) {
                kora_log::logErr("AIM Doc: config %s parse failed", id.c_str());
                return parse_ok;
            }
        } else if (named(c, "group")) {
            auto* g = new group();
            g->depth = depth + 1;
            if (g->parse(c) != parse_ok) {
                delete g;
                kora_log::logErr("AIM Doc: config %s parse failed", id.c_str());
                return parse_ok;
            }
            add_group(g);
        } else {
            log_unexpected("AIM Doc: unknown config field", c, config::TAG);
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
    if (!n.is_element() || !named(n, "configset")) return parse_bad_configset;
    for (sysxml::node c = n.first_child(); c; c = c.next_sibling()) {
        if (c.is_text()) continue;
        if (named(c, "name")) {
            take_text(c, name);
        } else if (named(c, "mriName")) {
            take_text(c, mri_name);
        } else if (named(c, "config")) {
            auto* cfg = new config();
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
    if (!root.is_element() || !named(root, "inventories")) return parse_bad_root;
    for (sysxml::node c = root.first_child(); c; c = c.next_sibling()) {
        if (c.is_text()) continue;
        if (named(c, "configset")) {
            auto* cs = new configset();
            cs->depth = depth + 1;
            if (cs->parse(c) != parse_ok) {
                delete cs;
                return parse_ok;
            }
            add_configset(cs);
        } else if (named(c, "config")) {
            auto* cfg = new config();
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

uint32_t document::parse(sysxml::node& root) {
    return inventories.parse(root);
}

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
