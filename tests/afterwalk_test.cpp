// Adapters after the walk: the list of functions without AIM data, the routing of NVIDIA,
// AMD and other functions, the GPU rows, stale GPU rows and the merge (end to end through
// parse_aim on simulated machines).
#include <sys/stat.h>

#include <string>
#include <vector>

#include "host/sim.h"
#include "ingest/parser.h"
#include "tests/afterwalk_support.h"

using awtest::columns;
using awtest::dev_key;
using awtest::expect_columns;
using awtest::fun_key;
using awtest::num;
using testutil::aim_config;
using testutil::aim_doc;
using testutil::aim_setting;

namespace {

const unsigned bus = 0x3B;
const unsigned fk0 = 0x3B0000;

class AfterWalk : public awtest::AfterWalkTest {
protected:
    // An NVIDIA display function at bus 0x3B in `slot` (location 1: a GPU).
    void add_nvidia(unsigned function = 0, unsigned device_id = 0x20B5, unsigned subdevice = 0x1533,
                    unsigned slot = 3, unsigned location = 1) {
        add_pci_function(bus, 0, function, 0x10DE, device_id, 0x10DE, subdevice, slot, 4, location);
    }
    // The machine: "gpu3" answers the device query; `more` adds further keys.
    void load_gpu_machine(const std::string& more = std::string()) {
        load_machine_json(std::string("{\"nvidia_gpus\": {\"gpu3\": {") + awtest::a100 + "}}" + more + "}");
        write_sysroot_file("/tmp/.slot3_cioname", "gpu3\n");
    }
    std::string one(const std::string& table, const std::string& column, const std::string& where = "") {
        auto r = rows(table, where);
        if (r.size() != 1) return "<" + num(static_cast<unsigned>(r.size())) + " rows>";
        auto it = r[0].find(column);
        return it == r[0].end() ? "<NULL>" : it->second;
    }
    void install_fru_tool(const std::string& name) {
        write_sysroot_file("/bin/fru-tool", "#!/bin/sh\necho ' product name: " + name +
                                                "'\necho ' product serial number: PCB-0042'\n");
        chmod(sysroot_file("/bin/fru-tool").c_str(), 0755);
    }
};

// The fixed rows of a GPU function at offset `i` of the device at bus 0x3B.
void expect_gpu_port_rows(const std::vector<host::row>& misc, const std::vector<host::row>& net,
                          const std::vector<host::row>& phys, const std::vector<host::row>& stat,
                          const std::vector<host::row>& logical, unsigned i, unsigned slot) {
    columns keys = {
        {"SegNo", "0"},  {"BusNo", num(bus)},   {"DeviceNo", "0"},    {"FunctionNo", num(i)},
        {"NodeNo", "1"}, {"SlotNo", num(slot)}, {"PCIKey", num(fk0)}, {"PCIFuncKey", num(fk0 + i)}};
    columns m = keys;
    m.insert({{"MaxDataWidth", "16"},
              {"ConnectorLayout", "0"},
              {"PackageType", "9"},
              {"OtherPackageType", "N/A"},
              {"AIMSpecVersion", "2.00"}});
    expect_columns(misc[i], m);
    columns n = keys;
    n.insert({{"NumberofPhysicalPorts", "1"}, {"MaxNumberofLogicalPorts", "1"}});
    expect_columns(net[i], n);
    columns p = keys;
    p.insert({{"Idx", num(i + 1)},
              {"NumberofLogicalPorts", "1"},
              {"PermanentAddress", "N/A"},
              {"ConnectorLayout", "0"}});
    expect_columns(phys[i], p);
    expect_columns(stat[i], {{"PCIFuncKey", num(fk0 + i)},
                             {"Idx", num(i + 1)},
                             {"LinkStatus", "1"},
                             {"LinkSpeed", "0"},
                             {"TxUtil", "0"},
                             {"RxUtil", "0"}});
    columns l = keys;
    l.insert({{"MaxDataSize", "12000"},
              {"PermanentAddress", "000000000000"},
              {"NetworkAddresses", "000000000000"},
              {"PhyIdx", num(i + 1)},
              {"Idx", "1"},
              {"LinkTechnology", "2"},
              {"vNICMode", "0"},
              {"MaxSpeed", "1"},
              {"ProtocolType", "6"},
              {"Ethernet", "1"},
              {"FCoEFC", "0"},
              {"iSCSI", "0"}});
    expect_columns(logical[i], l);
}

TEST_F(AfterWalk, NvidiaGpuAnsweringTheDeviceQuery) {
    load_gpu_machine();
    add_nvidia();
    ASSERT_EQ(0, run_empty());
    auto vpd = rows("VPDs");
    ASSERT_EQ(1u, vpd.size()) << log_text();
    expect_columns(vpd[0], {{"Manufacture", "NVIDIA"},
                            {"ProductName", "NVIDIA A100 80GB PCIe"},
                            {"SerialNo", "1650123456789012"},
                            {"PartNo", "900-21001-0020-1"},
                            {"HardwareId", num(fk0)},
                            {"HardwareTypeId", "3"},
                            {"SlotNo", "3"},
                            {"Location", "1"},
                            {"Model", "NVIDIA A100 80GB PCIe"},
                            {"PCIKey", ""}});
    EXPECT_EQ("", vpd[0]["UUID"]);  // no source gave one
    EXPECT_EQ("", vpd[0]["FRUNo"]);
    auto fw = rows("Firmwares");
    ASSERT_EQ(1u, fw.size());
    expect_columns(
        fw[0], {{"FirmwareName", "Software Bundle"},
                {"VersionString", "92.00.36.00.01"},
                {"Description",
                 "Firmware package containing controller firmware, UEFI Driver, and other sub components."},
                {"ReleaseDate", "01/15/2023"},
                {"Manufacture", "NVIDIA"},
                {"Classification", "13"},
                {"SoftwareID", "10DE20B5"},
                {"HardwareId", num(fk0)},
                {"HardwareTypeId", "3"}});
    expect_gpu_port_rows(rows("PCIMisc"), rows("PCINetwork"), rows("PCIPhysicalPort"),
                         rows("PCIPhysicalPortStat"), rows("PCILogicalPort"), 0, 3);
    auto adapters = rows("PCIAdapter");
    ASSERT_EQ(1u, adapters.size());
    expect_columns(adapters[0], {{"FunctionNo", "0"},
                                 {"SlotNo", "3"},
                                 {"CardName", "NVIDIA A100 80GB PCIe"},
                                 {"ConnectorType", "23"},
                                 {"AIMSupported", "0"},
                                 {"OOBSrc", "8"},
                                 {"PCIKey", num(fk0)},
                                 {"PCIFuncKey", num(fk0)},
                                 {"Location", "1"}});
    EXPECT_EQ(0u, count("PldmDeviceFirmware"));
    const char* expected_log[] = {
        "INFO AIM-not-supported adapter, Key: 3866624, funcKey: 3866624",
        "INFO !!!!! slot 3, func_type 4, function 0, is_gpu 1",
        "INFO !!!!! slot 3, func_type 4",
        "INFO !!!!! slot 3, func_type 4 - NVidia GPU, found_gpu_info 0, ubb_gpu 0, is_kelpie 0",
        "INFO cio_integer_open RS_EXIST failure: no such cio object",
        "INFO cio_integer_open GPU_PROP_V2_EXIST failure: no such cio object",
        "INFO ####12/18-1:parser::get_gpu_info cio_name = gpu3",
        "INFO AIM PARSER: [No AIM Support] Slot 3, [10DE 20B5 10DE 1533], NVIDIA A100 80GB PCIe, Is_gpu = 1",
        "WARN AIM PARSER: !!!!!did not find GPU info fill with gpu_inf data, manuf: NVIDIA",
        "DBG vqmdb_merge_aim_ucm_pfa: merged AIM and UCM PCI addresses (previous rc=0)",
    };
    std::string log = log_text();
    size_t at = 0;
    for (const char* line : expected_log) {
        size_t found = log.find(std::string(line) + "\n", at);
        EXPECT_NE(std::string::npos, found) << "missing or out of order: " << line << "\n" << log;
        if (found != std::string::npos) at = found;
    }
}

TEST_F(AfterWalk, KnownGpuIsUpdatedAndGapsFilledFromTheStoredCopy) {
    load_gpu_machine();
    add_nvidia();
    ASSERT_EQ(0, run_empty());
    // The device no longer answers: the stored copy fills every field the query left empty.
    unlink(sysroot_file("/tmp/.slot3_cioname").c_str());
    ASSERT_EQ(0, run_empty());
    EXPECT_TRUE(logged(host::log_level::info, "get_gpu_info failed"));
    EXPECT_TRUE(logged(host::log_level::info,
                       "!!!!! slot 3, func_type 4 - NVidia GPU, found_gpu_info 1, ubb_gpu 0, is_kelpie 0"));
    EXPECT_EQ(1u,
              logged_count("AIM PARSER: !!!!!did not find GPU info fill with gpu_inf data, manuf: NVIDIA"));
    auto vpd = rows("VPDs");
    ASSERT_EQ(1u, vpd.size()) << log_text();
    expect_columns(vpd[0], {{"ProductName", "NVIDIA A100 80GB PCIe"},
                            {"SerialNo", "1650123456789012"},
                            {"Model", "NVIDIA A100 80GB PCIe"},
                            {"Manufacture", "NVIDIA"}});
    EXPECT_EQ("92.00.36.00.01", one("Firmwares", "VersionString"));
    EXPECT_EQ("01/15/2023", one("Firmwares", "ReleaseDate"));
    EXPECT_EQ("NVIDIA A100 80GB PCIe", one("PCIAdapter", "CardName"));

    // A fresh answer replaces the stored values.
    load_machine_json(
        std::string(R"({"nvidia_gpus": {"gpu3": {"serial": "NEWSERIAL", "marketing_name": "A100",
        "firmware_version": "92.00.99.00.01"}}})"));
    write_sysroot_file("/tmp/.slot3_cioname", "gpu3");
    ASSERT_EQ(0, run_empty());
    EXPECT_EQ("NEWSERIAL", one("VPDs", "SerialNo"));
    EXPECT_EQ("A100", one("VPDs", "ProductName"));
    EXPECT_EQ("92.00.99.00.01", one("Firmwares", "VersionString"));
    EXPECT_EQ("00/00/0000", one("Firmwares", "ReleaseDate"));

    host::db_fail_writes(db, "VPDs", "update");
    ASSERT_EQ(0, run_empty());
    EXPECT_TRUE(
        logged(host::log_level::warn,
               "AIM PARSER: failed to update AIM-not-supported VPD Information where HardwareId = 3866624, "
               "rc=10"));
    host::db_fail_writes(db, "Firmwares", "update");
    ASSERT_EQ(0, run_empty());
    EXPECT_TRUE(logged(host::log_level::warn,
                       "AIM PARSER: failed to update AIM-not-supported Firmware Information, rc=10"));
}

