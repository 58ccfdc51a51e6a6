// aimctl redfish --db DB [URI] | --mockup DIR: the inventory database as the controller's
// Redfish service shows it, one resource as JSON or every resource as a DMTF mockup.
#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>

#include <fstream>
#include <string>
#include <vector>

#include "redfish/cache.h"
#include "redfish/service.h"
#include "redfish/snapshot.h"
#include "tools/aimctl/command.h"

namespace aimctl {
namespace {

// Creates `dir` and its parents.
bool make_dirs(const std::string& dir) {
    for (size_t at = 1; at <= dir.size(); ++at) {
        if (at != dir.size() && dir[at] != '/') continue;
        std::string part = dir.substr(0, at);
        if (mkdir(part.c_str(), 0755) != 0 && errno != EEXIST) return false;
    }
    return true;
}

// Each answer exactly as 'aimctl serve' sends it (its @odata.etag included). A resource goes to
// FOLDER/index.json; a document to FOLDER/index.xml ($metadata) or, when its URI names a file (the
// OEM schema's .xml and .json), to that file.
int write_mockup(const redfish::service& svc, const std::string& dir) {
    size_t written = 0;
    for (const std::string& uri : svc.uris()) {
        redfish::response r = svc.get(uri);
        auto sent = redfish::render(r);
        bool named = r.content_type && (uri.size() > 4 && (uri.compare(uri.size() - 4, 4, ".xml") == 0 ||
                                                           uri.compare(uri.size() - 5, 5, ".json") == 0));
        std::string folder = named ? dir + uri.substr(0, uri.rfind('/')) : dir + uri;
        std::string file = named                                     ? dir + uri
                           : sent->content_type == "application/xml" ? folder + "/index.xml"
                                                                     : folder + "/index.json";
        if (!make_dirs(folder)) {
            fprintf(stderr, "aimctl redfish: cannot create '%s': %s\n", folder.c_str(), strerror(errno));
            return exit_failed;
        }
        std::ofstream out(file, std::ios::binary | std::ios::trunc);
        out << sent->body << (r.content_type ? "" : "\n");
        if (!out) {
            fprintf(stderr, "aimctl redfish: cannot write '%s'\n", file.c_str());
            return exit_failed;
        }
        ++written;
    }
    printf("%zu resources written below %s/redfish/v1\n", written, dir.c_str());
    return exit_ok;
}

int run_redfish(const std::vector<std::string>& args) {
    std::string db_path, mockup, uri;
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& a = args[i];
        if (a == "--db" || a == "--mockup") {
            if (i + 1 >= args.size()) return usage_error("redfish", a + " needs a value");
            (a == "--db" ? db_path : mockup) = args[++i];
        } else if (a.size() > 1 && a[0] == '-') {
            return usage_error("redfish", "unknown option '" + a + "'");
        } else if (uri.empty()) {
            uri = a;
        } else {
            return usage_error("redfish", "unexpected argument '" + a + "'");
        }
    }
    if (db_path.empty()) return usage_error("redfish", "missing --db DB");
    if (!mockup.empty() && !uri.empty()) return usage_error("redfish", "give either URI or --mockup DIR");
    if (uri.empty()) uri = "/redfish/v1";
    if (uri[0] != '/') return usage_error("redfish", "URI must begin with '/'");
    struct stat st;
    if (stat(db_path.c_str(), &st) != 0) {
        fprintf(stderr, "aimctl redfish: no database '%s'\n", db_path.c_str());
        return exit_failed;
    }
    redfish::snapshot db;
    std::string error;
    if (!db.read(db_path, error)) {
        fprintf(stderr, "aimctl redfish: cannot read '%s': %s\n", db_path.c_str(), error.c_str());
        return exit_failed;
    }
    redfish::service svc(db);
    if (!mockup.empty()) return write_mockup(svc, mockup);
    redfish::response r = svc.get(uri);
    auto sent = redfish::render(r);
    fputs(sent->body.c_str(), stdout);
    if (!r.content_type) fputs("\n", stdout);
    return r.status == 200 ? exit_ok : exit_failed;
}

}  // namespace

AIMCTL_COMMAND("redfish", "print the Redfish resources of an inventory database",
               "usage: aimctl redfish --db DB [URI]\n"
               "       aimctl redfish --db DB --mockup DIR\n\n"
               "Shows the inventory database DB as the controller's Redfish service shows it to\n"
               "clients (the PCI adapters with their functions, VPD, firmware, network ports, GPUs\n"
               "and drives).\n"
               "  URI          print the resource at URI as JSON (default /redfish/v1); an unknown\n"
               "               URI prints the Redfish error object\n"
               "  --mockup DIR write every resource as a DMTF mockup: DIR/redfish/v1/.../index.json\n\n"
               "Exit status: 0 on success, 1 when the URI does not exist or DB cannot be read, 2\n"
               "for bad arguments.\n",
               run_redfish);

}  // namespace aimctl
