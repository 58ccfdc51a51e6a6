// aimctl check, dump and fru run as processes: exit codes, the last line, well-formed output,
// deep files, the FRU JSON and its escapes.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <nlohmann/json.hpp>
#include <string>
#include <tuple>

#include "host/sysroot.h"
#include "tests/fixture.h"

namespace {

class Aimctl : public ::testing::Test {
protected:
    testutil::aimctl_result run(const std::string& args) { return testutil::run_aimctl(args, sys.dir()); }
    std::string file(const std::string& name, const std::string& content) {
        testutil::write_file(sys.dir() + "/" + name, content);
        return sys.dir() + "/" + name;
    }
    static std::string last_line(std::string t) {
        if (!t.empty() && t.back() == '\n') t.pop_back();
        return t.substr(t.rfind('\n') == std::string::npos ? 0 : t.rfind('\n') + 1);
    }
    std::string repeat(const std::string& s, int n) {
        std::string out;
        for (int i = 0; i < n; ++i) out += s;
        return out;
    }

    host::scoped_sysroot sys;
};

const std::string example = AIM_SOURCE_DIR "/examples/aim/server-2u.xml";
const std::string bad_root = AIM_SOURCE_DIR "/examples/aim/bad-root.xml";

TEST_F(Aimctl, Check) {
    testutil::aimctl_result r = run("check " + example);
    EXPECT_EQ(0, r.status) << r.err;
    EXPECT_EQ("configsets: 1\nconfigs: 6\ngroups: 24\nsettings: 166\nresult: 0\n", r.out);
    EXPECT_EQ(std::string::npos, r.err.find("ERR "));

    r = run("check " + bad_root);
    EXPECT_EQ(1, r.status);
    EXPECT_EQ("result: 7", last_line(r.out));
    r = run("check " + file("bad.xml", "<inventories>\n<configset>\n</inventories>\n"));
    EXPECT_EQ(1, r.status);
    EXPECT_EQ("result: 8", last_line(r.out));
    EXPECT_NE(std::string::npos, r.err.find("ERR AIM Doc: [exception], msg = ill-formed XML at line 3: "));
    EXPECT_EQ(1, run("check " + sys.dir() + "/missing.xml").status);
}

TEST_F(Aimctl, UsageAndHelp) {
    for (const char* args :
         {"check", "check a b", "check --bogus x", "dump", "dump a b", "dump x --unit", "dump x --unit abc",
          "dump x --unit -1", "dump x --unit 65", "dump --frob x", "fru", "fru a b", "fru --bogus"}) {
        testutil::aimctl_result r = run(args);
        EXPECT_EQ(2, r.status) << args;
        EXPECT_EQ("", r.out) << args;
        EXPECT_EQ(0u, r.err.find("aimctl ")) << args << ": " << r.err;
    }
    for (const char* args : {"check --help", "dump --help", "fru --help"})
        EXPECT_EQ(0u, run(args).out.find("usage: aimctl ")) << args;
}

TEST_F(Aimctl, Dump) {
    testutil::aimctl_result r = run("dump " + example);
    ASSERT_EQ(0, r.status) << r.err;
    EXPECT_NE(std::string::npos,
              r.out.find("\n    <config>\n      <name>Broadcom MegaRAID 9560-16i 8GB</name>\n"));
    if (system("command -v xmllint >/dev/null 2>&1") == 0) {  // installed by scripts/install-deps.sh
        EXPECT_EQ(0, system(("xmllint --noout " + file("dump.xml", r.out)).c_str()));
    }
    r = run("dump --unit 4 " + example);
    EXPECT_NE(std::string::npos, r.out.find("\n    <configset>\n        <name>PCI Adapters</name>\n"));

    r = run("dump " + bad_root);
    EXPECT_EQ(1, r.status);
    EXPECT_EQ("", r.out);
    EXPECT_NE(std::string::npos, r.err.find("result: 7")) << r.err;
}

// 100 000 nested groups (cut at 256 levels) or value elements.
TEST_F(Aimctl, DeepFilesDoNotCrash) {
    const std::string files[] = {
        "<inventories><configset><name>s</name><config ID=\"c\"><name>c</name>" +
            repeat("<group><name>g</name>", 100000) + repeat("</group>", 100000) +
            "</config></configset></inventories>",
        "<inventories><config ID=\"c\"><name>c</name><group><name>g</name><setting ID=\"s\"><name>s</name>"
        "<numeric_data>" +
            repeat("<value>", 100000) + "1" + repeat("</value>", 100000) +
            "</numeric_data></setting></group></config></inventories>"};
    const char* counts[] = {"configsets: 1\nconfigs: 1\ngroups: 256\nsettings: 0\nresult: 0\n",
                            "configsets: 0\nconfigs: 1\ngroups: 1\nsettings: 1\nresult: 0\n"};
    for (int i = 0; i < 2; ++i) {
        std::string path = file("deep.xml", files[i]);
        testutil::aimctl_result r = run("check " + path);
        EXPECT_EQ(0, r.status) << r.err.substr(0, 500);
        EXPECT_EQ(counts[i], r.out);
        EXPECT_EQ(0, run("dump " + path).status);
    }
}

// ---- aimctl fru ---------------------------------------------------------------------------

TEST_F(Aimctl, FruPrintsTheExampleImage) {
    testutil::aimctl_result r = run("fru " + testutil::source_path("examples/fru/alveo_u50.bin"));
    ASSERT_EQ(0, r.status) << r.err;
    EXPECT_EQ(nlohmann::json::parse(R"({"ok": true, "multirecord_offset": 136,
        "product": {"valid": true, "version": 1, "language": 25, "manufacturer": "Xilinx",
            "product_name": "Alveo U50", "part_number": "A-U50-P00G-PQ-G", "product_version": "1.0",
            "serial_number": "XFL1QOQ1ATTY", "asset_tag": "", "fru_file_id": "fru_u50.xml"},
        "board": {"valid": true, "version": 1, "language": 25, "mfg_date": [30, 68, 202], "manufacturer": "Xilinx",
            "product_name": "ALVEO U50 PQ", "serial_number": "50121119B0JX", "part_number": "05080-01",
            "fru_file_id": "v1.0"}})"),
              nlohmann::json::parse(r.out))
        << r.out;
    EXPECT_EQ("", r.err);
}

