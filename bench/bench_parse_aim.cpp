// Whole parse_aim runs over generated AIM files of 256, 1024 and 4096 configs, side by side
// with the lower bound of such a run measured in the same process: a conforming parse of the
// same file (expat over the same bytes with empty handlers), the same number of rows
// inserted with one prepared statement in one transaction, and one indexed lookup per
// config. For each size it prints and writes to a CSV file:
//   - CPU time of both (median of interleaved repetitions), their ratio and T(N)/T(N/4);
//   - the same in instructions, counted by callgrind in a child process (when valgrind is
//     installed), each piece between client requests;
//   - the peak RSS of a child process running one whole parse_aim and of one loading the
//     file with pugixml (the memory anchor: pugixml's compact DOM);
//   - operator new calls per config of a whole run and of the reader alone, and of a whole
//     run those of the library's own code (none of whose callers is in the host platform's
//     shared object, the XML DOM and the database client);
//   - the library's own instructions per config;
//   - the cost of each step of a run (wipe, filter, reader, walk, after the walk, release of
//     the tree);
//   - of a whole run's instructions, the library's own: those outside the XML DOM (the
//     sysxml calls, expat included) and the database client (the vqm_db_* calls, SQLite
//     included), from callgrind's inclusive costs of those calls;
//   - the page faults of a run, of the lower bound and of each step (median of the
//     repetitions): memory that the allocator gave back to the kernel after the previous
//     run is faulted in again, and that shows in the CPU time but not in the instructions.
//
// --keep-heap holds glibc's trim and mmap thresholds fixed in the measuring process, so
// that freed memory stays in the heap from one repetition to the next at every size (with
// the default, dynamic thresholds, whether it does depends on the sizes of the run's
// largest blocks). It does not apply to the child processes.
//
// Usage: aim_bench [--sizes 32,256,1024,4096] [--reps N] [--csv FILE] [--no-callgrind] [--keep-heap]
#include <execinfo.h>
#include <expat.h>
#include <link.h>
#include <sqlite3.h>
#include <stdio.h>
#include <stdlib.h>
#include <limits.h>
#include <malloc.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>
#include <valgrind/callgrind.h>

#include <algorithm>
#include <dirent.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <new>
#include <pugixml.hpp>
#include <string>
#include <vector>

#include "aim/document.h"
#include "bench/gen.h"
#include "host/db.h"
#include "host/log.h"
#include "host/sysroot.h"
#include "ingest/parse_aim.h"
#include "ingest/parser.h"

// ---- Allocation counter: every operator new of the process -----------------------------------
// While `g_attribute` is set, each operator new is also told apart by its call stack: one
// with a frame inside the host platform's shared object (the XML DOM and the database
// client) is the platform's, any other the library's own.
// GCC sees the replacement new's malloc through the inlined calls and flags the matching
// free as a mismatch.
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
namespace {
unsigned long long g_news = 0;
bool g_attribute = false;
bool g_in_backtrace = false;
unsigned long long g_library_news = 0;
struct address_range {
    uintptr_t begin, end;
};
std::vector<address_range> g_platform_ranges;

// The loaded segments of the shared object that holds `symbol`.
std::vector<address_range> object_ranges(const void* symbol) {
    struct search {
        uintptr_t address;
        std::vector<address_range> ranges;
    } s{reinterpret_cast<uintptr_t>(symbol), {}};
    dl_iterate_phdr(
        [](dl_phdr_info* obj, size_t, void* data) {
            search* want = static_cast<search*>(data);
            std::vector<address_range> ranges;
            bool holds = false;
            for (int i = 0; i < obj->dlpi_phnum; ++i) {
                const ElfW(Phdr)& ph = obj->dlpi_phdr[i];
                if (ph.p_type != PT_LOAD) continue;
                uintptr_t begin = obj->dlpi_addr + ph.p_vaddr;
                ranges.push_back({begin, begin + ph.p_memsz});
                holds = holds || (want->address >= begin && want->address < begin + ph.p_memsz);
            }
            if (!holds) return 0;
            want->ranges = std::move(ranges);
            return 1;
        },
        &s);
    return s.ranges;
}

bool in_platform(uintptr_t pc) {
    for (const address_range& r : g_platform_ranges)
        if (pc >= r.begin && pc < r.end) return true;
    return false;
}

void attribute_allocation() {
    g_in_backtrace = true;
    void* frames[24];
    int n = backtrace(frames, 24);
    bool platform = false;
    for (int i = 1; i < n && !platform; ++i) platform = in_platform(reinterpret_cast<uintptr_t>(frames[i]));
    if (!platform) ++g_library_news;
    g_in_backtrace = false;
}
}  // namespace
void* operator new(size_t size) {
    ++g_news;
    if (g_attribute && !g_in_backtrace) attribute_allocation();
    if (void* p = malloc(size ? size : 1)) return p;
    throw std::bad_alloc();
}
void* operator new[](size_t size) { return operator new(size); }
void operator delete(void* p) noexcept { free(p); }
void operator delete[](void* p) noexcept { free(p); }
void operator delete(void* p, size_t) noexcept { free(p); }
void operator delete[](void* p, size_t) noexcept { free(p); }

