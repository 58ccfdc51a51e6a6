// Every example machine ingested with aimctl, as an engineer runs it, against what it gave
// when last reviewed: examples/expected/MACHINE.txt holds aimctl's output, every log line
// (debug level) and every table of the database as csv. Any change of a row, a column or a
// message of these runs shows here, line by line. After checking that a difference is
// intended, `make update-expected` rewrites the files.
#include <stdlib.h>

#include <algorithm>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "host/db.h"
#include "tests/fixture.h"

namespace {

namespace fs = std::filesystem;

class ExampleMachines : public testutil::IngestTest {
protected:
    // The text that examples/expected/NAME.txt holds for the example machine NAME.
    std::string ingest_text(const std::string& name) {
        const std::string db_path = dir + "/" + name + ".db";
        const std::string machine = "examples/machines/" + name, aim = "examples/aim/" + name + ".xml";
        testutil::aimctl_result r =
            testutil::run_aimctl("--log-level dbg ingest --db " + db_path + " --machine " +
                                     testutil::source_path(machine) + " " + testutil::source_path(aim),
                                 dir);
        std::string text = "# aimctl --log-level dbg ingest --db DB --machine " + machine + " " + aim + "\n";
        text += "## exit status " + std::to_string(r.status) + "\n## standard output\n" + r.out +
                "## standard error\n" + r.err;

        _vqm_db_handle_t* h = host::db_open_file(db_path);
        std::vector<host::row> tables;
        EXPECT_EQ(0, host::db_select(h, "SELECT name FROM sqlite_master WHERE type = 'table' ORDER BY name",
                                     tables));
        vqm_db_close(h);
        for (auto& t : tables) {
            testutil::aimctl_result show =
                testutil::run_aimctl("show --db " + db_path + " " + t["name"] + " --format csv", dir);
            EXPECT_EQ(0, show.status) << t["name"] << ": " << show.err;
            text += "## " + t["name"] + "\n" + show.out;
        }
        return text;
    }
};

// The number of the first line where `got` and `want` differ, and that line of each.
std::string first_difference(const std::string& want, const std::string& got) {
    std::istringstream a(want), b(got);
    std::string la, lb;
    for (unsigned line = 1;; ++line) {
        bool more_a = static_cast<bool>(std::getline(a, la)), more_b = static_cast<bool>(std::getline(b, lb));
        if (!more_a && !more_b) return "the same";
        if (more_a != more_b || la != lb)
            return "line " + std::to_string(line) + "\n  expected: " + (more_a ? la : "(end)") +
                   "\n  got:      " + (more_b ? lb : "(end)");
    }
}

TEST_F(ExampleMachines, IngestGivesTheReviewedRowsAndLog) {
    std::vector<std::string> names;
    for (const auto& e : fs::directory_iterator(testutil::source_path("examples/machines")))
        if (e.is_directory()) names.push_back(e.path().filename().string());
    std::sort(names.begin(), names.end());
    ASSERT_GE(names.size(), 7u);
    const bool update = getenv("AIM_UPDATE_EXPECTED") != nullptr;
    for (const std::string& name : names) {
        const std::string path = testutil::source_path("examples/expected/" + name + ".txt");
        const std::string got = ingest_text(name);
        if (update) {
            testutil::write_file(path, got);
            continue;
        }
        ASSERT_TRUE(fs::exists(path)) << path << " is missing (make update-expected writes it)";
        const std::string want = testutil::read_file(path);
        EXPECT_TRUE(want == got) << name << ": " << first_difference(want, got)
                                 << "\n(if intended: make update-expected, then review the diff)";
    }
}

}  // namespace
