// The Redfish service over HTTP (see redfish/http.h): the listener, the event loops, the
// connection cap and the open-file limit. Each connection is a redfish/connection.h.
#include "redfish/http.h"

#include <stdio.h>
#include <sys/resource.h>

#include <algorithm>
#include <atomic>
#include <boost/asio.hpp>
#include <boost/asio/ssl.hpp>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "redfish/cache.h"
#include "redfish/connection.h"
#include "redfish/files.h"

namespace redfish {

using namespace engine;

namespace {

// The open-file limit raised, where the hard limit allows, to fit the connection cap.
size_t raise_file_limit() {
    struct rlimit rl;
    if (getrlimit(RLIMIT_NOFILE, &rl) != 0) return kMaxConnections + kReservedFiles;
    rlim_t want = kMaxConnections + kReservedFiles;
    if (rl.rlim_cur != RLIM_INFINITY && rl.rlim_cur < want) {
        rlim_t raised = rl.rlim_max == RLIM_INFINITY ? want : std::min(want, rl.rlim_max);
        struct rlimit next = rl;
        next.rlim_cur = raised;
        if (setrlimit(RLIMIT_NOFILE, &next) == 0) rl.rlim_cur = raised;
    }
    return rl.rlim_cur == RLIM_INFINITY ? want : static_cast<size_t>(rl.rlim_cur);
}

}  // namespace

// One event loop per thread, each run by that thread alone (so without locks); the listener
// and the watchdog's sweep live on the first, and accepted connections go to the loops in turn.
struct http_server::impl {
    explicit impl(std::string database) : cache(std::move(database)) {}

    static std::vector<std::unique_ptr<net::io_context>> make_loops() {
        std::vector<std::unique_ptr<net::io_context>> out;
        unsigned threads = std::max(1u, std::min(4u, std::thread::hardware_concurrency()));
        for (unsigned i = 0; i < threads; ++i) out.push_back(std::make_unique<net::io_context>(1));
        return out;
    }

    void accept() {
        net::io_context& loop = *loops[next++ % loops.size()];
        acceptor.async_accept(loop, [this](error_code ec, tcp::socket socket) {
            if (ec == net::error::operation_aborted || !acceptor.is_open()) return;
            if (ec) {
                // Out of files or memory: try again shortly rather than spin.
                retry.expires_after(std::chrono::milliseconds(100));
                retry.async_wait([this](error_code) { accept(); });
                return;
            }
            error_code ignored;
            if (open.load() >= max_connections) {
                socket.close(ignored);
            } else {
                socket.set_option(tcp::no_delay(true), ignored);
                if (tls_context) {
                    std::make_shared<connection<tls_stream>>(tls_stream(std::move(socket), *tls_context),
                                                             cache, access.get(), open, &dog)
                        ->start();
                } else {
                    std::make_shared<connection<tcp::socket>>(std::move(socket), cache, access.get(), open,
                                                              &dog)
                        ->start();
                }
            }
            accept();
        });
    }

    void sweep() {
        sweeper.expires_after(std::chrono::seconds(1));
        sweeper.async_wait([this](error_code ec) {
            if (ec) return;
            dog.sweep();
            sweep();
        });
    }

