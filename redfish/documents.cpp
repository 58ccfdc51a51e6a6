// The service root and the documents that describe the service: $metadata (CSDL), the OData
// service document, the JsonSchemas collection (one JsonSchemaFile per type the service
// sends, pointing at DMTF's publication or at the service's own OEM schema) and the OEM schema
// files themselves.
#include <set>

#include "redfish/resources.h"

namespace redfish {
namespace {

// (A function, not a constant: kRoot is another file's constant, made in its own time.)
std::string schemas_uri() { return kRoot + "/JsonSchemas"; }

// The JsonSchemaFile Id of a type: its JSON schema's name ("PCIeDevice.v1_9_0").
std::string schema_file_id(const schema_type& t) {
    return std::string(t.ns) + (*t.version ? std::string(".") + t.version : std::string());
}

response document(std::string text, const char* content_type) {
    response r;
    r.text = std::move(text);
    r.content_type = content_type;
    return r;
}

json service_root() {
    json j = resource(kRoot, kServiceRootType, "RootService", "Root Service");
    j["@odata.context"] = kRoot + "/$metadata#ServiceRoot.ServiceRoot";
    j["RedfishVersion"] = "1.13.0";
    j["Systems"] = link(kRoot + "/Systems");
    j["Chassis"] = link(kRoot + "/Chassis");
    j["Managers"] = link(kRoot + "/Managers");
    j["UpdateService"] = link(kRoot + "/UpdateService");
    j["SessionService"] = link(kRoot + "/SessionService");
    j["AccountService"] = link(kRoot + "/AccountService");
    j["JsonSchemas"] = link(schemas_uri());
    j["Links"] = json{{"Sessions", link(kRoot + "/SessionService/Sessions")}};
    return j;
}

std::string metadata() {
    std::string out =
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
        "<edmx:Edmx xmlns:edmx=\"http://docs.oasis-open.org/odata/ns/edmx\" Version=\"4.0\">\n";
    for (const schema_type* t : dmtf_types()) {
        out += std::string("  <edmx:Reference Uri=\"http://redfish.dmtf.org/schemas/v1/") + t->ns +
               "_v1.xml\">\n";
        out += std::string("    <edmx:Include Namespace=\"") + t->ns + "\"/>\n";
        if (*t->version)
            out += std::string("    <edmx:Include Namespace=\"") + t->ns + "." + t->version + "\"/>\n";
        out += "  </edmx:Reference>\n";
    }
    out += "  <edmx:Reference Uri=\"" + oem_csdl_uri() + "\">\n";
    out += std::string("    <edmx:Include Namespace=\"") + kOemNamespace + "\"/>\n";
    out += std::string("    <edmx:Include Namespace=\"") + kOemNamespace + "." + kOemVersion + "\"/>\n";
    out += "  </edmx:Reference>\n";
    out += std::string(
               "  <edmx:DataServices>\n"
               "    <Schema xmlns=\"http://docs.oasis-open.org/odata/ns/edm\" Namespace=\"Service\">\n"
               "      <EntityContainer Name=\"Service\" Extends=\"ServiceRoot.") +
           kServiceRootType.version +
           ".ServiceContainer\"/>\n"
           "    </Schema>\n"
           "  </edmx:DataServices>\n"
           "</edmx:Edmx>\n";
    return out;
}

json odata_document() {
    json value = json::array();
    value.push_back(json{{"name", "Service"}, {"kind", "Singleton"}, {"url", kRoot + "/"}});
    for (const char* name : {"Systems", "Chassis", "Managers", "UpdateService", "SessionService",
                             "AccountService", "JsonSchemas"})
        value.push_back(json{{"name", name}, {"kind", "Singleton"}, {"url", kRoot + "/" + name}});
    value.push_back(
        json{{"name", "Sessions"}, {"kind", "Singleton"}, {"url", kRoot + "/SessionService/Sessions"}});
    return json{{"@odata.context", kRoot + "/$metadata"}, {"value", value}};
}

json schema_file(const std::string& id, const std::string& schema, json location) {
    json j = resource(schemas_uri() + "/" + id, kJsonSchemaFileType, id, id + " schema file");
    j["Schema"] = schema;
    j["Languages"] = json::array({"en"});
    j["Languages@odata.count"] = 1;
    j["Location"] = json::array({location});
    j["Location@odata.count"] = 1;
    return j;
}

}  // namespace

std::string described_by(const std::string& odata_type) {
    // "#PCIeDevice.v1_9_0.PCIeDevice" -> its JsonSchemaFile, "PCIeDevice.v1_9_0".
    if (odata_type.size() < 2 || odata_type[0] != '#') return std::string();
    std::string t = odata_type.substr(1);
    size_t last = t.rfind('.');
    if (last == std::string::npos) return std::string();
    return schemas_uri() + "/" + t.substr(0, last);
}

void add_documents(const model&, routes& out) {
    out.push_back({"/redfish", [] { return found(json{{"v1", kRoot + "/"}}); }});
    out.push_back({kRoot, [] { return found(service_root()); }});
    out.push_back({kRoot + "/$metadata", [] { return document(metadata(), "application/xml"); }});
    out.push_back({kRoot + "/odata", [] { return found(odata_document()); }});

    std::vector<std::string> files;
    for (const schema_type* t : dmtf_types()) files.push_back(schemas_uri() + "/" + schema_file_id(*t));
    files.push_back(schemas_uri() + "/" + kOemNamespace + "." + kOemVersion);
    out.push_back({schemas_uri(), [files] {
                       return found(collection(schemas_uri(), collection_type("JsonSchemaFileCollection"),
                                               "JSON Schema File Collection", files));
                   }});
    for (const schema_type* t : dmtf_types()) {
        std::string id = schema_file_id(*t);
        out.push_back(
            {schemas_uri() + "/" + id, [t, id] {
                 std::string name = t->odata_type();
                 return found(schema_file(
                     id, name,
                     json{{"Language", "en"},
                          {"PublicationUri", "http://redfish.dmtf.org/schemas/v1/" + id + ".json"}}));
             }});
    }
    std::string oem_id = std::string(kOemNamespace) + "." + kOemVersion;
    out.push_back({schemas_uri() + "/" + oem_id, [oem_id] {
                       return found(schema_file(oem_id, "#" + oem_id,
                                                json{{"Language", "en"}, {"Uri", oem_json_schema_uri()}}));
                   }});
    out.push_back({oem_csdl_uri(), [] { return document(oem_csdl(), "application/xml"); }});
    out.push_back({oem_json_schema_uri(), [] { return document(oem_json_schema(), "application/json"); }});
}

}  // namespace redfish
