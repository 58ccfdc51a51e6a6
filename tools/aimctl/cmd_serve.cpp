// aimctl serve --db DB [--bind ADDR] [--port N] [--tls | --tls-cert FILE --tls-key FILE]
// [--users FILE [--session-timeout S]]: the inventory database as a read-only Redfish service
// and inventory page over HTTP or HTTPS, until SIGINT or SIGTERM; with a users file, only for
// those who log in. Beyond loopback it serves only with both HTTPS and a users file.
#include <pthread.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <string>
#include <thread>
#include <vector>

#include "redfish/certificate.h"
#include "redfish/http.h"
#include "redfish/users.h"
#include "tools/aimctl/command.h"

namespace aimctl {
namespace {

int run_serve(const std::vector<std::string>& args) {
    std::string db_path, address = "127.0.0.1", port_text = "8000", cert_file, key_file, users_file,
                         timeout_text;
    bool self_signed = false;
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& a = args[i];
        if (a == "--tls") {
            self_signed = true;
        } else if (a == "--db" || a == "--bind" || a == "--port" || a == "--tls-cert" || a == "--tls-key" ||
                   a == "--users" || a == "--session-timeout") {
            if (i + 1 >= args.size()) return usage_error("serve", a + " needs a value");
            std::string& value = a == "--db"         ? db_path
                                 : a == "--bind"     ? address
                                 : a == "--port"     ? port_text
                                 : a == "--tls-cert" ? cert_file
                                 : a == "--tls-key"  ? key_file
                                 : a == "--users"    ? users_file
                                                     : timeout_text;
            value = args[++i];
        } else if (a.size() > 1 && a[0] == '-') {
            return usage_error("serve", "unknown option '" + a + "'");
        } else {
            return usage_error("serve", "unexpected argument '" + a + "'");
        }
    }
    if (db_path.empty()) return usage_error("serve", "missing --db DB");
    if (cert_file.empty() != key_file.empty())
        return usage_error("serve", "--tls-cert and --tls-key go together");
    if (self_signed && !cert_file.empty())
        return usage_error("serve", "--tls makes its own certificate: give it or --tls-cert and --tls-key");
    char* end = nullptr;
    long port = strtol(port_text.c_str(), &end, 10);
    if (port_text.empty() || *end || port < 0 || port > 65535)
        return usage_error("serve", "--port needs a number from 0 to 65535");
    redfish::access_options access;
    if (!timeout_text.empty()) {
        if (users_file.empty()) return usage_error("serve", "--session-timeout needs --users");
        long timeout = strtol(timeout_text.c_str(), &end, 10);
        if (*end || timeout < 1 || timeout > 86400)
            return usage_error("serve", "--session-timeout needs a number of seconds from 1 to 86400");
        access.session_timeout = timeout;
    }
    bool tls = self_signed || !cert_file.empty();
    int loopback = redfish::http_server::loopback(address);
    if (loopback == 0 && !(tls && !users_file.empty())) {
        fprintf(stderr, "aimctl serve: %s is not a loopback address: %s\n", address.c_str(),
                users_file.empty() ? "beyond this machine the service needs a users file (--users) and HTTPS"
                                   : "users' passwords never cross a network in clear text: add --tls or "
                                     "--tls-cert and --tls-key");
        return exit_usage;
    }
    struct stat st;
    if (stat(db_path.c_str(), &st) != 0) {
        fprintf(stderr, "aimctl serve: no database '%s'\n", db_path.c_str());
        return exit_failed;
    }

