// aimctl machine: the simulated controller's "PCIs" rows from a real server's lspci and
// dmidecode output (or its sysfs), written as machine.json; with --aim, an AIM file checked
// against that machine.
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <sstream>

#include "aim/document.h"
#include "tools/aimctl/command.h"
#include "tools/machine/check.h"
#include "tools/machine/pci_machine.h"

namespace aimctl {
namespace {

const char* const kName = "machine";

// Reads a whole input file; false (after a message) when it cannot.
bool read_input(const std::string& path, std::string* out) {
    std::ifstream in(path.c_str(), std::ios::binary);
    if (!in) {
        fprintf(stderr, "aimctl machine: cannot open '%s': %s\n", path.c_str(), strerror(errno));
        return false;
    }
    std::ostringstream ss;
    ss << in.rdbuf();
    *out = ss.str();
    return true;
}

// DIR/machine.json with `pcis` as its "pcis"; the other keys of an existing machine.json stay.
// Written to a temporary file beside it and renamed over it: never a half file.
int write_machine(const std::string& dir, const nlohmann::ordered_json& pcis) {
    if (mkdir(dir.c_str(), 0777) != 0 && errno != EEXIST) {
        fprintf(stderr, "aimctl machine: cannot create '%s': %s\n", dir.c_str(), strerror(errno));
        return exit_failed;
    }
    const std::string path = dir + "/machine.json";
    nlohmann::ordered_json doc = nlohmann::ordered_json::object();
    std::ifstream old(path.c_str());
    if (old) {
        try {
            doc = nlohmann::ordered_json::parse(old);
        } catch (const nlohmann::json::exception& e) {
            fprintf(stderr, "aimctl machine: '%s' exists and is not JSON (%s); it is left as it is\n",
                    path.c_str(), e.what());
            return exit_usage;
        }
        if (!doc.is_object()) {
            fprintf(stderr, "aimctl machine: '%s' exists and is not a JSON object; it is left as it is\n",
                    path.c_str());
            return exit_usage;
        }
    }
    doc["pcis"] = pcis;
    std::string text = doc.dump(2) + "\n";
    std::string tmp = dir + "/.machine.json.XXXXXX";
    int fd = mkstemp(&tmp[0]);
    if (fd < 0) {
        fprintf(stderr, "aimctl machine: cannot write in '%s': %s\n", dir.c_str(), strerror(errno));
        return exit_failed;
    }
    bool ok = true;
    for (size_t off = 0; ok && off < text.size();) {
        ssize_t n = write(fd, text.data() + off, text.size() - off);
        if (n < 0 && errno == EINTR) continue;
        ok = n > 0;
        if (ok) off += static_cast<size_t>(n);
    }
    ok = ok && fchmod(fd, 0644) == 0 && fsync(fd) == 0;
    ok = close(fd) == 0 && ok;
    if (!ok || rename(tmp.c_str(), path.c_str()) != 0) {
        fprintf(stderr, "aimctl machine: cannot write '%s': %s\n", path.c_str(), strerror(errno));
        unlink(tmp.c_str());
        return exit_failed;
    }
    return exit_ok;
}

int run_machine(const std::vector<std::string>& args) {
    std::string lspci, dmidecode, sysfs, out, aim, format = "table";
    bool use_sysfs = false, format_given = false;
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& a = args[i];
        auto value = [&](std::string& dst) {
            if (i + 1 >= args.size() || args[i + 1].compare(0, 2, "--") == 0) return false;
            dst = args[++i];
            return true;
        };
        if (a == "--lspci") {
            if (!value(lspci)) return usage_error(kName, "--lspci needs a FILE");
        } else if (a == "--dmidecode") {
            if (!value(dmidecode)) return usage_error(kName, "--dmidecode needs a FILE");
        } else if (a == "--out") {
            if (!value(out)) return usage_error(kName, "--out needs a DIR");
        } else if (a == "--aim") {
            if (!value(aim)) return usage_error(kName, "--aim needs a FILE");
        } else if (a == "--format") {
            if (!value(format)) return usage_error(kName, "--format needs table or json");
            format_given = true;
            if (format != "table" && format != "json")
                return usage_error(kName, "unknown format '" + format + "'");
        } else if (a == "--sysfs") {
            use_sysfs = true;
            sysfs = "/";
            if (i + 1 < args.size() && args[i + 1].compare(0, 2, "--") != 0) sysfs = args[++i];
        } else {
            return usage_error(kName, "unknown argument '" + a + "'");
        }
    }
    if (lspci.empty() == !use_sysfs) return usage_error(kName, "give either --lspci FILE or --sysfs [ROOT]");
    if (format_given && aim.empty()) return usage_error(kName, "--format is the format of the --aim check");

