// GPU device query: the post-box requests to a simulated NVIDIA GPU, their retry rule, the
// string reads, the marketing name and its attempts, and the hard-coded name. (The AMD path
// through the FRU tool is shown end to end by the after-walk tests.)
#include <algorithm>
#include <string>
#include <utility>

#include "gpu/gpu_dev_info.h"
#include "host/sim.h"
#include "tests/afterwalk_support.h"

namespace {

using aim_parser::gpu_dev_info;
using aim_parser::gpu_info;

class GpuQuery : public awtest::AfterWalkTest {
protected:
    // Loads one GPU "gpu3" with the A100 identity and the given extra keys.
    void load_gpu(const std::string& extra = std::string(),
                  const std::string& machine_extra = std::string()) {
        load_machine_json(std::string("{\"nvidia_gpus\": {\"gpu3\": {") + awtest::a100 +
                          (extra.empty() ? "" : ", " + extra) + "}}" + machine_extra + "}");
    }
    // Runs the whole read into `info` (preset fields first) and records the sleep it took.
    bool read(const char* name = "gpu3", unsigned short sdid = 0x1533) {
        info = gpu_info();
        info.serial_num = "keep-serial", info.product_name = "keep-name", info.part_num = "keep-part";
        std::string n = name;
        unsigned long long before = host::total_sleep_us();
        bool ok = gpu_dev_info().read_gpu_data(&n[0], info, 0x10DE, 0x20B5, 0x10DE, sdid);
        slept = host::total_sleep_us() - before;
        return ok;
    }
    static size_t requests_for(uint8_t selector) {
        auto r = host::nvidia_gpu_requests("gpu3");
        return std::count_if(r.begin(), r.end(),
                             [&](const std::pair<uint8_t, uint8_t>& q) { return q.first == selector; });
    }
    gpu_info info;
    unsigned long long slept = 0;
};

TEST_F(GpuQuery, RetriesFailedChunksAndNameAttempts) {
    const struct {
        const char* gpu_keys;  // added to the GPU's object
        uint8_t selector;      // 2 serial, 3 marketing name, 4 part number
        size_t requests;       // of the selector
        unsigned long long slept;
        const char* value;  // of the selector's field afterwards
        const char* log;    // an information message of the read
    } cases[] = {
        // A failed request is retried five times (six calls, the sixth may succeed), unless
        // its count byte is 4.
        {R"("faults": {"fail_selectors": [2]})", 2, 6, 25000, "keep-serial",
         " gpu_dev_info::send_cmd():retry_get_cio_nv_data return failed"},
        {R"("faults": {"fail_selectors": [2], "fail_count": 4})", 2, 1, 0, "keep-serial",
         " gpu_dev_info::get_serial_num, Get serial_num failed!"},
        {R"("faults": {"fail_first": 5})", 2, 9, 25000, "1650123456789012", nullptr},
        // A failed chunk leaves the whole field unchanged.
        {R"("faults": {"fail_chunks": [[2, 2]], "fail_count": 4})", 2, 3, 0, "keep-serial",
         "AIM PARSER: gpu_dev_info::send_cmd_ex, op = 02, offset = 02, resp = 00,00,00,00,00"},
        // Text is 0x1F to 0x7F: another answer fails without retry and is not copied out.
        {R"("part_number": "\u001f\u007f")", 4, 4, 0, "\x1f\x7f", nullptr},
        {R"("part_number": "PN\u001e12345")", 4, 1, 0, "keep-part",
         "AIM PARSER: gpu_dev_info::send_cmd_ex, op = 04, offset = 00, resp = 00,00,00,00,00"},
        // The marketing name: repeated answers fail; ten attempts, 10 ms apart.
        {R"("faults": {"repeat_selectors": [3]})", 3, 20, 100000, "keep-name",
         " gpu_dev_info::get_market_name, Get market_name failed![0]"},
        // The serial and two name attempts fail for good, the third attempt succeeds.
        {R"("faults": {"fail_first": 3, "fail_count": 4})", 3, 8, 20000, "NVIDIA A100 80GB PCIe",
         " gpu_dev_info::get_market_name, Get market_name success![7]"},
        // An empty chunk ends the name; more than six chunks are cut at 24 characters.
        {R"("marketing_name": "A40")", 3, 2, 0, "A40", nullptr},
        {R"("marketing_name": "NVIDIA RTX A6000 Ada Generation 48GB")", 3, 6, 0, "NVIDIA RTX A6000 Ada Gen",
         nullptr},
    };
    for (const auto& c : cases) {
        host::log_capture_begin();  // this case's messages only
        load_gpu(c.gpu_keys);
        ASSERT_TRUE(read());
        EXPECT_EQ(c.requests, requests_for(c.selector)) << c.gpu_keys;
        EXPECT_EQ(c.slept, slept) << c.gpu_keys;
        EXPECT_EQ(c.value, c.selector == 2   ? info.serial_num
                           : c.selector == 3 ? info.product_name
                                             : info.part_num);
        EXPECT_TRUE(!c.log || logged(host::log_level::info, c.log)) << c.gpu_keys;
        EXPECT_EQ(0x20B5u, info.device_id) << c.gpu_keys;  // the other data are read as usual
    }
}

TEST_F(GpuQuery, ADeviceThatCannotBeOpenedIsNotAsked) {
    gpu_dev_info dev;
    unsigned char resp[8] = {0};
    EXPECT_EQ(0, dev.send_cmd(2, 0, resp));  // not opened
    load_gpu(R"("faults": {"attrib": true})");
    EXPECT_FALSE(dev.read_gpu_data(nullptr, info, 0, 0, 0, 0));
    EXPECT_FALSE(read());
    EXPECT_EQ(0u, host::nvidia_gpu_calls("gpu3"));
    EXPECT_EQ("keep-serial", info.serial_num);
    expect_log({"INFO  The input cio_name is not right. ",
                "INFO  gpu_dev_info::gpu_dev_info, cio_get_attrib failed"});
}

TEST_F(GpuQuery, HardCodedNameSendsNoNameRequest) {
    load_gpu("",
             R"json(, "hc_card_table": [{"vendor": "0x10DE", "device": "0x20B5", "subsystem_vendor": "0x10DE",
        "subsystem_device": "0x1533", "name": "NVIDIA A100 PCIe 80GB (table)"}])json");
    ASSERT_TRUE(read());
    EXPECT_EQ("NVIDIA A100 PCIe 80GB (table)", info.product_name);
    EXPECT_EQ(0u, requests_for(3));
    expect_log({"INFO  use gpu name hard code!"});
    EXPECT_EQ(std::string::npos, log_text().find("failed")) << "every other read succeeds\n" << log_text();
    // Only an exact match of all four ids counts.
    ASSERT_TRUE(read("gpu3", 0x1535));
    EXPECT_EQ("NVIDIA A100 80GB PCIe", info.product_name);
}

}  // namespace
