// What every resource family of the Redfish service uses (internal to redfish/): the types it
// sends, the building blocks of a resource, the Oem.AIM objects and the table of routes that
// service.cpp serves. One file per family adds its resources:
//   documents.cpp  the service root, $metadata, the OData service document, JsonSchemas and the
//                  OEM schema files
//   systems.cpp    the computer system, its PCIe devices (below the chassis) and functions
//   processors.cpp the GPUs
//   storage.cpp    storage controllers and their drives (below the chassis)
//   chassis.cpp    the chassis, network adapters, ports and network device functions
//   firmware.cpp   the update service and the firmware inventory
//   managers.cpp   the controller
//   accounts.cpp   the account service (roles, accounts) and the session service
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "redfish/access.h"
#include "redfish/model.h"
#include "redfish/service.h"

namespace redfish {

// A Redfish type the service sends: namespace, version ("" for an unversioned collection) and
// name, as in "#PCIeDevice.v1_9_0.PCIeDevice".
struct schema_type {
    const char* ns;
    const char* version;
    const char* name;
    bool etag = false;  // the schema version has "@odata.etag"
    std::string odata_type() const;
};

// Each type at the first schema version that defines every property the service sends.
extern const schema_type kServiceRootType, kComputerSystemType, kPCIeDeviceType, kPCIeFunctionType,
    kProcessorType, kStorageType, kDriveType, kChassisType, kNetworkAdapterType, kPortType,
    kNetworkDeviceFunctionType, kSoftwareInventoryType, kUpdateServiceType, kManagerType, kSessionServiceType,
    kSessionType, kAccountServiceType, kManagerAccountType, kRoleType, kMessageType, kJsonSchemaFileType;
// Every DMTF type the service may send, collections included.
const std::vector<const schema_type*>& dmtf_types();
// The collection type of that name ("PCIeDeviceCollection").
const schema_type& collection_type(const char* name);

// The service's own OEM schema: namespace, version, and where the service serves its files.
extern const char* const kOemNamespace;  // "AimInventory"
extern const char* const kOemVersion;    // "v1_0_0"
std::string oem_csdl_uri();              // /redfish/v1/schemas/AimInventory_v1.xml
std::string oem_json_schema_uri();       // /redfish/v1/schemas/AimInventory.v1_0_0.json
// The OEM schema as CSDL and as JSON schema: a type per table (its columns, typed as the
// inventory schema declares them) and a type per resource kind's Oem.AIM object.
std::string oem_csdl();
std::string oem_json_schema();

// ---- Building blocks ---------------------------------------------------------------------------

json link(const std::string& uri);
json links(const std::vector<std::string>& uris);
json enabled();
// A resource's opening members, and a whole collection.
json resource(const std::string& uri, const schema_type& type, const std::string& id,
              const std::string& name);
json collection(const std::string& uri, const schema_type& type, const std::string& name,
                const std::vector<std::string>& members);
void put(json& j, const char* key, const std::optional<std::string>& v);
void put(json& j, const char* key, const std::optional<int64_t>& v);
// Adds `value` under `key` when it is not an empty object or array.
void put(json& j, const char* key, json value);

std::string hex(int64_t v, int digits);
bool all_hex(const std::string& s);
// A MAC address as Redfish writes it ("00:0A:F7:6B:2C:40") from twelve hexadecimal digits.
std::optional<std::string> mac(const std::optional<std::string>& v);
// A UUID in its 8-4-4-4-12 form (NVIDIA writes a GPU's as "GPU-" and that form).
std::optional<std::string> uuid(const std::optional<std::string>& v);
// A release date as Redfish's date-time: "YYYY-MM-DD" or "MM/DD/YYYY" at midnight UTC.
std::optional<std::string> release_date(const std::optional<std::string>& v);
// "MaxPCIeType" 1 to 6 as "Gen1" to "Gen6".
std::optional<std::string> pcie_type(const std::optional<int64_t>& gen);
// The PCI device class of a class code's base class.
std::optional<std::string> device_class(int64_t class_code);
json location(const std::optional<std::string>& label, const std::optional<int64_t>& ordinal,
              const char* type);

// One table row as Oem.AIM carries it: every column that holds a value (but "_id" and empty
// texts), as the
// inventory schema types the column (a value of the other type is left out, so that what is
// sent always matches the OEM schema).
json row_of(const rec& r);
json rows_of(const std::vector<rec>& rows);
// The Oem member of a resource of `kind` ("PCIeDevice", ...) whose Oem.AIM holds `members`
// (table name to a row or an array of rows); nothing when `members` is empty.
json oem(const char* kind, json members);

// ---- Routes ------------------------------------------------------------------------------------

struct route {
    std::string uri;
    std::function<response()> render;
};
using routes = std::vector<route>;
response found(json body);

void add_documents(const model& m, routes& out);
void add_systems(const model& m, routes& out);
void add_processors(const model& m, routes& out);
void add_storage(const model& m, routes& out);
void add_chassis(const model& m, routes& out);
void add_firmware(const model& m, routes& out);
void add_managers(const model& m, routes& out);
void add_accounts(const model& m, routes& out);

// ---- Accounts and sessions ---------------------------------------------------------------------
// The resources of the account and session services, as add_accounts() serves them without a
// users file (`access` null) and redfish/protocol.cpp with one.

extern const char* const kSessionServiceUri;  // /redfish/v1/SessionService
extern const char* const kSessionsUri;        // /redfish/v1/SessionService/Sessions
extern const char* const kAccountServiceUri;  // /redfish/v1/AccountService
extern const char* const kAccountsUri;        // /redfish/v1/AccountService/Accounts
std::string session_uri(const session& s);
std::string account_uri(const account& a);
json session_service(const access_control* access);
json session_collection(const std::vector<session>& members);
json session_resource(const session& s);
json account_service(const access_control* access);
json account_collection(const access_control* access);
json manager_account(const account& a, bool locked);

}  // namespace redfish
