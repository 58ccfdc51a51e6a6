// The Redfish protocol's rules for one request, apart from the engine that carries it
// (redfish/http.cpp): which answer a GET or HEAD gets, the errors of the protocol, and the
// headers of every answer.
//   - A path that is not UTF-8, holds a control byte or a ".." segment: 400.
//   - "OData-Version" other than 4.0, or "OData-MaxVersion" below 4.0: 412.
//   - "/" and "/index.html": the inventory page; every other path: the resource cache.
//   - "If-None-Match" with the answer's ETag (or "*"): 304 without a body.
//   - Any other method: 405, but those of the session service below.
// Every answer carries "OData-Version: 4.0", "Allow" (the resource's methods: "GET, HEAD"
// but for sessions), "Cache-Control: no-cache" (the database may change at any time), and a
// resource its "ETag" and "Link: <JsonSchemas/...>; rel=describedby".
//
// With access control (a users file; redfish/access.h), every request but those of "/redfish",
// "/redfish/v1", its "$metadata" and "odata", the inventory page and the login itself needs an
// "X-Auth-Token" of a live session or "Authorization: Basic" credentials of an account, checked
// before anything else of the request; else 401 with "WWW-Authenticate: Basic" (but to a
// script's request, "X-Requested-With: XMLHttpRequest", so that a browser does not ask for a
// password of its own over the inventory page's login form). Then:
//   - POST SessionService/Sessions {"UserName", "Password"}: 201 with "X-Auth-Token", "Location"
//     and the session (400 for a body without both, 401 for wrong credentials or a locked
//     account, 503 when the service has as many sessions as it keeps);
//   - GET Sessions lists the caller's own sessions, every session for an Administrator;
//     DELETE of a session ends it (204); GET or DELETE of another user's session is 403 but
//     for an Administrator;
//   - AccountService, its Accounts (read-only: 405 for PATCH, POST, PUT and DELETE; a user
//     sees their own account, an Administrator every account) and the SessionService come from
//     the access control; the Roles from the cache.
#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "redfish/cache.h"

namespace redfish {

class access_control;

extern const char* const kAllowedMethods;  // "GET, HEAD"

// What the protocol needs of a request; an absent header is empty.
struct request_view {
    std::string method = "GET";
    std::string target;
    std::string odata_version, odata_max_version, if_none_match;
    std::string authorization, auth_token;  // "Authorization", "X-Auth-Token"
    std::string requested_with;             // "X-Requested-With"
    std::string body;
};

struct reply {
    unsigned status = 200;
    std::shared_ptr<const rendered> body;  // for 304, the answer it stands for (its ETag); 204: empty
    const char* allow = kAllowedMethods;
    std::vector<std::pair<const char*, std::string>> headers;  // this answer's own
};

// The answer to `request`; `access` null: every resource is public and read-only.
reply answer(const request_view& request, resource_cache& cache, access_control* access = nullptr);
reply error_reply(unsigned status, const std::string& detail, const char* message_id = nullptr);

// The headers of `r` other than the length and the connection's, as (name, value).
std::vector<std::pair<const char*, std::string>> answer_headers(const reply& r);

}  // namespace redfish
