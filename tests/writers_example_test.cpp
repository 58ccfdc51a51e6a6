// The storage-1u examples: the boot adapter's card VPD (a 256-byte and a 1 KB memory), the
// PLDM table with MCTP endpoints, the connector override.
#include "tests/writers_util.h"

using namespace writers_test;

namespace {

class StorageExample : public testutil::IngestTest {};

// The boot adapter's card VPD: a 1 KB memory on storage-1u-1k, a 256-byte one on storage-1u
// (the model is not in that layout), where RVT_CODENAME names a platform whose port 2 of the NIC
// gets connector layout 5. Every adapter but the PCH's SATA controller has a PLDM row; both NIC
// functions keep theirs because each has an MCTP endpoint.
TEST_F(StorageExample, BootAdapterVpdPldmAndPorts) {
    const std::string uuid_1k = "101112131415161718191A1B1C1D1E1F20" + std::string(510 - 34, '0');
    const std::pair<const char*, std::string> cases[] = {
        {"storage-1u-1k",
         "ProductName=Dual M.2 SATA Boot Adapter; Manufacture=SMKR; SerialNo=M2B1K230088; "
         "Model=7Z01; UUID=" +
             uuid_1k},
        {"storage-1u",
         "SerialNo=M2B2340017; PartNo=SR-M2B-0301; FRUNo=FRU-0301A; Model=M2-BOOT-2; "
         "UUID=2F0C7A51-9E3B-4D28-8C61-0301A0B1C2D3"}};
    for (const auto& c : cases) {
        ASSERT_EQ(0, run_example(c.first));
        EXPECT_EQ(c.second, pick(rows("VPDs", "HardwareId=131072").at(0), c.second));
    }
    EXPECT_EQ((texts{"SFP28", "5"}), column(rows("PCIPhysicalPort"), "ConnectorLayout"));
    EXPECT_EQ((texts{"131072", "4259840", "4259841", "8454144"}),
              column(rows("PldmDeviceFirmware"), "PCIFuncKey"));
}

}  // namespace
