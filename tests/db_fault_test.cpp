// Failing storage: every database call of a whole run of an example machine is made to fail
// in turn, and a run that dies mid-way is followed by a normal one. Only a failed table
// delete of the wipe fails parse_aim; any other failure costs only rows, logged; and the next
// successful run leaves exactly the tables of a fresh run.
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "ingest/parse_aim.h"
#include "tests/fixture.h"

namespace {

const char* const tables[] = {"PCIs",
                              "PCIAdapter",
                              "PCIMisc",
                              "VPDs",
                              "Firmwares",
                              "PCINetwork",
                              "PCIPhysicalPort",
                              "PCIPhysicalPortStat",
                              "PCILogicalPort",
                              "PCIGPU",
                              "PCIGPUChip",
                              "AimDisks",
                              "PldmDeviceFirmware"};

// The wipe's message for a failed delete of each table (the code of an injected failure is 10).
const std::map<std::string, std::string> wipe_messages = {
    {"PCIAdapter", "failed to delete PCI Adapter Table, rc=10"},
    {"VPDs", "failed to delete PCI VPD Info, rc=10"},
    {"PCIMisc", "failed to delete PCI Misc Info, rc=10"},
    {"Firmwares", "failed to delete PCI Firmware Info, rc=10"},
    {"PCINetwork", "failed to delete PCI Network Info, rc=10"},
    {"PCIPhysicalPort", "failed to delete PCI Physical Port Info, rc=10"},
    {"PCIPhysicalPortStat", "failed to delete PCI Physical Port Stat Info, rc=10"},
    {"PCILogicalPort", "failed to delete PCI Logical Port Info, rc=10"},
    {"AimDisks", "failed to delete Aim Disk Info, rc=10"},
    {"PCIGPU", "failed to delete PCI GPU Info, rc=10"}};

typedef std::multiset<std::string> snapshot;  // "table: column=value;..." without "_id"
typedef std::vector<std::pair<std::string, std::string>> call_list;

// The adapter a row belongs to: its "PCIKey", else its "HardwareId", else its "PCIFuncKey".
std::string adapter_of(const std::string& row) {
    for (const char* key : {" PCIKey=", " HardwareId=", " PCIFuncKey="}) {
        size_t at = row.find(key);
        if (at != std::string::npos) {
            at = row.find('=', at) + 1;
            return row.substr(at, row.find(';', at) - at);
        }
    }
    return row;
}

// The rows of `a` that `b` does not have, one a line.
std::string minus(const snapshot& a, const snapshot& b) {
    snapshot d;
    std::set_difference(a.begin(), a.end(), b.begin(), b.end(), std::inserter(d, d.end()));
    std::string out;
    for (const auto& row : d) out += "  " + row + "\n";
    return out;
}

class DbFaults : public testutil::IngestTest, public ::testing::WithParamInterface<const char*> {
protected:
    void SetUp() override {
        IngestTest::SetUp();
        load_machine(std::string("examples/machines/") + GetParam());
        xml = testutil::read_file(testutil::source_path(std::string("examples/aim/") + GetParam() + ".xml"));
        // The first run sets "FunType" of some "PCIs" rows, which later runs write into
        // "PldmDeviceFirmware": the reference is a run over a previous run's rows, as every
        // faulty run below starts from such rows.
        ASSERT_EQ(0, run({}));
        ASSERT_EQ(0, run({}));
        fresh = tables_now();
        ASSERT_EQ(0, run({}));
        snapshot again = tables_now();
        ASSERT_TRUE(fresh == again) << "runs differ; only in the first:\n"
                                    << minus(fresh, again) << "only in the second:\n"
                                    << minus(again, fresh);
        calls = host::db_calls();
        for (const auto& m : messages) baseline.insert(m.text);
        // The wipe's deletes come first, up to its first other call.
        while (wipe_end < calls.size() && calls[wipe_end].first.find("delete") != std::string::npos)
            ++wipe_end;
        ASSERT_GT(wipe_end, 10u);
    }
    void TearDown() override {
        host::db_set_fault({});
        IngestTest::TearDown();
    }
    int run(const host::db_fault& f) {
        host::db_set_fault(f);
        return run_xml(xml);
    }
    snapshot tables_now() {
        snapshot s;
        for (const char* t : tables) {
            for (auto& r : rows(t)) {
                r.erase("_id");
                std::string line = std::string(t) + ":";
                for (const auto& c : r) line += " " + c.first + "=" + c.second + ";";
                // The GPU writer adds its chip rows run after run (the wipe leaves that
                // table alone); only which rows there are is compared.
                if (strcmp(t, "PCIGPUChip") != 0 || !s.count(line)) s.insert(line);
            }
        }
        return s;
    }
    // The restart after a failed or killed run: a normal run leaves a fresh run's tables.
    void expect_clean_rerun(const std::string& what) {
        ASSERT_EQ(0, run({})) << what;
        snapshot now = tables_now();
        EXPECT_TRUE(fresh == now) << what << ": the next run left other rows; missing:\n"
                                  << minus(fresh, now) << "stray:\n"
                                  << minus(now, fresh);
    }

