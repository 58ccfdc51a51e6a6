// The inventory database as a read-only Redfish service: every resource that the
// controller's Redfish service shows of the PCI adapters, built from one snapshot of the
// tables (redfish/snapshot.h) with nlohmann-json.
//
// Resources (all below /redfish/v1):
//   $metadata, odata                    the service's CSDL document and OData service document
//   JsonSchemas/{type}                  one JsonSchemaFile per type sent (DMTF's publication, or
//                                       schemas/AimInventory.v1_0_0.json, the OEM schema, whose
//                                       CSDL is schemas/AimInventory_v1.xml)
//   Systems/system                      the host, linking its PCIe devices, Processors, Storage
//     Processors/{gpu}                  one per GPU chip ("PCIGPUChip"), or per "PCIGPU" row; a
//                                       GPU without AIM data from its "PCIs" and "VPDs" rows
//     Storage/{controller}              one per controller with "AimDisks" rows
//   Chassis/chassis                     with links to the PCIe devices and drives
//     PCIeDevices/{device}              one per adapter: a PCI device with a "PCIAdapter" row
//       PCIeFunctions/{function}        one per present function ("PCIs")
//     Drives/{drive}                    one per "AimDisks" row, linked by its controller
//     NetworkAdapters/{device}          one per adapter with "PCINetwork" or port rows
//       Ports/{port}                    "PCIPhysicalPort" (+ "PCIPhysicalPortStat")
//       NetworkDeviceFunctions/{port}   "PCILogicalPort"
//   UpdateService/FirmwareInventory/{id} one per "Firmwares" and "PldmDeviceFirmware" row
//   Managers/bmc                        the controller itself
//   SessionService/Sessions/{id}        the sessions, AccountService/Accounts/{user} the accounts
//                                       and AccountService/Roles/{role} the predefined roles:
//                                       without a users file, no account and no session; with
//                                       one, answered by redfish/protocol.cpp
// A device's Id is its PCI address of function 0 ("0000_3B_00": segment, bus, device in
// hexadecimal). Values that the database does not hold, and "N/A" and empty texts, are left
// out. What the Redfish schemas have no property for (the AIM file's card description, the
// database's keys) stands under Oem.AIM: the resource's table rows, whole, by table name,
// typed by the service's OEM schema ("#AimInventory.v1_0_0.PCIeDevice", ...).
//
// Values the tables hold as codes: "MaxPCIeType" 1 to 6 is the PCIe generation; a drive's
// "MediaTypeId" 1 HDD, 2 SSD, "DriveTypeId" 1 HDD, 2 SSD, 4 NVMe SSD, "Presence" 1 present;
// a port's "LinkStatus" 1 up, 2 down (0: not reported yet) and "LinkSpeed" in Mbit/s (0:
// not reported).
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "redfish/snapshot.h"

namespace redfish {

using json = nlohmann::ordered_json;

// One answer: a JSON body, or a document sent as it is (`text`, when `content_type` is set:
// $metadata and the OEM schema files).
struct response {
    response() = default;
    response(int s, json b) : status(s), body(std::move(b)) {}
    int status = 200;
    json body;
    std::string text;
    const char* content_type = nullptr;
};

// The Redfish error object of a status, with the Base message registry's message:
// 400 GeneralError, 401 NoValidSession, 403 InsufficientPrivilege, 404 ResourceMissingAtURI (the
// URI in `detail`), 405 OperationNotAllowed, 412 HeaderInvalid (the header in `detail`), 413
// PayloadTooLarge, 500 InternalError, 503 SessionLimitExceeded; other statuses GeneralError.
// `message_id` names another of the registry's messages (MalformedJSON, PropertyMissing with
// the property in `detail`). `detail` also becomes the error's message where the registry's has
// no argument for it.
json error_body(int status, const std::string& detail, const char* message_id = nullptr);

// JSON text of a body: invalid UTF-8 in texts from the database becomes U+FFFD, so that
// any bytes come out as valid JSON. `indent` < 0: compact.
std::string to_text(const json& body, int indent = 2);

class service {
public:
    explicit service(const snapshot& db);
    ~service();
    service(const service&) = delete;
    service& operator=(const service&) = delete;

    // The resource at `uri` (a path; "/redfish/v1/" and "/redfish/v1" are the same), or 404.
    response get(const std::string& uri) const;
    // Every resource's URI, parents first.
    std::vector<std::string> uris() const;

private:
    struct impl;
    impl* p_;
};

// The URI of the JsonSchemaFile that describes an @odata.type ("" for none), for the Link
// header of an answer.
std::string described_by(const std::string& odata_type);
// True when the schema version of an @odata.type has "@odata.etag" (the answer then carries
// its ETag in the body too).
bool has_odata_etag(const std::string& odata_type);

}  // namespace redfish
