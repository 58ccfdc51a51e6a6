// The controller itself.
#include "redfish/resources.h"

namespace redfish {

void add_managers(const model&, routes& out) {
    out.push_back({kRoot + "/Managers", [] {
                       return found(collection(kRoot + "/Managers", collection_type("ManagerCollection"),
                                               "Manager Collection", {kManagerUri}));
                   }});
    out.push_back({kManagerUri, [] {
                       json j = resource(kManagerUri, kManagerType, "bmc", "Baseboard management controller");
                       j["ManagerType"] = "BMC";
                       j["Status"] = enabled();
                       j["Links"] = json{{"ManagerForServers", links({kSystem})},
                                         {"ManagerForChassis", links({kChassisUri})}};
                       return found(j);
                   }});
}

}  // namespace redfish
