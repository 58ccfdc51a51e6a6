// The update service and its firmware inventory: one entry per "Firmwares" and
// "PldmDeviceFirmware" row, related to its device and the device's GPUs.
#include "redfish/resources.h"

namespace redfish {
namespace {

json firmware(const model::firmware& fw) {
    const rec& r = fw.row;
    std::string name = r.text(fw.pldm ? "DeviceName" : "FirmwareName").value_or("Firmware");
    if (fw.pldm) name += " (PLDM)";
    json j = resource(fw.uri, kSoftwareInventoryType, fw.id, name);
    put(j, "Description", r.text("Description"));
    put(j, "Version", r.text("VersionString"));
    put(j, "Manufacturer", r.text("Manufacture"));
    put(j, "SoftwareId", r.text("SoftwareID"));
    put(j, "ReleaseDate", release_date(r.text("ReleaseDate")));
    if (fw.pldm) {
        if (auto u = r.number("UpdateSupport")) j["Updateable"] = *u != 0;
    }
    std::vector<std::string> related;
    if (fw.dev) {
        related.push_back(fw.dev->uri);
        related.insert(related.end(), fw.dev->processors.begin(), fw.dev->processors.end());
    }
    if (!related.empty()) {
        j["RelatedItem"] = links(related);
        j["RelatedItem@odata.count"] = related.size();
    }
    j["Status"] = enabled();
    put(j, "Oem", oem("SoftwareInventory", json{{fw.pldm ? "PldmDeviceFirmware" : "Firmwares", row_of(r)}}));
    return j;
}

}  // namespace

void add_firmware(const model& m, routes& out) {
    const std::string service = kRoot + "/UpdateService", inventory = service + "/FirmwareInventory";
    out.push_back({service, [service, inventory] {
                       json j = resource(service, kUpdateServiceType, "UpdateService", "Update Service");
                       j["ServiceEnabled"] = false;
                       j["FirmwareInventory"] = link(inventory);
                       j["Actions"] = json::object();
                       j["Status"] = enabled();
                       return found(j);
                   }});
    std::vector<std::string> members;
    for (const auto& fw : m.firmwares) members.push_back(fw.uri);
    out.push_back({inventory, [inventory, members] {
                       return found(collection(inventory, collection_type("SoftwareInventoryCollection"),
                                               "Firmware Inventory Collection", members));
                   }});
    for (const auto& fw : m.firmwares) out.push_back({fw.uri, [&fw] { return found(firmware(fw)); }});
}

}  // namespace redfish
