// Whole runs over the example machines: the adapter tables as the inventory service would
// find them afterwards. Each machine is ingested twice, so the expectations also show that
// a second run (GPUs found in the database) leaves the same rows. Under the sanitizer build
// these runs also show that a run leaves no allocation behind.
#include <string>

#include "tests/afterwalk_support.h"

namespace {

struct check {
    const char* machine;
    const char* table;
    const char* where;
    size_t count;               // rows matching `where`
    const char* row = nullptr;  // when count is 1: the row's columns (see expect_row)
};

const check checks[] = {
    {"ubb-8gpu", "PCIAdapter", "CardName='NVIDIA H100 80GB HBM3' AND ConnectorType='23' AND OOBSrc=8", 8},
    {"ubb-8gpu", "PCIAdapter", "BusNo=12", 1, "AIMSupported=1"},  // the NIC of the AIM file
    {"ubb-8gpu", "VPDs", "SlotNo=3", 1,                           // second-generation properties of slot 3
     "UUID=GPU-4c1f9e22-7a3b-5d6e-8f90-a1b2c3d4e5f2;Manufacture=NVIDIA;ProductName=NVIDIA H100 80GB HBM3;"
     "SerialNo=1654922001268;FRUNo=692-2G520-0200-000;PartNo=699-2G520-0200-300;HardwareId=3801088"},
    {"ubb-8gpu", "Firmwares",
     "SoftwareID='10DE16C1' AND VersionString='96.00.74.00.1C' AND ReleaseDate='14032023'", 8},
    // One PLDM row per baseboard GPU, next to the NIC's row from the AIM walk.
    {"ubb-8gpu", "PldmDeviceFirmware", "DeviceType=4 AND SoftwareID='10DE16C1' AND UpdateSupport=1", 8},
    {"ubb-8gpu", "PldmDeviceFirmware", "", 9},
    // The A100 answers the device query after transient failures; the L40S is named by the
    // platform's table; the AMD card is read through the FRU tool.
    {"pcie-gpu", "PCIAdapter", "", 6},
    {"pcie-gpu", "VPDs", "SlotNo=3", 1,
     "ProductName=NVIDIA A100 80GB PCIe;SerialNo=1323921012345;PartNo=900-21001-0020-1"},
    {"pcie-gpu", "Firmwares", "HardwareId=0x170000", 1,
     "ReleaseDate=08/30/2022;VersionString=92.00.9E.00.03"},
    {"pcie-gpu", "PCIAdapter", "SlotNo=5", 1, "CardName=NVIDIA L40S 48GB PCIe"},
    {"pcie-gpu", "VPDs", "SlotNo=6", 1,
     "Manufacture=AMD;ProductName=AMD Instinct MI210\n;SerialNo=692231000123\n"},
    {"pcie-gpu", "PldmDeviceFirmware", "", 1},  // the NIC only: no UBB GPUs
    // vNIC functions of the OCP NIC (the AIM NIC's record is skipped), the riser bridge, the
    // 450w-16e card, a LOM named by its designation and the RAID controller of the AIM file.
    {"rack-2u-nic", "PCIAdapter", "", 10},
    {"rack-2u-nic", "PCILogicalPort", "BusNo=75 AND FunctionNo=1", 1, "PermanentAddress=3CFDFE9A1B71"},
    {"rack-2u-nic", "PldmDeviceFirmware", "SlotNo=4", 1, "SoftwareID=FE00FD00"},
    {"rack-2u-nic", "PldmDeviceFirmware", "SlotNo=5", 1, "DeviceName=450w-16e;Manufacture=Broadcom Inc."},
    {"rack-2u-nic", "PCIAdapter", "BusNo=25", 1, "CardName=Mellanox CX4;OOBSrc=2"},
    {"rack-2u-nic", "PCIAdapter", "BusNo=94", 1, "CardName=Broadcom MegaRAID 9560-8i 4GB"},
};

class ExampleMachine : public awtest::AfterWalkTest, public ::testing::WithParamInterface<std::string> {};

TEST_P(ExampleMachine, TwoRunsLeaveTheExpectedAdapterRows) {
    ASSERT_EQ(0, run_example(GetParam()));
    host::log_capture_begin();  // the second run's messages only
    ASSERT_EQ(0, run_example(GetParam()));
    for (const check& c : checks) {
        if (GetParam() != c.machine) continue;
        if (c.row) expect_row(c.table, c.where, c.row);
        EXPECT_EQ(c.count, count(c.table, c.where)) << c.table << " WHERE " << c.where;
    }
    EXPECT_EQ(0u, logged_prefix(host::log_level::warn, "AIM PARSER: failed to"));
}

INSTANTIATE_TEST_SUITE_P(Examples, ExampleMachine, ::testing::Values("ubb-8gpu", "pcie-gpu", "rack-2u-nic"));

}  // namespace
