// The walk over one setting's subtree: a small state machine applied to every node below a
// "setting" element, depth first in document order. Internal to the reader.
#pragma once

#include <stdint.h>

#include "aim/document.h"

namespace aim_parser {

struct setting_parser {
    explicit setting_parser(setting_node* n) : node(n) {}

    // Handles one element of the subtree, whose first child is `first`; returns true when
    // the walk is to descend into its children (it always does). `depth` is the element's
    // depth below the setting. Other nodes need no handling.
    bool operator()(sysxml::node& n, sysxml::node& first, unsigned depth);

    uint32_t status = 0;  // 0 while all is well, 2 after an unknown element
    setting_node* node;   // the setting being filled, not owned
    bool in_enumerate = false;
    bool instance_seen = false;
};

// Stores the text of `el`'s first child into `field` when that child is a text, comment or
// processing-instruction node whose text is not empty and does not begin with a line feed;
// otherwise `field` keeps its value.
void take_text(sysxml::node& el, std::string& field);
// The same, given `el`'s first child (null when it has none).
void take_first_text(sysxml::node& first, std::string& field);

}  // namespace aim_parser
