// The storage-1u examples: the boot adapter's card VPD (a 256-byte and a 1 KB memory), the
// PLDM table with MCTP endpoints, ports, GPU rows.
#include "tests/writers_util.h"

using namespace writers_test;

namespace {

class StorageExample : public testutil::IngestTest {
protected:
    host::row boot_adapter_vpd() {
        auto r = rows("VPDs", "HardwareId=131072");
        EXPECT_EQ(1u, r.size());
        return r.empty() ? host::row() : r[0];
    }
};

TEST_F(StorageExample, BootAdapterWith256ByteVpd) {
    ASSERT_EQ(0, run_example("storage-1u"));
    auto vpd = boot_adapter_vpd();
    EXPECT_EQ("M2B2340017", col(vpd, "SerialNo"));
    EXPECT_EQ("SR-M2B-0301", col(vpd, "PartNo"));
    EXPECT_EQ("FRU-0301A", col(vpd, "FRUNo"));
    EXPECT_EQ("M2-BOOT-2", col(vpd, "Model"));  // not in the 256-byte layout
    EXPECT_EQ("2F0C7A51-9E3B-4D28-8C61-0301A0B1C2D3", col(vpd, "UUID"));
    EXPECT_TRUE(
        logged("AIM PARSER: update_hw_vpd, vendor:0x1B4B, sub_vendor:0xFE10, device:0x9230, "
               "sub_device:0x0301, vpd_device_id=0x42"));

    // Every adapter but the PCH's SATA controller has a PLDM row; both NIC functions keep
    // theirs because each has an MCTP endpoint.
    auto pldm = rows("PldmDeviceFirmware");
    EXPECT_EQ((std::vector<std::string>{"131072", "4259840", "4259841", "8454144"}),
              column(pldm, "PCIFuncKey"));
    EXPECT_EQ((std::vector<std::string>{"2.3.0.1077", "14.32.1010", "14.32.1010", "90.04.96.00.02"}),
              column(pldm, "VersionString"));
    EXPECT_EQ(6u, count("Firmwares"));

    // RVT_CODENAME names a platform whose port 2 of this adapter gets connector layout 5.
    EXPECT_EQ((std::vector<std::string>{"SFP28", "5"}), column(rows("PCIPhysicalPort"), "ConnectorLayout"));
    EXPECT_EQ((std::vector<std::string>{"1", "1"}), column(rows("PCIs", "VendorId=5555"), "FunType"));
    EXPECT_EQ(1u, count("PCIGPU"));
    EXPECT_EQ((std::vector<std::string>{"TU104"}), column(rows("PCIGPUChip"), "GPUChipName"));
}

TEST_F(StorageExample, BootAdapterWith1KbVpd) {
    ASSERT_EQ(0, run_example("storage-1u-1k"));
    auto vpd = boot_adapter_vpd();
    EXPECT_EQ("Dual M.2 SATA Boot Adapter", col(vpd, "ProductName"));
    EXPECT_EQ("SMKR", col(vpd, "Manufacture"));
    EXPECT_EQ("M2B1K230088", col(vpd, "SerialNo"));
    EXPECT_EQ("SR-M2B-1K", col(vpd, "PartNo"));
    EXPECT_EQ("7Z01", col(vpd, "Model"));
    EXPECT_EQ("FRU-0301B", col(vpd, "FRUNo"));
    EXPECT_EQ("101112131415161718191A1B1C1D1E1F20" + std::string(510 - 34, '0'), col(vpd, "UUID"));
    // Without RVT_CODENAME the AIM connector layout stands.
    EXPECT_EQ((std::vector<std::string>{"SFP28", "SFP28"}),
              column(rows("PCIPhysicalPort"), "ConnectorLayout"));
}

}  // namespace
