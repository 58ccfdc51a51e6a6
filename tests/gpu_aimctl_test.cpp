// aimctl vnic and aimctl gpu, run as processes.
#include <string>

#include "tests/fixture.h"

namespace {

class AimctlCards : public testutil::IngestTest {
protected:
    testutil::aimctl_result aimctl(const std::string& args) {
        return testutil::run_aimctl("--log-level err " + args, dir);
    }
    std::string machine = " --machine " + testutil::source_path("examples/machines/pcie-gpu");
};

TEST_F(AimctlCards, VnicDecodesDataSets) {
    auto o = aimctl("vnic " + testutil::source_path("examples/machines/rack-2u-nic/iscsi-cap-data.bin"));
    ASSERT_EQ(0, o.status) << o.err;
    EXPECT_EQ(
        "size: 69 (0x0045)\ncount: 5\nbody: 59 bytes\n"
        "record 0: bus 0x3B device 0x0 function 0x0 flags 0x81 vnic yes mac 000AF76B2C40\n"
        "record 1: bus 0x4B device 0x0 function 0x0 flags 0x81 vnic yes mac 3CFDFE9A1B70\n"
        "record 2: bus 0x4B device 0x0 function 0x1 flags 0x81 vnic yes mac 3CFDFE9A1B71\n"
        "record 3: bus 0x5E device 0x0 function 0x0 flags 0x01 vnic no\n"
        "record 4: bus 0x4C device 0x0 function 0x0 flags 0x81 vnic yes mac 3CFDFE9A1B72\n",
        o.out);
}

TEST_F(AimctlCards, GpuPrintsWhatTheDeviceAnswered) {
    auto o = aimctl("gpu" + machine + " nvgpu_slot3");
    ASSERT_EQ(0, o.status) << o.err;
    EXPECT_EQ(
        "manufacturer:        \nserial_num:          1323921012345\nproduct_name:        NVIDIA A100 80GB "
        "PCIe\n"
        "uuid:                \npart_num:            900-21001-0020-1\nfru_num:             \n"
        "build_date:          08/30/2022\nfw_version:          92.00.9E.00.03\nvendor_id:           0x10DE\n"
        "device_id:           0x20B5\nsubsystem_vendor_id: 0x10DE\nsubsystem_device_id: 0x1533\n"
        "requests:            25\n",
        o.out);
}

TEST_F(AimctlCards, BadArgumentsAndHelp) {
    for (const std::string& bad :
         {std::string("gpu nvgpu_slot3"), "gpu" + machine, "gpu" + machine + " --ids 10DE:1 nvgpu_slot3",
          "gpu" + machine + " --bogus nvgpu_slot3", "gpu" + machine + " a b", std::string("vnic"),
          std::string("vnic a b")})
        EXPECT_EQ(2, aimctl(bad).status) << bad;
    for (const std::string& failing :
         {"gpu" + machine + " nvgpu_slot9", "gpu --machine " + dir + "/nowhere nvgpu_slot3",
          "vnic " + dir + "/missing.bin"})
        EXPECT_EQ(1, aimctl(failing).status) << failing;
    EXPECT_EQ(0u, aimctl("gpu --help").out.find("usage: aimctl gpu --machine DIR"));
    EXPECT_EQ(0u, aimctl("vnic --help").out.find("usage: aimctl vnic FILE"));
}

}  // namespace
