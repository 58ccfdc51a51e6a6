// GPU records through parse_aim: the "PCIGPU" row and the numbered chip rows.
#include "tests/writers_util.h"

using namespace writers_test;

namespace {

class GpuRecords : public testutil::IngestTest {
protected:
    void SetUp() override {
        IngestTest::SetUp();
        add_pci_function(0x3b, 0, 0, 0x10DE, 0x2330, 0x10DE, 0x16C1, 4);
    }
    int run_gpu(const std::string& gpu_content) {
        return run_xml(
            aim_doc(aim_config("gpu", "0x3b", "0", "0", aim_group("GPU Information", gpu_content))));
    }
    static std::string chip(unsigned n, const std::string& name, const std::string& suppress = "") {
        return aim_group("GPU Chip " + std::to_string(n), text("GPU Chip Name", name), suppress);
    }
};

TEST_F(GpuRecords, WritesGpuRowAndEveryChipColumn) {
    ASSERT_EQ(
        0,
        run_gpu(
            settings("Video Memory Type=HBM3; Video Memory Size=80 GB") + num("Total GPU Chip Number", "1") +
            aim_group("GPU Chip 1",
                      settings("GPU Chip Name=GH100; GPU Chip Manufacturer=NVIDIA; GPU Chip Model=H100; "
                               "GPU Chip Part Number=900; GPU Chip SKU=SKU1; GPU Chip Serial Number=165; "
                               "GPU Chip Form Factor=PCIe; GPU Chip Family=Hopper; GPU Chip Unique ID=U1") +
                          settings("GPU Chip Index=0x10; External Bus Clock Speed=100; GPU Chip Max "
                                   "Clock Speed=1755; GPU Chip Number Of Enabled Cores=14592; GPU Chip "
                                   "Address Width=64; GPU Chip Data Width=5120",
                                   true))));
    const std::string gpu =
        "VideoMemoryType=HBM3; VideoMemorySize=80 GB; TotalGPUChipNumber=1; BusNo=59; NodeNo=1; SlotNo=4; "
        "PCIKey=3866624; PCIFuncKey=3866624";
    const std::string chip =
        "GPUChipName=GH100; GPUChipManufacturer=NVIDIA; GPUChipModel=H100; GPUChipPartNumber=900; "
        "GPUChipSKU=SKU1; "
        "GPUChipSerialNumber=165; GPUChipFormFactor=PCIe; GPUChipIndex=16; ExternalBusClockSpeed=100; "
        "GPUChipFamily=Hopper; GPUChipMaxClockSpeed=1755; GPUChipNumberOfEnabledCores=14592; "
        "GPUChipAddressWidth=64; GPUChipDataWidth=5120; GPUChipUniqueID=U1; SegNo=0; BusNo=59; DeviceNo=0; "
        "FunctionNo=0; SlotNo=4; PCIKey=3866624";
    ASSERT_EQ(1u, count("PCIGPU"));
    ASSERT_EQ(1u, count("PCIGPUChip"));
    EXPECT_EQ(gpu, pick(rows("PCIGPU")[0], gpu));
    EXPECT_EQ(chip, pick(rows("PCIGPUChip")[0], chip));
}

// Chip numbers run from 1 to the number of sub-groups of the GPU group, whatever their names;
// "suppress-if" is compared with "true" exactly; a chip without labels writes no row.
TEST_F(GpuRecords, ChipNumberingAndSuppression) {
    const std::pair<std::string, std::vector<std::string>> cases[] = {
        {chip(1, "one") + chip(3, "three") + aim_group("Other", text("GPU Chip Name", "other")),
         {"one", "three"}},
        {chip(2, "two") + chip(3, "three"), {"two"}},
        {chip(2, "two") + chip(3, "three") + aim_group("Other", ""), {"two", "three"}},
        {chip(4, "four"), {}},
        {chip(1, "suppressed", "true") + chip(2, "upper", "TRUE") + chip(3, "false", "false"),
         {"upper", "false"}},
        {aim_group("GPU Chip 1", text("Unknown", "x")) + chip(2, "two"), {"two"}},
    };
    for (const auto& c : cases) {
        exec("DELETE FROM PCIGPUChip");
        ASSERT_EQ(0, run_gpu(c.first));
        EXPECT_EQ(c.second, column(rows("PCIGPUChip"), "GPUChipName")) << c.first;
        EXPECT_EQ(0u, count("PCIGPU"));  // no memory or chip-number settings
    }
}

// A failed "PCIGPU" insert writes no chips; a failed chip insert goes on with the next chip.
TEST_F(GpuRecords, InsertFailures) {
    for (const char* table : {"PCIGPU", "PCIGPUChip"}) {
        host::db_fail_writes(db, "");
        host::db_fail_writes(db, table, "insert");
        ASSERT_EQ(0, run_gpu(text("Video Memory Type", "GDDR6") + chip(1, "one") + chip(2, "two")));
    }
    EXPECT_EQ(1u, logged_prefix(host::log_level::warn, "AIM PARSER: failed to insert GPU Information, rc="));
    EXPECT_EQ(2u,
              logged_prefix(host::log_level::warn, "AIM PARSER: failed to insert GPU Chip Information, rc="));
    EXPECT_EQ(0u, count("PCIGPUChip"));
    EXPECT_EQ(1u, count("PCIGPU"));
}

}  // namespace