TEST_F(AfterWalk, GpuWithoutModelIsNamedByItsAddress) {
    add_nvidia();
    ASSERT_EQ(0, run_empty());
    EXPECT_TRUE(logged(host::log_level::err, "parser::get_gpu_info: Get cio_name failed!!!"));
    EXPECT_EQ("Adapter 00:3B:00.00", one("VPDs", "ProductName"));
    EXPECT_EQ("", one("VPDs", "Model"));
    EXPECT_EQ("Adapter 00:3B:00.00", one("PCIAdapter", "CardName"));
    EXPECT_EQ("10DE20B5", one("Firmwares", "SoftwareID"));  // ids from the function's key
}

TEST_F(AfterWalk, FunctionZeroCoversEveryFunctionKeyOfTheDevice) {
    load_gpu_machine();
    add_nvidia(0, 0x20B5);
    add_nvidia(1, 0x20B6);  // another device id: a list row of its own, skipped
    ASSERT_EQ(0, run_empty());
    EXPECT_TRUE(logged(host::log_level::info, "!!!!! slot 3, func_type 4, function 1, is_gpu 1"));
    EXPECT_EQ(1u, logged_count("!!!!! slot 3, func_type 4"));
    EXPECT_EQ(23u, host::nvidia_gpu_calls("gpu3"));  // the device was asked once
    auto vpd = rows("VPDs");
    ASSERT_EQ(2u, vpd.size()) << log_text();
    EXPECT_EQ(num(fk0), vpd[0]["HardwareId"]);
    EXPECT_EQ(num(fk0 + 1), vpd[1]["HardwareId"]);
    auto fw = rows("Firmwares");
    ASSERT_EQ(2u, fw.size());
    EXPECT_EQ(num(fk0 + 1), fw[1]["HardwareId"]);
    auto misc = rows("PCIMisc"), net = rows("PCINetwork"), phys = rows("PCIPhysicalPort"),
         stat = rows("PCIPhysicalPortStat"), logical = rows("PCILogicalPort");
    ASSERT_EQ(2u, misc.size());
    ASSERT_EQ(2u, net.size());
    ASSERT_EQ(2u, phys.size());
    ASSERT_EQ(2u, stat.size());
    ASSERT_EQ(2u, logical.size());
    for (unsigned i = 0; i < 2; ++i) expect_gpu_port_rows(misc, net, phys, stat, logical, i, 3);
    auto adapters = rows("PCIAdapter");
    ASSERT_EQ(2u, adapters.size());
    EXPECT_EQ("1", adapters[1]["FunctionNo"]);
    EXPECT_EQ(num(fk0 + 1), adapters[1]["PCIFuncKey"]);
}

