// The Redfish service over HTTP (see redfish/http.h).
//
// Requests that no resource can answer get an error answer and never stop the server: a
// path that is not UTF-8, holds a control byte or a ".." segment is refused with 400 before
// routing; cpp-httplib itself refuses an overlong request line (414) or header. Each request
// runs on a worker of the server's pool with its own snapshot of the database, so requests
// share nothing but the database file.
#include "redfish/http.h"

#include <httplib.h>
#include <sys/socket.h>

#include <algorithm>
#include <string>
#include <utility>

#include "redfish/service.h"
#include "redfish/snapshot.h"

namespace redfish {
namespace {

const size_t kWorkers = 16;
// Connections waiting to be accepted; cpp-httplib's own is 5, which a burst of 50 clients
// overflows.
const int kBacklog = 128;
const char* const kAllow = "GET, HEAD";

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

void send_json(httplib::Response& res, int status, const json& body) {
    res.status = status;
    res.set_content(to_text(body), "application/json");
}

}  // namespace

struct http_server::impl {
    std::string database;
    httplib::Server server;
    int listener = -1;  // the listening socket, once bound
};

http_server::http_server(std::string database) : p_(new impl) {
    p_->database = std::move(database);
    httplib::Server& s = p_->server;
    s.new_task_queue = [] { return new httplib::ThreadPool(kWorkers); };
    s.set_read_timeout(5, 0);
    s.set_write_timeout(5, 0);
    s.set_keep_alive_max_count(100);
    s.set_payload_max_length(64 * 1024);
    // SO_REUSEADDR only (cpp-httplib sets SO_REUSEPORT, which would let a second server
    // share a port that this one already serves).
    impl* state = p_.get();
    s.set_socket_options([state](socket_t sock) {
        int yes = 1;
        setsockopt(sock, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
        state->listener = sock;
    });

    s.set_pre_routing_handler([](const httplib::Request& req, httplib::Response& res) {
        if (clean_path(req.path) && !dot_dot(req.path)) return httplib::Server::HandlerResponse::Unhandled;
        send_json(res, 400, error_body(400, "The URI is not a valid resource path."));
        return httplib::Server::HandlerResponse::Handled;
    });
    const std::string database_path = p_->database;
    s.Get(".*", [database_path](const httplib::Request& req, httplib::Response& res) {
        if (req.path == "/" || req.path == "/index.html") {
            res.set_content(inventory_page(), "text/html; charset=utf-8");
            return;
        }
        snapshot db;
        std::string error;
        if (!db.read(database_path, error)) {
            send_json(res, 500, error_body(500, "The inventory database cannot be read: " + error));
            return;
        }
        response r = service(db).get(req.path);
        send_json(res, r.status, r.body);
    });
    auto refuse = [](const httplib::Request&, httplib::Response& res) {
        res.set_header("Allow", kAllow);
        send_json(res, 405, error_body(405, ""));
    };
    s.Post(".*", refuse);
    s.Put(".*", refuse);
    s.Patch(".*", refuse);
    s.Delete(".*", refuse);
    s.Options(".*", refuse);
    // Answers that cpp-httplib makes itself (a request it cannot read, a method it does not
    // know) get the Redfish error object too.
    s.set_error_handler([](const httplib::Request& req, httplib::Response& res) {
        if (!res.body.empty()) return;
        // A method that cpp-httplib has no handler kind for (PROPFIND, or a POST without a
        // length) is still a method this service does not allow.
        bool token = !req.method.empty() && std::all_of(req.method.begin(), req.method.end(), [](char c) {
            return (c >= 'A' && c <= 'Z') || c == '-' || c == '_';
        });
        if (token && req.method != "GET" && req.method != "HEAD" && res.status == 400) res.status = 405;
        if (res.status == 405) res.set_header("Allow", kAllow);
        send_json(res, res.status, error_body(res.status, res.status == 404 ? req.path : ""));
    });
    s.set_exception_handler([](const httplib::Request&, httplib::Response& res, std::exception_ptr) {
        send_json(res, 500, error_body(500, "The request could not be answered."));
    });
    s.set_post_routing_handler(
        [](const httplib::Request&, httplib::Response& res) { res.set_header("OData-Version", "4.0"); });
}

http_server::~http_server() = default;

int http_server::bind(const std::string& address, int port) {
    int bound = port == 0                                ? p_->server.bind_to_any_port(address)
                : p_->server.bind_to_port(address, port) ? port
                                                         : -1;
    if (bound >= 0 && p_->listener >= 0) ::listen(p_->listener, kBacklog);
    return bound;
}

bool http_server::run() { return p_->server.listen_after_bind(); }

void http_server::stop() { p_->server.stop(); }

}  // namespace redfish
