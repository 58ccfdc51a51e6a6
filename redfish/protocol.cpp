// The Redfish protocol's rules for one request (see redfish/protocol.h).
#include "redfish/protocol.h"

#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <utility>
#include <vector>

#include "redfish/access.h"
#include "redfish/http.h"
#include "redfish/resources.h"
#include "redfish/service.h"

namespace redfish {

const char* const kAllowedMethods = "GET, HEAD";

namespace {

// True when `s` is well-formed UTF-8 (no overlong form, surrogate or code point past
// U+10FFFF) without control bytes.
bool clean_path(const std::string& s) {
    for (size_t i = 0; i < s.size();) {
        unsigned char c = static_cast<unsigned char>(s[i]);
        if (c < 0x20 || c == 0x7F) return false;
        size_t n = c < 0x80                 ? 1
                   : c >= 0xC2 && c <= 0xDF ? 2
                   : c >= 0xE0 && c <= 0xEF ? 3
                   : c >= 0xF0 && c <= 0xF4 ? 4
                                            : 0;
        if (n == 0 || i + n > s.size()) return false;
        for (size_t k = 1; k < n; ++k) {
            if ((static_cast<unsigned char>(s[i + k]) >> 6) != 0x2) return false;
        }
        unsigned char c1 = n > 1 ? static_cast<unsigned char>(s[i + 1]) : 0;
        if ((c == 0xE0 && c1 < 0xA0) || (c == 0xED && c1 >= 0xA0) || (c == 0xF0 && c1 < 0x90) ||
            (c == 0xF4 && c1 >= 0x90))
            return false;
        i += n;
    }
    return true;
}

bool dot_dot(const std::string& path) {
    size_t start = 0;
    while (start <= path.size()) {
        size_t end = path.find('/', start);
        if (end == std::string::npos) end = path.size();
        if (path.compare(start, end - start, "..") == 0 && end - start == 2) return true;
        start = end + 1;
    }
    return false;
}

int hex_digit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

// The path of a request target, without its query, percent-decoded; false for a bad escape.
bool decode_path(const std::string& full, std::string& out) {
    std::string target = full.substr(0, std::min(full.find('?'), full.find('#')));
    out.clear();
    for (size_t i = 0; i < target.size(); ++i) {
        if (target[i] != '%') {
            out += target[i];
            continue;
        }
        int hi = i + 2 < target.size() ? hex_digit(target[i + 1]) : -1;
        int lo = hi >= 0 ? hex_digit(target[i + 2]) : -1;
        if (lo < 0) return false;
        out += static_cast<char>(hi * 16 + lo);
        i += 2;
    }
    return true;
}

// True when an "If-None-Match" list names `etag` (or is "*").
bool none_match(const std::string& header, const std::string& etag) {
    if (etag.empty()) return false;
    size_t start = 0;
    while (start < header.size()) {
        size_t end = header.find(',', start);
        if (end == std::string::npos) end = header.size();
        std::string tag = header.substr(start, end - start);
        tag.erase(0, tag.find_first_not_of(" \t"));
        tag.erase(tag.find_last_not_of(" \t") + 1);
        if (tag.compare(0, 2, "W/") == 0) tag.erase(0, 2);  // weak comparison, as GET allows
        if (tag == "*" || tag == etag) return true;
        start = end + 1;
    }
    return false;
}

// A version header's value as a number ("4.0" -> 4.0); -1 for anything else.
double version_of(const std::string& v) {
    char* end = nullptr;
    double d = strtod(v.c_str(), &end);
    return end == v.c_str() || *end ? -1 : d;
}

}  // namespace

reply error_reply(unsigned status, const std::string& detail, const char* message_id) {
    return reply{
        status,
        render(response(static_cast<int>(status), error_body(static_cast<int>(status), detail, message_id))),
        kAllowedMethods,
        {}};
}

namespace {

const char* const kSessionsAllow = "GET, HEAD, POST";
const char* const kSessionAllow = "GET, HEAD, DELETE";

bool reads(const request_view& r) { return r.method == "GET" || r.method == "HEAD"; }

reply ok(int status, json body, const char* allow = kAllowedMethods) {
    return reply{static_cast<unsigned>(status), render(response(status, std::move(body))), allow, {}};
}

reply not_allowed(const char* allow) {
    reply r = error_reply(405, "");
    r.allow = allow;
    return r;
}

// What needs no credentials: the service root and the documents that describe the service,
// and the inventory page (which shows its login form).
bool is_public(const std::string& path) {
    static const char* const open[] = {"/",           "/index.html",           "/redfish",
                                       "/redfish/v1", "/redfish/v1/$metadata", "/redfish/v1/odata"};
    for (const char* p : open) {
        if (path == p) return true;
    }
    return false;
}

// The Sessions collection, at its own URI or its Members'.
bool sessions_collection(const std::string& path) {
    return path == kSessionsUri || path == std::string(kSessionsUri) + "/Members";
}

// The rest of `path` below `prefix` + "/" (one segment), or false.
bool member_of(const std::string& path, const char* prefix, std::string& id) {
    size_t n = strlen(prefix);
    if (path.size() <= n + 1 || path.compare(0, n, prefix) != 0 || path[n] != '/') return false;
    id = path.substr(n + 1);
    return id.find('/') == std::string::npos;
}

// POST SessionService/Sessions: a new session for the credentials of the body.
reply login(const request_view& request, access_control& access) {
    json body = json::parse(request.body, nullptr, false);
    if (body.is_discarded()) return error_reply(400, "", "MalformedJSON");
    for (const char* key : {"UserName", "Password"}) {
        if (!body.is_object() || !body.contains(key) || !body[key].is_string())
            return error_reply(400, key, "PropertyMissing");
    }
    session s;
    switch (access.login(body["UserName"].get<std::string>(), body["Password"].get<std::string>(), s)) {
        case access_control::login_result::refused:
            return error_reply(401, "");
        case access_control::login_result::full:
            return error_reply(503, "");
        case access_control::login_result::created:
            break;
    }
    reply r = ok(201, session_resource(s), kSessionsAllow);
    r.headers.emplace_back("X-Auth-Token", s.token);
    r.headers.emplace_back("Location", session_uri(s));
    return r;
}

// The account service and the session service for `caller`, or false for another resource.
bool answer_accounts(const request_view& request, const std::string& path, const account& caller,
                     const std::string& own_session, access_control& access, reply& out) {
    bool admin = caller.role == role::administrator;
    std::string id;
    if (path == kSessionServiceUri) {
        out = reads(request) ? ok(200, session_service(&access)) : not_allowed(kAllowedMethods);
    } else if (sessions_collection(path)) {
        // (A POST, the login, is answered before credentials are asked for.)
        if (!reads(request)) {
            out = not_allowed(kSessionsAllow);
        } else {
            std::vector<session> shown;
            for (session& s : access.sessions()) {
                if (admin || s.user == caller.name) shown.push_back(std::move(s));
            }
            out = ok(200, session_collection(shown), kSessionsAllow);
        }
    } else if (member_of(path, kSessionsUri, id)) {
        std::vector<session> all = access.sessions();
        auto it = std::find_if(all.begin(), all.end(), [&](const session& s) { return s.id == id; });
        if (it == all.end()) {
            out = error_reply(404, path);
        } else if (!admin && it->user != caller.name && it->id != own_session) {
            out = error_reply(403, "");
        } else if (request.method == "DELETE") {
            access.end(id);
            out = reply{204, nullptr, kSessionAllow, {}};
        } else {
            out = reads(request) ? ok(200, session_resource(*it), kSessionAllow) : not_allowed(kSessionAllow);
        }
    } else if (path == kAccountServiceUri) {
        out = reads(request) ? ok(200, account_service(&access)) : not_allowed(kAllowedMethods);
    } else if (path == kAccountsUri) {
        if (!reads(request)) {
            out = not_allowed(kAllowedMethods);
        } else {
            json j = account_collection(admin ? &access : nullptr);
            if (!admin) {
                j["Members"] = json::array({link(account_uri(caller))});
                j["Members@odata.count"] = 1;
            }
            out = ok(200, std::move(j));
        }
    } else if (member_of(path, kAccountsUri, id)) {
        const account* a = access.accounts().find(id);
        if (!a) {
            out = error_reply(404, path);
        } else if (!admin && a != &caller) {
            out = error_reply(403, "");
        } else {
            out = reads(request) ? ok(200, manager_account(*a, access.locked(a->name)))
                                 : not_allowed(kAllowedMethods);
        }
    } else {
        return false;
    }
    return true;
}

}  // namespace

reply answer(const request_view& request, resource_cache& cache, access_control* access) {
    if (!request.odata_version.empty() && request.odata_version != "4.0")
        return error_reply(412, "OData-Version: " + request.odata_version);
    if (!request.odata_max_version.empty() && version_of(request.odata_max_version) < 4.0)
        return error_reply(412, "OData-MaxVersion: " + request.odata_max_version);
    std::string path;
    if (!decode_path(request.target, path) || !clean_path(path) || dot_dot(path))
        return error_reply(400, "The URI is not a valid resource path.");
    if (access) {
        std::string trimmed = path;
        while (trimmed.size() > 1 && trimmed.back() == '/') trimmed.pop_back();
        if (request.method == "POST" && sessions_collection(trimmed)) return login(request, *access);
        if (!is_public(trimmed)) {
            session s;
            const account* caller = nullptr;
            if (!request.auth_token.empty()) {
                if (access->by_token(request.auth_token, s)) caller = access->accounts().find(s.user);
            } else if (!request.authorization.empty()) {
                caller = access->basic(request.authorization);
            }
            if (!caller) {
                reply r = error_reply(401, "");
                if (request.requested_with != "XMLHttpRequest")
                    r.headers.emplace_back("WWW-Authenticate", "Basic realm=\"Redfish\", charset=\"UTF-8\"");
                return r;
            }
            reply r;
            if (answer_accounts(request, trimmed, *caller, s.id, *access, r)) {
                if (r.status == 200 && none_match(request.if_none_match, r.body->etag)) r.status = 304;
                return r;
            }
        }
    }
    if (!reads(request)) return error_reply(405, "");
    std::shared_ptr<const rendered> r;
    if (path == "/" || path == "/index.html") {
        static const std::shared_ptr<const rendered> page = [] {
            response p;
            p.text = inventory_page();
            p.content_type = "text/html; charset=utf-8";
            return render(p);
        }();
        r = page;
    } else {
        std::string error;
        std::shared_ptr<const generation> gen = cache.current(error);
        if (!gen) return error_reply(500, "The inventory database cannot be read: " + error);
        r = gen->get(path);
    }
    if (r->status == 200 && none_match(request.if_none_match, r->etag))
        return reply{304, r, kAllowedMethods, {}};
    return reply{static_cast<unsigned>(r->status), r, kAllowedMethods, {}};
}

std::vector<std::pair<const char*, std::string>> answer_headers(const reply& r) {
    std::vector<std::pair<const char*, std::string>> out;
    if (r.body && r.status != 304) out.emplace_back("Content-Type", r.body->content_type);
    out.emplace_back("OData-Version", "4.0");
    out.emplace_back("Allow", r.allow);
    out.emplace_back("Cache-Control", "no-cache");
    if (r.body && !r.body->etag.empty()) out.emplace_back("ETag", r.body->etag);
    if (r.body && !r.body->described_by.empty())
        out.emplace_back("Link", "<" + r.body->described_by + ">; rel=describedby");
    for (const auto& h : r.headers) out.push_back(h);
    return out;
}

}  // namespace redfish
