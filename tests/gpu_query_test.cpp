// GPU device query: the post-box requests to a simulated NVIDIA GPU, their retry rule, the
// string reads, the marketing name and its attempts, the hard-coded name, and the AMD path
// through the FRU tool.
#include <sys/stat.h>

#include <string>
#include <utility>
#include <vector>

#include "gpu/gpu_dev_info.h"
#include "host/sim.h"
#include "host/sysroot.h"
#include "tests/afterwalk_support.h"

namespace {

using aim_parser::gpu_dev_info;
using aim_parser::gpu_info;
typedef std::vector<std::pair<uint8_t, uint8_t>> requests;

class GpuQuery : public awtest::AfterWalkTest {
protected:
    // Loads one GPU "gpu3" with the A100 identity and the given extra keys (faults).
    void load_gpu(const std::string& extra = std::string(),
                  const std::string& machine_extra = std::string()) {
        load_machine_json(std::string("{\"nvidia_gpus\": {\"gpu3\": {") + awtest::a100 +
                          (extra.empty() ? "" : ", " + extra) + "}}" + machine_extra + "}");
    }
    // Runs the whole read with preset fields, and the sleep it took.
    bool read(gpu_info& info, const char* name = "gpu3", unsigned short sdid = 0x1533) {
        std::string n = name;
        gpu_dev_info dev;
        unsigned long long before = host::total_sleep_us();
        bool ok = dev.read_gpu_data(&n[0], info, 0x10DE, 0x20B5, 0x10DE, sdid);
        slept = host::total_sleep_us() - before;
        return ok;
    }
    static gpu_info preset() {
        gpu_info i;
        i.serial_num = "keep-serial";
        i.product_name = "keep-name";
        i.part_num = "keep-part";
        i.build_date = "keep-date";
        i.fw_version = "keep-fw";
        i.vendor_id = 0x1234;
        return i;
    }
    static unsigned requests_for(uint8_t selector) {
        unsigned n = 0;
        for (const auto& r : host::nvidia_gpu_requests("gpu3")) n += r.first == selector;
        return n;
    }
    unsigned long long slept = 0;
};

TEST_F(GpuQuery, ReadsEveryDatumWithOneRequestPerChunk) {
    load_gpu();
    gpu_info info = preset();
    ASSERT_TRUE(read(info));
    EXPECT_EQ("1650123456789012", info.serial_num);
    EXPECT_EQ("NVIDIA A100 80GB PCIe", info.product_name);
    EXPECT_EQ("900-21001-0020-1", info.part_num);  // four chunks: 16 characters at most
    EXPECT_EQ("01/15/2023", info.build_date);
    EXPECT_EQ("92.00.36.00.01", info.fw_version);
    EXPECT_EQ(0x10DEu, info.vendor_id);
    EXPECT_EQ(0x20B5u, info.device_id);
    EXPECT_EQ(0x10DEu, info.subsystem_vendor_id);
    EXPECT_EQ(0x1533u, info.subsystem_device_id);
    requests expected;
    for (uint8_t c = 0; c < 4; ++c) expected.push_back({2, c});
    for (uint8_t c = 0; c < 6; ++c) expected.push_back({3, c});
    for (uint8_t c = 0; c < 4; ++c) expected.push_back({4, c});
    expected.push_back({7, 0});
    for (uint8_t c = 0; c < 4; ++c) expected.push_back({8, c});
    for (uint8_t s = 9; s <= 12; ++s) expected.push_back({s, 0});
    EXPECT_EQ(expected, host::nvidia_gpu_requests("gpu3"));
    EXPECT_EQ(0u, slept);
    EXPECT_TRUE(logged(host::log_level::info, " gpu_dev_info::get_market_name, Get market_name success![9]"));
}

struct retry_case {
    const char* faults;
    unsigned vendor_calls;     // requests for selector 9
    unsigned long long slept;  // microseconds
    bool vendor_read;
};

class GpuRetry : public GpuQuery, public ::testing::WithParamInterface<retry_case> {};

TEST_P(GpuRetry, RequestsAreRetriedFiveTimesUnlessTheCountIsFour) {
    load_gpu(std::string("\"faults\": ") + GetParam().faults);
    gpu_info info = preset();
    ASSERT_TRUE(read(info));
    EXPECT_EQ(GetParam().vendor_calls, requests_for(9));
    EXPECT_EQ(GetParam().slept, slept);
    EXPECT_EQ(GetParam().vendor_read ? 0x10DEu : 0x1234u, info.vendor_id);
    EXPECT_EQ(!GetParam().vendor_read,
              logged(host::log_level::info, " gpu_dev_info::get_vendor_id, Get vendor_id failed!"));
    if (!GetParam().vendor_read) {
        EXPECT_TRUE(
            logged(host::log_level::info, " gpu_dev_info::get_vendor_id, send_cmd_ex return failed!"));
        EXPECT_TRUE(
            logged(host::log_level::info, " gpu_dev_info::send_cmd():retry_get_cio_nv_data return failed"));
        EXPECT_TRUE(
            logged(host::log_level::info,
                   "AIM PARSER: gpu_dev_info::send_cmd_ex, op = 09, offset = 00, resp = 00,00,00,00,00"));
    }
    // The other data are read as usual.
    EXPECT_EQ(0x20B5u, info.device_id);
}

INSTANTIATE_TEST_SUITE_P(
    Faults, GpuRetry,
    ::testing::Values(retry_case{R"({"fail_selectors": [9]})", 6, 25000, false},
                      retry_case{R"({"fail_selectors": [9], "fail_count": 4})", 1, 0, false},
                      retry_case{R"({"fail_selectors": [9], "fail_count": 3})", 6, 25000, false},
                      retry_case{R"({"fail_selectors": [9], "fail_count": 5})", 6, 25000, false}));

TEST_F(GpuQuery, SixCallsAtMostPerRequest) {
    // The first five calls fail: the serial's first chunk succeeds at the sixth.
    load_gpu(R"("faults": {"fail_first": 5})");
    gpu_info info = preset();
    ASSERT_TRUE(read(info));
    EXPECT_EQ("1650123456789012", info.serial_num);
    EXPECT_EQ(9u, requests_for(2));
    EXPECT_EQ(25000u, slept);

    // Six failures: the chunk is lost and the serial keeps its value.
    load_gpu(R"("faults": {"fail_first": 6})");
    info = preset();
    ASSERT_TRUE(read(info));
    EXPECT_EQ("keep-serial", info.serial_num);
    EXPECT_EQ(6u, requests_for(2));
    EXPECT_TRUE(logged(host::log_level::info, " gpu_dev_info::get_serial_num, Get serial_num failed!"));
    EXPECT_EQ("NVIDIA A100 80GB PCIe", info.product_name);
}

TEST_F(GpuQuery, FailedChunkLeavesTheFieldUnchanged) {
    load_gpu(R"("faults": {"fail_chunks": [[2, 2], [8, 0]], "fail_count": 4})");
    gpu_info info = preset();
    ASSERT_TRUE(read(info));
    EXPECT_EQ("keep-serial", info.serial_num);
    EXPECT_EQ(3u, requests_for(2));  // chunks 0, 1 and the failed 2
    EXPECT_EQ("keep-fw", info.fw_version);
    EXPECT_EQ(1u, requests_for(8));
    EXPECT_TRUE(logged(host::log_level::info, " gpu_dev_info::get_serial_num, send_cmd_ex return failed!"));
    EXPECT_TRUE(logged(host::log_level::info, " gpu_dev_info::get_fw_version, Get fw_version failed!"));
    EXPECT_TRUE(logged(host::log_level::info,
                       "AIM PARSER: gpu_dev_info::send_cmd_ex, op = 02, offset = 02, resp = 00,00,00,00,00"));
    EXPECT_EQ("900-21001-0020-1", info.part_num);
}

TEST_F(GpuQuery, TextCheckAdmits0x1FAnd0x7F) {
    gpu_dev_info dev;
    unsigned char ok[5] = {4, 0x1F, 0x7F, 0x20, 0};
    EXPECT_TRUE(dev.is_asic(ok, 5));
    unsigned char low[5] = {4, 'A', 0x1E, 'B', 'C'};
    EXPECT_FALSE(dev.is_asic(low, 5));
    EXPECT_TRUE(
        logged(host::log_level::info, " gpu_dev_info::is_asic, Check the response value is not right. "));
    unsigned char high[5] = {4, 'A', 'B', 'C', 0x80};
    EXPECT_FALSE(dev.is_asic(high, 5));
    unsigned char count3[5] = {3, 'A', 'B', 'C', 'D'};
    EXPECT_FALSE(dev.is_asic(count3, 5));
    EXPECT_EQ(2u, logged_count(" gpu_dev_info::is_asic, Check the response value is not right. "));
    unsigned char one[1] = {4};
    EXPECT_TRUE(dev.is_asic(one, 1));
}

TEST_F(GpuQuery, NonTextAnswerFailsWithoutRetry) {
    load_gpu(R"("part_number": "PN\u001e12345")");
    gpu_info info = preset();
    ASSERT_TRUE(read(info));
    EXPECT_EQ("keep-part", info.part_num);
    EXPECT_EQ(1u, requests_for(4));
    EXPECT_TRUE(logged(host::log_level::info, " gpu_dev_info::get_part_num, Get part_num failed!"));
    // The answer that failed the check is not copied out.
    EXPECT_TRUE(logged(host::log_level::info,
                       "AIM PARSER: gpu_dev_info::send_cmd_ex, op = 04, offset = 00, resp = 00,00,00,00,00"));
}

TEST_F(GpuQuery, RequestsNeedAnOpenDeviceAndABuffer) {
    gpu_dev_info dev;
    unsigned char resp[8] = {0};
    EXPECT_EQ(0, dev.send_cmd(2, 0, resp));  // handle -1
    load_gpu();
    std::string n = "gpu3";
    gpu_info info;
    ASSERT_TRUE(dev.read_gpu_data(&n[0], info, 0, 0, 0, 0));
    EXPECT_GE(dev.cio_handle, 0);
    host::reset_nvidia_gpu_counters();
    EXPECT_EQ(0, dev.send_cmd(2, 0, nullptr));
    EXPECT_NE(0, dev.send_cmd(2, 1, resp));
    EXPECT_EQ(1u, host::nvidia_gpu_calls("gpu3"));
    EXPECT_EQ(4, resp[0]);
    EXPECT_EQ(std::string("1234"), std::string(reinterpret_cast<char*>(resp + 1), 4));
}

// ---- Marketing name ----

TEST_F(GpuQuery, RepeatedAnswersFailAndTenAttemptsAreMade) {
    load_gpu(R"("faults": {"repeat_selectors": [3]})");
    gpu_info info = preset();
    ASSERT_TRUE(read(info));
    EXPECT_EQ("keep-name", info.product_name);
    EXPECT_EQ(20u, requests_for(3));  // chunks 0 and 1 of each attempt
    EXPECT_EQ(100000u, slept);
    for (int i = 9; i >= 0; --i) {
        EXPECT_TRUE(logged(host::log_level::info, " gpu_dev_info::get_market_name, Get market_name failed![" +
                                                      std::to_string(i) + "]"));
    }
    EXPECT_FALSE(
        logged(host::log_level::info, " gpu_dev_info::get_market_name, Get market_name failed![-1]"));
    EXPECT_EQ(10u, logged_count(" gpu_dev_info::get_market_name, send_cmd_ex return failed!"));
    EXPECT_EQ(1u, logged_count(" gpu_dev_info::get_market_name, entry"));
}

TEST_F(GpuQuery, EmptyChunkEndsTheName) {
    load_gpu(R"("marketing_name": "A40")");
    gpu_info info = preset();
    ASSERT_TRUE(read(info));
    EXPECT_EQ("A40", info.product_name);
    EXPECT_EQ(2u, requests_for(3));

    // A name of more than six chunks is cut at 24 characters.
    load_gpu(R"("marketing_name": "NVIDIA RTX A6000 Ada Generation 48GB")");
    ASSERT_TRUE(read(info));
    EXPECT_EQ("NVIDIA RTX A6000 Ada Gen", info.product_name);
    EXPECT_EQ(6u, requests_for(3));
}

TEST_F(GpuQuery, EmptyNameIsRetriedAndStoredEmpty) {
    load_gpu(R"("marketing_name": "")");
    gpu_info info = preset();
    ASSERT_TRUE(read(info));
    EXPECT_EQ("", info.product_name);
    EXPECT_EQ(10u, requests_for(3));
    EXPECT_TRUE(logged(host::log_level::info, " gpu_dev_info::get_market_name, Get market_name failed![0]"));
}

TEST_F(GpuQuery, NameSucceedsAfterFailedAttempts) {
    // The first three requests fail for good (count 4): the serial and two name attempts.
    load_gpu(R"("faults": {"fail_first": 3, "fail_count": 4})");
    gpu_info info = preset();
    ASSERT_TRUE(read(info));
    EXPECT_EQ("keep-serial", info.serial_num);
    EXPECT_EQ("NVIDIA A100 80GB PCIe", info.product_name);
    EXPECT_TRUE(logged(host::log_level::info, " gpu_dev_info::get_market_name, Get market_name failed![9]"));
    EXPECT_TRUE(logged(host::log_level::info, " gpu_dev_info::get_market_name, Get market_name failed![8]"));
    EXPECT_TRUE(logged(host::log_level::info, " gpu_dev_info::get_market_name, Get market_name success![7]"));
    EXPECT_EQ(20000u, slept);
}

TEST_F(GpuQuery, HardCodedNameSendsNoNameRequest) {
    load_gpu("", R"json(, "hc_card_table": [
        {"vendor": "0x10DE", "device": "0x20B5", "subsystem_vendor": "0x10DE", "subsystem_device": "0x1534",
         "name": "other card"},
        {"vendor": "0x10DE", "device": "0x20B5", "subsystem_vendor": "0x10DE", "subsystem_device": "0x1533",
         "name": "NVIDIA A100 PCIe 80GB (table)"}])json");
    gpu_info info = preset();
    ASSERT_TRUE(read(info));
    EXPECT_EQ("NVIDIA A100 PCIe 80GB (table)", info.product_name);
    EXPECT_EQ(0u, requests_for(3));
    EXPECT_TRUE(logged(host::log_level::info, " use gpu name hard code!"));
    // Only an exact match of all four ids counts.
    ASSERT_TRUE(read(info, "gpu3", 0x1535));
    EXPECT_EQ("NVIDIA A100 80GB PCIe", info.product_name);
}