TEST_F(AfterWalk, StaleNvidiaRowsAreRemoved) {
    load_gpu_machine();
    add_nvidia();
    // An NVIDIA function that is no GPU without AIM data (location 2): its rows of an
    // earlier run survive the wipe but not the removal after the walk.
    add_pci_function(0x5E, 0, 0, 0x10DE, 0x2236, 0x10DE, 0x1482, 6, 4, 2);
    exec("INSERT INTO VPDs (Manufacture, HardwareId, HardwareTypeId) VALUES ('NVIDIA', " +
         num(fun_key(0x5E, 0, 0)) +
         ", 3);INSERT INTO Firmwares (Manufacture, HardwareId, HardwareTypeId) VALUES ('NVIDIA', " +
         num(fun_key(0x5E, 0, 0)) + ", 3);");
    ASSERT_EQ(0, run_empty());
    EXPECT_EQ(0u, count("VPDs", "HardwareId=" + num(fun_key(0x5E, 0, 0))));
    EXPECT_EQ(0u, count("Firmwares", "HardwareId=" + num(fun_key(0x5E, 0, 0))));
    EXPECT_EQ(1u, count("VPDs", "HardwareId=" + num(fk0)));
    EXPECT_EQ(1u, count("Firmwares", "HardwareId=" + num(fk0)));
    EXPECT_EQ(0u, count("PCIAdapter", "BusNo=94"));
}

