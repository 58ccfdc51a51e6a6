// GPU information sources: the slot's device name file, the AMD device name, both
// generations of IPMI properties, the stored copy, and the exported predicates.
#include <sys/stat.h>

#include <string>

#include "gpu/predicates.h"
#include "host/machine.h"
#include "ingest/parser.h"
#include "tests/afterwalk_support.h"

namespace {

using aim_parser::gpu_info;
using aim_parser::parser;

const std::string root = "/ac/hxsd/dm/planar/0/";

class GpuSources : public awtest::AfterWalkTest {
protected:
    // Loads a machine with the given IPMI properties (a JSON object body without braces).
    void load_props(const std::string& props, const std::string& extra = std::string()) {
        load_machine_json("{\"ipmi_properties\": {" + props + "}" + extra + "}");
    }
    static std::string prop(const std::string& key, const std::string& value) {
        return "\"" + root + key + "\": \"" + value + "\"";
    }
    static gpu_info preset() {
        gpu_info i;
        i.product_name = "keep-name";
        i.part_num = "keep-part";
        i.serial_num = "keep-serial";
        i.uuid = "keep-uuid";
        return i;
    }
    aim_parser::aim_pci_key_unit key;
};

// ---- Device name files ----

TEST_F(GpuSources, SlotFileNamesTheNvidiaDevice) {
    load_machine_json(
        R"({"nvidia_gpus": {"gpu3": {"serial": "S1", "marketing_name": "L40S", "vendor_id": 4318}}})");
    write_sysroot_file("/tmp/.slot3_cioname", "gpu3 extra\n");
    key.slot = 3;
    parser p;
    gpu_info info;
    EXPECT_EQ(1, p.get_gpu_info(&key, info));
    EXPECT_TRUE(logged(host::log_level::info, "####12/18-1:parser::get_gpu_info cio_name = gpu3"));
    EXPECT_EQ("S1", info.serial_num);
    EXPECT_EQ("L40S", info.product_name);
    EXPECT_EQ(0x10DEu, info.vendor_id);

    // An over-long word is cut to the 64-byte buffer, and no such device exists.
    write_sysroot_file("/tmp/.slot3_cioname", std::string(200, 'g'));
    EXPECT_EQ(0, p.get_gpu_info(&key, info));
    EXPECT_TRUE(
        logged(host::log_level::info, "####12/18-1:parser::get_gpu_info cio_name = " + std::string(63, 'g')));
    EXPECT_TRUE(logged(host::log_level::info, "parser::get_gpu_info, get Nvidia GPU data info failed!"));

    key.slot = 4;
    EXPECT_EQ(0, p.get_gpu_info(&key, info));
    EXPECT_TRUE(logged(host::log_level::err, "parser::get_gpu_info: Get cio_name failed!!!"));
}

TEST_F(GpuSources, AmdDeviceNameFollowsTheSlot) {
    write_sysroot_file("/bin/fru-tool", "#!/bin/sh\necho \" product name: MI300X for $1\"\n");
    chmod(sysroot_file("/bin/fru-tool").c_str(), 0755);
    key.slot = 12;
    parser p;
    gpu_info info;
    EXPECT_EQ(1, p.get_amd_gpu_info(&key, info));
    EXPECT_TRUE(logged(host::log_level::info, "parser::get_amd_gpu_info cio_name = pci12_amd_gpu_temp"));
    EXPECT_EQ("MI300X for pci12_amd_gpu_temp\n", info.product_name);
    unlink(sysroot_file("/bin/fru-tool").c_str());
    EXPECT_EQ(0, p.get_amd_gpu_info(&key, info));
    EXPECT_TRUE(logged(host::log_level::info, "parser::get_amd_gpu_info, read AMD GPU data failed!"));
}

// ---- First-generation properties ----

struct bus_case {
    unsigned bus;
    int core;
};
class GpuBusToCore : public GpuSources, public ::testing::WithParamInterface<bus_case> {};

TEST_P(GpuBusToCore, SerialOfTheCoreVersionAndDateOfCoreZero) {
    std::string props = prop("ironwood/product_name", "HGX A100 8-GPU") + "," +
                        prop("ironwood/part_num", "935-23587-0000-000");
    for (int c = 0; c < 4; ++c) {
        std::string n = std::to_string(c);
        props += "," + prop("ironwood/gpu_core/" + n + "/sn", "SN-CORE-" + n) + "," +
                 prop("ironwood/gpu_core/" + n + "/fw_version", "FW-CORE-" + n) + "," +
                 prop("ironwood/gpu_core/" + n + "/build_date", n + "5012023");
    }
    load_props(props);
    parser p;
    gpu_info info = preset();
    p.get_gpu_info_ipmiprop(info, static_cast<unsigned char>(GetParam().bus));
    EXPECT_EQ("HGX A100 8-GPU", info.product_name);
    EXPECT_EQ("935-23587-0000-000", info.part_num);
    if (GetParam().core < 0) {
        EXPECT_EQ("N/A", info.serial_num);
        EXPECT_EQ("N/A", info.fw_version);
        EXPECT_EQ("N/A", info.build_date);
        char msg[128];
        snprintf(msg, sizeof msg,
                 "AIM PARSER: Failed to get gpuid for busnum 0x%02x. Deprecated usage needs upgrade to V2.",
                 GetParam().bus);
        EXPECT_TRUE(logged(host::log_level::warn, msg));
        EXPECT_EQ(0u, logged_prefix(host::log_level::warn, "AIM PARSER: failed to get NVIDAGPU"));
    } else {
        EXPECT_EQ("SN-CORE-" + std::to_string(GetParam().core), info.serial_num);
        EXPECT_EQ("FW-CORE-0", info.fw_version);
        EXPECT_EQ("01/05/2023", info.build_date);  // DDMMYYYY "05012023" of core 0
    }
    EXPECT_EQ("keep-uuid", info.uuid);
}

INSTANTIATE_TEST_SUITE_P(Buses, GpuBusToCore,
                         ::testing::Values(bus_case{0x06, 0}, bus_case{0x0C, 1}, bus_case{0x16, 1},
                                           bus_case{0x26, 2}, bus_case{0x96, 2}, bus_case{0x2C, 3},
                                           bus_case{0xE6, 3}, bus_case{0x07, -1}, bus_case{0x00, -1}));

TEST_F(GpuSources, FirstGenerationReportsFailedReads) {
    load_props(prop("ironwood/gpu_core/1/sn", "SN1") + "," +
               prop("ironwood/gpu_core/0/build_date", "3112202"));
    parser p;
    gpu_info info = preset();
    p.get_gpu_info_ipmiprop(info, 0x16);
    EXPECT_EQ("keep-name", info.product_name);
    EXPECT_EQ("keep-part", info.part_num);
    EXPECT_EQ("SN1", info.serial_num);
    EXPECT_EQ("", info.fw_version);
    EXPECT_EQ("3112202", info.build_date);  // too short to be a date: kept as read
    EXPECT_TRUE(logged(host::log_level::warn,
                       "AIM PARSER: failed to get NVIDAGPU information from IPMI property, rc=1"));
    EXPECT_TRUE(
        logged("AIM PARSER: NVIDIA GPU, IPMI properties:  product_name = keep-name, part_num = keep-part, "
               "serial_num = SN1, fw_version = , build_data = 3112202"));

    // Unknown bus with a failed name read: both warnings.
    load_props("");
    p.get_gpu_info_ipmiprop(info, 0x99);
    EXPECT_EQ(2u, logged_count("AIM PARSER: failed to get NVIDAGPU information from IPMI property, rc=1"));
}

// ---- Second-generation properties ----

TEST_F(GpuSources, SecondGenerationPerSlotStoresNaForMissingKeys) {
    std::string s = "gpu_pci_slot/5/";
    load_props(prop(s + "model", "NVIDIA H100 80GB HBM3") + "," + prop(s + "mfgr", "NVIDIA") + "," +
               prop(s + "sn", "1654922001234") + "," + prop(s + "fru", "692-2G520-0200-000") + "," +
               prop(s + "pn", "2330-885-A1") + "," + prop(s + "fw_version", "96.00.89.00.01") + "," +
               prop(s + "build_date", "15012023"));
    parser p;
    gpu_info info = preset();
    p.get_gpu_info_ipmiprop_v2(info, 5);
    EXPECT_EQ("NVIDIA H100 80GB HBM3", info.product_name);
    EXPECT_EQ("N/A", info.uuid);
    EXPECT_EQ("NVIDIA", info.manufacturer);
    EXPECT_EQ("1654922001234", info.serial_num);
    EXPECT_EQ("692-2G520-0200-000", info.fru_num);
    EXPECT_EQ("2330-885-A1", info.part_num);
    EXPECT_EQ("96.00.89.00.01", info.fw_version);
    EXPECT_EQ("15012023", info.build_date);  // as stored
    EXPECT_TRUE(logged(host::log_level::info, "get_gpu_info_ipmiprop_v2() - called slotnum 5"));
    EXPECT_TRUE(
        logged(host::log_level::warn, "AIM PARSER: failed to some GPU data from IPMI properties (v2), rc=1"));
    EXPECT_TRUE(
        logged("AIM PARSER: GPU, IPMI properties (v2):  product_name = NVIDIA H100 80GB HBM3, part_num = "
               "2330-885-A1, fru_num = 692-2G520-0200-000, serial_num = 1654922001234, fw_version = "
               "96.00.89.00.01, build_date = 15012023"));

    gpu_info none = preset();
    p.get_gpu_info_ipmiprop_v2(none, 6);
    EXPECT_EQ("N/A", none.product_name);
    EXPECT_EQ("N/A", none.manufacturer);
}

TEST_F(GpuSources, SecondGenerationUnderANodePacksItsErrorBits) {
    std::string n = "ironwood/gpu_core/2/";
    load_props(prop("ironwood/part_num", "935-24287-0000-000") + "," + prop(n + "sn", "1653023004567") + "," +
               prop(n + "fw_version", "96.00.74.00.0B") + "," + prop(n + "build_date", "28022023"));
    parser p;
    gpu_info info = preset();
    p.get_gpu_info_ipmiprop_v2(info, 2, "ironwood/gpu_core");
    EXPECT_EQ("keep-name", info.product_name);  // no "N/A" for the baseboard's name
    EXPECT_EQ("935-24287-0000-000", info.part_num);
    EXPECT_EQ("1653023004567", info.serial_num);
    EXPECT_EQ("96.00.74.00.0B", info.fw_version);
    EXPECT_EQ("02/28/2023", info.build_date);
    EXPECT_TRUE(logged(host::log_level::warn, "get_gpu_info_ipmiprop_v2() - called slotnum 2"));
    EXPECT_TRUE(
        logged(host::log_level::warn,
               "get_gpu_info_ipmiprop_v2() - target prop /ac/hxsd/dm/planar/0/ironwood/product_name"));
    EXPECT_TRUE(
        logged(host::log_level::warn,
               "get_gpu_info_ipmiprop_v2() - target prop /ac/hxsd/dm/planar/0/ironwood/gpu_core/2/sn"));
    EXPECT_TRUE(logged(host::log_level::warn,
                       "AIM PARSER: failed to some GPU data from IPMI properties (v2), errorCodes=16"));

    // Only the build date missing: bit 0.
    load_props(prop("ironwood/product_name", "HGX") + "," + prop("ironwood/part_num", "P") + "," +
               prop(n + "sn", "S") + "," + prop(n + "fw_version", "F"));
    info = preset();
    p.get_gpu_info_ipmiprop_v2(info, 2, "ironwood/gpu_core");
    EXPECT_EQ("N/A", info.build_date);
    EXPECT_TRUE(logged(host::log_level::warn,
                       "AIM PARSER: failed to some GPU data from IPMI properties (v2), errorCodes=1"));
    EXPECT_TRUE(
        logged("AIM PARSER: NVIDIA GPU, IPMI properties:  product_name = HGX, part_num = P, serial_num = S, "
               "fw_version = F, build_data = N/A"));

    // Nothing there: every bit, serial and firmware "N/A".
    load_props("");
    info = preset();
    p.get_gpu_info_ipmiprop_v2(info, 0, "ironwood/gpu_core");
    EXPECT_EQ("N/A", info.serial_num);
    EXPECT_EQ("keep-part", info.part_num);
    EXPECT_TRUE(logged(host::log_level::warn,
                       "AIM PARSER: failed to some GPU data from IPMI properties (v2), errorCodes=31"));
}

TEST_F(GpuSources, PropertyValuesAreCutTo127Characters) {
    load_props(prop("gpu_pci_slot/1/model", std::string(300, 'm')));
    parser p;
    gpu_info info;
    p.get_gpu_info_ipmiprop_v2(info, 1);
    EXPECT_EQ(std::string(127, 'm'), info.product_name);
}

// ---- The stored copy ----

TEST_F(GpuSources, StoredCopyNeedsBothRows) {
    key.func_key = 3866624;
    exec(
        "INSERT INTO Firmwares (VersionString, ReleaseDate, HardwareId) VALUES "
        "('96.00.5E.00.01-with-a-long-suffix-here', '2023-01-15-long-date', 3866624)");
    parser p;
    gpu_info info = preset();
    EXPECT_FALSE(p.read_gpu_info_from_db(db, &key, info));
    EXPECT_EQ("keep-serial", info.serial_num);
    EXPECT_EQ("", info.fw_version);

    exec(
        "INSERT INTO VPDs (SerialNo, PartNo, FRUNo, UUID, Model, HardwareId) VALUES "
        "('1650123456789012345', '900-21001-0020-100', 'FRU1', "
        "'GPU-7f3ad2c1-8e4b-4c2a-9f10-1234567890ab-0123456789abcdef0123456789', 'NVIDIA A100 80GB PCIe', "
        "3866624)");
    ASSERT_TRUE(p.read_gpu_info_from_db(db, &key, info));
    // Each column is cut to its buffer (terminator included).
    EXPECT_EQ("96.00.5E.00.01-with-a-long-suffi", info.fw_version);
    EXPECT_EQ("2023-01-15-long-", info.build_date);
    EXPECT_EQ("1650123456789012", info.serial_num);
    EXPECT_EQ("900-21001-0020-1", info.part_num);
    EXPECT_EQ("FRU1", info.fru_num);
    EXPECT_EQ("NVIDIA A100 80GB PCIe", info.product_name);
    EXPECT_EQ("GPU-7f3ad2c1-8e4b-4c2a-9f10-1234567890ab-0123456789abcdef0123456", info.uuid);
    EXPECT_TRUE(logged(
        host::log_level::info,
        "AIM PARSER: NVIDIA GPU, old info: part_num = 900-21001-0020-1, serial_num = 1650123456789012, "
        "fw_version = 96.00.5E.00.01-with-a-long-suffi, build_data = 2023-01-15-long-, fru_num = FRU1, "
        "uuid = GPU-7f3ad2c1-8e4b-4c2a-9f10-1234567890ab-0123456789abcdef0123456, model = NVIDIA A100 "
        "80GB PCIe"));

    key.func_key = 1;
    EXPECT_FALSE(p.read_gpu_info_from_db(db, &key, info));
}

// ---- Predicates ----

struct platform_case {
    const char* platform;  // null: none
    bool ubb, kelpie;
};
class GpuPlatform : public awtest::AfterWalkTest, public ::testing::WithParamInterface<platform_case> {};

TEST_P(GpuPlatform, PredicatesFollowThePlatform) {
    const platform_case& c = GetParam();
    load_machine_json(c.platform ? std::string("{\"platform\": \"") + c.platform + "\"}" : "{}");
    EXPECT_EQ(c.ubb, is_ubb_platform());
    EXPECT_EQ(c.kelpie, is_kelpie_platform());
    for (unsigned short id : {0x18BE, 0x18BF, 0x16C0, 0x16C1, 0x1999, 0x199B, 0x2335, 0x2330}) {
        EXPECT_EQ(c.ubb, is_ubb_nvidia_subdevice(id)) << id;
    }
    EXPECT_FALSE(is_ubb_nvidia_subdevice(0x17FC));
    for (unsigned short id : {0x18BF, 0x16C0, 0x2335, 0x2330, 0x17FC})
        EXPECT_EQ(c.kelpie, is_kelpie_fw(id)) << id;
    EXPECT_FALSE(is_kelpie_fw(0x18BE));
    for (const char* s : {"100274A1", "100274A5", "10DE16C1", "10DE16C0", "10DE18BE", "10DE18BF", "10DE1999",
                          "10DE199B", "10DE2330", "10DE2335"}) {
        EXPECT_EQ(c.ubb, is_ubb_software_id(s)) << s;
    }
    for (const char* s : {"10DE16C0", "10DE18BF", "10DE17FC", "10DE2330", "10DE2335"}) {
        EXPECT_EQ(c.kelpie, is_kelpie_software_id(s)) << s;
    }
    EXPECT_FALSE(is_ubb_software_id("100274a5"));
    EXPECT_FALSE(is_ubb_software_id("10DE2330 "));
    EXPECT_FALSE(is_ubb_software_id(nullptr));
    EXPECT_FALSE(is_kelpie_software_id("10DE17FD"));
    // Vendor and AMD subsystem tests hold on every platform.
    EXPECT_TRUE(is_nvidia_vendor(0x10DE));
    EXPECT_FALSE(is_nvidia_vendor(0x10DF));
    EXPECT_TRUE(is_ubb_amd_vendor(0x1002));
    EXPECT_FALSE(is_ubb_amd_vendor(0x1022));
    EXPECT_TRUE(is_ubb_amd_subdevice(0x74A1));
    EXPECT_TRUE(is_ubb_amd_subdevice(0x74A5));
    EXPECT_FALSE(is_ubb_amd_subdevice(0x74A3));
    EXPECT_FALSE(is_ubb_amd_subdevice(0x74A0));
}

INSTANTIATE_TEST_SUITE_P(
    Platforms, GpuPlatform,
    ::testing::Values(platform_case{nullptr, false, false}, platform_case{"dogwood", true, false},
                      platform_case{"elmwood", true, false}, platform_case{"cedar", true, false},
                      platform_case{"firwood", true, false}, platform_case{"ginkgo", false, true},
                      platform_case{"alder", false, true}, platform_case{"birch", false, true}));

TEST_F(GpuSources, MachineValuesAreValidated) {
    const char* bad[] = {
        R"({"platform": "oak"})",
        R"({"platform": 3})",
        R"({"ipmi_properties": {"/ac/x": 5}})",
        R"({"cio_integers": {"RS_EXIST": "yes"}})",
        R"({"nvidia_gpus": {"g": {"serial": "S", "colour": "green"}}})",
        R"({"nvidia_gpus": {"g": {"build_date": [1, 2, 3]}}})",
        R"({"nvidia_gpus": {"g": {"vendor_id": 70000}}})",
        R"({"nvidia_gpus": {"g": {"faults": {"fail_chunks": [[2]]}}}})",
        R"({"nvidia_gpus": {"g": {"faults": {"explode": true}}}})",
        R"({"hc_card_table": [{"vendor": 1, "device": 2, "subsystem_vendor": 3, "name": "x"}]})",
        R"({"hc_card_table": [{"vendor": 1, "device": 2, "subsystem_vendor": 3, "subsystem_device": 4,
                              "name": "x", "model": "y"}]})",
        R"({"datastore": {"iscsi-cap-data": "missing.bin"}})",
    };
    for (const char* json : bad) {
        EXPECT_THROW(load_machine_json(json), host::machine_error) << json;
    }
    try {
        load_machine_json(R"({"platform": "oak"})");
    } catch (const host::machine_error& e) {
        EXPECT_NE(
            std::string::npos,
            std::string(e.what()).find("unknown platform \"oak\" (use alder, birch, cedar, dogwood, elmwood, "
                                       "firwood or ginkgo)"))
            << e.what();
    }
}

}  // namespace
