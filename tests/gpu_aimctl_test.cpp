// aimctl vnic and aimctl gpu, run as processes.
#include <nlohmann/json.hpp>
#include <string>

#include "tests/fixture.h"

namespace {

typedef testutil::aimctl_result outcome;

class AimctlCards : public testutil::IngestTest {
protected:
    outcome aimctl(const std::string& args) { return testutil::run_aimctl("--log-level err " + args, dir); }
};

TEST_F(AimctlCards, VnicDecodesTheExampleDataSet) {
    outcome o = aimctl("vnic " + testutil::source_path("examples/machines/rack-2u-nic/iscsi-cap-data.bin"));
    ASSERT_EQ(0, o.status) << o.err;
    EXPECT_EQ(
        "size: 69 (0x0045)\n"
        "count: 5\n"
        "body: 59 bytes\n"
        "record 0: bus 0x3B device 0x0 function 0x0 flags 0x81 vnic yes mac 000AF76B2C40\n"
        "record 1: bus 0x4B device 0x0 function 0x0 flags 0x81 vnic yes mac 3CFDFE9A1B70\n"
        "record 2: bus 0x4B device 0x0 function 0x1 flags 0x81 vnic yes mac 3CFDFE9A1B71\n"
        "record 3: bus 0x5E device 0x0 function 0x0 flags 0x01 vnic no\n"
        "record 4: bus 0x4C device 0x0 function 0x0 flags 0x81 vnic yes mac 3CFDFE9A1B72\n",
        o.out);
}

TEST_F(AimctlCards, VnicReportsShortAndTruncatedSets) {
    std::string path = dir + "/set.bin";
    // Size 10: nothing but the header.
    testutil::write_file(path, std::string("\x00\x0A\x00\x00\x00\x00\x00\x00\x00\x01", 10));
    outcome o = aimctl("vnic " + path);
    EXPECT_EQ(1, o.status);
    EXPECT_EQ("size: 10 (0x000A)\ncount: 1\ninvalid: the size field is below 11\n", o.out);

    // Two records announced, one and a half present.
    std::string set("\x00\x14\x00\x00\x00\x00\x00\x00\x00\x02", 10);
    set += std::string("\x00\x00\x21\x3B\x80\x00\x00", 7) + std::string("\x00\x00\x22", 3);
    testutil::write_file(path, set);
    o = aimctl("vnic " + path);
    EXPECT_EQ(0, o.status) << o.err;
    EXPECT_EQ(
        "size: 20 (0x0014)\ncount: 2\nbody: 10 bytes\n"
        "record 0: bus 0x3B device 0x2 function 0x1 flags 0x80 vnic yes mac beyond the end of the data\n"
        "record 1: beyond the end of the data\n",
        o.out);

    // A file shorter than its size field: the rest reads as zeros.
    set[1] = 30;
    set[9] = 1;
    testutil::write_file(path, set);
    o = aimctl("vnic " + path);
    EXPECT_EQ(0, o.status) << o.err;
    EXPECT_EQ(
        "size: 30 (0x001E)\ncount: 1\nbody: 20 bytes (file shorter, rest read as 0)\n"
        "record 0: bus 0x3B device 0x2 function 0x1 flags 0x80 vnic yes mac 000022000000\n",
        o.out);

    testutil::write_file(path, "short");
    o = aimctl("vnic " + path);
    EXPECT_EQ(1, o.status);
    EXPECT_NE(std::string::npos, o.err.find("shorter than the 10-byte header")) << o.err;
    EXPECT_EQ(1, aimctl("vnic " + dir + "/missing.bin").status);
    EXPECT_EQ(2, aimctl("vnic").status);
    EXPECT_EQ(2, aimctl("vnic a b").status);
    o = aimctl("vnic --help");
    EXPECT_EQ(0, o.status);
    EXPECT_EQ(0u, o.out.find("usage: aimctl vnic FILE"));
}

TEST_F(AimctlCards, GpuPrintsWhatTheDeviceAnswered) {
    std::string machine = testutil::source_path("examples/machines/pcie-gpu");
    outcome o = aimctl("gpu --machine " + machine + " nvgpu_slot3");
    ASSERT_EQ(0, o.status) << o.err;
    EXPECT_EQ(
        "manufacturer:        \n"
        "serial_num:          1323921012345\n"
        "product_name:        NVIDIA A100 80GB PCIe\n"
        "uuid:                \n"
        "part_num:            900-21001-0020-1\n"
        "fru_num:             \n"
        "build_date:          08/30/2022\n"
        "fw_version:          92.00.9E.00.03\n"
        "vendor_id:           0x10DE\n"
        "device_id:           0x20B5\n"
        "subsystem_vendor_id: 0x10DE\n"
        "subsystem_device_id: 0x1533\n"
        "requests:            25\n",
        o.out);

    // With the card's ids the platform's table names it; JSON output.
    o = aimctl("gpu --machine " + machine + " --json --ids 10de:26b9:10de:1851 nvgpu_slot5");
    ASSERT_EQ(0, o.status) << o.err;
    nlohmann::json j = nlohmann::json::parse(o.out);
    EXPECT_EQ("NVIDIA L40S 48GB PCIe", j["product_name"]);
    EXPECT_EQ("11/07/2023", j["build_date"]);
    EXPECT_EQ("0x1851", j["subsystem_device_id"]);
    EXPECT_EQ(17, j["requests"]);  // no marketing-name requests
}

TEST_F(AimctlCards, GpuArgumentErrors) {
    std::string machine = testutil::source_path("examples/machines/pcie-gpu");
    outcome o = aimctl("gpu --machine " + machine + " nvgpu_slot9");
    EXPECT_EQ(1, o.status);
    EXPECT_NE(std::string::npos, o.err.find("aimctl gpu: cannot open GPU nvgpu_slot9")) << o.err;
    EXPECT_EQ(2, aimctl("gpu nvgpu_slot3").status);
    EXPECT_EQ(2, aimctl("gpu --machine " + machine).status);
    EXPECT_EQ(2, aimctl("gpu --machine " + machine + " --ids 10DE:1 nvgpu_slot3").status);
    EXPECT_EQ(2, aimctl("gpu --machine " + machine + " --bogus nvgpu_slot3").status);
    EXPECT_EQ(2, aimctl("gpu --machine " + machine + " a b").status);
    o = aimctl("gpu --machine " + dir + "/nowhere nvgpu_slot3");
    EXPECT_EQ(1, o.status);
    EXPECT_NE(std::string::npos, o.err.find("cannot open")) << o.err;
    o = aimctl("gpu --help");
    EXPECT_EQ(0, o.status);
    EXPECT_EQ(0u, o.out.find("usage: aimctl gpu --machine DIR"));
}

}  // namespace