namespace {

const char* const aim_path = "/pstorage/cmr/aim.xml";
const char* const filtered_path = "/tmp/aim_filtered.xml";
const char* const adapter_tables[] = {
    "PCIAdapter",          "PCIMisc",        "VPDs",   "Firmwares",  "PCINetwork", "PCIPhysicalPort",
    "PCIPhysicalPortStat", "PCILogicalPort", "PCIGPU", "PCIGPUChip", "AimDisks",   "PldmDeviceFirmware"};
const char* const step_names[] = {"wipe", "filter", "reader", "walk", "after-walk", "release"};
const int step_count = 6;

double cpu_ms() {
    timespec t;
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
    return t.tv_sec * 1e3 + t.tv_nsec / 1e6;
}

// Minor page faults of the process so far.
double page_faults() {
    rusage u;
    getrusage(RUSAGE_SELF, &u);
    return static_cast<double>(u.ru_minflt);
}

double median(std::vector<double> v) {
    if (v.empty()) return 0;
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
}

// Peak and current resident set of this process, in KiB.
long status_kib(const char* field) {
    std::ifstream in("/proc/self/status");
    std::string line;
    size_t n = strlen(field);
    while (std::getline(in, line)) {
        if (line.compare(0, n, field) == 0) return atol(line.c_str() + n + 1);
    }
    return 0;
}

// ---- The controller of one size: sysroot, inventory database, AIM file --------------------

std::string root_of(unsigned configs) {
    return "/tmp/aim_bench." + std::to_string(getpid()) + "." + std::to_string(configs);
}

// Creates (parent) the sysroot directory `root` with the inventory database holding the
// "PCIs" rows of `configs` functions and the AIM file; false on failure.
bool create_controller(const std::string& root, unsigned configs) {
    namespace fs = std::filesystem;
    fs::create_directories(root + "/tmp");
    fs::create_directories(root + "/pstorage/cmr");
    std::ofstream(root + aim_path, std::ios::binary | std::ios::trunc) << aimbench::generate_aim(configs);
    std::string error;
    _vqm_db_handle_t* db = host::db_open_file(root + "/inventory.db", &error);
    if (!db) return false;
    bool ok = host::db_apply_schema(db, &error) == 0 &&
              host::db_exec_script(db, aimbench::generate_pcis_sql(configs), &error) == 0;
    if (!ok) fprintf(stderr, "aim_bench: %s\n", error.c_str());
    vqm_db_close(db);
    return ok;
}

_vqm_db_handle_t* open_controller(const std::string& root) {
    setenv("AIM_SYSROOT", root.c_str(), 1);
    host::set_database_dir(root);
    return host::db_open_file(root + "/inventory.db");
}

long rows_written(_vqm_db_handle_t* db) {
    long total = 0;
    for (const char* table : adapter_tables) {
        std::vector<host::row> rows;
        if (host::db_select(db, std::string("SELECT COUNT(*) AS n FROM \"") + table + "\"", rows) == 0 &&
            !rows.empty())
            total += atol(rows[0]["n"].c_str());
    }
    return total;
}

// ---- The lower bound ------------------------------------------------------------------------

// Its own database: a ten-column table like the adapter rows, and an indexed table of the
// addresses that a run looks up.
struct lower_bound {
    sqlite3* sql = nullptr;
    sqlite3_stmt* insert = nullptr;
    sqlite3_stmt* lookup = nullptr;
    std::string file;
    long rows = 0;
    unsigned configs = 0;

