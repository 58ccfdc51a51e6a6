// `aimctl fru` as a process: its JSON, its exit codes and its messages.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <nlohmann/json.hpp>
#include <string>

#include "tests/fixture.h"

namespace {

typedef testutil::aimctl_result run_result;

class AimctlFru : public ::testing::Test {
protected:
    void SetUp() override {
        char tmpl[] = "/tmp/aimctl_fru_XXXXXX";
        ASSERT_NE(nullptr, mkdtemp(tmpl));
        dir = tmpl;
    }
    void TearDown() override { EXPECT_EQ(0, system(("rm -rf '" + dir + "'").c_str())); }

    run_result aimctl(const std::string& args) { return testutil::run_aimctl(args, dir); }
    std::string image(const std::string& name, const std::string& bytes) {
        std::string path = dir + "/" + name;
        testutil::write_file(path, bytes);
        return path;
    }

    std::string dir;
};

TEST_F(AimctlFru, PrintsTheExampleImage) {
    run_result r = aimctl("fru " + testutil::source_path("examples/fru/alveo_u50.bin"));
    ASSERT_EQ(0, r.status) << r.err;
    nlohmann::json j = nlohmann::json::parse(r.out);
    nlohmann::json expect = {
        {"ok", true},
        {"multirecord_offset", 136},
        {"product",
         {{"valid", true},
          {"version", 1},
          {"language", 25},
          {"manufacturer", "Xilinx"},
          {"product_name", "Alveo U50"},
          {"part_number", "A-U50-P00G-PQ-G"},
          {"product_version", "1.0"},
          {"serial_number", "XFL1QOQ1ATTY"},
          {"asset_tag", ""},
          {"fru_file_id", "fru_u50.xml"}}},
        {"board",
         {{"valid", true},
          {"version", 1},
          {"language", 25},
          {"mfg_date", {0x1E, 0x44, 0xCA}},
          {"manufacturer", "Xilinx"},
          {"product_name", "ALVEO U50 PQ"},
          {"serial_number", "50121119B0JX"},
          {"part_number", "05080-01"},
          {"fru_file_id", "v1.0"}}},
    };
    EXPECT_EQ(expect, j) << j.dump(2);
    EXPECT_EQ("", r.err);
}

// Texts stop at the first zero byte; other bytes outside printable ASCII, quotes and
// backslashes are escaped.
TEST_F(AimctlFru, EscapesTexts) {
    std::string img(8, '\0');
    img[4] = 1;  // product area at 8, board area absent
    std::string area = std::string("\x01\x00\x19", 3) + "\xC5" + "a\"b\\c" + "\xC4" +
                       std::string("\x01\x7F\xE9z", 4) + "\xC3" + std::string("x\0y", 3) + "\xC1";
    img += area + std::string(16, '\0');
    run_result r = aimctl("fru " + image("escape.bin", img));
    EXPECT_EQ(0, r.status);
    EXPECT_NE(std::string::npos, r.out.find("\"manufacturer\": \"a\\\"b\\\\c\"")) << r.out;
    EXPECT_NE(std::string::npos, r.out.find("\"product_name\": \"\\u0001\\u007F\\u00E9z\"")) << r.out;
    EXPECT_NE(std::string::npos, r.out.find("\"part_number\": \"x\"")) << r.out;
    nlohmann::json j = nlohmann::json::parse(r.out);
    EXPECT_EQ(false, j["board"]["valid"]);
    EXPECT_EQ(nlohmann::json({0, 0, 0}), j["board"]["mfg_date"]);
    EXPECT_NE(std::string::npos, r.err.find("ERR get_bia, BIA not exsit!\n")) << r.err;
}

TEST_F(AimctlFru, ExitCodes) {
    std::string both_long =
        std::string("\x01\x00\x00\x01\x01\x00\x00\x00", 8) + std::string("\x01\x09\x00", 3);
    struct {
        const char* name;
        std::string args;
        int status;
        const char* out;  // expected in standard output
        const char* err;  // expected in standard error
    } cases[] = {
        {"short image", image("short.bin", "\x01\x00\x00"), 1, "\"ok\": false", ""},
        {"both areas too long", image("long.bin", both_long), 1, "\"ok\": false",
         "ERR get_bia, fru too long!"},
        {"missing file", dir + "/none.bin", 1, "", "aimctl fru: cannot read '"},
        {"directory", dir, 1, "", "aimctl fru: cannot read '"},
        {"no image", "", 2, "", "aimctl fru: missing IMAGE"},
        {"two images", "a b", 2, "", "aimctl fru: expected one IMAGE"},
        {"unknown option", "--bogus", 2, "", "aimctl fru: unknown option '--bogus'"},
        {"help", "--help", 0, "usage: aimctl fru IMAGE", ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        run_result r = aimctl("fru " + c.args);
        EXPECT_EQ(c.status, r.status) << r.out << r.err;
        EXPECT_NE(std::string::npos, r.out.find(c.out)) << r.out;
        EXPECT_NE(std::string::npos, r.err.find(c.err)) << r.err;
    }
}

}  // namespace
