// Whole parse_aim runs over generated AIM files of 500, 1000 and 2000 configs, and, for
// each size, the lower bound of such a run measured in the same process: pugixml loading
// the same file plus the same number of rows inserted with prepared statements in one
// transaction. After the runs the ratios are printed: 2000/500 configs and run/lower bound.
#include <benchmark/benchmark.h>
#include <sqlite3.h>
#include <stdio.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <pugixml.hpp>
#include <string>
#include <vector>

#include "bench/gen.h"
#include "host/db.h"
#include "host/log.h"
#include "host/sysroot.h"
#include "aim/document.h"
#include "ingest/parse_aim.h"
#include "ingest/parser.h"

namespace {

const char* const aim_path = "/pstorage/cmr/aim.xml";
const char* const adapter_tables[] = {
    "PCIAdapter",          "PCIMisc",        "VPDs",   "Firmwares",  "PCINetwork", "PCIPhysicalPort",
    "PCIPhysicalPortStat", "PCILogicalPort", "PCIGPU", "PCIGPUChip", "AimDisks",   "PldmDeviceFirmware"};

void write_file(const std::string& path, const std::string& content) {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream(path, std::ios::binary | std::ios::trunc) << content;
}

// A private controller: sysroot, inventory database with the "PCIs" rows of `configs`
// functions, and the AIM file at its controller path.
struct environment {
    std::unique_ptr<host::scoped_sysroot> root;
    _vqm_db_handle_t* db = nullptr;
    std::string aim_file;  // host path of the AIM file
    std::string error;

    explicit environment(unsigned configs) {
        root.reset(new host::scoped_sysroot());
        host::set_database_dir(root->dir());
        db = host::db_open_file(root->dir() + "/inventory.db", &error);
        if (!db) return;
        if (host::db_apply_schema(db, &error) != 0 ||
            host::db_exec_script(db, aimbench::generate_pcis_sql(configs), &error) != 0) {
            vqm_db_close(db);
            db = nullptr;
            return;
        }
        aim_file = root->dir() + aim_path;
        write_file(aim_file, aimbench::generate_aim(configs));
    }
    ~environment() {
        if (db) vqm_db_close(db);
    }

