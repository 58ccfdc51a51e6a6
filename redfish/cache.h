// The Redfish resources of an inventory database, kept between requests.
//
// The cache holds one read-only SQLite connection on the database and, for the state of the
// database it last read, the model of redfish/service.h with every resource rendered as JSON
// text. Each request asks for the current generation: the cache checks, on its kept
// connection, whether anything was committed since ("PRAGMA data_version"), and whether the
// file at the path is still the one it opened (a new file there is opened afresh); only then
// does it read the tables again and render the resources anew. So a new `aimctl ingest` shows
// at the next request, and a request that finds the database unchanged costs one stat and
// one pragma. Nothing here writes to the database.
//
// Thread safety: current() may be called from any thread; a generation, once made, is
// immutable and stays valid for as long as a caller holds it.
#pragma once

#include <stdint.h>

#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>

#include "redfish/service.h"

struct sqlite3;
struct sqlite3_stmt;

namespace redfish {

// One answer as it goes out: status, body text and what the headers say of it.
struct rendered {
    int status = 200;
    std::string body;
    std::string content_type = "application/json";
    std::string etag;          // a strong validator of the body ("\"...\""); empty for errors
    std::string described_by;  // the JsonSchemaFile of its @odata.type, for the Link header
};

// A service answer rendered: the text, its ETag (of a 200 answer) and its schema link.
std::shared_ptr<const rendered> render(const response& r);

// One state of the database: its tables, its model and every resource rendered.
class generation {
public:
    explicit generation(snapshot db);
    // The resource at `path` (trailing slashes ignored): the rendered text of a resource the
    // service lists, else the service's answer (404) rendered for this request.
    std::shared_ptr<const rendered> get(const std::string& path) const;
    const service& resources() const { return service_; }

private:
    snapshot db_;
    service service_;  // reads db_, so it is declared after it
    std::unordered_map<std::string, std::shared_ptr<const rendered>> bodies_;
};

class resource_cache {
public:
    explicit resource_cache(std::string path);
    ~resource_cache();
    resource_cache(const resource_cache&) = delete;
    resource_cache& operator=(const resource_cache&) = delete;

    // The generation of the database as it is now; null with the reason in `error` when the
    // database cannot be opened or read (the next call tries again).
    std::shared_ptr<const generation> current(std::string& error);

private:
    bool reopen(std::string& error);
    void close();

    const std::string path_;
    std::mutex mutex_;
    sqlite3* db_ = nullptr;
    sqlite3_stmt* version_stmt_ = nullptr;  // "PRAGMA data_version", kept prepared
    uint64_t device_ = 0, inode_ = 0;       // the file that db_ has open
    int64_t version_ = -1;                  // "PRAGMA data_version" when gen_ was read
    std::shared_ptr<const generation> gen_;
};

}  // namespace redfish
