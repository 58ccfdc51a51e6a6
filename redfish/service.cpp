// The Redfish resources of the inventory database (see redfish/service.h): the model, and the
// table of routes that the resource families fill (redfish/resources.h).
#include "redfish/service.h"

#include <string.h>

#include <unordered_map>

#include "redfish/model.h"
#include "redfish/resources.h"

namespace redfish {
namespace {

const char* const kBaseRegistry = "Base.1.13.0.";

}  // namespace

struct service::impl {
    explicit impl(const snapshot& db) : m(db) {
        add_documents(m, routes);
        add_systems(m, routes);
        add_processors(m, routes);
        add_storage(m, routes);
        add_chassis(m, routes);
        add_firmware(m, routes);
        add_managers(m, routes);
        add_accounts(m, routes);
        for (size_t i = 0; i < routes.size(); ++i) index.emplace(routes[i].uri, i);
    }
    model m;
    std::vector<route> routes;  // each renderer refers to m
    std::unordered_map<std::string, size_t> index;
};

service::service(const snapshot& db) : p_(new impl(db)) {}
service::~service() { delete p_; }

std::vector<std::string> service::uris() const {
    std::vector<std::string> out;
    out.reserve(p_->routes.size());
    for (const route& r : p_->routes) out.push_back(r.uri);
    return out;
}

response service::get(const std::string& raw) const {
    std::string uri = raw;
    while (uri.size() > 1 && uri.back() == '/') uri.pop_back();
    auto it = p_->index.find(uri);
    if (it == p_->index.end()) return response{404, error_body(404, raw)};
    return p_->routes[it->second].render();
}

json error_body(int status, const std::string& detail, const char* message_id) {
    struct registry_message {
        const char* id;
        const char* message;  // with %1 for the argument
        const char* resolution;
        int status;  // the status whose default message this is; 0: by its id only
        const char* severity;
    };
    static const registry_message messages[] = {
        {"ResourceMissingAtURI", "The resource at the URI '%1' was not found.",
         "Place a valid resource at the URI or correct the URI and resubmit the request.", 404, "Critical"},
        {"OperationNotAllowed", "The HTTP method is not allowed on this resource.", "None.", 405, "Critical"},
        {"HeaderInvalid", "Header '%1' is invalid.", "Resubmit the request with a valid request header.", 412,
         "Critical"},
        {"PayloadTooLarge", "The supplied payload exceeds the maximum size supported by the service.",
         "Check that the supplied payload is correct and supported by this service.", 413, "Critical"},
        {"InternalError",
         "The request failed due to an internal service error.  The service is still operational.",
         "Resubmit the request.  If the problem persists, consider resetting the service.", 500, "Critical"},
        {"NoValidSession", "There is no valid session established with the implementation.",
         "Establish a session before attempting any operations.", 401, "Critical"},
        {"InsufficientPrivilege",
         "There are insufficient privileges for the account or credentials associated with the current "
         "session to perform the requested operation.",
         "Either abandon the operation or change the associated access rights and resubmit the request if "
         "the "
         "operation failed.",
         403, "Critical"},
        {"SessionLimitExceeded",
         "The session establishment failed due to the number of simultaneous sessions exceeding the limit of "
         "the implementation.",
         "Reduce the number of other sessions before trying to establish the session or increase the limit "
         "of "
         "simultaneous sessions, if supported.",
         503, "Critical"},
        {"MalformedJSON",
         "The request body submitted was malformed JSON and could not be parsed by the receiving service.",
         "Ensure that the request body is valid JSON and resubmit the request.", 0, "Critical"},
        {"PropertyMissing", "The property %1 is a required property and must be included in the request.",
         "Ensure that the property is in the request body and has a valid value and resubmit the request if "
         "the "
         "operation failed.",
         0, "Warning"},
    };
    static const registry_message general{
        "GeneralError",
        "A general error has occurred.  See Resolution for information on how to resolve the error, or "
        "@Message.ExtendedInfo if Resolution is not provided.",
        "None.", 0, "Critical"};
    const registry_message* found = &general;
    for (const registry_message& c : messages) {
        if (message_id ? strcmp(c.id, message_id) == 0 : c.status == status) {
            found = &c;
            break;
        }
    }
    const registry_message& m = *found;
    std::string message = m.message;
    json args = json::array();
    size_t at = message.find("%1");
    if (at != std::string::npos) {
        message.replace(at, 2, detail);
        args.push_back(detail);
    }
    json info = json{{"@odata.type", kMessageType.odata_type()},
                     {"MessageId", kBaseRegistry + std::string(m.id)},
                     {"Message", message},
                     {"MessageArgs", args},
                     {"MessageSeverity", m.severity},
                     {"Resolution", m.resolution}};
    std::string summary = args.empty() && !detail.empty() ? detail : message;
    return json{{"error",
                 {{"code", kBaseRegistry + std::string(m.id)},
                  {"message", summary},
                  {"@Message.ExtendedInfo", {info}}}}};
}

std::string to_text(const json& body, int indent) {
    return body.dump(indent, ' ', false, json::error_handler_t::replace);
}

}  // namespace redfish