TEST_F(AfterWalk, NvidiaSourcesFollowTheControllerFlags) {
    add_nvidia(0, 0x20B5, 0x1533, 4);
    std::string props = R"("ipmi_properties": {
        "/ac/hxsd/dm/planar/0/ironwood/product_name": "HGX A100 4-GPU",
        "/ac/hxsd/dm/planar/0/ironwood/gpu_core/2/sn": "SN-CORE-2",
        "/ac/hxsd/dm/planar/0/ironwood/gpu_core/2/fw_version": "FW-CORE-2",
        "/ac/hxsd/dm/planar/0/ironwood/gpu_core/2/build_date": "28022023",
        "/ac/hxsd/dm/planar/0/ironwood/gpu_core/0/sn": "SN-CORE-0",
        "/ac/hxsd/dm/planar/0/ironwood/gpu_core/0/fw_version": "FW-CORE-0",
        "/ac/hxsd/dm/planar/0/ironwood/gpu_core/0/build_date": "01032023",
        "/ac/hxsd/dm/planar/0/gpu_pci_slot/4/model": "NVIDIA A100-SXM4-80GB",
        "/ac/hxsd/dm/planar/0/gpu_pci_slot/4/mfgr": "NVIDIA",
        "/ac/hxsd/dm/planar/0/gpu_pci_slot/4/sn": "SN-SLOT-4",
        "/ac/hxsd/dm/planar/0/gpu_pci_slot/4/build_date": "15012023"})";
    // Both flags: the node keys, GPU core 6 - slot.
    load_machine_json("{\"cio_integers\": {\"RS_EXIST\": 1, \"GPU_PROP_V2_EXIST\": 1}, " + props + "}");
    ASSERT_EQ(0, run_empty());
    EXPECT_TRUE(logged(host::log_level::info, "!!!!! NVidia GPU - read ipmiprop v2 fields"));
    EXPECT_EQ("SN-CORE-2", one("VPDs", "SerialNo"));
    EXPECT_EQ("HGX A100 4-GPU", one("VPDs", "ProductName"));
    EXPECT_EQ("02/28/2023", one("Firmwares", "ReleaseDate"));
    EXPECT_EQ("FW-CORE-2", one("Firmwares", "VersionString"));

    // Only the second generation: the slot keys.
    load_machine_json("{\"cio_integers\": {\"RS_EXIST\": 0, \"GPU_PROP_V2_EXIST\": 1}, " + props + "}");
    ASSERT_EQ(0, run_empty());
    EXPECT_EQ("SN-SLOT-4", one("VPDs", "SerialNo"));
    EXPECT_EQ("NVIDIA A100-SXM4-80GB", one("VPDs", "ProductName"));
    EXPECT_EQ("N/A", one("VPDs", "UUID"));
    EXPECT_EQ("15012023", one("Firmwares", "ReleaseDate"));
    EXPECT_EQ("N/A", one("Firmwares", "VersionString"));

    // Only the first generation: the core of the bus (0x3B is none of the baseboard's).
    load_machine_json("{\"cio_integers\": {\"RS_EXIST\": 1}, " + props + "}");
    ASSERT_EQ(0, run_empty());
    EXPECT_TRUE(
        logged(host::log_level::info, "cio_integer_open GPU_PROP_V2_EXIST failure: no such cio object"));
    EXPECT_TRUE(
        logged(host::log_level::warn,
               "AIM PARSER: Failed to get gpuid for busnum 0x3b. Deprecated usage needs upgrade to V2."));
    EXPECT_EQ("N/A", one("VPDs", "SerialNo"));
    EXPECT_EQ("NVIDIA", one("VPDs", "Manufacture"));
}

