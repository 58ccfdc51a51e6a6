// The Redfish service and inventory page over HTTP/1.1 (or HTTPS: use_tls()): GET and HEAD of every resource
// of redfish/service.h, "/" the inventory page, by the rules of redfish/protocol.h. Read-only: any other
// method is answered 405, but the sessions' when a users file asks for a login (require_login()).
//
// The engine is Boost.Beast over Boost.Asio, event-driven: a few threads (one per core, at
// most four) serve every connection, and no connection holds a thread while it waits for a
// client. Each connection has one timer:
//   - waiting for a request (a new connection, or after an answer on a kept-alive one): the
//     connection is closed after 60 s without a byte;
//   - from the first byte of a request, its header must be complete within 15 s, else the
//     connection is closed; an answer must be taken by the client within 15 s.
// Limits: at most 1 024 connections at once (fewer when the open-file limit cannot be raised
// to fit; a connection beyond the cap is closed at once), a header of at most 8 KiB (431), a
// URI of at most 2 KiB (414), a request body of at most 8 KiB (413), each followed by closing
// the connection. Every connection sets TCP_NODELAY, and an answer goes out in one
// write. The resources come from a resource_cache (redfish/cache.h): rendered once per state
// of the database, checked for changes at every request.
#pragma once

#include <stddef.h>

#include <memory>
#include <string>

#include "redfish/access.h"

namespace redfish {

class resource_cache;

// The inventory page (HTML with its script and style), served at "/".
const char* inventory_page();

class http_server {
public:
    explicit http_server(std::string database);
    ~http_server();
    http_server(const http_server&) = delete;
    http_server& operator=(const http_server&) = delete;

    // Serves HTTPS (TLS 1.2 and 1.3 only) with the certificate chain and private key of the
    // PEM files `cert_file` and `key_file`; false, with the reason in `error`, when they cannot
    // be read or do not belong together. Called before run().
    bool use_tls(const std::string& cert_file, const std::string& key_file, std::string& error);
    // The same with the PEM texts themselves (a certificate made at start).
    bool use_tls_pem(const std::string& certificate_pem, const std::string& key_pem, std::string& error);
    bool tls() const;
    // Every request but the public documents needs a login of one of `accounts`
    // (redfish/access.h). Called before run().
    void require_login(users accounts, const access_options& options);
    // 1 when `address` is a loopback address (127.0.0.0/8, ::1; a name as it resolves), 0 when
    // not, -1 when it does not resolve.
    static int loopback(const std::string& address);
    // Binds `address`:`port` (port 0: a free port); the port bound, or -1.
    int bind(const std::string& address, int port);
    // How many connections are served at once, and the open-file limit that sets it.
    size_t max_connections() const;
    size_t open_file_limit() const;
    // Serves until stop(); false when it could not serve.
    bool run();
    // Stops run(); safe from another thread.
    void stop();

private:
    bool configure_tls(const std::string& cert_pem, const std::string& key_pem, const std::string& cert_name,
                       const std::string& key_name, std::string& error);
    struct impl;
    std::unique_ptr<impl> p_;
};

// What the server sends back to `input`, the bytes a client sends on one connection and then
// closes its side: the same connection handling as a network connection (parser, limits,
// keep-alive, pipelining), over an in-memory stream. For tests and fuzzing.
std::string answer_connection(resource_cache& cache, const std::string& input,
                              access_control* access = nullptr);

}  // namespace redfish
