// aimctl check and dump run as processes: exit codes, the last line, well-formed output,
// deep files.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <string>

#include "host/sysroot.h"
#include "tests/fixture.h"

namespace {

class AimctlCheckDump : public ::testing::Test {
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

TEST_F(AimctlCheckDump, Check) {
    testutil::aimctl_result r = run("check " + example);
    EXPECT_EQ(0, r.status) << r.err;
    EXPECT_EQ("configsets: 1\nconfigs: 6\ngroups: 24\nsettings: 166\nresult: 0\n", r.out);
    EXPECT_NE(std::string::npos, r.err.find("INFO AIM Doc: config Slot1.Func0 is [OK]\n"));
    EXPECT_EQ(std::string::npos, r.err.find("ERR "));

    r = run("check " + bad_root);
    EXPECT_EQ(1, r.status);
    EXPECT_EQ("result: 7", last_line(r.out));
    r = run("check " + file("bad.xml", "<inventories>\n<configset>\n</inventories>\n"));
    EXPECT_EQ(1, r.status);
    EXPECT_EQ("result: 8", last_line(r.out));
    EXPECT_NE(std::string::npos, r.err.find("ERR AIM Doc: [exception], msg = ill-formed XML at line 3: "));
    r = run("check " + sys.dir() + "/missing.xml");
    EXPECT_EQ(1, r.status);
    EXPECT_NE(std::string::npos, r.err.find("cannot open")) << r.err;

    // Reader faults that are tolerated keep the result at 0.
    r = run("check " +
            file("faults.xml",
                 "<inventories><config ID=\"c\"><name>c</name><bogus/><group><name>g</name><setting "
                 "ID=\"s\"><name>s</name></setting><group><name>h</name></group></group></config>"
                 "</inventories>"));
    EXPECT_EQ(0, r.status);
    EXPECT_EQ("configsets: 0\nconfigs: 1\ngroups: 2\nsettings: 1\nresult: 0\n", r.out);
    EXPECT_NE(std::string::npos, r.err.find("ERR AIM XML ERROR: Unexpected node 'bogus' in config\n"));
}

TEST_F(AimctlCheckDump, UsageAndHelp) {
    for (const char* args : {"check", "check a b", "check --bogus x", "dump", "dump a b", "dump x --unit",
                             "dump x --unit abc", "dump x --unit -1", "dump x --unit 65", "dump --frob x"}) {
        testutil::aimctl_result r = run(args);
        EXPECT_EQ(2, r.status) << args;
        EXPECT_EQ("", r.out) << args;
    }
    for (const char* args : {"check --help", "dump --help"})
        EXPECT_EQ(0u, run(args).out.find("usage: aimctl "));
}

TEST_F(AimctlCheckDump, Dump) {
    testutil::aimctl_result r = run("dump " + example);
    ASSERT_EQ(0, r.status) << r.err;
    EXPECT_NE(std::string::npos,
              r.out.find("\n    <config>\n      <name>Broadcom MegaRAID 9560-16i 8GB</name>\n"));
    if (system("command -v xmllint >/dev/null 2>&1") == 0) {  // installed by scripts/install-deps.sh
        EXPECT_EQ(0, system(("xmllint --noout " + file("dump.xml", r.out)).c_str()));
    }
    r = run("dump --unit 4 " + example);
    EXPECT_NE(std::string::npos, r.out.find("\n    <configset>\n        <name>PCI Adapters</name>\n"));
    EXPECT_EQ(std::string::npos, run("dump " + example + " --unit 0").out.find("\n "));

    r = run("dump " + bad_root);
    EXPECT_EQ(1, r.status);
    EXPECT_EQ("", r.out);
    EXPECT_NE(std::string::npos, r.err.find("result: 7")) << r.err;
}

// 100 000 nested groups (cut at 256 levels) or value elements.
TEST_F(AimctlCheckDump, DeepFilesDoNotCrash) {
    std::string groups =
        file("groups.xml", "<inventories><configset><name>s</name><config ID=\"c\"><name>c</name>" +
                               repeat("<group><name>g</name>", 100000) + repeat("</group>", 100000) +
                               "</config></configset></inventories>");
    testutil::aimctl_result r = run("check " + groups);
    EXPECT_EQ(0, r.status) << r.err.substr(0, 500);
    EXPECT_EQ("configsets: 1\nconfigs: 1\ngroups: 256\nsettings: 0\nresult: 0\n", r.out);
    EXPECT_EQ(0, run("dump " + groups).status);

    std::string values =
        file("values.xml",
             "<inventories><config ID=\"c\"><name>c</name><group><name>g</name><setting ID=\"s\">"
             "<name>s</name><numeric_data>" +
                 repeat("<value>", 100000) + "1" + repeat("</value>", 100000) +
                 "</numeric_data></setting></group></config></inventories>");
    r = run("check " + values);
    EXPECT_EQ(0, r.status);
    EXPECT_EQ("result: 0", last_line(r.out));
    EXPECT_EQ(0, run("dump " + values).status);
}

}  // namespace
