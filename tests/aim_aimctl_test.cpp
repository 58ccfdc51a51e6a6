// aimctl check and dump run as processes: exit codes, the last line, well-formed output.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <fstream>
#include <sstream>
#include <string>

#include "host/sysroot.h"
#include "platform/sysxml.h"
#include "tests/fixture.h"

namespace {

typedef testutil::aimctl_result run_result;

class AimctlCheckDump : public ::testing::Test {
  protected:
    run_result run(const std::string& args) { return testutil::run_aimctl(args, sys.dir()); }
    std::string file(const std::string& name, const std::string& content) {
        std::string path = sys.dir() + "/" + name;
        std::ofstream(path.c_str()) << content;
        return path;
    }
    static std::string last_line(const std::string& text) {
        std::string t = text;
        if (!t.empty() && t.back() == '\n') t.pop_back();
        return t.substr(t.rfind('\n') == std::string::npos ? 0 : t.rfind('\n') + 1);
    }

    host::scoped_sysroot sys;
};

const std::string example = AIM_SOURCE_DIR "/examples/aim/server-2u.xml";

TEST_F(AimctlCheckDump, CheckTheExample) {
    run_result r = run("check " + example);
    EXPECT_EQ(0, r.status) << r.err;
    EXPECT_EQ("configsets: 1\nconfigs: 6\ngroups: 24\nsettings: 166\nresult: 0\n", r.out);
    EXPECT_NE(std::string::npos, r.err.find("INFO AIM Doc: config Slot1.Func0 is [OK]\n"));
    EXPECT_EQ(std::string::npos, r.err.find("ERR "));
}

TEST_F(AimctlCheckDump, CheckFailures) {
    run_result r = run("check " AIM_SOURCE_DIR "/examples/aim/bad-root.xml");
    EXPECT_EQ(1, r.status);
    EXPECT_EQ("result: 7", last_line(r.out));

    r = run("check " + file("bad.xml", "<inventories>\n<configset>\n</inventories>\n"));
    EXPECT_EQ(1, r.status);
    EXPECT_EQ("result: 8", last_line(r.out));
    EXPECT_NE(std::string::npos, r.err.find("ERR AIM Doc: [exception], msg = ill-formed XML at line 3: "))
        << r.err;

    r = run("check " + sys.dir() + "/missing.xml");
    EXPECT_EQ(1, r.status);
    EXPECT_EQ("", r.out);
    EXPECT_NE(std::string::npos, r.err.find("cannot open")) << r.err;

    // Reader faults that are tolerated keep the result at 0.
    r = run("check " + file("faults.xml",
                            "<inventories><config ID=\"c\"><name>c</name><bogus/>"
                            "<group><name>g</name><setting ID=\"s\"><name>s</name></setting>"
                            "<group><name>h</name></group></group></config></inventories>"));
    EXPECT_EQ(0, r.status);
    EXPECT_EQ("configsets: 0\nconfigs: 1\ngroups: 2\nsettings: 1\nresult: 0\n", r.out);
    EXPECT_NE(std::string::npos, r.err.find("ERR AIM XML ERROR: Unexpected node 'bogus' in config\n"));
}

TEST_F(AimctlCheckDump, UsageAndHelp) {
    for (const char* args : {"check", "check a b", "check --bogus x", "dump", "dump a b", "dump x --unit",
                             "dump x --unit abc", "dump x --unit -1", "dump x --unit 65", "dump --frob x"}) {
        run_result r = run(args);
        EXPECT_EQ(2, r.status) << args;
        EXPECT_NE(std::string::npos, r.err.find("aimctl ")) << args;
        EXPECT_EQ("", r.out) << args;
    }
    for (const char* args : {"check --help", "dump --help", "dump -h"}) {
        run_result r = run(args);
        EXPECT_EQ(0, r.status) << args;
        EXPECT_EQ(0u, r.out.find("usage: aimctl ")) << args;
    }
}

TEST_F(AimctlCheckDump, DumpIsWellFormed) {
    run_result r = run("dump " + example);
    ASSERT_EQ(0, r.status) << r.err;
    EXPECT_EQ(0u, r.out.find("<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n"));
    EXPECT_NE(std::string::npos,
              r.out.find("\n    <config>\n      <name>Broadcom MegaRAID 9560-16i 8GB</name>\n"));
    std::istringstream in(r.out);
    EXPECT_NO_THROW(sysxml::document(in, false));
    if (system("command -v xmllint >/dev/null 2>&1") == 0) {
        std::string path = file("dump.xml", r.out);
        EXPECT_EQ(0, system(("xmllint --noout " + path).c_str()));
    }

    r = run("dump " + example + " --unit 0");
    ASSERT_EQ(0, r.status);
    EXPECT_EQ(std::string::npos, r.out.find("\n "));
    r = run("dump --unit 4 " + example);
    ASSERT_EQ(0, r.status);
    EXPECT_NE(std::string::npos, r.out.find("\n    <configset>\n        <name>PCI Adapters</name>\n"));
}

TEST_F(AimctlCheckDump, DumpFailures) {
    run_result r = run("dump " AIM_SOURCE_DIR "/examples/aim/bad-root.xml");
    EXPECT_EQ(1, r.status);
    EXPECT_EQ("", r.out);
    EXPECT_NE(std::string::npos, r.err.find("result: 7")) << r.err;
    r = run("dump " + sys.dir() + "/missing.xml");
    EXPECT_EQ(1, r.status);
}

TEST_F(AimctlCheckDump, DeepFilesDoNotCrash) {
    std::string groups = "<inventories><configset><name>s</name><config ID=\"c\"><name>c</name>";
    for (int i = 0; i < 100000; ++i) groups += "<group><name>g</name>";
    for (int i = 0; i < 100000; ++i) groups += "</group>";
    groups += "</config></configset></inventories>";
    run_result r = run("check " + file("groups.xml", groups));
    EXPECT_EQ(0, r.status) << r.err.substr(0, 500);
    EXPECT_EQ("configsets: 1\nconfigs: 1\ngroups: 256\nsettings: 0\nresult: 0\n", r.out);

    std::string values =
        "<inventories><config ID=\"c\"><name>c</name><group><name>g</name><setting ID=\"s\">"
        "<name>s</name><numeric_data>";
    for (int i = 0; i < 100000; ++i) values += "<value>";
    values += "1";
    for (int i = 0; i < 100000; ++i) values += "</value>";
    values += "</numeric_data></setting></group></config></inventories>";
    r = run("check " + file("values.xml", values));
    EXPECT_EQ(0, r.status);
    EXPECT_EQ("result: 0", last_line(r.out));
    r = run("dump " + file("values.xml", values));
    EXPECT_EQ(0, r.status);
}

}  // namespace
