// One client connection of the Redfish server (internal to redfish/http.cpp): a template over
// the stream (a socket, a TLS stream over one, or the in-memory stream of
// answer_connection(), which so runs exactly the code that a socket runs). Its handlers run on its event
// loop's thread; it lives for as long as an operation of it is pending. The watchdog closes connections whose
// deadline has passed.
#pragma once

#include <stdint.h>

#include <algorithm>
#include <atomic>
#include <boost/asio.hpp>
#include <boost/asio/ssl.hpp>
#include <boost/beast/_experimental/test/stream.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <chrono>
#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "redfish/access.h"
#include "redfish/cache.h"
#include "redfish/protocol.h"

namespace redfish {
namespace engine {

namespace beast = boost::beast;
namespace http = beast::http;
namespace net = boost::asio;
using tcp = net::ip::tcp;
using error_code = boost::system::error_code;

const std::chrono::seconds kIdleTime(60);    // waiting for the first byte of a request
const std::chrono::seconds kHeaderTime(15);  // from that byte to the end of the header
const std::chrono::seconds kWriteTime(15);   // for the client to take an answer
const std::chrono::seconds kLingerTime(2);   // reading what a refused client still sends
const size_t kMaxConnections = 1024;
const size_t kReservedFiles = 64;  // the listener, the database, standard streams, spare
const size_t kHeaderLimit = 8 * 1024;
const size_t kTargetLimit = 2 * 1024;
const size_t kLingerBytes = 64 * 1024;
const size_t kBodyLimit = 8 * 1024;  // of a request's body (a login's; a GET's is read and ignored)

// ---- Streams ----------------------------------------------------------------------------------

inline void close_stream(tcp::socket& s) {
    error_code ec;
    s.shutdown(tcp::socket::shutdown_both, ec);
    s.close(ec);
}
inline void close_sending(tcp::socket& s) {
    error_code ec;
    s.shutdown(tcp::socket::shutdown_send, ec);
}
inline void close_stream(beast::test::stream& s) { s.close(); }
inline void close_sending(beast::test::stream&) {}
// Closing a TLS connection here closes its socket at once (a timeout, an error); the end
// after an answer says so in TLS first (connection::finish).
using tls_stream = net::ssl::stream<tcp::socket>;
inline void close_stream(tls_stream& s) { close_stream(s.next_layer()); }
inline void close_sending(tls_stream& s) { close_sending(s.next_layer()); }

// True for a stream that begins with a TLS handshake.
template <class Stream>
struct is_tls : std::false_type {};
template <>
struct is_tls<tls_stream> : std::true_type {};

// ---- Deadlines -------------------------------------------------------------------------------

using clock_type = std::chrono::steady_clock;

inline int64_t now_ns() {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(clock_type::now().time_since_epoch()).count();
}

// What the watchdog sees of a connection: its deadline and a way to close it on its own thread.
class watched {
public:
    virtual ~watched() = default;
    virtual void expire() = 0;  // posts, to the connection's thread, closing when overdue
    std::atomic<int64_t> deadline{INT64_MAX};
};

// Every connection of the server with its deadline, swept once a second: a connection past it
// is closed. One sweep instead of a timer per connection keeps the timer out of each request
// (a deadline is one store), at the price of closing up to a second late.
class watchdog {
public:
    std::list<std::weak_ptr<watched>>::iterator add(std::weak_ptr<watched> c) {
        std::lock_guard<std::mutex> lock(mutex_);
        return connections_.insert(connections_.end(), std::move(c));
    }
    void remove(std::list<std::weak_ptr<watched>>::iterator at) {
        std::lock_guard<std::mutex> lock(mutex_);
        connections_.erase(at);
    }
    void sweep() {
        std::vector<std::shared_ptr<watched>> overdue;
        int64_t now = now_ns();
        {
            std::lock_guard<std::mutex> lock(mutex_);
            for (const auto& weak : connections_) {
                std::shared_ptr<watched> c = weak.lock();
                if (c && c->deadline.load(std::memory_order_relaxed) <= now) overdue.push_back(std::move(c));
            }
        }
        // Released outside the lock: the last reference may end a connection, which removes
        // itself from the list.
        for (auto& c : overdue) c->expire();
    }

private:
    std::mutex mutex_;
    std::list<std::weak_ptr<watched>> connections_;
};

// ---- One connection ---------------------------------------------------------------------------

template <class Stream>
class connection : public watched, public std::enable_shared_from_this<connection<Stream>> {
public:
    // `dog` (null for an in-memory stream, which never waits) closes the connection when a
    // deadline passes.
    // `access` (null: no users file) checks who asks.
    connection(Stream stream, resource_cache& cache, access_control* access, std::atomic<size_t>& open,
               watchdog* dog)
        : stream_(std::move(stream)),
          buffer_(kHeaderLimit + 4096),
          cache_(cache),
          access_(access),
          open_(open),
          dog_(dog) {
        ++open_;
    }
    ~connection() override {
        if (dog_) dog_->remove(watch_);
        --open_;
    }

