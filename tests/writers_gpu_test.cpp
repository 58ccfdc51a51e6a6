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
            aim_doc(aim_config("gpu", "0x3b", "0", "0",
                               text("Card Name", "GPU card") + aim_group("GPU Information", gpu_content))));
    }
    static std::string chip(unsigned n, const std::string& name, const std::string& suppress = "") {
        return aim_group("GPU Chip " + std::to_string(n), text("GPU Chip Name", name), suppress);
    }
};

TEST_F(GpuRecords, WritesGpuRowAndEveryChipColumn) {
    ASSERT_EQ(
        0,
        run_gpu(text("Video Memory Type", "HBM3") + text("Video Memory Size", "80 GB") +
                num("Total GPU Chip Number", "1") +
                aim_group("GPU Chip 1",
                          text("GPU Chip Name", "GH100") + text("GPU Chip Manufacturer", "NVIDIA") +
                              text("GPU Chip Model", "H100") + text("GPU Chip Part Number", "900-21010") +
                              text("GPU Chip SKU", "SKU1") + text("GPU Chip Serial Number", "1650123456789") +
                              text("GPU Chip Form Factor", "PCIe") + num("GPU Chip Index", "0x10") +
                              num("External Bus Clock Speed", "100") + text("GPU Chip Family", "Hopper") +
                              num("GPU Chip Max Clock Speed", "1755") +
                              num("GPU Chip Number Of Enabled Cores", "14592") +
                              num("GPU Chip Address Width", "64") + num("GPU Chip Data Width", "5120") +
                              text("GPU Chip Unique ID", "GPU-1234"))));
    auto gpu = rows("PCIGPU");
    ASSERT_EQ(1u, gpu.size());
    EXPECT_EQ("HBM3", col(gpu[0], "VideoMemoryType"));
    EXPECT_EQ("80 GB", col(gpu[0], "VideoMemorySize"));  // text, not converted
    EXPECT_EQ("1", col(gpu[0], "TotalGPUChipNumber"));
    EXPECT_EQ("59", col(gpu[0], "BusNo"));
    EXPECT_EQ("1", col(gpu[0], "NodeNo"));
    EXPECT_EQ("4", col(gpu[0], "SlotNo"));
    EXPECT_EQ(std::to_string(0x3b0000), col(gpu[0], "PCIKey"));
    EXPECT_EQ(std::to_string(0x3b0000), col(gpu[0], "PCIFuncKey"));

    auto chips = rows("PCIGPUChip");
    ASSERT_EQ(1u, chips.size());
    const std::vector<std::pair<std::string, std::string>> expected = {
        {"GPUChipName", "GH100"},
        {"GPUChipManufacturer", "NVIDIA"},
        {"GPUChipModel", "H100"},
        {"GPUChipPartNumber", "900-21010"},
        {"GPUChipSKU", "SKU1"},
        {"GPUChipSerialNumber", "1650123456789"},
        {"GPUChipFormFactor", "PCIe"},
        {"GPUChipIndex", "16"},
        {"ExternalBusClockSpeed", "100"},
        {"GPUChipFamily", "Hopper"},
        {"GPUChipMaxClockSpeed", "1755"},
        {"GPUChipNumberOfEnabledCores", "14592"},
        {"GPUChipAddressWidth", "64"},
        {"GPUChipDataWidth", "5120"},
        {"GPUChipUniqueID", "GPU-1234"},
        {"SegNo", "0"},
        {"BusNo", "59"},
        {"DeviceNo", "0"},
        {"FunctionNo", "0"},
        {"SlotNo", "4"},
        {"PCIKey", std::to_string(0x3b0000)},
    };
    for (const auto& e : expected) EXPECT_EQ(e.second, col(chips[0], e.first)) << e.first;
}

// Chip numbers run from 1 to the number of sub-groups of the GPU group, whatever their names.
TEST_F(GpuRecords, ChipsNumberedBeyondSubGroupCountAreNotLookedUp) {
    struct Case {
        std::string groups;
        std::vector<std::string> chips;
    } cases[] = {
        {chip(1, "one") + chip(3, "three") + aim_group("Other", text("GPU Chip Name", "other")),
         {"one", "three"}},
        {chip(2, "two") + chip(3, "three"), {"two"}},
        {chip(2, "two") + chip(3, "three") + aim_group("Other", ""), {"two", "three"}},
        {chip(4, "four"), {}},
    };
    for (const auto& c : cases) {
        exec("DELETE FROM PCIGPUChip");
        ASSERT_EQ(0, run_gpu(c.groups));
        EXPECT_EQ(c.chips, column(rows("PCIGPUChip"), "GPUChipName")) << c.groups;
        EXPECT_EQ(0u, count("PCIGPU"));  // no memory or chip-number settings
    }
}

TEST_F(GpuRecords, SuppressIfComparedExactly) {
    ASSERT_EQ(0,
              run_gpu(chip(1, "suppressed", "true") + chip(2, "upper", "TRUE") + chip(3, "false", "false")));
    EXPECT_EQ((std::vector<std::string>{"upper", "false"}), column(rows("PCIGPUChip"), "GPUChipName"));
}

TEST_F(GpuRecords, ChipWithoutLabelsWritesNoRow) {
    ASSERT_EQ(0, run_gpu(aim_group("GPU Chip 1", text("Unknown", "x")) + chip(2, "two")));
    EXPECT_EQ((std::vector<std::string>{"two"}), column(rows("PCIGPUChip"), "GPUChipName"));
}

TEST_F(GpuRecords, InsertFailures) {
    // A failed "PCIGPU" insert writes no chips; a failed chip insert goes on with the next chip.
    host::db_fail_writes(db, "PCIGPU", "insert");
    ASSERT_EQ(0, run_gpu(text("Video Memory Type", "GDDR6") + chip(1, "one")));
    EXPECT_EQ(1u, logged_prefix(host::log_level::warn, "AIM PARSER: failed to insert GPU Information, rc="));
    EXPECT_EQ(0u, count("PCIGPUChip"));

    host::db_fail_writes(db, "");
    host::db_fail_writes(db, "PCIGPUChip", "insert");
    ASSERT_EQ(0, run_gpu(text("Video Memory Type", "GDDR6") + chip(1, "one") + chip(2, "two")));
    EXPECT_EQ(1u, count("PCIGPU"));
    EXPECT_EQ(2u,
              logged_prefix(host::log_level::warn, "AIM PARSER: failed to insert GPU Chip Information, rc="));
}

}  // namespace
