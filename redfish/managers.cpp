// The controller itself and its session service (no session can be made: the service is
// read-only and has no accounts).
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
    const std::string sessions = kRoot + "/SessionService";
    out.push_back({sessions, [sessions] {
                       json j = resource(sessions, kSessionServiceType, "SessionService", "Session Service");
                       j["ServiceEnabled"] = false;
                       j["Status"] = enabled();
                       j["Sessions"] = link(sessions + "/Sessions");
                       return found(j);
                   }});
    out.push_back({sessions + "/Sessions", [sessions] {
                       return found(collection(sessions + "/Sessions", collection_type("SessionCollection"),
                                               "Session Collection", {}));
                   }});
}

}  // namespace redfish