    void start() {
        if (dog_) watch_ = dog_->add(this->shared_from_this());
        if constexpr (is_tls<Stream>::value) {
            // The handshake has the header's time: a client that never completes it (a plain
            // HTTP request on the TLS port, say) is closed without an answer.
            arm(kHeaderTime);
            stream_.async_handshake(net::ssl::stream_base::server,
                                    [self = shared_from_this()](error_code ec) {
                                        if (self->closed_) return;
                                        if (ec) return self->close();
                                        self->wait_for_request();
                                    });
        } else {
            wait_for_request();
        }
    }

    void expire() override {
        net::post(stream_.get_executor(), [self = this->shared_from_this()] {
            if (self->deadline.load(std::memory_order_relaxed) <= now_ns()) self->close();
        });
    }

private:
    using std::enable_shared_from_this<connection>::shared_from_this;

    // The connection is closed when `limit` passes before the next arm() or the end.
    void arm(std::chrono::seconds limit) {
        deadline.store(now_ns() + std::chrono::duration_cast<std::chrono::nanoseconds>(limit).count(),
                       std::memory_order_relaxed);
    }

    void close() {
        if (closed_) return;
        closed_ = true;
        deadline.store(INT64_MAX, std::memory_order_relaxed);
        close_stream(stream_);
    }

    // Ends the connection after an answer. TLS first says so (close_notify), so that a client
    // reading to the end of the stream sees a clean end, and waits briefly for the client's
    // own; the watchdog closes a client that never answers.
    void finish() {
        if constexpr (is_tls<Stream>::value) {
            arm(kLingerTime);
            stream_.async_shutdown([self = shared_from_this()](error_code) { self->close(); });
        } else {
            close();
        }
    }

    // Idle: waits for the first byte of the next request (pipelined bytes count at once).
    void wait_for_request() {
        if (buffer_.size() > 0) return read_header();
        arm(kIdleTime);
        stream_.async_read_some(buffer_.prepare(512), [self = shared_from_this()](error_code ec, size_t n) {
            if (self->closed_) return;
            if (ec) return self->close();
            self->buffer_.commit(n);
            self->read_header();
        });
    }

    void read_header() {
        arm(kHeaderTime);
        parser_.emplace();
        parser_->header_limit(static_cast<std::uint32_t>(kHeaderLimit));
        parser_->body_limit(kBodyLimit);
        http::async_read_header(stream_, buffer_, *parser_,
                                [self = shared_from_this()](error_code ec, size_t) {
                                    if (!self->closed_) self->on_header(ec);
                                });
    }

    void on_header(error_code ec) {
        if (!ec) return handle();
        if (ec == http::error::header_limit || ec == http::error::buffer_overflow) {
            // Too long a request line (the parser read no target) is a URI too long; else the
            // fields are too large.
            if (parser_->get().target().empty())
                return respond(error_reply(414, "The URI is longer than 2 KiB."), after::linger, false);
            return respond(error_reply(431, "The request header is larger than 8 KiB."), after::linger,
                           false);
        }
        // A body announced larger than a request may bring (the parser checks the length with
        // the header).
        if (ec == http::error::body_limit) return respond(error_reply(413, ""), after::linger, false);
        // A request that cannot be parsed is answered; a client that left (before or inside a
        // request) or a broken connection is not.
        bool parse_error = ec.category() == http::make_error_code(http::error::bad_target).category() &&
                           ec != http::error::end_of_stream && ec != http::error::partial_message;
        if (parse_error)
            return respond(error_reply(400, "The request cannot be parsed."), after::linger, false);
        close();
    }

