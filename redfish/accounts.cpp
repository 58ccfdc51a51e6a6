// The account service (the predefined roles, one read-only account per user of the users file)
// and the session service. Without a users file no one logs in: both services say they are
// not enabled and list no accounts and no sessions; with one, redfish/protocol.cpp answers
// them from the access control of the running server, with these same builders.
#include "redfish/access.h"
#include "redfish/resources.h"

namespace redfish {

// (Literals, not kRoot's sums: kRoot is another file's constant, made in its own time.)
const char* const kSessionServiceUri = "/redfish/v1/SessionService";
const char* const kSessionsUri = "/redfish/v1/SessionService/Sessions";
const char* const kAccountServiceUri = "/redfish/v1/AccountService";
const char* const kAccountsUri = "/redfish/v1/AccountService/Accounts";
const char* const kRolesUri = "/redfish/v1/AccountService/Roles";

namespace {

// The privileges of each predefined role, as Redfish's privilege registry gives them.
json privileges(role r) {
    switch (r) {
        case role::administrator:
            return json::array(
                {"Login", "ConfigureManager", "ConfigureUsers", "ConfigureSelf", "ConfigureComponents"});
        case role::operator_role:
            return json::array({"Login", "ConfigureSelf", "ConfigureComponents"});
        case role::read_only:
            break;
    }
    return json::array({"Login", "ConfigureSelf"});
}

const role kRoles[] = {role::administrator, role::operator_role, role::read_only};

json role_resource(role r) {
    std::string id = role_name(r);
    json j = resource(std::string(kRolesUri) + "/" + id, kRoleType, id, id + " User Role");
    j["RoleId"] = id;
    j["IsPredefined"] = true;
    j["AssignedPrivileges"] = privileges(r);
    j["OemPrivileges"] = json::array();
    return j;
}

}  // namespace

std::string session_uri(const session& s) { return std::string(kSessionsUri) + "/" + s.id; }

std::string account_uri(const account& a) { return std::string(kAccountsUri) + "/" + a.name; }

json session_service(const access_control* access) {
    json j = resource(kSessionServiceUri, kSessionServiceType, "SessionService", "Session Service");
    j["ServiceEnabled"] = access != nullptr;
    if (access) j["SessionTimeout"] = access->options().session_timeout;
    j["Status"] = enabled();
    j["Sessions"] = link(kSessionsUri);
    return j;
}

json session_collection(const std::vector<session>& members) {
    std::vector<std::string> uris;
    for (const session& s : members) uris.push_back(session_uri(s));
    return collection(kSessionsUri, collection_type("SessionCollection"), "Session Collection", uris);
}

json session_resource(const session& s) {
    json j = resource(session_uri(s), kSessionType, s.id, "User Session");
    j["UserName"] = s.user;
    return j;
}

json account_service(const access_control* access) {
    json j = resource(kAccountServiceUri, kAccountServiceType, "AccountService", "Account Service");
    j["ServiceEnabled"] = access != nullptr;
    j["Status"] = enabled();
    if (access) {
        const access_options& o = access->options();
        j["AccountLockoutThreshold"] = o.lockout_threshold;
        j["AccountLockoutDuration"] = o.lockout_duration;
        j["AccountLockoutCounterResetAfter"] = o.lockout_reset_after;
    }
    j["Accounts"] = link(kAccountsUri);
    j["Roles"] = link(kRolesUri);
    return j;
}

json account_collection(const access_control* access) {
    std::vector<std::string> uris;
    if (access) {
        for (const account& a : access->accounts().accounts()) uris.push_back(account_uri(a));
    }
    return collection(kAccountsUri, collection_type("ManagerAccountCollection"), "Accounts Collection", uris);
}

json manager_account(const account& a, bool locked) {
    json j = resource(account_uri(a), kManagerAccountType, a.name, "User Account");
    j["UserName"] = a.name;
    j["RoleId"] = role_name(a.role);
    j["Enabled"] = true;
    j["Locked"] = locked;
    j["Links"] = json{{"Role", link(std::string(kRolesUri) + "/" + role_name(a.role))}};
    return j;
}

void add_accounts(const model&, routes& out) {
    out.push_back({kSessionServiceUri, [] { return found(session_service(nullptr)); }});
    out.push_back({kSessionsUri, [] { return found(session_collection({})); }});
    out.push_back({kAccountServiceUri, [] { return found(account_service(nullptr)); }});
    out.push_back({kAccountsUri, [] { return found(account_collection(nullptr)); }});
    std::vector<std::string> roles;
    for (role r : kRoles) roles.push_back(std::string(kRolesUri) + "/" + role_name(r));
    out.push_back({kRolesUri, [roles] {
                       return found(collection(kRolesUri, collection_type("RoleCollection"),
                                               "Roles Collection", roles));
                   }});
    for (role r : kRoles)
        out.push_back({std::string(kRolesUri) + "/" + role_name(r), [r] { return found(role_resource(r)); }});
}

}  // namespace redfish