TEST_F(AfterWalk, SlotOutsideTheBaseboardIsReported) {
    add_nvidia(0, 0x20B5, 0x1533, 7);
    load_machine_json(R"({"cio_integers": {"RS_EXIST": 1, "GPU_PROP_V2_EXIST": 1}})");
    ASSERT_EQ(0, run_empty());
    EXPECT_TRUE(logged(host::log_level::warn, "get_gpu_info failed - unexpected slot (7)"));
    EXPECT_EQ("Adapter 00:3B:00.00", one("VPDs", "ProductName"));
}

TEST_F(AfterWalk, AmdGpuThroughTheFruToolOrTheProperties) {
    add_pci_function(bus, 0, 0, 0x1002, 0x740F, 0x1002, 0x74A1, 4, 16, 1);
    install_fru_tool("AMD Instinct MI300X");
    ASSERT_EQ(0, run_empty());
    EXPECT_TRUE(
        logged(host::log_level::info, "!!!!! slot 4, func_type 16 - AMD GPU, found_gpu_info 0, ubb_gpu 1"));
    EXPECT_TRUE(logged(host::log_level::info, "cio_integer_open failure: no such cio object"));
    auto vpd = rows("VPDs");
    ASSERT_EQ(1u, vpd.size()) << log_text();
    expect_columns(vpd[0], {{"Manufacture", "AMD"},
                            {"ProductName", "AMD Instinct MI300X\n"},
                            {"SerialNo", "PCB-0042\n"},
                            {"PartNo", "N/A"},
                            {"UUID", "N/A"},
                            {"Location", "1"}});
    EXPECT_EQ("100274A1", one("Firmwares", "SoftwareID"));  // a UBB GPU: subsystem ids
    auto pldm = rows("PldmDeviceFirmware");
    ASSERT_EQ(1u, pldm.size());
    expect_columns(pldm[0], {{"DeviceType", "16"},
                             {"PCIKey", num(fk0)},
                             {"PCIFuncKey", num(fk0)},
                             {"Location", "1"},
                             {"SlotNo", "4"},
                             {"VendorId", "4098"},
                             {"DeviceId", num(0x740F)},
                             {"SubVendorId", "4098"},
                             {"SubDeviceId", num(0x74A1)},
                             {"DeviceName", "AMD Instinct MI300X\n"},
                             {"Manufacture", "AMD"},
                             {"SoftwareID", "100274A1"},
                             {"VersionString", "N/A"},
                             {"ReleaseDate", "N/A"},
                             {"UpdateSupport", "1"},
                             {"UpdateMethod", "1"}});

    load_machine_json(R"({"cio_integers": {"GPU_PROP_V2_EXIST": 1}, "ipmi_properties": {
        "/ac/hxsd/dm/planar/0/gpu_pci_slot/4/model": "AMD Instinct MI300X OAM",
        "/ac/hxsd/dm/planar/0/gpu_pci_slot/4/mfgr": "Advanced Micro Devices",
        "/ac/hxsd/dm/planar/0/gpu_pci_slot/4/fw_version": "113-M3000100-102"}})");
    ASSERT_EQ(0, run_empty());
    EXPECT_TRUE(logged(host::log_level::info, "!!!!! AMD GPU - read ipmiprop v2 fields"));
    EXPECT_EQ("AMD Instinct MI300X OAM", one("VPDs", "ProductName"));
    EXPECT_EQ("Advanced Micro Devices", one("VPDs", "Manufacture"));
    EXPECT_EQ("113-M3000100-102", one("PldmDeviceFirmware", "VersionString"));
}

