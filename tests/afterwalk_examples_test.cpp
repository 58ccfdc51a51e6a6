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
    // One drive row per drive group; the unit in slot 4 renamed in both tables; the FPGA
    // cards written from their FRU images.
    {"accel-2u", "AimDisks", "", 5},
    {"accel-2u", "AimDisks", "SlotNo=3 AND BayNo=0", 1,
     "CtrlType=0;DriveTypeId=1;LocationId=1;Presence=1;MediaTypeId=1;FruNo=02JG183;PartNo=SSG7A38201;"
     "SerialNo=8S02JG183Y020D9BD12A;UUID=5000CCA0A1B2C3D5;Manufacturer=WDC;Capacity=1800360124416"},
    {"accel-2u", "AimDisks", "SlotNo=3 AND BayNo=1", 1,
     "DriveTypeId=4;MediaTypeId=2;UUID=36344330-4E60-3401-0025-38500000C3D4;FwVersion=MPK7525Q"},
    {"accel-2u", "AimDisks", "BayNo='7mm Bay 0'", 1, "LocationId=3;DriveTypeId=2;UUID=55CD2E41552B8F31"},
    {"accel-2u", "AimDisks", "BayNo='M.2 Bay 1'", 1,
     "PCIFuncKey=6160384;LocationId=4;Presence=1;SerialNo=;UUID=;Model=MTFDKBA960TFR"},
    {"accel-2u", "PCIAdapter", "SlotNo=4", 1, "CardName=Storage Expansion Unit 12x3.5 SAS/SATA"},
    {"accel-2u", "VPDs", "SlotNo=4", 1, "ProductName=Storage Expansion Unit 12x3.5 SAS/SATA"},
    {"accel-2u", "PCIAdapter", "SlotNo=3", 1, "CardName=RAID 9560-16i 8GB"},
    {"accel-2u", "PCIAdapter", "SlotNo=1", 1, "CardName=Alveo U50 XDMA Platform;AIMSupported=0;OOBSrc=8"},
    {"accel-2u", "VPDs", "SlotNo=1", 1,
     "UUID=N/A;ProductName=Alveo U50 XDMA Platform;Manufacture=Xilinx;Model=A-U50-P00G-PQ-G;"
     "SerialNo=XFL1QOQ1ATTY;PartNo=05080-01;FRUNo=N/A;HardwareId=1507328;HardwareTypeId=3"},
    {"accel-2u", "Firmwares", "HardwareId=1507328", 1,
     "FirmwareName=Software Bundle;VersionString=2.1.0.36;Description=Firmware package containing controller "
     "firmware, UEFI Driver, and other sub components.;Manufacture=Xilinx;SoftwareID=10EE000E"},
    {"accel-2u", "VPDs", "SlotNo=2", 1,
     "ProductName=Intel FPGA PAC N3000;Manufacture=Intel Corporation;Model=BD-NVV-N3000-1;"
     "SerialNo=NZ0125092210;PartNo=K61398-001"},
    {"accel-2u", "Firmwares", "HardwareId=3866624", 1, "VersionString=1.3.8.0;Manufacture=Intel Corporation"},
    {"accel-2u", "PCIMisc", "SlotNo=2", 1, "MaxDataWidth=16;PackageType=9;AIMSpecVersion=2.00"},
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

INSTANTIATE_TEST_SUITE_P(Examples, ExampleMachine,
                         ::testing::Values("ubb-8gpu", "pcie-gpu", "rack-2u-nic", "accel-2u"));

}  // namespace
