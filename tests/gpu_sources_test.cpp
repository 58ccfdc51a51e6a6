// GPU information sources, end to end through parse_aim: both generations of IPMI
// properties as the controller flags select them, the bus-to-core map, the date reformat,
// the stored copy and the slot's device name file; then the platform predicates.
#include <string>

#include "gpu/predicates.h"
#include "tests/afterwalk_support.h"

using awtest::fun_key;
using awtest::num;

namespace {

class GpuSources : public awtest::AfterWalkTest {
protected:
    // An NVIDIA GPU function (display, location 1).
    void add_gpu(unsigned bus, unsigned slot) {
        add_pci_function(bus, 0, 0, 0x10DE, 0x20B5, 0x10DE, 0x1533, slot, 4, 1);
    }
    static std::string prop(const std::string& key, const std::string& value) {
        return ", \"/ac/hxsd/dm/planar/0/" + key + "\": \"" + value + "\"";
    }
    // A machine with the controller flags `flags` and the IPMI properties `props` (see prop).
    void load(const std::string& flags, const std::string& props) {
        load_machine_json("{\"cio_integers\": {" + flags + "}, \"ipmi_properties\": {" + props.substr(1) +
                          "}}");
    }
};

TEST_F(GpuSources, FirstGenerationMapsTheBusToAGpuCore) {
    std::string props = prop("ironwood/product_name", "HGX A100") + prop("ironwood/part_num", "935-23587");
    for (std::string c : {"0", "1", "2", "3"}) {
        props += prop("ironwood/gpu_core/" + c + "/sn", "SN" + c) +
                 prop("ironwood/gpu_core/" + c + "/fw_version", "FW" + c) +
                 prop("ironwood/gpu_core/" + c + "/build_date", c + "5012023");
    }
    load("\"RS_EXIST\": 1", props);
    // Each bus and the core it maps to ('-': none).
    const std::pair<unsigned, char> buses[] = {{0x06, '0'}, {0x0C, '1'}, {0x16, '1'}, {0x26, '2'},
                                               {0x96, '2'}, {0x2C, '3'}, {0xE6, '3'}, {0x07, '-'}};
    for (unsigned i = 0; i < 8; ++i) add_gpu(buses[i].first, i + 1);
    ASSERT_EQ(0, run_empty());
    for (const auto& b : buses) {
        std::string w = "HardwareId=" + num(fun_key(b.first, 0));
        bool known = b.second != '-';
        expect_row("VPDs", w,
                   "ProductName=HGX A100;PartNo=935-23587;SerialNo=" +
                       (known ? "SN" + std::string(1, b.second) : "N/A"));
        // Version and date of core 0 for every bus; its DDMMYYYY "05012023" reformatted.
        expect_row("Firmwares", w,
                   known ? "VersionString=FW0;ReleaseDate=01/05/2023" : "VersionString=N/A;ReleaseDate=N/A");
    }
    const std::string summary =
        "INFO AIM PARSER: NVIDIA GPU, IPMI properties:  product_name = HGX A100, "
        "part_num = 935-23587, serial_num = ";
    expect_log({"WARN AIM PARSER: Failed to get gpuid for busnum 0x07. Deprecated usage needs upgrade to V2.",
                summary + "SN3, fw_version = FW0, build_data = 01/05/2023",
                summary + "N/A, fw_version = N/A, build_data = N/A"});

    // A failed read is reported; a date too short to be DDMMYYYY is kept as read.
    load("\"RS_EXIST\": 1",
         prop("ironwood/gpu_core/1/sn", "SN1") + prop("ironwood/gpu_core/0/build_date", "3112202"));
    ASSERT_EQ(0, run_empty());
    expect_row("Firmwares", "HardwareId=" + num(fun_key(0x16, 0)), "ReleaseDate=3112202");
    expect_log({"WARN AIM PARSER: failed to get NVIDAGPU information from IPMI property, rc=1"});
}

TEST_F(GpuSources, SecondGenerationByBaseboardCoreOrBySlot) {
    add_gpu(0x3B, 4);
    std::string props =
        prop("ironwood/product_name", "HGX A100 4-GPU") + prop("gpu_pci_slot/4/model", "A100-SXM4") +
        prop("gpu_pci_slot/4/mfgr", "NVIDIA") + prop("gpu_pci_slot/4/sn", "SN-SLOT-4") +
        prop("gpu_pci_slot/4/uuid", std::string(300, 'u')) + prop("gpu_pci_slot/4/build_date", "15012023");
    props += prop("ironwood/gpu_core/2/sn", "SN-CORE-2") +
             prop("ironwood/gpu_core/2/fw_version", "FW-CORE-2") +
             prop("ironwood/gpu_core/2/build_date", "28022023") + prop("ironwood/gpu_core/0/sn", "SN-CORE-0");
    // Both flags: the baseboard's keys of GPU core 6 - slot; the part number is missing.
    load("\"RS_EXIST\": 1, \"GPU_PROP_V2_EXIST\": 1", props);
    ASSERT_EQ(0, run_empty());
    expect_row("VPDs", "", "SerialNo=SN-CORE-2;ProductName=HGX A100 4-GPU");
    expect_row("Firmwares", "", "VersionString=FW-CORE-2;ReleaseDate=02/28/2023");
    expect_log({"INFO !!!!! NVidia GPU - read ipmiprop v2 fields",
                "WARN get_gpu_info_ipmiprop_v2() - called slotnum 2",
                "WARN get_gpu_info_ipmiprop_v2() - target prop /ac/hxsd/dm/planar/0/ironwood/gpu_core/2/sn",
                "WARN AIM PARSER: failed to some GPU data from IPMI properties (v2), errorCodes=8"});

    // Only the second generation: the slot's keys, "N/A" for those missing, the date as
    // stored and values cut to 127 characters.
    load("\"RS_EXIST\": 0, \"GPU_PROP_V2_EXIST\": 1", props);
    ASSERT_EQ(0, run_empty());
    expect_row("VPDs", "",
               "SerialNo=SN-SLOT-4;ProductName=A100-SXM4;FRUNo=N/A;PartNo=N/A;UUID=" + std::string(127, 'u'));
    expect_row("Firmwares", "", "ReleaseDate=15012023;VersionString=N/A");
    expect_log({"INFO get_gpu_info_ipmiprop_v2() - called slotnum 4",
                "WARN AIM PARSER: failed to some GPU data from IPMI properties (v2), rc=1"});

    // Both flags and a slot outside the baseboard.
    exec("UPDATE PCIs SET SlotNo=7");
    load("\"RS_EXIST\": 1, \"GPU_PROP_V2_EXIST\": 1", props);
    ASSERT_EQ(0, run_empty());
    expect_log({"WARN get_gpu_info failed - unexpected slot (7)"});
}

TEST_F(GpuSources, StoredCopyNeedsBothRowsAndIsCutToItsBuffers) {
    add_gpu(0x3B, 3);
    write_sysroot_file("/tmp/.slot3_cioname", std::string(200, 'g'));  // cut to 63: no such GPU
    std::string vpd =
        "INSERT INTO VPDs (Manufacture, HardwareTypeId, SerialNo, PartNo, FRUNo, UUID, Model, HardwareId) "
        "VALUES ('NVIDIA', 3, '1650123456789012345', '900-21001-0020-100', 'FRU1', '" +
        std::string(70, 'u') + "', 'NVIDIA A100 80GB PCIe with a long model name', 3866624);";
    exec(vpd);
    ASSERT_EQ(0, run_empty());
    expect_log({"INFO !!!!! slot 3, func_type 4 - NVidia GPU, found_gpu_info 0, ubb_gpu 0, is_kelpie 0",
                "INFO ####12/18-1:parser::get_gpu_info cio_name = " + std::string(63, 'g'),
                "INFO  gpu_dev_info::gpu_dev_info, cio_block_open failed!",
                "INFO parser::get_gpu_info, get Nvidia GPU data info failed!"});

    exec("DELETE FROM VPDs; DELETE FROM Firmwares; " + vpd +
         "INSERT INTO Firmwares (Manufacture, HardwareTypeId, VersionString, ReleaseDate, HardwareId) "
         "VALUES ('NVIDIA', 3, '96.00.5E.00.01-with-a-long-suffix-here', '2023-01-15-long-date', 3866624)");
    ASSERT_EQ(0, run_empty());
    expect_row("VPDs", "",
               "SerialNo=1650123456789012;PartNo=900-21001-0020-1;FRUNo=FRU1;UUID=" + std::string(64, 'u') +
                   ";Model=NVIDIA A100 80GB PCIe with a lon;ProductName=NVIDIA A100 80GB PCIe with a lon");
    expect_row("Firmwares", "",
               "VersionString=96.00.5E.00.01-with-a-long-suffi;ReleaseDate=2023-01-15-long-");
}

TEST_F(GpuSources, PlatformPredicates) {
    EXPECT_FALSE(is_ubb_platform() || is_kelpie_platform());
    const std::string platforms[] = {"dogwood", "elmwood", "cedar", "firwood", "ginkgo", "alder", "birch"};
    for (int i = 0; i < 7; ++i) {
        load_machine_json("{\"platform\": \"" + platforms[i] + "\"}");
        bool ubb = i < 4;  // the four UBB platforms, then the three of the second firmware family
        EXPECT_TRUE(is_ubb_platform() == ubb && is_kelpie_platform() == !ubb) << platforms[i];
        EXPECT_TRUE(is_ubb_software_id("10DE2335") == ubb && is_kelpie_software_id("10DE18BF") == !ubb)
            << platforms[i];
    }
    EXPECT_FALSE(is_ubb_software_id("10DE2330 ") || is_kelpie_software_id("10de18bf") ||
                 is_ubb_software_id(nullptr));
}

}  // namespace
