// Storage controllers (one per controller with "AimDisks" rows) and their drives. The drives
// are the chassis's (/redfish/v1/Chassis/chassis/Drives/{drive}); the storage controller and
// the chassis link them.
#include "redfish/resources.h"

namespace redfish {
namespace {

json drive(const model::storage& s, const model::drive& d) {
    const rec& r = d.row;
    auto bay = r.text("BayNo");
    json j = resource(d.uri, kDriveType, d.id, bay ? "Drive in bay " + *bay : "Drive");
    auto media = r.number("MediaTypeId");
    auto type = r.number("DriveTypeId");
    if (!media) media = type == 4 ? std::optional<int64_t>(2) : type;
    if (media == 1) j["MediaType"] = "HDD";
    if (media == 2) j["MediaType"] = "SSD";
    if (type == 4) j["Protocol"] = "NVMe";
    if (auto c = r.number("Capacity")) {
        if (*c >= 0) j["CapacityBytes"] = *c;
    }
    put(j, "SerialNumber", r.text("SerialNo"));
    put(j, "Model", r.text("Model"));
    put(j, "Manufacturer", r.text("Manufacturer") ? r.text("Manufacturer") : r.text("Manufacture"));
    put(j, "PartNumber", r.text("PartNo"));
    put(j, "SKU", r.text("FruNo"));
    put(j, "Revision", r.text("FwVersion"));
    if (auto id = r.text("UUID")) {
        const char* format = uuid(id) ? "UUID" : all_hex(*id) && id->size() == 16 ? "NAA" : nullptr;
        if (format)
            j["Identifiers"] = json::array({json{{"DurableName", *id}, {"DurableNameFormat", format}}});
    }
    put(j, "PhysicalLocation", location(bay, r.number("LocationId"), "Bay"));
    auto presence = r.number("Presence");
    if (presence) j["Status"] = *presence ? enabled() : json{{"State", "Absent"}};
    json l = json{{"Chassis", link(kChassisUri)}};
    if (auto f = s.dev ? s.dev->function_link(r.number("FunctionNo")) : std::nullopt)
        l["PCIeFunctions"] = links({*f});
    j["Links"] = l;
    put(j, "Oem", oem("Drive", json{{"AimDisks", row_of(r)}}));
    return j;
}

json storage(const model::storage& s) {
    std::optional<std::string> owner = s.dev ? s.dev->name() : std::nullopt;
    json j = resource(s.uri, kStorageType, s.id, owner ? "Storage of " + *owner : "Storage " + s.id);
    std::vector<std::string> drives;
    for (const auto& d : s.drives) drives.push_back(d.uri);
    j["Drives"] = links(drives);
    j["Drives@odata.count"] = drives.size();
    j["Status"] = enabled();
    if (s.dev) j["Links"] = json{{"Enclosures", links({kChassisUri})}};
    return j;
}

}  // namespace

void add_storage(const model& m, routes& out) {
    std::vector<std::string> members;
    for (const auto& s : m.storages) members.push_back(s.uri);
    out.push_back({kSystem + "/Storage", [members] {
                       return found(collection(kSystem + "/Storage", collection_type("StorageCollection"),
                                               "Storage Collection", members));
                   }});
    for (const auto& s : m.storages) {
        out.push_back({s.uri, [&s] { return found(storage(s)); }});
        for (const auto& d : s.drives) out.push_back({d.uri, [&s, &d] { return found(drive(s, d)); }});
    }
}

}  // namespace redfish
