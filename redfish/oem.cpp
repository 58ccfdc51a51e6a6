// The Oem.AIM objects and the service's OEM schema (see redfish/resources.h).
//
// Oem.AIM of a resource holds the table rows it was made from, whole, by table name:
//   {"@odata.type": "#AimInventory.v1_0_0.PCIeDevice", "PCIAdapter": [row, ...], ...}
// The OEM schema has one complex type per table (a property per column, typed as the
// inventory schema declares it: INTEGER as Edm.Int64, TEXT as Edm.String) and one per resource
// kind, whose members are those tables. A column without a declared type takes either. Both come from the
// inventory schema compiled into the service, so that they name exactly the columns a database made with it
// holds.
#include <sqlite3.h>

#include <map>
#include <utility>

#include "redfish/resources.h"
#include "redfish/snapshot.h"
#include "host/inventory_schema.h"

namespace redfish {

const char* const kOemNamespace = "AimInventory";
const char* const kOemVersion = "v1_0_0";

std::string oem_csdl_uri() { return kRoot + "/schemas/" + kOemNamespace + "_v1.xml"; }
std::string oem_json_schema_uri() {
    return kRoot + "/schemas/" + kOemNamespace + "." + kOemVersion + ".json";
}

namespace {

// The kinds of resource that carry Oem.AIM, and the tables of each: (table, several rows).
struct oem_kind {
    const char* name;
    std::vector<std::pair<const char*, bool>> tables;
};
const std::vector<oem_kind>& oem_kinds() {
    static const std::vector<oem_kind> kinds = {
        {"PCIeDevice", {{"PCIAdapter", true}, {"PCIMisc", true}, {"VPDs", true}}},
        {"PCIeFunction", {{"PCIs", false}}},
        {"Processor", {{"PCIGPU", false}, {"PCIGPUChip", false}}},
        {"Drive", {{"AimDisks", false}}},
        {"NetworkAdapter", {{"PCINetwork", true}}},
        {"Port", {{"PCIPhysicalPort", false}, {"PCIPhysicalPortStat", false}}},
        {"NetworkDeviceFunction", {{"PCILogicalPort", false}}},
        {"SoftwareInventory", {{"Firmwares", false}, {"PldmDeviceFirmware", false}}},
    };
    return kinds;
}

bool integer_type(const std::string& declared) { return declared.find("INT") != std::string::npos; }

// A column's type in the OEM schema: INTEGER a 64-bit integer, TEXT a string, a column without
// a declared type (a drive's bay: a number or a name) either.
const char* csdl_type(const std::string& declared) {
    return integer_type(declared) ? "Edm.Int64" : declared.empty() ? "Edm.PrimitiveType" : "Edm.String";
}
json json_schema_type(const std::string& declared) {
    if (integer_type(declared)) return json::array({"integer", "null"});
    if (declared.empty()) return json::array({"integer", "string", "null"});
    return json::array({"string", "null"});
}

// Every table of the inventory schema with its columns and their declared types (but "_id").
const std::map<std::string, std::vector<std::pair<std::string, std::string>>>& schema_columns() {
    static const auto columns = [] {
        std::map<std::string, std::vector<std::pair<std::string, std::string>>> out;
        sqlite3* db = nullptr;
        if (sqlite3_open(":memory:", &db) == SQLITE_OK &&
            sqlite3_exec(db, host::inventory_schema_sql, nullptr, nullptr, nullptr) == SQLITE_OK) {
            for (const char* const* name = snapshot::table_names; *name; ++name) {
                sqlite3_stmt* stmt = nullptr;
                std::string sql = std::string("PRAGMA table_info(\"") + *name + "\")";
                if (sqlite3_prepare_v2(db, sql.c_str(), -1, &stmt, nullptr) != SQLITE_OK) continue;
                auto& list = out[*name];
                while (sqlite3_step(stmt) == SQLITE_ROW) {
                    std::string column = reinterpret_cast<const char*>(sqlite3_column_text(stmt, 1));
                    const unsigned char* type = sqlite3_column_text(stmt, 2);
                    if (column != "_id")
                        list.emplace_back(column, type ? reinterpret_cast<const char*>(type) : "");
                }
                sqlite3_finalize(stmt);
            }
        }
        sqlite3_close(db);
        return out;
    }();
    return columns;
}

std::string qualified(const std::string& name) {
    return std::string(kOemNamespace) + "." + kOemVersion + "." + name;
}

std::string xml_escape(const std::string& s) {
    std::string out;
    for (char c : s) {
        switch (c) {
            case '&':
                out += "&amp;";
                break;
            case '<':
                out += "&lt;";
                break;
            case '>':
                out += "&gt;";
                break;
            case '"':
                out += "&quot;";
                break;
            default:
                out += c;
        }
    }
    return out;
}

const char* const kReadOnly =
    "          <Annotation Term=\"OData.Permissions\" EnumMember=\"OData.Permission/Read\"/>\n";

std::string description(const std::string& text, const char* indent) {
    return std::string(indent) + "<Annotation Term=\"OData.Description\" String=\"" + xml_escape(text) +
           "\"/>\n" + indent + "<Annotation Term=\"OData.LongDescription\" String=\"" + xml_escape(text) +
           "\"/>\n";
}

}  // namespace

json row_of(const rec& r) {
    json out = json::object();
    for (const auto& kv : r.values()) {
        const cell& c = *kv.second;
        if (kv.first == "_id" || (c.kind == cell::text && c.s.empty()))
            continue;  // an empty text says nothing
        const std::string& declared = r.declared_type(kv.first);
        if (integer_type(declared)) {
            if (c.kind == cell::integer) out[kv.first] = c.i;
        } else if (!declared.empty()) {
            if (c.kind == cell::text) out[kv.first] = c.s;
            if (c.kind == cell::integer) out[kv.first] = std::to_string(c.i);
        } else if (c.kind == cell::integer || c.kind == cell::text) {
            // A column the schema does not type: as stored.
            if (c.kind == cell::integer) out[kv.first] = c.i;
            if (c.kind == cell::text) out[kv.first] = c.s;
        }
    }
    return out;
}

json rows_of(const std::vector<rec>& rows) {
    json out = json::array();
    for (const rec& r : rows) out.push_back(row_of(r));
    return out;
}

json oem(const char* kind, json members) {
    if (members.empty()) return json();
    json aim = json{{"@odata.type", "#" + qualified(kind)}};
    for (auto& kv : members.items()) aim[kv.key()] = std::move(kv.value());
    return json{{"AIM", std::move(aim)}};
}

std::string oem_csdl() {
    std::string out =
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
        "<!-- The inventory rows that aimctl's Redfish service shows under Oem.AIM. -->\n"
        "<edmx:Edmx xmlns:edmx=\"http://docs.oasis-open.org/odata/ns/edmx\" Version=\"4.0\">\n"
        "  <edmx:Reference "
        "Uri=\"http://docs.oasis-open.org/odata/odata/v4.0/errata03/csd01/complete/vocabularies/"
        "Org.OData.Core.V1.xml\">\n"
        "    <edmx:Include Namespace=\"Org.OData.Core.V1\" Alias=\"OData\"/>\n"
        "  </edmx:Reference>\n"
        "  <edmx:Reference Uri=\"http://redfish.dmtf.org/schemas/v1/RedfishExtensions_v1.xml\">\n"
        "    <edmx:Include Namespace=\"RedfishExtensions.v1_0_0\" Alias=\"Redfish\"/>\n"
        "  </edmx:Reference>\n"
        "  <edmx:Reference Uri=\"http://redfish.dmtf.org/schemas/v1/Resource_v1.xml\">\n"
        "    <edmx:Include Namespace=\"Resource\"/>\n"
        "  </edmx:Reference>\n"
        "  <edmx:DataServices>\n";
    const std::string owner =
        "      <Annotation Term=\"Redfish.OwningEntity\" String=\"vqmdb_aim_parser\"/>\n";
    out += "    <Schema xmlns=\"http://docs.oasis-open.org/odata/ns/edm\" Namespace=\"" +
           std::string(kOemNamespace) + "\">\n" + owner + "    </Schema>\n";
    out += "    <Schema xmlns=\"http://docs.oasis-open.org/odata/ns/edm\" Namespace=\"" +
           std::string(kOemNamespace) + "." + kOemVersion + "\">\n" + owner +
           "      <Annotation Term=\"Redfish.Release\" String=\"1.0\"/>\n";
    for (const auto& table : schema_columns()) {
        out += "      <ComplexType Name=\"" + table.first + "\">\n";
        out += "        <Annotation Term=\"OData.AdditionalProperties\" Bool=\"false\"/>\n";
        out += description("A row of the inventory table " + table.first + ", as the table holds it.",
                           "        ");
        for (const auto& column : table.second) {
            out += "        <Property Name=\"" + column.first + "\" Type=\"" + csdl_type(column.second) +
                   "\">\n" + kReadOnly +
                   description("The column " + column.first + " of " + table.first + ".", "          ") +
                   "        </Property>\n";
        }
        out += "      </ComplexType>\n";
    }
    for (const oem_kind& kind : oem_kinds()) {
        out +=
            "      <ComplexType Name=\"" + std::string(kind.name) + "\" BaseType=\"Resource.OemObject\">\n";
        out += "        <Annotation Term=\"OData.AdditionalProperties\" Bool=\"false\"/>\n";
        out += description(std::string("The inventory rows that a ") + kind.name + " resource is made from.",
                           "        ");
        for (const auto& t : kind.tables) {
            std::string type = qualified(t.first);
            out += "        <Property Name=\"" + std::string(t.first) + "\" Type=\"" +
                   (t.second ? "Collection(" + type + ")" : type) + "\">\n" + kReadOnly +
                   description(std::string("The rows of ") + t.first + ".", "          ") +
                   "        </Property>\n";
        }
        out += "      </ComplexType>\n";
    }
    out += "    </Schema>\n  </edmx:DataServices>\n</edmx:Edmx>\n";
    return out;
}

std::string oem_json_schema() {
    json defs = json::object();
    for (const auto& table : schema_columns()) {
        json props = json::object();
        for (const auto& column : table.second) {
            props[column.first] =
                json{{"description", "The column " + column.first + " of " + table.first + "."},
                     {"readonly", true},
                     {"type", json_schema_type(column.second)}};
        }
        defs[table.first] = json{{"additionalProperties", false},
                                 {"description", "A row of the inventory table " + table.first + "."},
                                 {"properties", props},
                                 {"type", "object"}};
    }
    for (const oem_kind& kind : oem_kinds()) {
        json props = json{{"@odata.type", json{{"type", "string"}, {"readonly", true}}}};
        for (const auto& t : kind.tables) {
            json ref = json{{"$ref", "#/definitions/" + std::string(t.first)}};
            props[t.first] = t.second ? json{{"items", ref}, {"type", "array"}, {"readonly", true}} : ref;
        }
        defs[kind.name] = json{{"additionalProperties", false},
                               {"description", std::string("The inventory rows that a ") + kind.name +
                                                   " resource is made from."},
                               {"properties", props},
                               {"type", "object"}};
    }
    json doc = json{{"$id", oem_json_schema_uri()},
                    {"$schema", "http://redfish.dmtf.org/schemas/v1/redfish-schema-v1.json"},
                    {"title", "#" + std::string(kOemNamespace) + "." + kOemVersion},
                    {"owningEntity", "vqmdb_aim_parser"},
                    {"release", "1.0"},
                    {"definitions", defs}};
    return to_text(doc);
}

}  // namespace redfish
