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
    int run(const std::string& gpu) {
        return run_xml(aim_doc(aim_config("gpu", "0x3b", "0", "0", aim_group("GPU Information", gpu))));
    }
    static std::string chip(int n, const std::string& name, const std::string& suppress = "") {
        return aim_group("GPU Chip " + std::to_string(n), text("GPU Chip Name", name), suppress);
    }
};

TEST_F(GpuRecords, WritesGpuRowAndEveryChipColumn) {
    const std::string chip_settings = settings(
        "GPU Chip Name=GH100; GPU Chip Manufacturer=NVIDIA; GPU Chip Model=H100; GPU Chip Part Number=900; "
        "GPU Chip SKU=SKU1; GPU Chip Serial Number=165; GPU Chip Form Factor=PCIe; GPU Chip Family=Hopper; "
        "GPU Chip Unique ID=U1; #GPU Chip Index=0x10; #External Bus Clock Speed=100; #GPU Chip Data Width=5; "
        "#GPU Chip Max Clock Speed=1755; #GPU Chip Number Of Enabled Cores=14592; #GPU Chip Address "
        "Width=64");
    ASSERT_EQ(0, run(settings("Video Memory Type=HBM3; Video Memory Size=80 GB; #Total GPU Chip Number=1") +
                     aim_group("GPU Chip 1", chip_settings)));
    const std::string keys = "SegNo=0; BusNo=59; DeviceNo=0; FunctionNo=0; SlotNo=4; PCIKey=3866624; ";
    const std::pair<const char*, std::string> expected[] = {
        {"PCIGPU",
         keys + "VideoMemoryType=HBM3; VideoMemorySize=80 GB; TotalGPUChipNumber=1; PCIFuncKey=3866624"},
        {"PCIGPUChip",
         keys + "GPUChipName=GH100; GPUChipManufacturer=NVIDIA; GPUChipModel=H100; "
                "GPUChipPartNumber=900; GPUChipSKU=SKU1; GPUChipSerialNumber=165; "
                "GPUChipFormFactor=PCIe; GPUChipIndex=16; ExternalBusClockSpeed=100; "
                "GPUChipFamily=Hopper; GPUChipMaxClockSpeed=1755; GPUChipNumberOfEnabledCores=14592; "
                "GPUChipAddressWidth=64; GPUChipDataWidth=5; GPUChipUniqueID=U1"}};
    for (const auto& e : expected) {
        ASSERT_EQ(1u, count(e.first)) << e.first;
        EXPECT_EQ(e.second, pick(rows(e.first)[0], e.second));
    }
}

// Chip numbers run from 1 to the number of sub-groups of the GPU group, whatever their names;
// "suppress-if" is compared with "true" exactly; a chip without labels writes no row.
TEST_F(GpuRecords, ChipNumberingAndSuppression) {
    const std::pair<std::string, texts> cases[] = {
        {chip(1, "a") + chip(3, "c") + aim_group("Other", text("GPU Chip Name", "x")), {"a", "c"}},
        {chip(2, "b") + chip(3, "c"), {"b"}},
        {chip(2, "b") + chip(3, "c") + aim_group("Other", ""), {"b", "c"}},
        {chip(4, "d"), {}},
        {chip(1, "a", "true") + chip(2, "b", "TRUE") + chip(3, "c", "false"), {"b", "c"}},
        {aim_group("GPU Chip 1", text("Unknown", "x")) + chip(2, "b"), {"b"}}};
    for (const auto& c : cases) {
        exec("DELETE FROM PCIGPUChip");
        ASSERT_EQ(0, run(c.first));
        EXPECT_EQ(c.second, column(rows("PCIGPUChip"), "GPUChipName")) << c.first;
    }
    EXPECT_EQ(0u, count("PCIGPU"));  // no memory or chip-number settings
}

}  // namespace