    // SIGINT and SIGTERM are taken by one thread that stops the server; the server's
    // threads, started after this, never see them. SIGUSR1 ends that thread otherwise.
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGUSR1);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);

    redfish::http_server server(db_path);
    std::string why, fingerprint;
    if (!users_file.empty()) {
        try {
            server.require_login(redfish::users::load(users_file), access);
        } catch (const redfish::users_error& e) {
            fprintf(stderr, "aimctl serve: %s\n", e.what());
            return exit_usage;
        }
    }
    if (!cert_file.empty() && !server.use_tls(cert_file, key_file, why)) {
        fprintf(stderr, "aimctl serve: %s\n", why.c_str());
        return exit_usage;
    }
    if (self_signed) {
        redfish::self_signed made;
        if (!redfish::make_self_signed(address, made, why) ||
            !server.use_tls_pem(made.certificate_pem, made.key_pem, why)) {
            fprintf(stderr, "aimctl serve: %s\n", why.c_str());
            return exit_failed;
        }
        fingerprint = made.sha256_fingerprint;
    }
    int bound = server.bind(address, static_cast<int>(port));
    if (bound < 0) {
        fprintf(stderr, "aimctl serve: cannot listen on %s:%ld\n", address.c_str(), port);
        return exit_failed;
    }
    std::string host = address.find(':') != std::string::npos ? "[" + address + "]" : address;
    printf("listening on %s://%s:%d\n", server.tls() ? "https" : "http", host.c_str(), bound);
    fflush(stdout);
    fprintf(stderr, "aimctl serve: at most %zu connections at once (open-file limit %zu)\n",
            server.max_connections(), server.open_file_limit());
    if (!fingerprint.empty())
        fprintf(stderr, "aimctl serve: self-signed certificate, SHA-256 fingerprint %s\n",
                fingerprint.c_str());

    std::thread watcher([&] {
        int sig = 0;
        sigwait(&signals, &sig);
        server.stop();
    });
    bool ok = server.run();
    pthread_kill(watcher.native_handle(), SIGUSR1);
    watcher.join();
    if (!ok) {
        fprintf(stderr, "aimctl serve: the server stopped with an error\n");
        return exit_failed;
    }
    return exit_ok;
}

}  // namespace

AIMCTL_COMMAND("serve", "serve an inventory database as Redfish and an inventory page",
               "usage: aimctl serve --db DB [--bind ADDR] [--port N]\n"
               "                    [--tls | --tls-cert FILE --tls-key FILE]\n"
               "                    [--users FILE [--session-timeout SECONDS]]\n\n"
               "Serves the inventory database DB over HTTP/1.1 as a read-only Redfish service\n"
               "(GET and HEAD of every resource that 'aimctl redfish' shows) and, at /, an\n"
               "inventory page that shows each adapter by slot. The resources are kept between\n"
               "requests and read again when the database has changed, so a new 'aimctl ingest'\n"
               "shows at the next request; no request changes it (any other method is answered\n"
               "405, but a login's and a logout's).\n"
               "  --bind ADDR  address to listen on (default 127.0.0.1); an address other than\n"
               "               loopback needs both HTTPS and --users\n"
               "  --port N     port (default 8000; 0 picks a free port)\n"
               "  --tls-cert FILE, --tls-key FILE\n"
               "               serve HTTPS (TLS 1.2 and 1.3) with this PEM certificate chain and\n"
               "               its PEM private key; a plain-HTTP request on the port gets no\n"
               "               answer\n"
               "  --tls        serve HTTPS with a certificate made at start: self-signed, ECDSA\n"
               "               P-256, valid one year, for ADDR; its SHA-256 fingerprint goes to\n"
               "               standard error\n"
               "  --users FILE only users of FILE may read the service: an htpasswd file\n"
               "               (htpasswd -B, -2 or -5 of apache2-utils), a line NAME:HASH[:ROLE]\n"
               "               each, ROLE Administrator, Operator or ReadOnly (the default).\n"
               "               Every resource but /redfish/v1, its $metadata and odata and\n"
               "               the page then needs HTTP Basic credentials or the X-Auth-Token\n"
               "               of a session (POST /redfish/v1/SessionService/Sessions); five\n"
               "               wrong passwords within a minute lock a user for 60 s\n"
               "  --session-timeout SECONDS\n"
               "               a session ends after SECONDS without use (default 1800; Redfish\n"
               "               clients expect 30 to 86400, less is for tests)\n\n"
               "The first line printed is 'listening on http://ADDR:PORT' (https with TLS);\n"
               "standard error then says how many connections are served at once (at most 1024,\n"
               "fewer when the open-file limit is lower). A connection is closed after 60 s\n"
               "without a request, or when a request's header is not complete 15 s after its\n"
               "first byte. A header over 8 KiB (431), a URI over 2 KiB (414) or a request body\n"
               "over 8 KiB (413) is refused and the connection closed. SIGINT or SIGTERM stops\n"
               "the server.\n\n"
               "Exit status: 0 when stopped by a signal, 1 when DB does not exist, the address\n"
               "cannot be bound or --tls cannot make its certificate, 2 for bad arguments, a\n"
               "certificate, key or users file that cannot be used, or an address beyond\n"
               "loopback without HTTPS and --users.\n",
               run_serve);

}  // namespace aimctl
