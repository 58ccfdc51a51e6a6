// The Redfish protocol's rules for one request (see redfish/protocol.h).
#include "redfish/protocol.h"

#include <stdlib.h>

#include <algorithm>
#include <utility>
#include <vector>

#include "redfish/http.h"
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

reply error_reply(unsigned status, const std::string& detail) {
    return reply{status,
                 render(response(static_cast<int>(status), error_body(static_cast<int>(status), detail)))};
}

reply answer(const request_view& request, resource_cache& cache) {
    if (!request.odata_version.empty() && request.odata_version != "4.0")
        return error_reply(412, "OData-Version: " + request.odata_version);
    if (!request.odata_max_version.empty() && version_of(request.odata_max_version) < 4.0)
        return error_reply(412, "OData-MaxVersion: " + request.odata_max_version);
    std::string path;
    if (!decode_path(request.target, path) || !clean_path(path) || dot_dot(path))
        return error_reply(400, "The URI is not a valid resource path.");
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
    if (r->status == 200 && none_match(request.if_none_match, r->etag)) return reply{304, r};
    return reply{static_cast<unsigned>(r->status), r};
}

std::vector<std::pair<const char*, std::string>> answer_headers(const reply& r) {
    std::vector<std::pair<const char*, std::string>> out;
    if (r.status != 304) out.emplace_back("Content-Type", r.body->content_type);
    out.emplace_back("OData-Version", "4.0");
    out.emplace_back("Allow", kAllowedMethods);
    out.emplace_back("Cache-Control", "no-cache");
    if (!r.body->etag.empty()) out.emplace_back("ETag", r.body->etag);
    if (!r.body->described_by.empty())
        out.emplace_back("Link", "<" + r.body->described_by + ">; rel=describedby");
    return out;
}

}  // namespace redfish