    std::string xml;
    snapshot fresh;
    call_list calls;
    size_t wipe_end = 0;
    std::set<std::string> baseline;  // messages of a run without failure
};

TEST_P(DbFaults, EveryCallFailingInTurn) {
    int failures = 0;
    for (size_t i = 0; i < calls.size(); ++i) {
        const std::string& kind = calls[i].first;
        const std::string& table = calls[i].second;
        std::string what = "call " + std::to_string(i + 1) + " of " + std::to_string(calls.size()) + " (" +
                           kind + " " + table + ")";
        bool wipe_delete = i < wipe_end && kind == "delete";
        int rc = run({i + 1, "", false});
        EXPECT_EQ(wipe_delete ? -1 : 0, rc) << what;
        ASSERT_EQ(calls.size() > i ? calls[i] : call_list::value_type(), host::db_calls()[i]) << what;
        if (wipe_delete) {
            EXPECT_TRUE(logged(host::log_level::err, wipe_messages.at(table))) << what << "\n" << log_text();
        } else {
            bool reported = false;
            for (const auto& m : messages)
                reported |= m.level >= host::log_level::warn && !baseline.count(m.text);
            EXPECT_TRUE(reported) << what << ": not logged\n" << log_text();
        }
        // Nothing else changes: the rows left are the reference's, short of the ones whose
        // write failed; a failed update or delete leaves its rows as they were. A failed write or lookup
        // may make the run describe that adapter from other sources (as one that the AIM
        // file misses), so a row that differs must belong to an adapter that lost rows. A
        // table whose existing rows could not be read (or updated) may keep old or repeated
        // rows until the next run.
        snapshot now = tables_now(), missing, extra;
        std::set_difference(now.begin(), now.end(), fresh.begin(), fresh.end(),
                            std::inserter(extra, extra.end()));
        std::set_difference(fresh.begin(), fresh.end(), now.begin(), now.end(),
                            std::inserter(missing, missing.end()));
        std::set<std::string> hit;
        for (const auto& row : missing) hit.insert(adapter_of(row));
        for (const auto& row : extra) {
            bool own_table = kind != "insert" && row.rfind(table + ":", 0) == 0;
            EXPECT_TRUE(own_table || hit.count(adapter_of(row))) << what << ": stray row " << row;
        }
        expect_clean_rerun(what);
        if (HasFailure() && ++failures > 5) break;
    }
    RecordProperty("calls", static_cast<int>(calls.size()));
    printf("%s: %zu database calls swept, the first %zu in the wipe\n", GetParam(), calls.size(), wipe_end);
}

TEST_P(DbFaults, ProcessKilledMidRunLeavesNothingStale) {
    const char* path = "/pstorage/cmr/aim.xml";
    for (size_t n :
         {size_t(1), wipe_end / 2, wipe_end + 1, calls.size() / 3, calls.size() / 2, calls.size()}) {
        std::string what = "killed at call " + std::to_string(n) + " of " + std::to_string(calls.size());
        ASSERT_EQ(0, host::db_commit(db));
        pid_t pid = fork();
        ASSERT_NE(-1, pid);
        if (pid == 0) {
            // The child has its own connection, as the next process would.
            _vqm_db_handle_t* own = host::db_open_file(dir + "/inventory.db");
            host::db_set_fault({n, "", true});
            parse_aim(own, path);
            _exit(0);
        }
        int status = 0;
        ASSERT_EQ(pid, waitpid(pid, &status, 0));
        ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 137) << what << ": status " << status;
        expect_clean_rerun(what);
    }
}

TEST_P(DbFaults, EveryCallOfOneKindFailing) {
    // Every insert: the run succeeds, logs, and writes no adapter row.
    EXPECT_EQ(0, run({0, "insert", false}));
    EXPECT_EQ(0u, count("PCIAdapter"));
    EXPECT_GT(logged_prefix(host::log_level::warn, "AIM PARSER: failed to insert"), 0u) << log_text();
    // Every delete: the wipe stops at its first table.
    EXPECT_EQ(-1, run({0, "delete", false}));
    EXPECT_TRUE(logged(host::log_level::err, wipe_messages.at("PCIAdapter"))) << log_text();
    expect_clean_rerun("after every delete failed");
}

// Every example machine; ubb-8gpu makes the most database calls (152).
INSTANTIATE_TEST_SUITE_P(Examples, DbFaults,
                         ::testing::Values("server-2u", "ubb-8gpu", "accel-2u", "pcie-gpu", "rack-2u-nic",
                                           "storage-1u", "storage-1u-1k"));

}  // namespace
