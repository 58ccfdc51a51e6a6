// Who may read the Redfish service of aimctl serve when it has a users file (redfish/users.h):
// a request carries HTTP Basic credentials or the X-Auth-Token of a session; a session is made
// by logging in (a POST to the Sessions collection, redfish/protocol.cpp) and ends when it is
// deleted or after `session_timeout` seconds without use. Sessions live in this object only:
// nothing of them is written anywhere.
//
// Lockout: `lockout_threshold` wrong passwords for one account, each within
// `lockout_reset_after` seconds of the one before, lock the account for `lockout_duration`
// seconds; while it is locked even its right password is refused (and not counted). A right
// password resets the count. Names without an account are never counted (so that no one can
// fill memory with them), and cost the same password check as a real one.
//
// Tokens and session Ids are random (OpenSSL's RAND_bytes); tokens are compared in constant
// time. Thread safety: every member may be called from any thread; the password check runs
// outside the lock, so that one slow check does not hold up others.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "redfish/users.h"

namespace redfish {

struct access_options {
    int64_t session_timeout = 1800;  // seconds without use
    size_t max_sessions = 64;
    int lockout_threshold = 5;
    int64_t lockout_duration = 60;
    int64_t lockout_reset_after = 60;
};

struct session {
    std::string id;     // in the session's URI
    std::string token;  // the X-Auth-Token
    std::string user;
    redfish::role role = role::read_only;
};

class access_control {
public:
    // `clock` gives seconds on a monotonic scale (default: the steady clock); tests pass their own.
    explicit access_control(users accounts, access_options options = access_options(),
                            std::function<int64_t()> clock = nullptr);

    const users& accounts() const { return accounts_; }
    const access_options& options() const { return options_; }

    // The account of an "Authorization: Basic ..." value with its right password, the account not
    // locked; null otherwise (a wrong password counts towards the account's lockout).
    const account* basic(const std::string& authorization);
    // The account of `name` and `password`, as basic() checks them.
    const account* check(const std::string& name, const std::string& password);
    // The live session of an X-Auth-Token, which counts as a use of it; false when there is none.
    bool by_token(const std::string& token, session& out);

    enum class login_result { created, refused, full };
    // A new session for `name` when `password` is its password.
    login_result login(const std::string& name, const std::string& password, session& out);
    // The live sessions, oldest first.
    std::vector<session> sessions();
    // Ends the session `id`; false when there is none.
    bool end(const std::string& id);
    // True while the account `name` is locked out.
    bool locked(const std::string& name);

private:
    struct live_session {
        session s;
        int64_t last_use;
    };
    struct counter {
        int failures = 0;
        int64_t last_failure = 0;
        int64_t locked_until = 0;
    };
    void expire(int64_t now);  // with mutex_ held
    counter* counter_of(const std::string& name);

    const users accounts_;
    const access_options options_;
    const std::function<int64_t()> clock_;
    std::mutex mutex_;
    std::vector<live_session> sessions_;
    std::vector<counter> counters_;  // one per account, in the users file's order
};

}  // namespace redfish
