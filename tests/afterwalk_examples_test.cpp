// Whole runs over the example machines: every adapter table as the inventory service would
// find it afterwards. Under the sanitizer build these runs also show that a run leaves no
// allocation behind.
#include <string>

#include "host/sim.h"
#include "host/sysroot.h"
#include "tests/afterwalk_support.h"

using awtest::expect_columns;
using awtest::num;

namespace {

class ExampleMachine : public awtest::AfterWalkTest {
protected:
    std::string cell(const std::string& table, const std::string& column, const std::string& where) {
        auto r = rows(table, where);
        if (r.size() != 1) return "<" + num(static_cast<unsigned>(r.size())) + " rows>";
        auto it = r[0].find(column);
        return it == r[0].end() ? "<NULL>" : it->second;
    }
};

TEST_F(ExampleMachine, UbbEightGpuServer) {
    ASSERT_EQ(0, run_example("ubb-8gpu"));
    EXPECT_EQ(10u, count("PCIAdapter")) << log_text();
    EXPECT_EQ(8u, count("PCIAdapter",
                        "CardName='NVIDIA H100 80GB HBM3' AND ConnectorType='23' AND OOBSrc=8 "
                        "AND AIMSupported=0 AND Location=1"));
    EXPECT_EQ("VGA Display Controller", cell("PCIAdapter", "CardName", "BusNo=3"));
    EXPECT_EQ("1", cell("PCIAdapter", "AIMSupported", "BusNo=12"));  // the NIC of the AIM file
    EXPECT_EQ(0u, count("PCIAdapter", "BusNo=1"));                   // the NVMe boot drive
    // Second-generation properties of slot 3 (bus 0x3A).
    auto vpd = rows("VPDs", "SlotNo=3");
    ASSERT_EQ(1u, vpd.size());
    expect_columns(vpd[0], {{"UUID", "GPU-4c1f9e22-7a3b-5d6e-8f90-a1b2c3d4e5f2"},
                            {"Manufacture", "NVIDIA"},
                            {"ProductName", "NVIDIA H100 80GB HBM3"},
                            {"SerialNo", "1654922001268"},
                            {"FRUNo", "692-2G520-0200-000"},
                            {"PartNo", "699-2G520-0200-300"},
                            {"HardwareId", num(0x3A0000)},
                            {"HardwareTypeId", "3"},
                            {"Model", "NVIDIA H100 80GB HBM3"}});
    EXPECT_EQ(8u, count("Firmwares",
                        "SoftwareID='10DE16C1' AND VersionString='96.00.74.00.1C' AND "
                        "ReleaseDate='14032023'"));
    // One PLDM row per baseboard GPU, next to the NIC's row from the AIM walk.
    EXPECT_EQ(9u, count("PldmDeviceFirmware"));
    EXPECT_EQ(8u, count("PldmDeviceFirmware",
                        "DeviceType=4 AND SoftwareID='10DE16C1' AND UpdateSupport=1 AND "
                        "UpdateMethod=1"));
    EXPECT_EQ(9u, count("PCIPhysicalPortStat"));
    EXPECT_EQ(8u, count("PCILogicalPort", "NetworkAddresses='000000000000'"));
    EXPECT_EQ(8u, logged_count("!!!!! NVidia GPU - read ipmiprop v2 fields"));
    EXPECT_EQ(0u, logged_prefix(host::log_level::warn, "AIM PARSER: failed to some GPU data"));

    // A second run finds the GPUs in the database and updates their rows.
    ASSERT_EQ(0, run_example("ubb-8gpu"));
    EXPECT_EQ(8u, count("VPDs", "Manufacture='NVIDIA'"));
    EXPECT_EQ(9u, count("PldmDeviceFirmware"));
    EXPECT_TRUE(logged(host::log_level::info,
                       "!!!!! slot 8, func_type 4 - NVidia GPU, found_gpu_info 1, ubb_gpu 1, is_kelpie 0"));
}

TEST_F(ExampleMachine, PcieGpuServer) {
    unsigned long long slept = host::total_sleep_us();
    ASSERT_EQ(0, run_example("pcie-gpu"));
    EXPECT_EQ(6u, count("PCIAdapter")) << log_text();
    // The A100 answers the device query after two transient failures.
    auto a100 = rows("VPDs", "SlotNo=3");
    ASSERT_EQ(1u, a100.size());
    expect_columns(a100[0], {{"ProductName", "NVIDIA A100 80GB PCIe"},
                             {"SerialNo", "1323921012345"},
                             {"PartNo", "900-21001-0020-1"},
                             {"Manufacture", "NVIDIA"}});
    EXPECT_EQ("08/30/2022", cell("Firmwares", "ReleaseDate", "HardwareId=" + num(0x170000)));
    EXPECT_EQ("92.00.9E.00.03", cell("Firmwares", "VersionString", "HardwareId=" + num(0x170000)));
    EXPECT_EQ("10DE20B5", cell("Firmwares", "SoftwareID", "HardwareId=" + num(0x170000)));
    EXPECT_EQ(10000u, host::total_sleep_us() - slept);
    // The L40S is named by the platform's table, without a name request.
    EXPECT_EQ("NVIDIA L40S 48GB PCIe", cell("PCIAdapter", "CardName", "SlotNo=5"));
    EXPECT_EQ("11/07/2023", cell("Firmwares", "ReleaseDate", "HardwareId=" + num(0x650000)));
    for (const auto& r : host::nvidia_gpu_requests("nvgpu_slot5")) EXPECT_NE(3, r.first);
    // The AMD card through the FRU tool: texts as the tool printed them.
    auto amd = rows("VPDs", "SlotNo=6");
    ASSERT_EQ(1u, amd.size());
    expect_columns(amd[0], {{"Manufacture", "AMD"},
                            {"ProductName", "AMD Instinct MI210\n"},
                            {"SerialNo", "692231000123\n"},
                            {"PartNo", "102-D67302-00\n"},
                            {"FRUNo", "6\n"},
                            {"UUID", "N/A"}});
    EXPECT_EQ("1002740F", cell("Firmwares", "SoftwareID", "HardwareId=" + num(0xCA0000)));
    EXPECT_EQ("Onboard VGA", cell("PCIAdapter", "CardName", "BusNo=3"));
    EXPECT_EQ(1u, count("PldmDeviceFirmware"));  // the NIC only: no UBB GPUs here
}

TEST_F(ExampleMachine, RackServerWithNetworkAdapters) {
    ASSERT_EQ(0, run_example("rack-2u-nic"));
    auto adapters = rows("PCIAdapter");
    ASSERT_EQ(10u, adapters.size()) << log_text();
    // vNIC functions of the OCP NIC, with their MAC addresses; the AIM NIC's record is skipped.
    EXPECT_EQ(2u, count("PCIAdapter", "BusNo=75 AND AIMSupported=2 AND OOBSrc=8"));
    EXPECT_EQ("3CFDFE9A1B70", cell("PCIPhysicalPort", "PermanentAddress", "BusNo=75 AND FunctionNo=0"));
    EXPECT_EQ("3CFDFE9A1B71", cell("PCILogicalPort", "PermanentAddress", "BusNo=75 AND FunctionNo=1"));
    EXPECT_EQ("1", cell("PCIPhysicalPort", "Idx", "BusNo=75 AND FunctionNo=1"));
    EXPECT_EQ("000000000000000000003CFDFE9A1B70", cell("VPDs", "UUID", "HardwareId=" + num(0x4B0000)));
    EXPECT_TRUE(
        logged(host::log_level::err,
               "AIM_PARSER: No PCI Info in CDS PCIs table for vnic data, bus: 4C, device:  0, fun:  0"));
    // The riser bridge (known-card row 8) and the 450w-16e card with their PLDM rows.
    EXPECT_EQ("N/A", cell("PCIAdapter", "CardName", "BusNo=23"));
    EXPECT_EQ("FE00FD00", cell("Firmwares", "SoftwareID", "HardwareId=" + num(0x170000)));
    EXPECT_EQ("FE00FD00", cell("PldmDeviceFirmware", "SoftwareID", "SlotNo=4"));
    EXPECT_EQ("450w-16e", cell("VPDs", "ProductName", "SlotNo=5"));
    EXPECT_EQ("Broadcom Inc.", cell("PldmDeviceFirmware", "Manufacture", "SlotNo=5"));
    EXPECT_EQ(4u, count("PldmDeviceFirmware"));
    // The catch-all names: an unknown card, a LOM by its designation, the VGA controller.
    EXPECT_EQ("Adapter 00:D8:00.00", cell("PCIAdapter", "CardName", "BusNo=216"));
    EXPECT_EQ("Mellanox CX4", cell("PCIAdapter", "CardName", "BusNo=25"));
    EXPECT_EQ("2", cell("PCIAdapter", "OOBSrc", "BusNo=25"));
    EXPECT_EQ("VGA Display Controller", cell("PCIAdapter", "CardName", "BusNo=3"));
    // The RAID controller of the AIM file, re-typed after its rows were written.
    EXPECT_EQ("Broadcom MegaRAID 9560-8i 4GB", cell("PCIAdapter", "CardName", "BusNo=94"));
    EXPECT_EQ(1u, count("PCIs", "BusNo=94 AND FunType=0"));
}

}  // namespace