    bool open(const std::string& root, unsigned n, long row_count) {
        file = root + aim_path;
        rows = row_count;
        configs = n;
        // One file per process: a child must not meet the parent's write-ahead log.
        std::string path = root + "/lower_bound." + std::to_string(getpid()) + ".db";
        unlink(path.c_str());
        if (sqlite3_open(path.c_str(), &sql) != SQLITE_OK) return false;
        std::string setup =
            "PRAGMA journal_mode=WAL; PRAGMA synchronous=NORMAL; CREATE TABLE t (_id INTEGER PRIMARY KEY, "
            "SegNo INTEGER, BusNo INTEGER, DeviceNo INTEGER, FunctionNo INTEGER, NodeNo INTEGER, SlotNo "
            "INTEGER, "
            "PCIKey INTEGER, PCIFuncKey INTEGER, Name TEXT, Value TEXT); CREATE TABLE p (_id INTEGER PRIMARY "
            "KEY, "
            "SegNo INTEGER, BusNo INTEGER, DeviceNo INTEGER, FunctionNo INTEGER, FunKey INTEGER); CREATE "
            "INDEX "
            "p_by_address ON p (SegNo, BusNo, DeviceNo, FunctionNo); BEGIN;";
        for (unsigned i = 0; i < n; ++i) {
            aimbench::pci_address a = aimbench::config_address(i);
            setup += "INSERT INTO p (SegNo,BusNo,DeviceNo,FunctionNo,FunKey) VALUES (" +
                     std::to_string(a.segment) + "," + std::to_string(a.bus) + "," +
                     std::to_string(a.device) + "," + std::to_string(a.function) + "," +
                     std::to_string(aimbench::function_key(a)) + ");";
        }
        setup += "COMMIT;";
        return sqlite3_exec(sql, setup.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK &&
               sqlite3_prepare_v2(
                   sql,
                   "INSERT INTO t (SegNo,BusNo,DeviceNo,FunctionNo,NodeNo,SlotNo,PCIKey,PCIFuncKey,"
                   "Name,Value) VALUES (?,?,?,?,?,?,?,?,?,?)",
                   -1, &insert, nullptr) == SQLITE_OK &&
               sqlite3_prepare_v2(
                   sql, "SELECT FunKey FROM p WHERE SegNo=? AND BusNo=? AND DeviceNo=? AND FunctionNo=?", -1,
                   &lookup, nullptr) == SQLITE_OK;
    }
    ~lower_bound() {
        sqlite3_finalize(insert);
        sqlite3_finalize(lookup);
        sqlite3_close(sql);
    }

    // The conforming parse: the file read in blocks into expat's buffer, every event handled
    // by a handler that does nothing.
    static void XMLCALL no_start(void*, const XML_Char*, const XML_Char**) {}
    static void XMLCALL no_end(void*, const XML_Char*) {}
    static void XMLCALL no_text(void*, const XML_Char*, int) {}
    bool parse() const {
        FILE* f = fopen(file.c_str(), "rb");
        if (!f) return false;
        XML_Parser p = XML_ParserCreate(nullptr);
        XML_SetElementHandler(p, no_start, no_end);
        XML_SetCharacterDataHandler(p, no_text);
        bool ok = true;
        for (bool last = false; ok && !last;) {
            const int block = 64 * 1024;
            void* buf = XML_GetBuffer(p, block);
            size_t got = buf ? fread(buf, 1, block, f) : 0;
            last = got < static_cast<size_t>(block);
            ok = buf && XML_ParseBuffer(p, static_cast<int>(got), last) == XML_STATUS_OK;
        }
        XML_ParserFree(p);
        fclose(f);
        return ok;
    }

    bool run() {
        if (!parse()) return false;
        long found = 0;
        for (unsigned i = 0; i < configs; ++i) {
            aimbench::pci_address a = aimbench::config_address(i);
            sqlite3_bind_int(lookup, 1, (int)a.segment);
            sqlite3_bind_int(lookup, 2, (int)a.bus);
            sqlite3_bind_int(lookup, 3, (int)a.device);
            sqlite3_bind_int(lookup, 4, (int)a.function);
            while (sqlite3_step(lookup) == SQLITE_ROW) found += sqlite3_column_int64(lookup, 0) > 0;
            sqlite3_reset(lookup);
        }
        sqlite3_exec(sql, "BEGIN; DELETE FROM t;", nullptr, nullptr, nullptr);
        for (long i = 0; i < rows; ++i) {
            for (int c = 1; c <= 8; ++c) sqlite3_bind_int64(insert, c, i + c);
            sqlite3_bind_text(insert, 9, "Bench Ethernet 25Gb 2-port Adapter", -1, SQLITE_STATIC);
            sqlite3_bind_text(insert, 10, "0090FA000101", -1, SQLITE_STATIC);
            sqlite3_step(insert);
            sqlite3_reset(insert);
        }
        return sqlite3_exec(sql, "COMMIT;", nullptr, nullptr, nullptr) == SQLITE_OK && found == (long)configs;
    }
};

// ---- The steps of a run, as parse_aim takes them -------------------------------------------

// Runs parse_aim's steps one by one, calling `around(step, body)` for each.
bool run_steps(_vqm_db_handle_t* db, const std::function<void(int, const std::function<void()>&)>& around) {
    aim_parser::parser p;
    bool ok = true;
    around(0, [&] { ok = p.wipe(db); });
    around(1, [&] { ok = ok && p.filter_xml(aim_path, filtered_path); });
    std::unique_ptr<aim_parser::document> doc(new aim_parser::document);
    ok = ok && p.init();
    around(2, [&] { ok = ok && doc->parse(filtered_path) == 0; });
    around(3, [&] { p.walk_configs(db, &doc->inventories); });
    around(4, [&] { p.handle_adapters_after_walk(db); });
    around(5, [&] { doc.reset(); });  // the tree is released at the end of a run
    unlink(host::map_path(filtered_path).c_str());
    return ok;
}

// ---- Child processes: peak RSS and callgrind counts ----------------------------------------

// `aim_bench --child MODE N ROOT`: prints "key value" lines on standard output.
int child_main(const std::string& mode, unsigned configs, const std::string& root) {
    if (mode == "rss-pugixml") {
        long before = status_kib("VmRSS:");
        pugi::xml_document doc;
        if (!doc.load_file((root + aim_path).c_str())) return 1;
        printf("peak %ld\nbase %ld\n", status_kib("VmHWM:"), before);
        return 0;
    }
    _vqm_db_handle_t* db = open_controller(root);
    if (!db) return 1;
    if (mode == "rss-whole") {
        long before = status_kib("VmRSS:");
        int rc = parse_aim(db, aim_path);
        printf("peak %ld\nbase %ld\n", status_kib("VmHWM:"), before);
        vqm_db_close(db);
        return rc == 0 ? 0 : 1;
    }
    if (mode == "callgrind") {
        // Batches are committed by their count of writes only: callgrind slows the run some
        // fifty times, and the client's age limit would commit many batches that a run at
        // full speed never commits, in whichever step the clock happened to run out.
        host::db_set_batch_age(db, 0);
        // One run first, so that both sides find their databases warm and their statements
        // prepared as in the timed repetitions.
        if (parse_aim(db, aim_path) != 0) return 1;
        lower_bound bound;
        if (!bound.open(root, configs, rows_written(db)) || !bound.run()) return 1;
        CALLGRIND_ZERO_STATS;
        CALLGRIND_TOGGLE_COLLECT;
        int rc = parse_aim(db, aim_path);
        CALLGRIND_TOGGLE_COLLECT;
        CALLGRIND_DUMP_STATS_AT("whole");
        CALLGRIND_TOGGLE_COLLECT;
        bool ok = bound.run();
        CALLGRIND_TOGGLE_COLLECT;
        CALLGRIND_DUMP_STATS_AT("bound");
        run_steps(db, [](int step, const std::function<void()>& body) {
            CALLGRIND_TOGGLE_COLLECT;
            body();
            CALLGRIND_TOGGLE_COLLECT;
            CALLGRIND_DUMP_STATS_AT(step_names[step]);
        });
        vqm_db_close(db);
        return rc == 0 && ok ? 0 : 1;
    }
    vqm_db_close(db);
    return 2;
}

// Runs `argv` with standard output into a string; false unless it exits with 0.
bool run_child(const std::vector<std::string>& args, std::string& out) {
    int fds[2];
    if (pipe(fds) != 0) return false;
    pid_t pid = fork();
    if (pid == 0) {
        dup2(fds[1], 1);
        close(fds[0]);
        close(fds[1]);
        std::vector<char*> argv;
        for (const auto& a : args) argv.push_back(const_cast<char*>(a.c_str()));
        argv.push_back(nullptr);
        execvp(argv[0], argv.data());
        _exit(127);
    }
    close(fds[1]);
    char buf[4096];
    ssize_t n;
    while ((n = read(fds[0], buf, sizeof buf)) > 0) out.append(buf, (size_t)n);
    close(fds[0]);
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

std::map<std::string, double> parse_pairs(const std::string& text) {
    std::map<std::string, double> out;
    size_t at = 0;
    while (at < text.size()) {
        size_t end = text.find('\n', at);
        if (end == std::string::npos) end = text.size();
        std::string line = text.substr(at, end - at);
        size_t sp = line.find(' ');
        if (sp != std::string::npos) out[line.substr(0, sp)] = atof(line.c_str() + sp + 1);
        at = end + 1;
    }
    return out;
}

// Instructions of each callgrind dump in `dir`, by the name its client request gave; the
// dump's file in `files` when given.
std::map<std::string, double> read_callgrind_dumps(const std::string& dir,
                                                   std::map<std::string, std::string>* files = nullptr) {
    std::map<std::string, double> out;
    DIR* d = opendir(dir.c_str());
    if (!d) return out;
    while (dirent* e = readdir(d)) {
        if (strncmp(e->d_name, "callgrind.out", 13) != 0) continue;
        std::ifstream in(dir + "/" + e->d_name);
        std::string line, name;
        double total = -1;
        while (std::getline(in, line)) {
            static const std::string trigger = "desc: Trigger: Client Request: ";
            if (line.compare(0, trigger.size(), trigger) == 0) name = line.substr(trigger.size());
            if (line.compare(0, 8, "totals: ") == 0) total = atof(line.c_str() + 8);
            if (line.compare(0, 9, "summary: ") == 0 && total < 0) total = atof(line.c_str() + 9);
        }
        if (!name.empty() && total >= 0) {
            out[name] = total;
            if (files) (*files)[name] = dir + "/" + e->d_name;
        }
    }
    closedir(d);
    return out;
}

// Inclusive instructions of the platform calls in a callgrind dump, as callgrind_annotate
// gives them: `dom` those of the XML DOM (sysxml::document, node and parser members),
// `client` those of the database client (vqm_db_* calls). Neither calls the other, and no
// call of either family calls another of its own (extract_str_column_from_result, which
// calls vqm_db_result_column_text, is left out: its own part is a few instructions), so
// the sums count nothing twice. False when the dump cannot be read.
bool platform_instructions(const std::string& dump, double& dom, double& client) {
    dom = client = 0;
    std::string cmd = "callgrind_annotate --inclusive=yes --threshold=100 '" + dump + "' 2>/dev/null";
    FILE* p = popen(cmd.c_str(), "r");
    if (!p) return false;
    char line[8192];
    bool any = false;
    std::map<std::string, double> dom_fns, client_fns;
    while (fgets(line, sizeof line, p)) {
        // "   12,345,678 ( 1.23%)  file:function [object]"
        char* q = line;
        while (*q == ' ') ++q;
        double n = 0;
        bool digits = false;
        for (; (*q >= '0' && *q <= '9') || *q == ','; ++q) {
            if (*q == ',') continue;
            n = n * 10 + (*q - '0');
            digits = true;
        }
        const char* colon = digits ? strchr(q, ':') : nullptr;
        if (!colon) continue;
        any = true;
        std::string fn = colon + 1;
        fn = fn.substr(0, fn.find(" ["));  // the object file
        while (!fn.empty() && (fn.back() == '\n' || fn.back() == ' ')) fn.pop_back();
        if (fn.find("(anonymous namespace)") != std::string::npos) continue;
        bool is_dom = fn.compare(0, 18, "sysxml::document::") == 0 ||
                      fn.compare(0, 14, "sysxml::node::") == 0 || fn.compare(0, 16, "sysxml::parser::") == 0;
        if (!is_dom && fn.compare(0, 7, "vqm_db_") != 0) continue;
        // With debug information a function can be listed once per source file of its code;
        // its inclusive cost is the largest of those.
        double& best = (is_dom ? dom_fns : client_fns)[fn];
        best = std::max(best, n);
    }
    for (const auto& f : dom_fns) dom += f.second;
    for (const auto& f : client_fns) client += f.second;
    return pclose(p) == 0 && any;
}

bool have_valgrind() { return system("valgrind --version > /dev/null 2>&1") == 0; }

// ---- The measurements of one size -----------------------------------------------------------

struct result {
    unsigned configs = 0;
    long rows = 0;
    double whole_ms = 0, bound_ms = 0;
    double whole_ins = 0, bound_ins = 0;  // 0: not counted
    double dom_ins = 0, client_ins = 0;   // of the whole run: the platform calls
    double step_ms[step_count] = {}, step_ins[step_count] = {};
    double rss_whole_kib = 0, rss_pugixml_kib = 0, rss_base_kib = 0;
    double news_per_config = 0, reader_news_per_config = 0, library_news_per_config = -1;
    double whole_faults = 0, bound_faults = 0, step_faults[step_count] = {};
};

bool measure(unsigned configs, int reps, bool callgrind, const std::string& self, result& r) {
    r.configs = configs;
    std::string root = root_of(configs);
    std::filesystem::remove_all(root);
    if (!create_controller(root, configs)) return false;
    _vqm_db_handle_t* db = open_controller(root);
    if (!db || parse_aim(db, aim_path) != 0) return false;
    r.rows = rows_written(db);

    unsigned long long before = g_news;
    parse_aim(db, aim_path);
    r.news_per_config = double(g_news - before) / configs;
    run_steps(db, [&](int step, const std::function<void()>& body) {
        unsigned long long at = g_news;
        body();
        if (step == 2) r.reader_news_per_config = double(g_news - at) / configs;
    });
    g_platform_ranges = object_ranges(reinterpret_cast<const void*>(&vqm_db_insert));
    if (!g_platform_ranges.empty()) {
        g_library_news = 0;
        g_attribute = true;
        parse_aim(db, aim_path);
        g_attribute = false;
        r.library_news_per_config = double(g_library_news) / configs;
    }

    lower_bound bound;
    if (!bound.open(root, configs, r.rows)) return false;
    std::vector<double> whole, low, steps[step_count];
    std::vector<double> whole_faults, low_faults, step_faults[step_count];
    for (int i = 0; i < reps; ++i) {
        double f0 = page_faults();
        double t0 = cpu_ms();
        if (parse_aim(db, aim_path) != 0) return false;
        double t1 = cpu_ms();
        double f1 = page_faults();
        if (!bound.run()) return false;
        double t2 = cpu_ms();
        whole.push_back(t1 - t0);
        low.push_back(t2 - t1);
        whole_faults.push_back(f1 - f0);
        low_faults.push_back(page_faults() - f1);
        run_steps(db, [&](int step, const std::function<void()>& body) {
            double f = page_faults();
            double s = cpu_ms();
            body();
            steps[step].push_back(cpu_ms() - s);
            step_faults[step].push_back(page_faults() - f);
        });
    }
    r.whole_ms = median(whole);
    r.bound_ms = median(low);
    r.whole_faults = median(whole_faults);
    r.bound_faults = median(low_faults);
    for (int s = 0; s < step_count; ++s) {
        r.step_ms[s] = median(steps[s]);
        r.step_faults[s] = median(step_faults[s]);
    }
    vqm_db_close(db);

    std::string out;
    if (run_child({self, "--child", "rss-whole", std::to_string(configs), root}, out)) {
        auto kv = parse_pairs(out);
        r.rss_whole_kib = kv["peak"];
        r.rss_base_kib = kv["base"];
    }
    out.clear();
    if (run_child({self, "--child", "rss-pugixml", std::to_string(configs), root}, out))
        r.rss_pugixml_kib = parse_pairs(out)["peak"];

    if (callgrind) {
        std::string dir = root + "/callgrind";
        std::filesystem::create_directories(dir);
        out.clear();
        if (run_child({"valgrind", "--tool=callgrind", "--collect-atstart=no", "-q",
                       "--callgrind-out-file=" + dir + "/callgrind.out", self, "--child", "callgrind",
                       std::to_string(configs), root},
                      out)) {
            std::map<std::string, std::string> files;
            auto counts = read_callgrind_dumps(dir, &files);
            r.whole_ins = counts["whole"];
            if (!platform_instructions(files["whole"], r.dom_ins, r.client_ins))
                fprintf(stderr, "aim_bench: callgrind_annotate could not split the run of %u configs\n",
                        configs);
            r.bound_ins = counts["bound"];
            for (int s = 0; s < step_count; ++s) r.step_ins[s] = counts[step_names[s]];
        } else {
            fprintf(stderr, "aim_bench: the callgrind run of %u configs failed\n", configs);
        }
    }
    if (!getenv("AIM_BENCH_KEEP")) std::filesystem::remove_all(root);  // kept for debugging
    return true;
}

// `v` with `decimals` decimals and a suffix.
std::string fmt(double v, int decimals, const char* suffix = "") {
    char buf[64];
    snprintf(buf, sizeof buf, "%.*f%s", decimals, v, suffix);
    return buf;
}

std::string ratio(double a, double b) { return a > 0 && b > 0 ? fmt(a / b, 2) : "-"; }

// The result of a quarter of r's size, or null.
const result* quarter(const std::vector<result>& rs, const result& r) {
    for (const result& c : rs) {
        if (c.configs * 4 == r.configs) return &c;
    }
    return nullptr;
}

// T(N)/T(N/4) of one measure (`of` picks it from a result); 0 without the smaller size.
double growth(const result& r, const result* q, const std::function<double(const result&)>& of) {
    return q && of(*q) > 0 ? of(r) / of(*q) : 0;
}

void print_tables(const std::vector<result>& rs, FILE* out) {
    fprintf(
        out,
        "CPU time (median of the repetitions); growth T(N)/T(N/4) of the run, of the lower bound, and "
        "the run's over the bound's:\n\n"
        "| Configs | Whole run | Lower bound | Ratio | T(N)/T(N/4) run | T(N)/T(N/4) bound | Run growth / "
        "bound growth | Page faults run | Page faults bound |\n|---|---|---|---|---|---|---|---|---|\n");
    for (const result& r : rs) {
        const result* q = quarter(rs, r);
        double run_growth = growth(r, q, [](const result& x) { return x.whole_ms; });
        double bound_growth = growth(r, q, [](const result& x) { return x.bound_ms; });
        fprintf(out, "| %u | %.1f ms | %.1f ms | %s | %s | %s | %s | %.0f | %.0f |\n", r.configs, r.whole_ms,
                r.bound_ms, ratio(r.whole_ms, r.bound_ms).c_str(), q ? fmt(run_growth, 2).c_str() : "-",
                q ? fmt(bound_growth, 2).c_str() : "-", q ? ratio(run_growth, bound_growth).c_str() : "-",
                r.whole_faults, r.bound_faults);
    }
    fprintf(out,
            "\nInstructions (callgrind); the library's own are those outside the XML DOM (expat included) "
            "and the database client (SQLite included):\n\n"
            "| Configs | Whole run | Lower bound | Ratio | T(N)/T(N/4) | Library's own | "
            "Library's own per config | XML DOM | Database client |\n|---|---|---|---|---|---|---|---|---|\n");
    for (const result& r : rs) {
        const result* q = quarter(rs, r);
        auto mega = [](double v) { return v > 0 ? fmt(v / 1e6, 0, "M") : std::string("-"); };
        double own = r.whole_ins > 0 && r.dom_ins > 0 ? r.whole_ins - r.dom_ins - r.client_ins : 0;
        fprintf(out, "| %u | %s | %s | %s | %s | %s | %s | %s | %s |\n", r.configs, mega(r.whole_ins).c_str(),
                mega(r.bound_ins).c_str(), ratio(r.whole_ins, r.bound_ins).c_str(),
                q ? ratio(r.whole_ins, q->whole_ins).c_str() : "-", mega(own).c_str(),
                own > 0 ? fmt(own / r.configs, 0).c_str() : "-", mega(r.dom_ins).c_str(),
                mega(r.client_ins).c_str());
    }
    fprintf(out,
            "\nMemory: peak RSS of a process running one whole run, and of one loading the file with pugixml "
            "(the anchor):\n\n"
            "| Configs | Peak RSS run | Peak RSS pugixml | RSS ratio | Allocations per config (reader) "
            "| Library's own allocations per config |\n|---|---|---|---|---|---|\n");
    for (const result& r : rs) {
        fprintf(out, "| %u | %.1f MiB | %.1f MiB | %s | %.1f (%.1f) | %s |\n", r.configs,
                r.rss_whole_kib / 1024, r.rss_pugixml_kib / 1024,
                ratio(r.rss_whole_kib, r.rss_pugixml_kib).c_str(), r.news_per_config,
                r.reader_news_per_config,
                r.library_news_per_config >= 0 ? fmt(r.library_news_per_config, 1).c_str() : "-");
    }
    fprintf(
        out,
        "\nSteps (the bound's growth is the whole bound's):\n\n"
        "| Configs | Step | CPU time | T(N)/T(N/4) | Growth / bound growth | Page faults | Instructions | "
        "T(N)/T(N/4) (instr.) |\n|---|---|---|---|---|---|---|---|\n");
    for (const result& r : rs) {
        const result* q = quarter(rs, r);
        double bound_growth = growth(r, q, [](const result& x) { return x.bound_ms; });
        for (int s = 0; s < step_count; ++s) {
            double step_growth = growth(r, q, [s](const result& x) { return x.step_ms[s]; });
            fprintf(out, "| %u | %s | %.2f ms | %s | %s | %.0f | %s | %s |\n", r.configs, step_names[s],
                    r.step_ms[s], q ? fmt(step_growth, 2).c_str() : "-",
                    q ? ratio(step_growth, bound_growth).c_str() : "-", r.step_faults[s],
                    r.step_ins[s] > 0 ? fmt(r.step_ins[s] / 1e6, 1, "M").c_str() : "-",
                    q ? ratio(r.step_ins[s], q->step_ins[s]).c_str() : "-");
        }
    }
}

void write_csv(const std::vector<result>& rs, const std::string& path, bool heap_kept) {
    FILE* f = fopen(path.c_str(), "w");
    if (!f) return;
    fprintf(
        f,
        "configs,rows,whole_cpu_ms,bound_cpu_ms,whole_instr,bound_instr,dom_instr,client_instr,rss_run_kib,"
        "rss_pugixml_kib,"
        "rss_process_base_kib,news_per_config,reader_news_per_config,library_news_per_config");
    for (const char* s : step_names) fprintf(f, ",%s_cpu_ms,%s_instr", s, s);
    fprintf(f, ",whole_page_faults,bound_page_faults");
    for (const char* s : step_names) fprintf(f, ",%s_page_faults", s);
    fprintf(f, ",heap_kept\n");
    for (const result& r : rs) {
        fprintf(f, "%u,%ld,%.3f,%.3f,%.0f,%.0f,%.0f,%.0f,%.0f,%.0f,%.0f,%.2f,%.2f,%.2f", r.configs, r.rows,
                r.whole_ms, r.bound_ms, r.whole_ins, r.bound_ins, r.dom_ins, r.client_ins, r.rss_whole_kib,
                r.rss_pugixml_kib, r.rss_base_kib, r.news_per_config, r.reader_news_per_config,
                r.library_news_per_config);
        for (int s = 0; s < step_count; ++s) fprintf(f, ",%.3f,%.0f", r.step_ms[s], r.step_ins[s]);
        fprintf(f, ",%.0f,%.0f", r.whole_faults, r.bound_faults);
        for (int s = 0; s < step_count; ++s) fprintf(f, ",%.0f", r.step_faults[s]);
        fprintf(f, ",%d\n", heap_kept ? 1 : 0);
    }
    fclose(f);
}

}  // namespace

int main(int argc, char** argv) {
    // Runs log at the warning threshold, a controller service's usual level: the per-config
    // information messages are below it. KORA_LOG_LEVEL overrides it.
    host::log_level level = host::log_level::warn;
    const char* env = getenv("KORA_LOG_LEVEL");
    if (env && !host::parse_log_level(env, level)) level = host::log_level::warn;
    host::set_log_level(level);
    host::set_real_sleep(false);

    if (argc == 5 && strcmp(argv[1], "--child") == 0)
        return child_main(argv[2], (unsigned)atoi(argv[3]), argv[4]);

    std::vector<unsigned> sizes = {32, 256, 1024, 4096};
    int reps = 5;
    bool callgrind = true;
    bool keep_heap = false;
    std::string csv = "aim_bench.csv";
    for (int i = 1; i < argc; ++i) {
        std::string a = argv[i];
        if (a == "--sizes" && i + 1 < argc) {
            sizes.clear();
            for (char* p = strtok(argv[++i], ","); p; p = strtok(nullptr, ","))
                sizes.push_back((unsigned)atoi(p));
        } else if (a == "--reps" && i + 1 < argc) {
            reps = std::max(1, atoi(argv[++i]));
        } else if (a == "--csv" && i + 1 < argc) {
            csv = argv[++i];
        } else if (a == "--no-callgrind") {
            callgrind = false;
        } else if (a == "--keep-heap") {
            keep_heap = true;
        } else {
            bool help = a == "--help" || a == "-h";
            fprintf(help ? stdout : stderr,
                    "usage: %s [--sizes 32,256,1024,4096] [--reps N] [--csv FILE] [--no-callgrind] "
                    "[--keep-heap]\n",
                    argv[0]);
            return help ? 0 : 2;
        }
    }
    // Fixed thresholds: freed memory is never given back to the kernel, and blocks up to the
    // largest mmap threshold that glibc accepts (4 Mi longs) come from the heap.
    const int largest_mmap_threshold = static_cast<int>(4 * 1024 * 1024 * sizeof(long));
    if (keep_heap &&
        (mallopt(M_TRIM_THRESHOLD, INT_MAX) != 1 || mallopt(M_MMAP_THRESHOLD, largest_mmap_threshold) != 1)) {
        fprintf(stderr, "aim_bench: cannot fix the allocator's thresholds\n");
        return 1;
    }
    if (callgrind && !have_valgrind()) {
        fprintf(stderr, "aim_bench: valgrind not found, instructions not counted\n");
        callgrind = false;
    }
    char self[4096];
    ssize_t n = readlink("/proc/self/exe", self, sizeof self - 1);
    if (n <= 0) return 1;
    self[n] = '\0';

    std::vector<result> results;
    for (unsigned configs : sizes) {
        result r;
        fprintf(stderr, "aim_bench: %u configs...\n", configs);
        if (!measure(configs, reps, callgrind, self, r)) {
            fprintf(stderr, "aim_bench: the run of %u configs failed\n", configs);
            return 1;
        }
        results.push_back(r);
    }
    print_tables(results, stdout);
    write_csv(results, csv, keep_heap);
    printf("\nCSV: %s (CPU times: median of %d interleaved repetitions; load average at the end: ",
           csv.c_str(), reps);
    double load[1] = {0};
    if (getloadavg(load, 1) == 1)
        printf("%.2f)\n", load[0]);
    else
        printf("unknown)\n");
    return 0;
}