TEST_F(AfterWalk, RoutingByVendorLocationAndType) {
    // AMD away from the GPU location and a network function: known-card handling.
    add_pci_function(0x3B, 0, 0, 0x1002, 0x740F, 0x1002, 0x74A1, 4, 16, 0);
    add_pci_function(0x5E, 0, 0, 0x8086, 0x1592, 0x8086, 0x0002, 5, 2, 0);
    // An accelerator of vendor 0x17CB at the GPU location: a GPU adapter of no known maker.
    add_pci_function(0x86, 0, 0, 0x17CB, 0x0110, 0x17CB, 0x0111, 6, 16, 1);
    // An NVIDIA function of another type: not a GPU.
    add_pci_function(0xAF, 0, 0, 0x10DE, 0x22BC, 0x10DE, 0x1533, 7, 3, 1);
    ASSERT_EQ(0, run_empty());
    EXPECT_TRUE(logged(host::log_level::info, "!!!!! slot 4, func_type 16, function 0, is_gpu 0"));
    EXPECT_TRUE(logged(host::log_level::info, "!!!!! slot 6, func_type 16, function 0, is_gpu 1"));
    EXPECT_TRUE(logged(host::log_level::info, "!!!!! slot 7, func_type 3, function 0, is_gpu 0"));
    EXPECT_FALSE(
        logged(host::log_level::info, "!!!!! slot 4, func_type 16 - AMD GPU, found_gpu_info 0, ubb_gpu 1"));
    EXPECT_EQ("Adapter 00:3B:00.00", one("PCIAdapter", "CardName", "SlotNo=4"));
    EXPECT_EQ("0", one("PCIAdapter", "OOBSrc", "SlotNo=4"));
    EXPECT_EQ("Adapter 00:5E:00.00", one("PCIAdapter", "CardName", "SlotNo=5"));
    EXPECT_EQ("Adapter 00:AF:00.00", one("PCIAdapter", "CardName", "SlotNo=7"));
    // Only the accelerator has GPU rows.
    EXPECT_EQ(1u, count("VPDs"));
    EXPECT_EQ("Adapter 00:86:00.00", one("VPDs", "ProductName", "SlotNo=6"));
    EXPECT_EQ("", one("VPDs", "Manufacture", "SlotNo=6"));
    EXPECT_EQ("17CB0110", one("Firmwares", "SoftwareID"));
    EXPECT_EQ("8", one("PCIAdapter", "OOBSrc", "SlotNo=6"));
    EXPECT_TRUE(logged(
        host::log_level::info,
        "AIM PARSER: [No AIM Support] Slot 6, [17CB 0110 17CB 0111], Adapter 00:86:00.00, Is_gpu = 1"));
}