    // Rows that one run leaves in the adapter tables.
    long rows_written() {
        long total = 0;
        for (const char* table : adapter_tables) {
            std::vector<host::row> rows;
            if (host::db_select(db, std::string("SELECT COUNT(*) AS n FROM \"") + table + "\"", rows) == 0 &&
                !rows.empty())
                total += atol(rows[0]["n"].c_str());
        }
        return total;
    }
};

void BM_parse_aim(benchmark::State& state) {
    environment env((unsigned)state.range(0));
    if (!env.db) {
        state.SkipWithError(env.error.c_str());
        return;
    }
    for (auto _ : state) {
        if (parse_aim(env.db, aim_path) != 0) {
            state.SkipWithError("parse_aim failed");
            break;
        }
    }
    state.counters["rows"] = (double)env.rows_written();
}

// The AIM reader alone on the same file (no filter, no database): where a run's time goes.
void BM_reader_only(benchmark::State& state) {
    environment env((unsigned)state.range(0));
    if (!env.db) {
        state.SkipWithError(env.error.c_str());
        return;
    }
    // The reader gets the file as a run hands it over: filtered to one line.
    aim_parser::parser filter;
    if (!filter.filter_xml(aim_path, "/tmp/aim_filtered.xml")) {
        state.SkipWithError("filter failed");
        return;
    }
    for (auto _ : state) {
        aim_parser::document doc;
        if (doc.parse("/tmp/aim_filtered.xml") != 0) {
            state.SkipWithError("document::parse failed");
            break;
        }
    }
}

// The database side of a run alone: the wipe and the walk over an already read tree.
void BM_wipe_and_walk(benchmark::State& state) {
    environment env((unsigned)state.range(0));
    if (!env.db) {
        state.SkipWithError(env.error.c_str());
        return;
    }
    for (auto _ : state) {
        state.PauseTiming();
        std::unique_ptr<aim_parser::document> doc(new aim_parser::document);
        uint32_t rc = doc->parse(aim_path);
        aim_parser::parser p;
        state.ResumeTiming();
        if (rc != 0 || !p.wipe(env.db) || !p.init() || !p.parse_inventories(env.db, &doc->inventories)) {
            state.SkipWithError("wipe or walk failed");
            break;
        }
        state.PauseTiming();
        doc.reset();
        state.ResumeTiming();
    }
}

// One insert statement per table shape: ten columns, mixing numbers and text like the
// adapter rows do.
void BM_lower_bound(benchmark::State& state) {
    long rows = 0;
    std::string file;
    std::unique_ptr<environment> env(new environment((unsigned)state.range(0)));
    if (!env->db || parse_aim(env->db, aim_path) != 0) {
        state.SkipWithError("set-up run failed");
        return;
    }
    rows = env->rows_written();
    file = env->aim_file;

    sqlite3* sql = nullptr;
    std::string path = env->root->dir() + "/lower_bound.db";
    if (sqlite3_open(path.c_str(), &sql) != SQLITE_OK ||
        sqlite3_exec(sql,
                     "PRAGMA journal_mode=WAL; CREATE TABLE t (_id INTEGER PRIMARY KEY, SegNo INTEGER, BusNo "
                     "INTEGER, DeviceNo INTEGER, FunctionNo INTEGER, NodeNo INTEGER, SlotNo INTEGER, PCIKey "
                     "INTEGER, PCIFuncKey INTEGER, Name TEXT, Value TEXT);",
                     nullptr, nullptr, nullptr) != SQLITE_OK) {
        state.SkipWithError(sqlite3_errmsg(sql));
        sqlite3_close(sql);
        return;
    }
    sqlite3_stmt* insert = nullptr;
    sqlite3_prepare_v2(
        sql,
        "INSERT INTO t (SegNo,BusNo,DeviceNo,FunctionNo,NodeNo,SlotNo,PCIKey,PCIFuncKey,Name,Value) "
        "VALUES (?,?,?,?,?,?,?,?,?,?)",
        -1, &insert, nullptr);
    for (auto _ : state) {
        pugi::xml_document doc;
        if (!doc.load_file(file.c_str())) {
            state.SkipWithError("pugixml failed to load the file");
            break;
        }
        sqlite3_exec(sql, "BEGIN; DELETE FROM t;", nullptr, nullptr, nullptr);
        for (long i = 0; i < rows; ++i) {
            for (int c = 1; c <= 8; ++c) sqlite3_bind_int64(insert, c, i + c);
            sqlite3_bind_text(insert, 9, "Bench Ethernet 25Gb 2-port Adapter", -1, SQLITE_STATIC);
            sqlite3_bind_text(insert, 10, "0090FA000101", -1, SQLITE_STATIC);
            sqlite3_step(insert);
            sqlite3_reset(insert);
        }
        sqlite3_exec(sql, "COMMIT;", nullptr, nullptr, nullptr);
    }
    sqlite3_finalize(insert);
    sqlite3_close(sql);
    state.counters["rows"] = (double)rows;
}

BENCHMARK(BM_parse_aim)
    ->Arg(500)
    ->Arg(1000)
    ->Arg(2000)
    ->Unit(benchmark::kMillisecond)
    ->MinTime(2.0)
    ->UseRealTime();
BENCHMARK(BM_reader_only)
    ->Arg(500)
    ->Arg(1000)
    ->Arg(2000)
    ->Unit(benchmark::kMillisecond)
    ->MinTime(2.0)
    ->UseRealTime();
BENCHMARK(BM_wipe_and_walk)
    ->Arg(500)
    ->Arg(1000)
    ->Arg(2000)
    ->Unit(benchmark::kMillisecond)
    ->MinTime(2.0)
    ->UseRealTime();
BENCHMARK(BM_lower_bound)
    ->Arg(500)
    ->Arg(1000)
    ->Arg(2000)
    ->Unit(benchmark::kMillisecond)
    ->MinTime(2.0)
    ->UseRealTime();

// Console output plus the real and CPU time per iteration of every run, by run name.
class ratio_reporter : public benchmark::ConsoleReporter {
public:
    struct times {
        double real = 0, cpu = 0;
    };
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& r : runs) {
            if (r.run_type == Run::RT_Iteration && !r.error_occurred)
                measured[r.benchmark_name()] = {r.GetAdjustedRealTime(), r.GetAdjustedCPUTime()};
        }
        ConsoleReporter::ReportRuns(runs);
    }
    times get(const std::string& name) const {
        auto it = measured.find(name);
        return it == measured.end() ? times() : it->second;
    }
    std::map<std::string, times> measured;
};

// Prints a/b in real and in CPU time. The CPU ratio is the steadier one on a loaded machine.
void print_ratio(const std::string& what, ratio_reporter::times a, ratio_reporter::times b, double limit) {
    if (a.real <= 0 || b.real <= 0 || b.cpu <= 0) return;
    double real = a.real / b.real, cpu = a.cpu / b.cpu;
    printf("%-42s real %6.2f  cpu %6.2f  (limit %.1f: %s)\n", what.c_str(), real, cpu, limit,
           real < limit ? "ok" : "OVER");
}

}  // namespace

int main(int argc, char** argv) {
    host::set_log_level(host::log_level::err);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    ratio_reporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    auto run = [](int n) { return "BM_parse_aim/" + std::to_string(n) + "/min_time:2.000/real_time"; };
    auto bound = [](int n) { return "BM_lower_bound/" + std::to_string(n) + "/min_time:2.000/real_time"; };
    printf("\n");
    print_ratio("parse_aim 2000 configs / 500 configs", reporter.get(run(2000)), reporter.get(run(500)), 4.5);
    for (int n : {500, 1000, 2000}) {
        print_ratio("parse_aim / lower bound at " + std::to_string(n) + " configs", reporter.get(run(n)),
                    reporter.get(bound(n)), 2.0);
    }
    benchmark::Shutdown();
    return 0;
}