// Texts stop at the first zero byte; other bytes outside printable ASCII, quotes and
// backslashes are escaped.
TEST_F(Aimctl, FruEscapesTexts) {
    std::string img = std::string("\0\0\0\0\x01\0\0\0\x01\0\x19\xC5", 12) + "a\"b\\c\xC4" +
                      std::string("\x01\x7F\xE9z\xC3x\0y\xC1", 9) + std::string(16, '\0');
    testutil::aimctl_result r = run("fru " + file("escape.bin", img));
    EXPECT_EQ(0, r.status);
    EXPECT_NE(std::string::npos, r.out.find("\"manufacturer\": \"a\\\"b\\\\c\"")) << r.out;
    EXPECT_NE(std::string::npos, r.out.find("\"product_name\": \"\\u0001\\u007F\\u00E9z\"")) << r.out;
    EXPECT_NE(std::string::npos, r.out.find("\"part_number\": \"x\"")) << r.out;
    EXPECT_NE(std::string::npos, r.out.find("\"mfg_date\": [0, 0, 0]")) << r.out;
    EXPECT_NE(std::string::npos, r.err.find("ERR get_bia, BIA not exsit!\n")) << r.err;
}

TEST_F(Aimctl, FruExitCodes) {
    // image, exit status, expected in standard output, expected in standard error.
    const std::tuple<std::string, int, const char*, const char*> rows[] = {
        std::make_tuple(file("short.bin", "\x01\x00\x00"), 1, "\"ok\": false", ""),
        std::make_tuple(file("long.bin", std::string("\x01\0\0\x01\x01\0\0\0\x01\x09\0", 11)), 1,
                        "\"ok\": false", "ERR get_bia, fru too long!"),
        std::make_tuple(sys.dir() + "/none.bin", 1, "", "aimctl fru: cannot read '"),
        std::make_tuple(sys.dir(), 1, "", "aimctl fru: cannot read '")};
    for (const auto& c : rows) {
        testutil::aimctl_result r = run("fru " + std::get<0>(c));
        EXPECT_EQ(std::get<1>(c), r.status) << std::get<0>(c) << r.out << r.err;
        EXPECT_NE(std::string::npos, r.out.find(std::get<2>(c))) << r.out;
        EXPECT_NE(std::string::npos, r.err.find(std::get<3>(c))) << r.err;
    }
}

}  // namespace
