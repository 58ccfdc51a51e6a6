// The Redfish protocol's rules for one request, apart from the engine that carries it
// (redfish/http.cpp): which answer a GET or HEAD gets, the errors of the protocol, and the
// headers of every answer.
//   - A path that is not UTF-8, holds a control byte or a ".." segment: 400.
//   - "OData-Version" other than 4.0, or "OData-MaxVersion" below 4.0: 412.
//   - "/" and "/index.html": the inventory page; every other path: the resource cache.
//   - "If-None-Match" with the answer's ETag (or "*"): 304 without a body.
// Every answer carries "OData-Version: 4.0", "Allow: GET, HEAD", "Cache-Control: no-cache" (the
// database may change at any time), and a resource its "ETag" and
// "Link: <JsonSchemas/...>; rel=describedby".
#pragma once

#include <memory>
#include <string>

#include "redfish/cache.h"

namespace redfish {

extern const char* const kAllowedMethods;  // "GET, HEAD"

// What the protocol needs of a request; an absent header is empty.
struct request_view {
    std::string target;
    std::string odata_version, odata_max_version, if_none_match;
};

struct reply {
    unsigned status = 200;
    std::shared_ptr<const rendered> body;  // for 304, the answer it stands for (its ETag)
};

reply answer(const request_view& request, resource_cache& cache);
reply error_reply(unsigned status, const std::string& detail);

// The headers of `r` other than the length and the connection's, as (name, value).
std::vector<std::pair<const char*, std::string>> answer_headers(const reply& r);

}  // namespace redfish