    void handle() {
        const auto& req = parser_->get();
        bool head = req.method() == http::verb::head;
        if (req.target().size() > kTargetLimit)
            return respond(error_reply(414, "The URI is longer than 2 KiB."), after::linger, head);
        if (!parser_->is_done()) {
            // A body: read when small (a GET's then ignored), else refused.
            if (parser_->content_length().value_or(0) > kBodyLimit)
                return respond(error_reply(413, ""), after::linger, head);
            http::async_read(stream_, buffer_, *parser_, [self = shared_from_this()](error_code ec, size_t) {
                if (self->closed_) return;
                if (ec == http::error::body_limit)
                    return self->respond(error_reply(413, ""), after::linger, false);
                if (ec) return self->close();
                self->answer_request();
            });
            return;
        }
        answer_request();
    }

    void answer_request() {
        const auto& req = parser_->get();
        bool head = req.method() == http::verb::head;
        request_view view;
        view.method = std::string(req.method_string());
        view.target = std::string(req.target());
        auto header = [&](const char* name) {
            auto it = req.find(name);
            return it == req.end() ? std::string() : std::string(it->value());
        };
        view.odata_version = header("OData-Version");
        view.odata_max_version = header("OData-MaxVersion");
        view.if_none_match = header("If-None-Match");
        view.authorization = header("Authorization");
        view.auth_token = header("X-Auth-Token");
        view.requested_with = header("X-Requested-With");
        view.body = req.body();
        respond(answer(view, cache_, access_), req.keep_alive() ? after::keep : after::close, head);
    }

    // What follows an answer: the next request, closing, or closing after whatever the client
    // still sends of a request that was refused before its end.
    enum class after { keep, close, linger };

    void respond(reply r, after next, bool head) {
        unsigned version = parser_ && parser_->is_header_done() ? parser_->get().version() : 11;
        reply_ = std::move(r);
        res_ = {};
        res_.version(version);
        res_.result(reply_.status);
        for (const auto& h : answer_headers(reply_)) res_.set(h.first, h.second);
        res_.keep_alive(next == after::keep);
        using span = http::span_body<const char>::value_type;
        if (reply_.status == 304 || reply_.status == 204) {
            res_.body() = span();
        } else {
            const std::string& text = reply_.body->body;
            res_.body() = head ? span() : span(text.data(), text.size());
            res_.content_length(text.size());
        }
        arm(kWriteTime);
        http::async_write(stream_, res_, [self = shared_from_this(), next](error_code ec, size_t) {
            if (self->closed_) return;
            if (ec) return self->close();
            self->reply_ = reply();
            if (next == after::keep) return self->wait_for_request();
            if (next == after::linger) return self->linger();
            self->finish();
        });
    }

    // After refusing a request whose rest is still coming: stops sending and reads (and drops)
    // what the client still sends for a short while, so that the client reads the answer
    // before the connection closes.
    void linger() {
        // TLS's closing exchange reads (and drops) what the client still sends, too.
        if constexpr (is_tls<Stream>::value) return finish();
        if (lingered_ == 0) {
            close_sending(stream_);
            arm(kLingerTime);
        }
        buffer_.clear();
        stream_.async_read_some(buffer_.prepare(4096), [self = shared_from_this()](error_code ec, size_t n) {
            if (self->closed_) return;
            self->lingered_ += n;
            if (ec || self->lingered_ > kLingerBytes) return self->close();
            self->linger();
        });
    }

    Stream stream_;
    beast::flat_buffer buffer_;
    std::optional<http::request_parser<http::string_body>> parser_;
    http::response<http::span_body<const char>> res_;
    reply reply_;  // owns the text that res_ points at while it is written
    resource_cache& cache_;
    access_control* access_;
    std::atomic<size_t>& open_;
    watchdog* dog_;
    std::list<std::weak_ptr<watched>>::iterator watch_;
    size_t lingered_ = 0;
    bool closed_ = false;
};

}  // namespace engine
}  // namespace redfish
