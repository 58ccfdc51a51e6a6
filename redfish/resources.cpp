// Building blocks of the Redfish resources (see redfish/resources.h).
#include "redfish/resources.h"

#include <ctype.h>
#include <stdio.h>

#include <algorithm>

namespace redfish {

std::string schema_type::odata_type() const {
    return std::string("#") + ns + (*version ? std::string(".") + version : std::string()) + "." + name;
}

const schema_type kServiceRootType{"ServiceRoot", "v1_1_0", "ServiceRoot"};
const schema_type kComputerSystemType{"ComputerSystem", "v1_2_0", "ComputerSystem"};
const schema_type kPCIeDeviceType{"PCIeDevice", "v1_9_0", "PCIeDevice", true};
const schema_type kPCIeFunctionType{"PCIeFunction", "v1_6_0", "PCIeFunction", true};
const schema_type kProcessorType{"Processor", "v1_7_0", "Processor", true};
const schema_type kStorageType{"Storage", "v1_0_0", "Storage"};
const schema_type kDriveType{"Drive", "v1_6_0", "Drive", true};
const schema_type kChassisType{"Chassis", "v1_10_0", "Chassis", true};
const schema_type kNetworkAdapterType{"NetworkAdapter", "v1_5_0", "NetworkAdapter", true};
const schema_type kPortType{"Port", "v1_4_0", "Port", true};
const schema_type kNetworkDeviceFunctionType{"NetworkDeviceFunction", "v1_5_0", "NetworkDeviceFunction",
                                             true};
const schema_type kSoftwareInventoryType{"SoftwareInventory", "v1_2_0", "SoftwareInventory", true};
const schema_type kUpdateServiceType{"UpdateService", "v1_0_0", "UpdateService"};
const schema_type kManagerType{"Manager", "v1_0_0", "Manager"};
const schema_type kSessionServiceType{"SessionService", "v1_0_0", "SessionService"};
const schema_type kSessionType{"Session", "v1_0_0", "Session"};
const schema_type kAccountServiceType{"AccountService", "v1_0_0", "AccountService"};
const schema_type kManagerAccountType{"ManagerAccount", "v1_0_0", "ManagerAccount"};
const schema_type kRoleType{"Role", "v1_2_0", "Role"};
const schema_type kMessageType{"Message", "v1_1_1", "Message"};
const schema_type kJsonSchemaFileType{"JsonSchemaFile", "v1_0_0", "JsonSchemaFile"};

bool has_odata_etag(const std::string& odata_type) {
    for (const schema_type* t : dmtf_types()) {
        if (t->etag && t->odata_type() == odata_type) return true;
    }
    return false;
}

const std::vector<const schema_type*>& dmtf_types() {
    static const schema_type collections[] = {
        {"ComputerSystemCollection", "", "ComputerSystemCollection"},
        {"PCIeDeviceCollection", "", "PCIeDeviceCollection"},
        {"PCIeFunctionCollection", "", "PCIeFunctionCollection"},
        {"ProcessorCollection", "", "ProcessorCollection"},
        {"StorageCollection", "", "StorageCollection"},
        {"ChassisCollection", "", "ChassisCollection"},
        {"NetworkAdapterCollection", "", "NetworkAdapterCollection"},
        {"PortCollection", "", "PortCollection"},
        {"NetworkDeviceFunctionCollection", "", "NetworkDeviceFunctionCollection"},
        {"SoftwareInventoryCollection", "", "SoftwareInventoryCollection"},
        {"ManagerCollection", "", "ManagerCollection"},
        {"SessionCollection", "", "SessionCollection"},
        {"ManagerAccountCollection", "", "ManagerAccountCollection"},
        {"RoleCollection", "", "RoleCollection"},
        {"JsonSchemaFileCollection", "", "JsonSchemaFileCollection"},
    };
    static const std::vector<const schema_type*> all = [] {
        std::vector<const schema_type*> out = {&kServiceRootType,
                                               &kComputerSystemType,
                                               &kPCIeDeviceType,
                                               &kPCIeFunctionType,
                                               &kProcessorType,
                                               &kStorageType,
                                               &kDriveType,
                                               &kChassisType,
                                               &kNetworkAdapterType,
                                               &kPortType,
                                               &kNetworkDeviceFunctionType,
                                               &kSoftwareInventoryType,
                                               &kUpdateServiceType,
                                               &kManagerType,
                                               &kSessionServiceType,
                                               &kSessionType,
                                               &kAccountServiceType,
                                               &kManagerAccountType,
                                               &kRoleType,
                                               &kMessageType,
                                               &kJsonSchemaFileType};
        for (const schema_type& c : collections) out.push_back(&c);
        return out;
    }();
    return all;
}

const schema_type& collection_type(const char* name) {
    for (const schema_type* t : dmtf_types()) {
        if (!*t->version && std::string(t->name) == name) return *t;
    }
    static const schema_type unknown{"Resource", "", "Resource"};
    return unknown;
}

json link(const std::string& uri) { return json{{"@odata.id", uri}}; }

json links(const std::vector<std::string>& uris) {
    json out = json::array();
    for (const auto& u : uris) out.push_back(link(u));
    return out;
}

json enabled() { return json{{"State", "Enabled"}}; }

json resource(const std::string& uri, const schema_type& type, const std::string& id,
              const std::string& name) {
    return json{{"@odata.id", uri}, {"@odata.type", type.odata_type()}, {"Id", id}, {"Name", name}};
}

json collection(const std::string& uri, const schema_type& type, const std::string& name,
                const std::vector<std::string>& members) {
    return json{{"@odata.id", uri},
                {"@odata.type", type.odata_type()},
                {"Name", name},
                {"Members", links(members)},
                {"Members@odata.count", members.size()}};
}

void put(json& j, const char* key, const std::optional<std::string>& v) {
    if (v) j[key] = *v;
}
void put(json& j, const char* key, const std::optional<int64_t>& v) {
    if (v) j[key] = *v;
}
void put(json& j, const char* key, json value) {
    if (!value.empty()) j[key] = std::move(value);
}

std::string hex(int64_t v, int digits) {
    char buf[32];
    snprintf(buf, sizeof buf, "0x%0*llX", digits, static_cast<unsigned long long>(v) & 0xFFFFFFFFull);
    return buf;
}

bool all_hex(const std::string& s) {
    return !s.empty() &&
           std::all_of(s.begin(), s.end(), [](char c) { return isxdigit(static_cast<unsigned char>(c)); });
}

std::optional<std::string> mac(const std::optional<std::string>& v) {
    if (!v) return std::nullopt;
    std::string digits;
    for (char c : *v) {
        if (c == ':' || c == '-' || c == '.') continue;
        digits += static_cast<char>(toupper(static_cast<unsigned char>(c)));
    }
    if (digits.size() != 12 || !all_hex(digits)) return std::nullopt;
    std::string out;
    for (size_t i = 0; i < 12; i += 2) out += (i ? ":" : "") + digits.substr(i, 2);
    return out;
}

std::optional<std::string> uuid(const std::optional<std::string>& v) {
    if (!v) return std::nullopt;
    std::string s = v->compare(0, 4, "GPU-") == 0 ? v->substr(4) : *v;
    if (s.size() != 36) return std::nullopt;
    for (size_t i = 0; i < s.size(); ++i) {
        bool dash = i == 8 || i == 13 || i == 18 || i == 23;
        if (dash ? s[i] != '-' : !isxdigit(static_cast<unsigned char>(s[i]))) return std::nullopt;
    }
    return s;
}

std::optional<std::string> release_date(const std::optional<std::string>& v) {
    if (!v) return std::nullopt;
    unsigned y = 0, m = 0, d = 0;
    char tail = 0;
    if (sscanf(v->c_str(), "%4u-%2u-%2u%c", &y, &m, &d, &tail) != 3 &&
        sscanf(v->c_str(), "%2u/%2u/%4u%c", &m, &d, &y, &tail) != 3)
        return std::nullopt;
    if (y < 1970 || m < 1 || m > 12 || d < 1 || d > 31) return std::nullopt;
    char buf[32];
    snprintf(buf, sizeof buf, "%04u-%02u-%02uT00:00:00Z", y, m, d);
    return std::string(buf);
}

std::optional<std::string> pcie_type(const std::optional<int64_t>& gen) {
    static const char* const generations[] = {"Gen1", "Gen2", "Gen3", "Gen4", "Gen5", "Gen6"};
    if (!gen || *gen < 1 || *gen > 6) return std::nullopt;
    return std::string(generations[*gen - 1]);
}

std::optional<std::string> device_class(int64_t class_code) {
    switch ((class_code >> 16) & 0xFF) {
        case 0x01:
            return std::string("MassStorageController");
        case 0x02:
            return std::string("NetworkController");
        case 0x03:
            return std::string("DisplayController");
        case 0x04:
            return std::string("MultimediaController");
        case 0x06:
            return std::string("Bridge");
        case 0x0C:
            return std::string("SerialBusController");
        case 0x12:
            return std::string("ProcessingAccelerators");
        default:
            return std::nullopt;
    }
}

json location(const std::optional<std::string>& label, const std::optional<int64_t>& ordinal,
              const char* type) {
    json part = json::object();
    put(part, "ServiceLabel", label);
    if (ordinal) part["LocationOrdinalValue"] = *ordinal;
    if (!part.empty() && type) part["LocationType"] = type;
    json out = json::object();
    put(out, "PartLocation", part);
    return out;
}

response found(json body) { return response{200, std::move(body)}; }

}  // namespace redfish
