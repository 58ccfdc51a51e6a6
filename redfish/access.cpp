// Who may read the Redfish service (see redfish/access.h).
#include "redfish/access.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/rand.h>
#include <strings.h>

#include <algorithm>
#include <chrono>
#include <stdexcept>
#include <utility>

namespace redfish {

namespace {

int64_t steady_seconds() {
    return std::chrono::duration_cast<std::chrono::seconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

// `bytes` random bytes as lowercase hexadecimal.
std::string random_hex(size_t bytes) {
    std::vector<unsigned char> raw(bytes);
    if (RAND_bytes(raw.data(), static_cast<int>(raw.size())) != 1)
        throw std::runtime_error("no random bytes for a session");
    static const char digits[] = "0123456789abcdef";
    std::string out;
    for (unsigned char c : raw) {
        out += digits[c >> 4];
        out += digits[c & 15];
    }
    return out;
}

bool same_token(const std::string& a, const std::string& b) {
    return a.size() == b.size() && CRYPTO_memcmp(a.data(), b.data(), a.size()) == 0;
}

// "Basic base64(name:password)" as name and password; false for anything else.
bool basic_credentials(const std::string& header, std::string& name, std::string& password) {
    size_t start = header.find_first_not_of(' ');
    if (start == std::string::npos || strncasecmp(header.c_str() + start, "Basic ", 6) != 0) return false;
    std::string code = header.substr(start + 6);
    code.erase(0, code.find_first_not_of(' '));
    code.erase(code.find_last_not_of(' ') + 1);
    if (code.empty() || code.size() % 4 != 0 || code.size() > 4096) return false;
    std::string plain(code.size() / 4 * 3, '\0');
    int n =
        EVP_DecodeBlock(reinterpret_cast<unsigned char*>(&plain[0]),
                        reinterpret_cast<const unsigned char*>(code.data()), static_cast<int>(code.size()));
    if (n < 0) return false;
    // EVP_DecodeBlock counts the padding's bytes as decoded zeros.
    size_t padding = code[code.size() - 1] == '=' ? (code[code.size() - 2] == '=' ? 2 : 1) : 0;
    plain.resize(static_cast<size_t>(n) - padding);
    size_t colon = plain.find(':');
    if (colon == std::string::npos) return false;
    name = plain.substr(0, colon);
    password = plain.substr(colon + 1);
    return true;
}

}  // namespace

access_control::access_control(users accounts, access_options options, std::function<int64_t()> clock)
    : accounts_(std::move(accounts)),
      options_(options),
      clock_(clock ? std::move(clock) : std::function<int64_t()>(steady_seconds)),
      counters_(accounts_.accounts().size()) {}

access_control::counter* access_control::counter_of(const std::string& name) {
    const account* a = accounts_.find(name);
    return a ? &counters_[static_cast<size_t>(a - accounts_.accounts().data())] : nullptr;
}

const account* access_control::check(const std::string& name, const std::string& password) {
    counter* c = nullptr;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        c = counter_of(name);
        if (c && c->locked_until > clock_()) return nullptr;
    }
    const account* a = accounts_.check(name, password);
    std::lock_guard<std::mutex> lock(mutex_);
    if (!c) return nullptr;
    int64_t now = clock_();
    if (a) {
        c->failures = 0;
        return a;
    }
    if (c->failures > 0 && now - c->last_failure >= options_.lockout_reset_after) c->failures = 0;
    c->last_failure = now;
    if (++c->failures >= options_.lockout_threshold) {
        c->failures = 0;
        c->locked_until = now + options_.lockout_duration;
    }
    return nullptr;
}

const account* access_control::basic(const std::string& authorization) {
    std::string name, password;
    if (!basic_credentials(authorization, name, password)) return nullptr;
    return check(name, password);
}

bool access_control::locked(const std::string& name) {
    std::lock_guard<std::mutex> lock(mutex_);
    counter* c = counter_of(name);
    return c && c->locked_until > clock_();
}

void access_control::expire(int64_t now) {
    sessions_.erase(
        std::remove_if(sessions_.begin(), sessions_.end(),
                       [&](const live_session& l) { return now - l.last_use >= options_.session_timeout; }),
        sessions_.end());
}

bool access_control::by_token(const std::string& token, session& out) {
    if (token.empty()) return false;
    std::lock_guard<std::mutex> lock(mutex_);
    int64_t now = clock_();
    expire(now);
    for (live_session& l : sessions_) {
        if (same_token(l.s.token, token)) {
            l.last_use = now;
            out = l.s;
            return true;
        }
    }
    return false;
}

access_control::login_result access_control::login(const std::string& name, const std::string& password,
                                                   session& out) {
    const account* a = check(name, password);
    if (!a) return login_result::refused;
    std::lock_guard<std::mutex> lock(mutex_);
    int64_t now = clock_();
    expire(now);
    if (sessions_.size() >= options_.max_sessions) return login_result::full;
    live_session l;
    l.s.id = random_hex(8);
    l.s.token = random_hex(32);
    l.s.user = a->name;
    l.s.role = a->role;
    l.last_use = now;
    out = l.s;
    sessions_.push_back(std::move(l));
    return login_result::created;
}

std::vector<session> access_control::sessions() {
    std::lock_guard<std::mutex> lock(mutex_);
    expire(clock_());
    std::vector<session> out;
    for (const live_session& l : sessions_) out.push_back(l.s);
    return out;
}

bool access_control::end(const std::string& id) {
    std::lock_guard<std::mutex> lock(mutex_);
    expire(clock_());
    auto it =
        std::find_if(sessions_.begin(), sessions_.end(), [&](const live_session& l) { return l.s.id == id; });
    if (it == sessions_.end()) return false;
    sessions_.erase(it);
    return true;
}

}  // namespace redfish