TEST_F(AfterWalk, UbbGpusGetOnePldmRowPerAdapter) {
    load_machine_json(
        R"({"platform": "dogwood", "cio_integers": {"GPU_PROP_V2_EXIST": 1}, "ipmi_properties": {
        "/ac/hxsd/dm/planar/0/gpu_pci_slot/3/model": "NVIDIA H100 80GB HBM3",
        "/ac/hxsd/dm/planar/0/gpu_pci_slot/3/fw_version": "96.00.74.00.1C",
        "/ac/hxsd/dm/planar/0/gpu_pci_slot/3/build_date": "2023-03-14"}})");
    add_pci_function(bus, 0, 0, 0x10DE, 0x2330, 0x10DE, 0x16C1, 3, 4, 1);
    add_pci_function(bus, 0, 1, 0x10DE, 0x2330, 0x10DE, 0x16C1, 3, 4, 1);
    ASSERT_EQ(0, run_empty());
    EXPECT_TRUE(logged(host::log_level::info,
                       "!!!!! slot 3, func_type 4 - NVidia GPU, found_gpu_info 0, ubb_gpu 1, is_kelpie 0"));
    EXPECT_EQ(2u, count("VPDs"));
    EXPECT_EQ(2u, count("Firmwares", "SoftwareID='10DE16C1'"));
    auto pldm = rows("PldmDeviceFirmware");
    ASSERT_EQ(1u, pldm.size()) << log_text();
    expect_columns(pldm[0], {{"DeviceType", "4"},
                             {"PCIFuncKey", num(fk0)},
                             {"DeviceName", "NVIDIA H100 80GB HBM3"},
                             {"Manufacture", "N/A"},
                             {"SoftwareID", "10DE16C1"},
                             {"VersionString", "96.00.74.00.1C"},
                             {"ReleaseDate", "2023-03-14"}});

    host::db_fail_writes(db, "PldmDeviceFirmware", "insert");
    ASSERT_EQ(0, run_empty());
    EXPECT_TRUE(logged(host::log_level::warn,
                       "AIM PARSER: failed to insert UBB PLDM Adapter Information in slot 3, rc=10"));
}

TEST_F(AfterWalk, SecondFamilyGpusUseTheirSubsystemIds) {
    load_machine_json(R"({"platform": "ginkgo"})");
    add_pci_function(bus, 0, 0, 0x10DE, 0x2335, 0x10DE, 0x2330, 3, 4, 1);
    ASSERT_EQ(0, run_empty());
    EXPECT_TRUE(logged(host::log_level::info,
                       "!!!!! slot 3, func_type 4 - NVidia GPU, found_gpu_info 0, ubb_gpu 0, is_kelpie 1"));
    EXPECT_EQ("10DE2330", one("Firmwares", "SoftwareID"));
    EXPECT_EQ(0u, count("PldmDeviceFirmware"));
}

struct width_case {
    unsigned slot_type, generation, lanes;
    const char* code;
};
class AfterWalkWidth : public AfterWalk, public ::testing::WithParamInterface<width_case> {};

TEST_P(AfterWalkWidth, ConnectorOfAKnownCardIsTheSlotsWidthCode) {
    add_pci_function(bus, 0, 0, 0x8086, 0x0D5C, 0x8086, 0x0000, 3, 12);
    exec("UPDATE PCIs SET SlotType=" + num(GetParam().slot_type) +
         ", MaxPCIeType=" + num(GetParam().generation) + ", MaxLanes=" + num(GetParam().lanes));
    ASSERT_EQ(0, run_empty());
    EXPECT_EQ(GetParam().code, one("PCIAdapter", "ConnectorType"));
    EXPECT_EQ("Intel ACC100 Accelerating NFV PCIe Gen3", one("PCIAdapter", "CardName"));
}

