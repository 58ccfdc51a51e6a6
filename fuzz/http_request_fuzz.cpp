// Any bytes as what a client sends on one connection to the Redfish service (request lines,
// headers, pipelined requests, junk), through the server's connection handling to the bytes
// it answers, over the inventory database of the example machine server-2u. Every answer must
// be a whole HTTP/1.1 response with a status code, and the answers must be all that was sent.
// Each input goes to the server twice: without a users file, and with one (an Administrator
// "admin", password "fuzz", and a ReadOnly "reader" of the same password), fresh each time, so
// that logins, credentials and the session service are fuzzed too.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <memory>
#include <string>
#include <vector>

#include "fuzz/harness.h"
#include "redfish/access.h"
#include "redfish/cache.h"
#include "redfish/connection.h"
#include "redfish/http.h"

namespace {

redfish::resource_cache* cache;
redfish::users* accounts;

[[noreturn]] void bad_answer(const std::string& answer, const char* why) {
    fprintf(stderr, "http_request: %s in the answer:\n%.*s\n", why,
            static_cast<int>(answer.size() > 4000 ? 4000 : answer.size()), answer.data());
    abort();
}

// Whether each request of `input` that the server can have read whole is a HEAD, in order (the
// answer to a HEAD has a length but no body). The requests are framed as the server frames
// them: a body within the server's limit is read and the connection goes on; a request the
// server refuses (unparsable, too large, too long a target) or one that ends the connection
// is the last it answers.
std::vector<bool> heads(const std::string& input) {
    namespace http = boost::beast::http;
    namespace engine = redfish::engine;
    std::vector<bool> out;
    boost::beast::string_view rest(input);
    while (!rest.empty()) {
        http::request_parser<http::string_body> parser;
        parser.header_limit(static_cast<std::uint32_t>(engine::kHeaderLimit));
        parser.body_limit(engine::kBodyLimit);
        parser.eager(true);
        boost::system::error_code ec;
        size_t used = parser.put(boost::asio::buffer(rest.data(), rest.size()), ec);
        // A refused request is answered with a body, whatever its method.
        if (ec || !parser.is_header_done()) break;
        const auto& req = parser.get();
        out.push_back(req.method() == http::verb::head);
        if (req.target().size() > engine::kTargetLimit || !parser.is_done() || !req.keep_alive()) break;
        rest.remove_prefix(used);
    }
    return out;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    fuzz::controller();
    cache = new redfish::resource_cache(fuzz::machine_database("server-2u"));
    // SHA-256 crypt of the fewest rounds, so that a check costs little.
    const std::string hash = "$5$rounds=1000$R9IAd.orog6alI/6$6yFtM9lC9CUltdc4ni4XstCID8oxwitRZApsZhb71ED";
    accounts = new redfish::users(
        redfish::users::parse("admin:" + hash + ":Administrator\nreader:" + hash + "\n", "fuzz users"));
    return 0;
}

namespace {

void check_answers(const std::string& input, const std::string& answer) {
    namespace http = boost::beast::http;
    std::vector<bool> head = heads(input);
    size_t n = 0;
    // The answers, one after the other, each parsed whole.
    if (answer.empty()) return;
    boost::beast::flat_buffer rest;
    auto in = rest.prepare(answer.size());
    memcpy(in.data(), answer.data(), answer.size());
    rest.commit(answer.size());
    while (rest.size() > 0) {
        http::response_parser<http::string_body> parser;
        parser.eager(true);
        parser.skip(n < head.size() && head[n]);
        ++n;
        boost::system::error_code ec;
        size_t used = parser.put(rest.data(), ec);
        if (ec && ec != http::error::need_more) bad_answer(answer, "a response that does not parse");
        rest.consume(used);
        // A response carries its length, so that its end is known without the connection's.
        if (!parser.is_done()) bad_answer(answer, "an incomplete response");
        const auto& res = parser.get();
        if (res.version() != 11 && res.version() != 10) bad_answer(answer, "an HTTP version other than 1.x");
        if (res.result_int() < 200 || res.result_int() > 599)
            bad_answer(answer, "a status code out of range");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string input(reinterpret_cast<const char*>(data), size);
    check_answers(input, redfish::answer_connection(*cache, input));
    redfish::access_control access(*accounts);
    check_answers(input, redfish::answer_connection(*cache, input, &access));
    return 0;
}
