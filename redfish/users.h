// The accounts of aimctl serve: a users file as Apache's htpasswd (apache2-utils) writes it,
// read once at start, one account per line:
//
//   NAME:HASH[:ROLE]
//
// HASH is a crypt string of bcrypt ("$2y$", "$2b$", "$2a$"; htpasswd -B), SHA-256 crypt
// ("$5$"; htpasswd -2) or SHA-512 crypt ("$6$"; htpasswd -5). Any other scheme (plain text,
// Apache's MD5 "$apr1$", "{SHA}", traditional DES crypt) is refused with its line, as are an
// empty name, a name given twice, an unknown role, and a hash that asks for more work than a
// login should take (a bcrypt cost above 17, more than a million SHA crypt rounds). ROLE is one of the
// Redfish predefined roles "Administrator", "Operator" and "ReadOnly" (the default). Blank lines are skipped;
// a line may end in CR LF.
//
// Passwords are checked with crypt_r of libcrypt (libxcrypt), and the computed hash is
// compared with the stored one in constant time. A name that has no account costs the same
// check against a fixed hash, so the time taken does not tell which names exist.
#pragma once

#include <stdexcept>
#include <string>
#include <vector>

namespace redfish {

enum class role { administrator, operator_role, read_only };

// "Administrator", "Operator" or "ReadOnly".
const char* role_name(role r);

struct account {
    std::string name;
    std::string hash;
    redfish::role role = role::read_only;
};

// A users file that cannot be used: "FILE:LINE: reason", or "FILE: reason".
class users_error : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

class users {
public:
    // Reads the users file at `path`; throws users_error when it cannot be read, names no
    // account, or holds a line that is not an account.
    static users load(const std::string& path);
    // The same from the file's text; `file` names it in messages.
    static users parse(const std::string& text, const std::string& file);

    // The account named `name` when `password` is its password; null otherwise.
    const account* check(const std::string& name, const std::string& password) const;
    // The account named `name`, or null.
    const account* find(const std::string& name) const;
    const std::vector<account>& accounts() const { return accounts_; }

private:
    std::vector<account> accounts_;
};

}  // namespace redfish