TEST_F(GpuQuery, DeviceThatCannotBeOpenedIsNotRead) {
    load_gpu(R"("faults": {"attrib": true})");
    gpu_dev_info dev;
    gpu_info info = preset();
    EXPECT_FALSE(dev.read_gpu_data(nullptr, info, 0, 0, 0, 0));
    EXPECT_TRUE(logged(host::log_level::info, " The input cio_name is not right. "));
    EXPECT_FALSE(read(info, "gpu9"));
    EXPECT_TRUE(logged(host::log_level::info, " gpu_dev_info::gpu_dev_info, cio_block_open failed!"));
    EXPECT_FALSE(read(info));
    EXPECT_TRUE(logged(host::log_level::info, " gpu_dev_info::gpu_dev_info, cio_get_attrib failed"));
    EXPECT_EQ(0u, host::nvidia_gpu_calls("gpu3"));
    EXPECT_EQ("keep-serial", info.serial_num);
}

// ---- AMD through the FRU tool ----

class AmdFruTool : public awtest::AfterWalkTest {
protected:
    void install_tool(const std::string& output) {
        std::string path = sysroot_file("/bin/fru-tool");
        write_sysroot_file("/bin/fru-tool",
                           "#!/bin/sh\necho \"$1\" > \"$(dirname \"$0\")/../tmp/fru-tool.args\"\n"
                           "cat <<'EOF'\n" +
                               output + "EOF\n");
        chmod(path.c_str(), 0755);
    }
};