    resource_cache cache;
    std::unique_ptr<net::ssl::context> tls_context;  // null: plain HTTP
    std::unique_ptr<access_control> access;          // null: no users file
    std::atomic<size_t> open{0};
    watchdog dog;
    size_t file_limit = 0, max_connections = kMaxConnections;
    size_t next = 0;
    // After what their handlers use, so that they go first; the listener and timers after the
    // loops, so that they go before them.
    std::vector<std::unique_ptr<net::io_context>> loops = make_loops();
    tcp::acceptor acceptor{*loops.at(0)};
    net::steady_timer retry{*loops.at(0)}, sweeper{*loops.at(0)};
};

http_server::http_server(std::string database) : p_(new impl(std::move(database))) {
    p_->file_limit = raise_file_limit();
    if (p_->file_limit < kMaxConnections + kReservedFiles)
        p_->max_connections =
            p_->file_limit > 2 * kReservedFiles ? p_->file_limit - kReservedFiles : kReservedFiles;
}

http_server::~http_server() = default;

size_t http_server::max_connections() const { return p_->max_connections; }
size_t http_server::open_file_limit() const { return p_->file_limit; }

bool http_server::use_tls(const std::string& cert_file, const std::string& key_file, std::string& error) {
    std::string cert_pem, key_pem;
    for (const std::string* file : {&cert_file, &key_file}) {
        if (!read_whole_file(*file, file == &cert_file ? cert_pem : key_pem)) {
            error = "cannot read '" + *file + "'";
            return false;
        }
    }
    return configure_tls(cert_pem, key_pem, "'" + cert_file + "'", "'" + key_file + "'", error);
}

bool http_server::use_tls_pem(const std::string& certificate_pem, const std::string& key_pem,
                              std::string& error) {
    return configure_tls(certificate_pem, key_pem, "the certificate", "the private key", error);
}

bool http_server::configure_tls(const std::string& cert_pem, const std::string& key_pem,
                                const std::string& cert_name, const std::string& key_name,
                                std::string& error) {
    auto context = std::make_unique<net::ssl::context>(net::ssl::context::tls_server);
    SSL_CTX* ctx = context->native_handle();
    SSL_CTX_set_min_proto_version(ctx, TLS1_2_VERSION);
    context->set_options(net::ssl::context::default_workarounds | net::ssl::context::single_dh_use |
                         net::ssl::context::no_compression);
    const std::string mismatch =
        "the private key " + key_name + " does not belong to the certificate " + cert_name;
    error_code ec;
    context->use_certificate_chain(net::buffer(cert_pem), ec);
    if (ec) {
        error = cert_name + " holds no PEM certificate that can be used (" + ec.message() + ")";
        return false;
    }
    context->use_private_key(net::buffer(key_pem), net::ssl::context::pem, ec);
    if (ec) {
        bool other_key = ec.category() == net::error::get_ssl_category() &&
                         ERR_GET_REASON(static_cast<unsigned long>(ec.value())) == X509_R_KEY_VALUES_MISMATCH;
        error = other_key ? mismatch
                          : key_name + " holds no PEM private key that can be used (" + ec.message() + ")";
        return false;
    }
    if (SSL_CTX_check_private_key(ctx) != 1) {
        error = mismatch;
        return false;
    }
    p_->tls_context = std::move(context);
    return true;
}

bool http_server::tls() const { return p_->tls_context != nullptr; }

void http_server::require_login(users accounts, const access_options& options) {
    p_->access = std::make_unique<access_control>(std::move(accounts), options);
}

int http_server::loopback(const std::string& address) {
    net::io_context ioc;
    tcp::resolver resolver(ioc);
    error_code ec;
    auto endpoints = resolver.resolve(address, "0", tcp::resolver::passive, ec);
    if (ec || endpoints.empty()) return -1;
    // bind() listens on the first.
    return endpoints.begin()->endpoint().address().is_loopback() ? 1 : 0;
}

int http_server::bind(const std::string& address, int port) {
    error_code ec;
    tcp::resolver resolver(*p_->loops[0]);
    auto endpoints = resolver.resolve(address, std::to_string(port), tcp::resolver::passive, ec);
    if (ec || endpoints.empty()) return -1;
    tcp::endpoint at = endpoints.begin()->endpoint();
    tcp::acceptor& a = p_->acceptor;
    a.open(at.protocol(), ec);
    // SO_REUSEADDR only: a second server may not share a port that this one serves.
    if (!ec) a.set_option(net::socket_base::reuse_address(true), ec);
    if (!ec) a.bind(at, ec);
    if (!ec) a.listen(net::socket_base::max_listen_connections, ec);
    if (ec) {
        a.close(ec);
        return -1;
    }
    return a.local_endpoint().port();
}

bool http_server::run() {
    if (!p_->acceptor.is_open()) return false;
    p_->accept();
    p_->sweep();
    auto serve = [](net::io_context& loop) {
        auto work = net::make_work_guard(loop);  // a loop without connections waits for some
        for (;;) {
            try {
                loop.run();
                return;
            } catch (const std::exception& e) {
                // The connection whose handler threw is gone; the others go on.
                fprintf(stderr, "aimctl serve: %s\n", e.what());
            }
        }
    };
    std::vector<std::thread> others;
    for (size_t i = 1; i < p_->loops.size(); ++i) others.emplace_back(serve, std::ref(*p_->loops[i]));
    serve(*p_->loops[0]);
    for (std::thread& t : others) t.join();
    return true;
}

void http_server::stop() {
    for (auto& loop : p_->loops) loop->stop();
}

std::string answer_connection(resource_cache& cache, const std::string& input, access_control* access) {
    net::io_context ioc;
    beast::test::stream server(ioc), client(ioc);
    server.connect(client);
    server.append(input);
    client.close();
    std::atomic<size_t> open{0};
    std::make_shared<connection<beast::test::stream>>(std::move(server), cache, access, open, nullptr)
        ->start();
    ioc.run();
    return std::string(client.str());
}

}  // namespace redfish
