// The users file of aimctl serve (see users.h).
#include "redfish/users.h"

#include <crypt.h>
#include <ctype.h>
#include <errno.h>
#include <stdlib.h>
#include <string.h>

#include <memory>

#include "redfish/files.h"

namespace redfish {

namespace {

// The hash of `password` with the scheme, cost and salt of `setting`; empty when crypt
// refuses the setting.
std::string crypt_with(const std::string& password, const std::string& setting) {
    // crypt_r keeps its whole state (tens of KiB) in this structure, zeroed before first use.
    std::unique_ptr<crypt_data> data(new crypt_data());
    const char* out = crypt_r(password.c_str(), setting.c_str(), data.get());
    if (!out || out[0] == '*') return std::string();
    return out;
}

// Equality of two hashes in a time that depends on their lengths only.
bool same_hash(const std::string& a, const std::string& b) {
    size_t n = a.size() > b.size() ? a.size() : b.size();
    unsigned diff = a.size() == b.size() ? 0u : 1u;
    for (size_t i = 0; i < n; ++i) {
        unsigned char x = i < a.size() ? static_cast<unsigned char>(a[i]) : 0;
        unsigned char y = i < b.size() ? static_cast<unsigned char>(b[i]) : 0;
        diff |= static_cast<unsigned>(x ^ y);
    }
    return diff == 0;
}

bool starts_with(const std::string& s, const char* prefix) {
    return s.compare(0, strlen(prefix), prefix) == 0;
}

// The most work a hash may ask for, so that neither the start nor a login takes more than
// about a second: htpasswd's highest bcrypt cost, and a million SHA crypt rounds.
const int kMaxBcryptCost = 17;
const unsigned long kMaxShaRounds = 1000000;

// Why `hash` cannot be used, or null when it can.
const char* refused_scheme(const std::string& hash) {
    if (starts_with(hash, "$2y$") || starts_with(hash, "$2b$") || starts_with(hash, "$2a$")) {
        // "$2y$NN$": the cost, two digits.
        int cost = hash.size() > 6 && isdigit(static_cast<unsigned char>(hash[4])) &&
                           isdigit(static_cast<unsigned char>(hash[5]))
                       ? (hash[4] - '0') * 10 + (hash[5] - '0')
                       : -1;
        if (cost > kMaxBcryptCost) return "a bcrypt cost above 17";
        return nullptr;
    }
    if (starts_with(hash, "$5$") || starts_with(hash, "$6$")) {
        if (starts_with(hash.substr(3), "rounds=")) {
            const char* digits = hash.c_str() + 10;
            char* end = nullptr;
            errno = 0;
            unsigned long rounds = strtoul(digits, &end, 10);
            if (end == digits || errno != 0 || rounds > kMaxShaRounds)
                return "more than 1000000 SHA crypt rounds";
        }
        return nullptr;
    }
    if (starts_with(hash, "$apr1$"))
        return "Apache MD5 hashes ($apr1$, htpasswd -m) are refused; use htpasswd -B";
    if (starts_with(hash, "{SHA}")) return "SHA-1 hashes ({SHA}, htpasswd -s) are refused; use htpasswd -B";
    if (starts_with(hash, "$")) return "unknown hash scheme; use htpasswd -B (bcrypt), -2 or -5 (SHA crypt)";
    return "plain-text or DES crypt passwords (htpasswd -p or -d) are refused; use htpasswd -B";
}

bool parse_role(const std::string& text, role* out) {
    for (role r : {role::administrator, role::operator_role, role::read_only}) {
        if (text == role_name(r)) {
            *out = r;
            return true;
        }
    }
    return false;
}

}  // namespace

const char* role_name(role r) {
    switch (r) {
        case role::administrator:
            return "Administrator";
        case role::operator_role:
            return "Operator";
        case role::read_only:
            return "ReadOnly";
    }
    return "ReadOnly";
}

users users::load(const std::string& path) {
    std::string text;
    if (!read_whole_file(path, text)) throw users_error(path + ": cannot read the users file");
    return parse(text, path);
}

users users::parse(const std::string& text, const std::string& file) {
    users out;
    size_t line_no = 0;
    for (size_t at = 0; at < text.size();) {
        size_t end = text.find('\n', at);
        if (end == std::string::npos) end = text.size();
        std::string line = text.substr(at, end - at);
        at = end + 1;
        ++line_no;
        if (!line.empty() && line.back() == '\r') line.pop_back();
        if (line.find_first_not_of(" \t") == std::string::npos) continue;
        auto fail = [&](const std::string& why) {
            throw users_error(file + ":" + std::to_string(line_no) + ": " + why);
        };
        if (line.find('\0') != std::string::npos) fail("a line holds a zero byte");
        size_t c1 = line.find(':');
        if (c1 == std::string::npos) fail("not NAME:HASH[:ROLE]");
        account a;
        a.name = line.substr(0, c1);
        size_t c2 = line.find(':', c1 + 1);
        a.hash = line.substr(c1 + 1, c2 == std::string::npos ? std::string::npos : c2 - c1 - 1);
        if (a.name.empty()) fail("an empty user name");
        if (c2 != std::string::npos && !parse_role(line.substr(c2 + 1), &a.role))
            fail("unknown role '" + line.substr(c2 + 1) + "' (Administrator, Operator or ReadOnly)");
        if (const char* why = refused_scheme(a.hash)) fail(std::string("user '") + a.name + "': " + why);
        if (crypt_with(std::string(), a.hash).empty()) fail("user '" + a.name + "': a malformed hash");
        if (out.find(a.name)) fail("user '" + a.name + "' given twice");
        out.accounts_.push_back(std::move(a));
    }
    if (out.accounts_.empty()) throw users_error(file + ": no account");
    return out;
}

const account* users::find(const std::string& name) const {
    for (const account& a : accounts_) {
        if (a.name == name) return &a;
    }
    return nullptr;
}

const account* users::check(const std::string& name, const std::string& password) const {
    if (accounts_.empty()) return nullptr;
    const account* a = find(name);
    // An unknown name is checked against the first account's hash, and then refused.
    const account& against = a ? *a : accounts_.front();
    bool match = same_hash(crypt_with(password, against.hash), against.hash);
    return a && match ? a : nullptr;
}

}  // namespace redfish
