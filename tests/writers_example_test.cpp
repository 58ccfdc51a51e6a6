// The storage-1u examples: the boot adapter's card VPD (a 256-byte and a 1 KB memory), the
// PLDM table with MCTP endpoints, ports, GPU rows.
#include "tests/writers_util.h"

using namespace writers_test;

namespace {

class StorageExample : public testutil::IngestTest {};

TEST_F(StorageExample, BootAdapterWith256ByteVpd) {
    ASSERT_EQ(0, run_example("storage-1u"));
    auto vpd = rows("VPDs", "HardwareId=131072");
    ASSERT_EQ(1u, vpd.size());
    testutil::expect_columns(vpd[0], {{"SerialNo", "M2B2340017"},
                                      {"PartNo", "SR-M2B-0301"},
                                      {"FRUNo", "FRU-0301A"},
                                      {"Model", "M2-BOOT-2"},  // not in the 256-byte layout
                                      {"UUID", "2F0C7A51-9E3B-4D28-8C61-0301A0B1C2D3"}});
    // Every adapter but the PCH's SATA controller has a PLDM row; both NIC functions keep
    // theirs because each has an MCTP endpoint.
    EXPECT_EQ((std::vector<std::string>{"131072", "4259840", "4259841", "8454144"}),
              column(rows("PldmDeviceFirmware"), "PCIFuncKey"));
    // RVT_CODENAME names a platform whose port 2 of this adapter gets connector layout 5.
    EXPECT_EQ((std::vector<std::string>{"SFP28", "5"}), column(rows("PCIPhysicalPort"), "ConnectorLayout"));
    EXPECT_EQ((std::vector<std::string>{"TU104"}), column(rows("PCIGPUChip"), "GPUChipName"));
}

TEST_F(StorageExample, BootAdapterWith1KbVpd) {
    ASSERT_EQ(0, run_example("storage-1u-1k"));
    auto vpd = rows("VPDs", "HardwareId=131072");
    ASSERT_EQ(1u, vpd.size());
    testutil::expect_columns(vpd[0],
                             {{"ProductName", "Dual M.2 SATA Boot Adapter"},
                              {"Manufacture", "SMKR"},
                              {"SerialNo", "M2B1K230088"},
                              {"Model", "7Z01"},
                              {"UUID", "101112131415161718191A1B1C1D1E1F20" + std::string(510 - 34, '0')}});
    // Without RVT_CODENAME the AIM connector layout stands.
    EXPECT_EQ((std::vector<std::string>{"SFP28", "SFP28"}),
              column(rows("PCIPhysicalPort"), "ConnectorLayout"));
}

}  // namespace
