// The inventory database as a read-only Redfish service: every resource that the
// controller's Redfish service shows of the PCI adapters, built from one snapshot of the
// tables (redfish/snapshot.h) with nlohmann-json.
//
// Resources (all below /redfish/v1):
//   Systems/system                      the host, with its PCIe devices, Processors, Storage
//     PCIeDevices/{device}              one per adapter: a PCI device with a "PCIAdapter" row
//       PCIeFunctions/{function}        one per present function ("PCIs")
//     Processors/{gpu}                  one per GPU chip ("PCIGPUChip"), or per "PCIGPU" row; a
//                                       GPU without AIM data from its "PCIs" and "VPDs" rows
//     Storage/{controller}/Drives/{bay} one per controller with "AimDisks" rows, and its drives
//   Chassis/chassis                     with links to the PCIe devices and drives
//     NetworkAdapters/{device}          one per adapter with "PCINetwork" or port rows
//       Ports/{port}                    "PCIPhysicalPort" (+ "PCIPhysicalPortStat")
//       NetworkDeviceFunctions/{port}   "PCILogicalPort"
//   UpdateService/FirmwareInventory/{id} one per "Firmwares" and "PldmDeviceFirmware" row
//   Managers/bmc, SessionService        the controller itself (no session can be made)
// A device's Id is its PCI address of function 0 ("0000_3B_00": segment, bus, device in
// hexadecimal). Values that the database does not hold, and "N/A" and empty texts, are left
// out. What the Redfish schemas have no property for (the AIM file's card description, the
// database's keys) stands under Oem.AIM.
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

struct response {
    int status = 200;
    json body;
};

// The Redfish error object of a status: 404 (the URI), 405 (the method), 500 (the reason).
json error_body(int status, const std::string& detail);

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

    struct model;  // the tables grouped by adapter (redfish/service.cpp)

private:
    model* m_;
};

}  // namespace redfish
