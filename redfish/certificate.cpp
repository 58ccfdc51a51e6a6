// The self-signed certificate of `aimctl serve --tls` (see certificate.h), made with OpenSSL.
#include "redfish/certificate.h"

#include <arpa/inet.h>
#include <openssl/bn.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>
#include <stdio.h>
#include <unistd.h>

#include <memory>
#include <vector>

namespace redfish {

namespace {

template <class T, void (*Free)(T*)>
struct freer {
    void operator()(T* p) const { Free(p); }
};
using pkey_ptr = std::unique_ptr<EVP_PKEY, freer<EVP_PKEY, EVP_PKEY_free>>;
using x509_ptr = std::unique_ptr<X509, freer<X509, X509_free>>;
using bio_ptr = std::unique_ptr<BIO, freer<BIO, BIO_free_all>>;
using ext_ptr = std::unique_ptr<X509_EXTENSION, freer<X509_EXTENSION, X509_EXTENSION_free>>;
using bn_ptr = std::unique_ptr<BIGNUM, freer<BIGNUM, BN_free>>;

// OpenSSL's reason for the last failure, after `what`.
std::string failure(const char* what) {
    unsigned long code = ERR_get_error();
    char reason[256] = "";
    if (code) ERR_error_string_n(code, reason, sizeof reason);
    ERR_clear_error();
    return std::string(what) + (code ? std::string(": ") + reason : std::string());
}

bool is_ip(const std::string& text, bool* wildcard) {
    unsigned char bytes[16];
    bool v4 = inet_pton(AF_INET, text.c_str(), bytes) == 1;
    bool v6 = !v4 && inet_pton(AF_INET6, text.c_str(), bytes) == 1;
    if (!v4 && !v6) return false;
    size_t n = v4 ? 4 : 16;
    *wildcard = true;
    for (size_t i = 0; i < n; ++i) *wildcard = *wildcard && bytes[i] == 0;
    return true;
}

// The subject's common name and the subject alternative names ("IP:..", "DNS:..").
void names_for(const std::string& address, std::string& common_name, std::string& alt_names) {
    bool wildcard = false;
    if (is_ip(address, &wildcard) && !wildcard) {
        common_name = address;
        alt_names = "IP:" + address;
        return;
    }
    if (!wildcard && !address.empty()) {
        common_name = address;
        alt_names = "DNS:" + address;
        return;
    }
    char host[256] = "";
    if (gethostname(host, sizeof host - 1) != 0 || !host[0]) snprintf(host, sizeof host, "localhost");
    common_name = host;
    alt_names = std::string("DNS:") + host + ",IP:127.0.0.1,IP:::1";
}

bool add_extension(X509* cert, int nid, const std::string& value) {
    X509V3_CTX ctx;
    X509V3_set_ctx_nodb(&ctx);
    X509V3_set_ctx(&ctx, cert, cert, nullptr, nullptr, 0);
    ext_ptr ext(X509V3_EXT_conf_nid(nullptr, &ctx, nid, value.c_str()));
    return ext && X509_add_ext(cert, ext.get(), -1) == 1;
}

bool pem_of(X509* cert, EVP_PKEY* key, std::string& cert_pem, std::string& key_pem) {
    bio_ptr c(BIO_new(BIO_s_mem())), k(BIO_new(BIO_s_mem()));
    if (!c || !k || PEM_write_bio_X509(c.get(), cert) != 1 ||
        PEM_write_bio_PrivateKey(k.get(), key, nullptr, nullptr, 0, nullptr, nullptr) != 1)
        return false;
    char* data = nullptr;
    long n = BIO_get_mem_data(c.get(), &data);
    cert_pem.assign(data, static_cast<size_t>(n));
    n = BIO_get_mem_data(k.get(), &data);
    key_pem.assign(data, static_cast<size_t>(n));
    return true;
}

}  // namespace

bool make_self_signed(const std::string& address, self_signed& out, std::string& error) {
    pkey_ptr key(EVP_EC_gen("P-256"));
    if (!key) return error = failure("cannot make a P-256 key"), false;
    x509_ptr cert(X509_new());
    if (!cert) return error = failure("cannot make a certificate"), false;

    // A random positive 63-bit serial number.
    unsigned char serial[8];
    if (RAND_bytes(serial, sizeof serial) != 1) return error = failure("no random serial number"), false;
    serial[0] &= 0x7F;
    bn_ptr bn(BN_bin2bn(serial, sizeof serial, nullptr));
    std::string common_name, alt_names;
    names_for(address, common_name, alt_names);
    X509_NAME* name = X509_get_subject_name(cert.get());
    bool ok = bn && BN_to_ASN1_INTEGER(bn.get(), X509_get_serialNumber(cert.get())) &&
              X509_set_version(cert.get(), 2) == 1 && X509_gmtime_adj(X509_getm_notBefore(cert.get()), 0) &&
              X509_gmtime_adj(X509_getm_notAfter(cert.get()), 365L * 24 * 3600) &&
              X509_set_pubkey(cert.get(), key.get()) == 1 &&
              X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_UTF8,
                                         reinterpret_cast<const unsigned char*>(common_name.c_str()), -1, -1,
                                         0) == 1 &&
              X509_set_issuer_name(cert.get(), name) == 1 &&
              add_extension(cert.get(), NID_basic_constraints, "critical,CA:FALSE") &&
              add_extension(cert.get(), NID_key_usage, "critical,digitalSignature") &&
              add_extension(cert.get(), NID_ext_key_usage, "serverAuth") &&
              add_extension(cert.get(), NID_subject_alt_name, alt_names) &&
              X509_sign(cert.get(), key.get(), EVP_sha256()) > 0;
    if (!ok) return error = failure("cannot make the certificate"), false;

    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    if (X509_digest(cert.get(), EVP_sha256(), digest, &length) != 1)
        return error = failure("cannot take the certificate's fingerprint"), false;
    out.sha256_fingerprint.clear();
    for (unsigned int i = 0; i < length; ++i) {
        char hex[4];
        snprintf(hex, sizeof hex, i ? ":%02X" : "%02X", digest[i]);
        out.sha256_fingerprint += hex;
    }
    if (!pem_of(cert.get(), key.get(), out.certificate_pem, out.key_pem))
        return error = failure("cannot write the certificate"), false;
    return true;
}

}  // namespace redfish
