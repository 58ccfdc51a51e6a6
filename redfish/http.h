// The Redfish service and inventory page over HTTP/1.1 (cpp-httplib): GET and HEAD of every
// resource of redfish/service.h, the database read afresh for each request, "/" the
// inventory page. Read-only: any other method is answered 405 with "Allow: GET, HEAD".
#pragma once

#include <memory>
#include <string>

namespace redfish {

// The inventory page (HTML with its script and style), served at "/".
const char* inventory_page();

class http_server {
public:
    explicit http_server(std::string database);
    ~http_server();
    http_server(const http_server&) = delete;
    http_server& operator=(const http_server&) = delete;

    // Binds `address`:`port` (port 0: a free port); the port bound, or -1.
    int bind(const std::string& address, int port);
    // Serves until stop(); false when it could not serve.
    bool run();
    // Stops run(); safe from another thread.
    void stop();

private:
    struct impl;
    std::unique_ptr<impl> p_;
};

}  // namespace redfish