    std::vector<machine::pcis_row> rows;
    machine::build_report report;
    machine::smbios_info smbios;
    try {
        std::vector<machine::pci_function> functions;
        std::string source;
        if (use_sysfs) {
            functions = machine::read_sysfs(sysfs);
            source = sysfs;
        } else {
            std::string text;
            if (!read_input(lspci, &text)) return exit_usage;
            functions = machine::parse_lspci(text, lspci);
            source = lspci;
        }
        if (!dmidecode.empty()) {
            std::string text;
            if (!read_input(dmidecode, &text)) return exit_usage;
            smbios = machine::parse_dmidecode(text, dmidecode);
        }
        rows = machine::build_rows(functions, source, dmidecode.empty() ? nullptr : &smbios, &report);
    } catch (const machine::input_error& e) {
        fprintf(stderr, "aimctl machine: %s\n", e.what());
        fprintf(stderr, "aimctl machine: nothing written\n");
        return exit_usage;
    }
    fprintf(stderr,
            "aimctl machine: %u functions read; %zu rows (left out: %u bridges, %u platform functions, %u "
            "virtual "
            "functions)",
            report.functions, rows.size(), report.left_out_bridges, report.left_out_platform,
            report.left_out_vfs);
    if (!dmidecode.empty()) {
        fprintf(stderr,
                "; %zu SMBIOS slots: %u hold a function, %u with no device at their address, %u sharing one",
                smbios.slots.size(), report.slots_matched, report.slots_invalid, report.slots_shared);
    }
    fprintf(stderr, "\n");
    for (const machine::pci_address& a : report.ids_cut) {
        fprintf(
            stderr,
            "aimctl machine: warning: lspci cut the name of %s and its ids with it; its ids are written as 0 "
            "(capture with lspci -vvnD for numbers only)\n",
            a.text().c_str());
    }

    // The AIM file is read before anything is written, so that a bad one leaves no file behind.
    aim_parser::document doc;
    if (!aim.empty()) {
        std::ifstream in(aim.c_str());
        if (!in) {
            fprintf(stderr, "aimctl machine: cannot open '%s': %s\n", aim.c_str(), strerror(errno));
            return exit_usage;
        }
        uint32_t rc = doc.parse(in);
        if (rc != 0) {
            fprintf(
                stderr,
                "aimctl machine: '%s' is not an AIM file the reader accepts (result %u); nothing written\n",
                aim.c_str(), static_cast<unsigned>(rc));
            return exit_usage;
        }
    }
    nlohmann::ordered_json pcis = machine::rows_json(rows);
    if (!out.empty()) {
        int rc = write_machine(out, pcis);
        if (rc != exit_ok) return rc;
    } else if (aim.empty()) {
        nlohmann::ordered_json doc_json;
        doc_json["pcis"] = pcis;
        printf("%s\n", doc_json.dump(2).c_str());
    }
    if (aim.empty()) return exit_ok;
    machine::aim_check check = machine::check_aim(doc, rows);
    if (format == "json") {
        printf("%s\n", machine::check_json(check).dump(2).c_str());
    } else {
        fputs(machine::check_table(check).c_str(), stdout);
    }
    return check.missing ? exit_failed : exit_ok;
}

}  // namespace

AIMCTL_COMMAND("machine", "build a machine's \"PCIs\" rows from lspci and dmidecode; check an AIM file",
               "usage: aimctl machine (--lspci FILE | --sysfs [ROOT]) [--dmidecode FILE] [--out DIR]\n"
               "                      [--aim FILE [--format table|json]]\n\n"
               "Reads a real server's PCI functions and writes the \"pcis\" of DIR/machine.json, the\n"
               "\"PCIs\" rows that the controller keeps, so that 'aimctl ingest --machine DIR' runs the\n"
               "library against that server's topology. Capture on the server:\n"
               "    lspci -vvnnD > lspci.txt           (or lspci -vvnD, lspci -vmmnnD; without -D the\n"
               "                                        segment is 0)\n"
               "    dmidecode -t slot > dmidecode.txt  (or the whole dmidecode output: it also names\n"
               "                                        onboard devices)\n\n"
               "  --lspci FILE      the output of lspci -vvnnD, lspci -vvnD or lspci -vmmnnD\n"
               "  --sysfs [ROOT]    read the running host instead: ROOT/sys/bus/pci (ROOT defaults to /)\n"
               "  --dmidecode FILE  dmidecode's system slots: slot numbers, designations and types\n"
               "  --out DIR         write DIR/machine.json (created; the other keys of an existing one\n"
               "                    are kept). Without --out and --aim the JSON goes to standard output.\n"
               "  --aim FILE        check the AIM file against the machine: each config with its address\n"
               "                    and slot, found or missing, 'slot differs' when the slot that its ID\n"
               "                    or mriName names (Slot3, Bay.4) is not the machine's, 'ids differ'\n"
               "                    when none of its firmware Software IDs is the function's vendor and\n"
               "                    device or subsystem ids; then the present functions that no config\n"
               "                    describes, and what would fill them\n"
               "  --format FORMAT   the check as a table (default) or json\n\n"
               "One row per present function, except bridges (class 06), SR-IOV virtual functions and\n"
               "the platform's own integrated functions outside any slot (classes 05, 07, 08, 0a, 0b,\n"
               "0c but Fibre Channel and InfiniBand, 10, 11, 13, ff). The README's machine.json section\n"
               "lists how each column is chosen. A summary of what was read goes to standard error.\n\n"
               "Exit status: 0 on success (with --aim: every config found its function), 1 when a\n"
               "config's function is missing or DIR cannot be written, 2 for bad arguments and for\n"
               "input that is not lspci or dmidecode output, a record cut short, an address listed\n"
               "twice or an impossible number: the message names the file and line, and nothing is\n"
               "written.\n",
               run_machine);

}  // namespace aimctl
