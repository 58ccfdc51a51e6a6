// The kept Redfish resources of an inventory database (see redfish/cache.h).
#include "redfish/cache.h"

#include <sqlite3.h>
#include <stdio.h>
#include <sys/stat.h>

#include <utility>

namespace redfish {
namespace {

std::string without_trailing_slashes(std::string path) {
    while (path.size() > 1 && path.back() == '/') path.pop_back();
    return path;
}

// FNV-1a, 64 bits: the same text always gets the same tag, in every process.
uint64_t fingerprint(const std::string& text) {
    uint64_t h = 14695981039346656037ull;
    for (unsigned char c : text) {
        h ^= c;
        h *= 1099511628211ull;
    }
    return h;
}

}  // namespace

std::shared_ptr<const rendered> render(const response& r) {
    auto out = std::make_shared<rendered>();
    out->status = r.status;
    if (r.content_type) {
        out->body = r.text;
        out->content_type = r.content_type;
    } else {
        out->body = to_text(r.body);
    }
    if (r.status != 200) return out;
    // The tag is of the body as the service made it; where the schema has "@odata.etag", the
    // body then carries the same tag (a function of that body, so still a strong validator).
    char tag[24];
    snprintf(tag, sizeof tag, "\"%016llx\"", static_cast<unsigned long long>(fingerprint(out->body)));
    out->etag = tag;
    if (!r.content_type && r.body.is_object() && r.body.contains("@odata.type") &&
        r.body["@odata.type"].is_string()) {
        const std::string type = r.body["@odata.type"].get<std::string>();
        out->described_by = described_by(type);
        if (has_odata_etag(type)) {
            json tagged = json::object();
            for (auto it = r.body.begin(); it != r.body.end(); ++it) {
                tagged[it.key()] = it.value();
                if (it.key() == "@odata.type") tagged["@odata.etag"] = out->etag;
            }
            out->body = to_text(tagged);
        }
    }
    return out;
}

generation::generation(snapshot db) : db_(std::move(db)), service_(db_) {
    for (const std::string& uri : service_.uris()) bodies_.emplace(uri, render(service_.get(uri)));
}

std::shared_ptr<const rendered> generation::get(const std::string& path) const {
    std::string uri = without_trailing_slashes(path);
    auto it = bodies_.find(uri);
    if (it != bodies_.end()) return it->second;
    // Not a listed resource: whatever the service answers (404 for anything it does not
    // know), rendered for this request only, so that unknown URIs never grow the cache.
    return render(service_.get(path));
}

resource_cache::resource_cache(std::string path) : path_(std::move(path)) {}

resource_cache::~resource_cache() { close(); }

void resource_cache::close() {
    sqlite3_finalize(version_stmt_);
    version_stmt_ = nullptr;
    if (db_) sqlite3_close(db_);
    db_ = nullptr;
    version_ = -1;
    gen_.reset();
}

bool resource_cache::reopen(std::string& error) {
    close();
    struct stat st;
    if (stat(path_.c_str(), &st) != 0) {
        error = "unable to open database file";
        return false;
    }
    // Read-only, and never created: a missing file is an error, not an empty database.
    int rc = sqlite3_open_v2(path_.c_str(), &db_, SQLITE_OPEN_READONLY | SQLITE_OPEN_NOMUTEX, nullptr);
    if (rc != SQLITE_OK) {
        error = db_ ? sqlite3_errmsg(db_) : "out of memory";
        close();
        return false;
    }
    sqlite3_busy_timeout(db_, 2000);
    device_ = static_cast<uint64_t>(st.st_dev);
    inode_ = static_cast<uint64_t>(st.st_ino);
    return true;
}

std::shared_ptr<const generation> resource_cache::current(std::string& error) {
    std::lock_guard<std::mutex> lock(mutex_);
    struct stat st;
    bool same_file = db_ && stat(path_.c_str(), &st) == 0 && static_cast<uint64_t>(st.st_dev) == device_ &&
                     static_cast<uint64_t>(st.st_ino) == inode_;
    if (!same_file && !reopen(error)) return nullptr;

    // The data version of the kept connection changes whenever another connection (another
    // process included) commits to the database.
    int64_t version = -1;
    if (!version_stmt_) sqlite3_prepare_v2(db_, "PRAGMA data_version", -1, &version_stmt_, nullptr);
    if (version_stmt_ && sqlite3_step(version_stmt_) == SQLITE_ROW)
        version = sqlite3_column_int64(version_stmt_, 0);
    if (version_stmt_) sqlite3_reset(version_stmt_);
    if (version < 0) {
        error = sqlite3_errmsg(db_);
        close();
        return nullptr;
    }
    if (gen_ && version == version_) return gen_;

    snapshot db;
    if (!db.read(db_, error)) {
        gen_.reset();
        return nullptr;
    }
    gen_ = std::make_shared<const generation>(std::move(db));
    version_ = version;
    return gen_;
}

}  // namespace redfish