TEST_F(AmdFruTool, LabelsSetTheirFieldsWithTheLineEnd) {
    install_tool(
        "FRU Device Description : Builtin FRU Device (ID 0)\n"
        " Product Manufacturer  : AMD\n"
        " product name: AMD Instinct MI210\n"
        " product serial number: 692231000123\n"
        " product part number: 102-D67302-00\n"
        " FRU ID: 3\n"
        " product part number: 102-D67302-01\n"
        " product name: AMD Instinct MI210 product serial number: X\n");
    gpu_dev_info dev;
    gpu_info info;
    info.manufacturer = "AMD";
    info.vendor_id = 0x1002;
    char name[] = "pci3_amd_gpu_temp";
    ASSERT_TRUE(dev.read_amd_gpu_data(name, info));
    EXPECT_EQ("AMD Instinct MI210 product serial number: X\n", info.product_name);
    EXPECT_EQ("692231000123\n", info.serial_num);
    EXPECT_EQ("102-D67302-01\n", info.part_num);  // a later line overwrites
    EXPECT_EQ("3\n", info.fru_num);
    EXPECT_EQ("N/A", info.uuid);
    EXPECT_EQ("N/A", info.fw_version);
    EXPECT_EQ("N/A", info.build_date);
    EXPECT_EQ("AMD", info.manufacturer);
    EXPECT_EQ(0x1002u, info.vendor_id);
    EXPECT_EQ("pci3_amd_gpu_temp\n", testutil::read_file(sysroot_file("/tmp/fru-tool.args")));
}

TEST_F(AmdFruTool, LongNamesAreCutToTheCommandBuffer) {
    install_tool("");
    gpu_dev_info dev;
    gpu_info info;
    char name[] = "abcdefghijklmnopqrstuvwxyz";
    ASSERT_TRUE(dev.read_amd_gpu_data(name, info));
    EXPECT_EQ("abcdefghijklmnopqrstu\n", testutil::read_file(sysroot_file("/tmp/fru-tool.args")));
    EXPECT_EQ("N/A", info.product_name);
}

TEST_F(AmdFruTool, MissingToolFails) {
    gpu_dev_info dev;
    gpu_info info;
    info.manufacturer = "AMD";
    char name[] = "pci3_amd_gpu_temp";
    EXPECT_FALSE(dev.read_amd_gpu_data(name, info));
    EXPECT_TRUE(logged(host::log_level::info,
                       "gpu_dev_info::read_amd_gpu_data '/bin/fru-tool pci3_amd_gpu_temp' failed"));
    EXPECT_EQ("N/A", info.serial_num);
    EXPECT_EQ("AMD", info.manufacturer);
}

}  // namespace
