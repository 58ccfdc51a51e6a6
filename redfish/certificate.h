// The certificate of `aimctl serve --tls`: made at start with OpenSSL, self-signed, for the
// address the server binds.
#pragma once

#include <string>

namespace redfish {

struct self_signed {
    std::string certificate_pem;
    std::string key_pem;
    std::string sha256_fingerprint;  // of the certificate's DER form: "AB:01:...", 32 bytes
};

// An ECDSA P-256 key and a certificate of it valid from now for one year, signed with
// SHA-256 by that key, for the clients of `address`: an IP address names itself (a wildcard
// address names the machine's host name, 127.0.0.1 and ::1), any other text is a DNS name.
// False, with the reason in `error`, when OpenSSL fails.
bool make_self_signed(const std::string& address, self_signed& out, std::string& error);

}  // namespace redfish