INSTANTIATE_TEST_SUITE_P(Widths, AfterWalkWidth,
                         ::testing::Values(width_case{184, 1, 1, "19"}, width_case{184, 2, 2, "20"},
                                           width_case{184, 4, 4, "21"}, width_case{184, 3, 8, "22"},
                                           width_case{184, 2, 16, "23"}, width_case{184, 3, 12, "0"},
                                           width_case{170, 1, 16, "23"}, width_case{183, 4, 16, "0"},
                                           width_case{165, 3, 16, "0"}));

TEST_F(AfterWalk, ListLeavesOutCoveredNvmeUntypedAndLocationTwo) {
    add_pci_function(0x10, 0, 0, 0x8086, 0x1572, 0x8086, 0x0001, 1, 2);  // covered by the AIM file
    add_pci_function(0x10, 0, 1, 0x8086, 0x1572, 0x8086, 0x0001, 1, 2);
    add_pci_function(0x20, 0, 0, 0x144D, 0xA80A, 0x144D, 0xA801, 2, 9);  // NVM Express
    exec("UPDATE PCIs SET ClsCode=67586 WHERE BusNo=32");
    add_pci_function(0x30, 0, 0, 0x1234, 0x0001, 0x1234, 0x0001, 3, 7);     // unknown type
    add_pci_function(0x40, 0, 0, 0x1234, 0x0002, 0x1234, 0x0002, 4, 2, 2);  // location 2
    add_pci_function(0x50, 0, 0, 0x1234, 0x0003, 0x1234, 0x0003, 5, 2);     // listed, two functions
    add_pci_function(0x50, 0, 1, 0x1234, 0x0003, 0x1234, 0x0003, 5, 2);
    add_pci_function(0x50, 1, 0, 0x1234, 0x0003, 0x1234, 0x0003, 5, 2);  // another device
    aim_parser::parser p;
    p.aim_supported_keys.insert(dev_key(0x10, 0));
    p.vnic_supported_keys.insert(dev_key(0x99, 0));
    std::vector<aim_parser::aim_pci_key_unit> list;
    ASSERT_EQ(2, p.get_pci_no_aim_supported_node_slot_list(db, list));
    ASSERT_EQ(2u, list.size());
    EXPECT_EQ(dev_key(0x50, 0), list[0].dev_key);
    EXPECT_EQ(0, list[0].function);
    EXPECT_EQ(0x1234, list[0].vendor_id);
    EXPECT_EQ(0x0003, list[0].subsystem_device_id);
    EXPECT_EQ(2u, list[0].function_type);
    EXPECT_EQ(5, list[0].slot);
    EXPECT_EQ(1, list[0].node_index);
    EXPECT_EQ(0, list[0].untyped_hardware);
    EXPECT_EQ(dev_key(0x50, 1), list[1].dev_key);
    EXPECT_TRUE(logged(host::log_level::info, "AIM-not-supported adapter, Key: " + num(dev_key(0x50, 1)) +
                                                  ", funcKey: " + num(fun_key(0x50, 1, 0))));

    // The vNIC set leaves devices out as well.
    p.vnic_supported_keys.insert(dev_key(0x50, 1));
    list.clear();
    EXPECT_EQ(1, p.get_pci_no_aim_supported_node_slot_list(db, list));
}

TEST_F(AfterWalk, AimCoveredDeviceIsNotHandledAgain) {
    load_gpu_machine();
    add_nvidia();
    ASSERT_EQ(
        0, run_xml(aim_doc(aim_config("gpu", "0x3B", "0", "0", aim_setting("Card Name", "A100 from AIM")))));
    EXPECT_EQ(0u, logged_prefix(host::log_level::info, "!!!!! slot"));
    EXPECT_EQ(0u, host::nvidia_gpu_calls("gpu3"));
    EXPECT_EQ("A100 from AIM", one("PCIAdapter", "CardName"));
    EXPECT_TRUE(logged(host::log_level::dbg,
                       "vqmdb_merge_aim_ucm_pfa: merged AIM and UCM PCI addresses (previous rc=0)"));
}

}  // namespace
