// The controller's properties database ("propertiesdb", table "propertiesDCTbl"), where
// its storage service publishes drive presence and storage controller properties.
#pragma once

#include <string>
#include <vector>

#include "platform/vqm_db.h"

namespace aim_parser {

// The (propName, propValue) pairs of the properties that one query matched, in order.
struct property_rows {
    std::vector<std::string> names;
    std::vector<std::string> values;
};

// Opens the properties database on the local database server; null when it cannot.
_vqm_db_handle_t* open_properties_db();
// Appends the properties of "propertiesDCTbl" matching `where` to `out`; the query's result.
int query_properties(_vqm_db_handle_t* pdb, const char* where, property_rows& out);

}  // namespace aim_parser
