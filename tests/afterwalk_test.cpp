// Adapters after the walk: which functions are handled, the routing of NVIDIA, AMD and
// other functions, the GPU rows, stale GPU rows and the merge (end to end through
// parse_aim on simulated machines).
#include <string>

#include "host/sim.h"
#include "ingest/parser.h"
#include "tests/afterwalk_support.h"

using awtest::num;

namespace {

class AfterWalk : public awtest::AfterWalkTest {
protected:
    // An NVIDIA display function at bus 0x3B (location 1: a GPU).
    void add_nvidia(unsigned function = 0, unsigned device_id = 0x20B5) {
        add_pci_function(0x3B, 0, function, 0x10DE, device_id, 0x10DE, 0x1533, 3, 4, 1);
    }
    // The machine: "gpu3", named by slot 3's file, answers the device query.
    void load_gpu_machine() {
        load_machine_json(std::string("{\"nvidia_gpus\": {\"gpu3\": {") + awtest::a100 + "}}}");
        write_sysroot_file("/tmp/.slot3_cioname", "gpu3\n");
    }
    // The rows of GPU function `f` of the device at bus 0x3B in slot 3.
    void expect_gpu_rows(unsigned f, const std::string& name) {
        std::string w = "PCIFuncKey=" + num(0x3B0000 + f), i = num(f + 1);
        std::string keys = "BusNo=59;FunctionNo=" + num(f) + ";NodeNo=1;SlotNo=3;PCIKey=3866624;";
        expect_row("PCIMisc", w,
                   keys + "MaxDataWidth=16;PackageType=9;OtherPackageType=N/A;AIMSpecVersion=2.00");
        expect_row("PCINetwork", w, keys + "NumberofPhysicalPorts=1;MaxNumberofLogicalPorts=1");
        expect_row("PCIPhysicalPort", w, keys + "Idx=" + i + ";NumberofLogicalPorts=1;PermanentAddress=N/A");
        expect_row("PCIPhysicalPortStat", w, "Idx=" + i + ";LinkStatus=1;LinkSpeed=0;TxUtil=0;RxUtil=0");
        expect_row("PCILogicalPort", w,
                   keys + "MaxDataSize=12000;NetworkAddresses=000000000000;PhyIdx=" + i +
                       ";Idx=1;LinkTechnology=2;vNICMode=0;MaxSpeed=1;ProtocolType=6;Ethernet=1;iSCSI=0");
        expect_row("PCIAdapter", w,
                   keys + "CardName=" + name + ";ConnectorType=23;AIMSupported=0;OOBSrc=8;Location=1");
    }
};

TEST_F(AfterWalk, NvidiaGpuFromTheDeviceQueryThenFromTheStoredCopy) {
    load_gpu_machine();
    add_nvidia();
    ASSERT_EQ(0, run_empty());
    expect_row("VPDs", "",
               "Manufacture=NVIDIA;ProductName=NVIDIA A100 80GB PCIe;SerialNo=1650123456789012;"
               "PartNo=900-21001-0020-1;HardwareId=3866624;HardwareTypeId=3;SlotNo=3;Location=1;"
               "Model=NVIDIA A100 80GB PCIe;PCIKey=;UUID='';FRUNo=''");
    expect_row(
        "Firmwares", "",
        "FirmwareName=Software Bundle;VersionString=92.00.36.00.01;Description=Firmware package "
        "containing controller firmware, UEFI Driver, and other sub components.;ReleaseDate=01/15/2023;"
        "Manufacture=NVIDIA;Classification=13;SoftwareID=10DE20B5;HardwareId=3866624");
    expect_log(
        {"INFO !!!!! slot 3, func_type 4 - NVidia GPU, found_gpu_info 0, ubb_gpu 0, is_kelpie 0",
         "INFO AIM PARSER: [No AIM Support] Slot 3, [10DE 20B5 10DE 1533], NVIDIA A100 80GB PCIe, Is_gpu = 1",
         "WARN AIM PARSER: !!!!!did not find GPU info fill with gpu_inf data, manuf: NVIDIA"});

    // The device no longer answers: the stored copy fills every field the query left empty.
    unlink(sysroot_file("/tmp/.slot3_cioname").c_str());
    ASSERT_EQ(0, run_empty());
    expect_log({"INFO !!!!! slot 3, func_type 4 - NVidia GPU, found_gpu_info 1, ubb_gpu 0, is_kelpie 0"});
    EXPECT_EQ(1u,
              logged_count("AIM PARSER: !!!!!did not find GPU info fill with gpu_inf data, manuf: NVIDIA"));
    expect_row("VPDs", "",
               "ProductName=NVIDIA A100 80GB PCIe;SerialNo=1650123456789012;Model=NVIDIA A100 80GB PCIe");
    expect_row("Firmwares", "", "VersionString=92.00.36.00.01;ReleaseDate=01/15/2023");

    // A fresh answer replaces the stored values.
    load_machine_json(R"({"nvidia_gpus": {"gpu3": {"serial": "NEWSERIAL", "marketing_name": "A100",
        "firmware_version": "92.00.99.00.01"}}})");
    write_sysroot_file("/tmp/.slot3_cioname", "gpu3");
    ASSERT_EQ(0, run_empty());
    expect_row("VPDs", "", "SerialNo=NEWSERIAL;ProductName=A100");
    expect_row("Firmwares", "", "VersionString=92.00.99.00.01;ReleaseDate=00/00/0000");

    host::db_fail_writes(db, "VPDs", "update");
    host::db_fail_writes(db, "Firmwares", "update");
    ASSERT_EQ(0, run_empty());
    expect_log(
        {"WARN AIM PARSER: failed to update AIM-not-supported VPD Information where HardwareId = 3866624, "
         "rc=10",
         "WARN AIM PARSER: failed to update AIM-not-supported Firmware Information, rc=10"});
}

TEST_F(AfterWalk, FunctionZeroCoversEveryFunctionKeyOfTheDeviceAndStaleRowsGo) {
    load_gpu_machine();
    add_nvidia(0, 0x20B5);
    add_nvidia(1, 0x20B6);  // another device id: a list row of its own, skipped
    // An NVIDIA function that is no GPU without AIM data (location 2): its rows of an
    // earlier run survive the wipe but not the removal after the walk.
    add_pci_function(0x5E, 0, 0, 0x10DE, 0x2236, 0x10DE, 0x1482, 6, 4, 2);
    exec(
        "INSERT INTO VPDs (Manufacture, HardwareId, HardwareTypeId) VALUES ('NVIDIA', 6160384, 3);"
        "INSERT INTO Firmwares (Manufacture, HardwareId, HardwareTypeId) VALUES ('NVIDIA', 6160384, 3);");
    ASSERT_EQ(0, run_empty());
    expect_log({"INFO !!!!! slot 3, func_type 4, function 1, is_gpu 1"});
    EXPECT_EQ(1u, logged_count("!!!!! slot 3, func_type 4"));
    EXPECT_EQ(23u, host::nvidia_gpu_calls("gpu3"));  // the device was asked once
    EXPECT_EQ(2u, count("VPDs", "SerialNo='1650123456789012' AND HardwareId IN (3866624, 3866625)"));
    EXPECT_EQ(2u, count("Firmwares", "SoftwareID='10DE20B5' AND HardwareId IN (3866624, 3866625)"));
    for (unsigned f = 0; f < 2; ++f) expect_gpu_rows(f, "NVIDIA A100 80GB PCIe");
    EXPECT_EQ(0u, count("VPDs", "HardwareId=6160384") + count("Firmwares", "HardwareId=6160384"));
    EXPECT_EQ(0u, count("PCIAdapter", "BusNo=94"));
}

TEST_F(AfterWalk, AmdGpuThroughTheFruToolOrTheProperties) {
    add_pci_function(0x3B, 0, 0, 0x1002, 0x740F, 0x1002, 0x74A1, 4, 16, 1);
    // Labels set their fields with the line end, a later line overwrites, and a label inside
    // a value counts for nothing.
    install_fru_tool(
        "echo ' Product Manufacturer: X'\necho ' product serial number: PCB-0042'\necho ' FRU ID: 3'\n"
        "echo ' product name: A product serial number: B'\necho \" product name: MI300X $1\"\n");
    ASSERT_EQ(0, run_empty());
    expect_log({"INFO !!!!! slot 4, func_type 16 - AMD GPU, found_gpu_info 0, ubb_gpu 1",
                "INFO cio_integer_open failure: no such cio object"});
    expect_row(
        "VPDs", "",
        "Manufacture=AMD;ProductName=MI300X pci4_amd_gpu_temp\n;SerialNo=PCB-0042\n;FRUNo=3\n;PartNo=N/A;"
        "UUID=N/A");
    expect_row("Firmwares", "", "SoftwareID=100274A1");  // a UBB GPU: subsystem ids
    expect_row(
        "PldmDeviceFirmware", "",
        "DeviceType=16;PCIKey=3866624;PCIFuncKey=3866624;Location=1;SlotNo=4;VendorId=4098;DeviceId=29711;"
        "SubVendorId=4098;SubDeviceId=29857;DeviceName=MI300X pci4_amd_gpu_temp\n;Manufacture=AMD;"
        "SoftwareID=100274A1;VersionString=N/A;ReleaseDate=N/A;UpdateSupport=1;UpdateMethod=1");

    load_machine_json(R"({"cio_integers": {"GPU_PROP_V2_EXIST": 1}, "ipmi_properties": {
        "/ac/hxsd/dm/planar/0/gpu_pci_slot/4/model": "MI300X OAM",
        "/ac/hxsd/dm/planar/0/gpu_pci_slot/4/mfgr": "Advanced Micro Devices",
        "/ac/hxsd/dm/planar/0/gpu_pci_slot/4/fw_version": "113-M3000100-102"}})");
    ASSERT_EQ(0, run_empty());
    expect_row("VPDs", "", "ProductName=MI300X OAM;Manufacture=Advanced Micro Devices");
    expect_row("PldmDeviceFirmware", "", "VersionString=113-M3000100-102");

    unlink(sysroot_file("/bin/fru-tool").c_str());
    load_machine_json("{}");
    ASSERT_EQ(0, run_empty());
    expect_log({"INFO gpu_dev_info::read_amd_gpu_data '/bin/fru-tool pci4_amd_gpu_temp' failed",
                "INFO get_amd_gpu_info failed"});
}

TEST_F(AfterWalk, RoutingByVendorLocationAndType) {
    add_nvidia();  // a GPU whose name nobody gives: named by its address
    // AMD away from the GPU location and a network function: known-card handling.
    add_pci_function(0x40, 0, 0, 0x1002, 0x740F, 0x1002, 0x74A1, 4, 16, 0);
    add_pci_function(0x5E, 0, 0, 0x8086, 0x1592, 0x8086, 0x0002, 5, 2, 0);
    // An accelerator of vendor 0x17CB at the GPU location: a GPU adapter of no known maker.
    add_pci_function(0x86, 0, 0, 0x17CB, 0x0110, 0x17CB, 0x0111, 6, 16, 1);
    // An NVIDIA function of another type: not a GPU.
    add_pci_function(0xAF, 0, 0, 0x10DE, 0x22BC, 0x10DE, 0x1533, 7, 3, 1);
    ASSERT_EQ(0, run_empty());
    expect_log({"INFO !!!!! slot 4, func_type 16, function 0, is_gpu 0",
                "INFO !!!!! slot 6, func_type 16, function 0, is_gpu 1",
                "INFO !!!!! slot 7, func_type 3, function 0, is_gpu 0"});
    EXPECT_EQ(2u, count("VPDs"));  // the GPUs only
    expect_row("VPDs", "SlotNo=3", "ProductName=Adapter 00:3B:00.00;Model='';Manufacture=NVIDIA");
    expect_row("VPDs", "SlotNo=6", "ProductName=Adapter 00:86:00.00;Manufacture=''");
    expect_row("Firmwares", "HardwareId=0x3B0000", "SoftwareID=10DE20B5");  // ids from the function's key
    expect_row("Firmwares", "HardwareId=0x860000", "SoftwareID=17CB0110");
    expect_gpu_rows(0, "Adapter 00:3B:00.00");
    expect_row("PCIAdapter", "SlotNo=4", "CardName=Adapter 00:40:00.00;OOBSrc=0");
    expect_row("PCIAdapter", "SlotNo=5", "CardName=Adapter 00:5E:00.00");
    expect_row("PCIAdapter", "SlotNo=6", "CardName=Adapter 00:86:00.00;OOBSrc=8");
    expect_row("PCIAdapter", "SlotNo=7", "CardName=Adapter 00:AF:00.00");
}

TEST_F(AfterWalk, UbbGpusGetOnePldmRowPerAdapterAndSecondFamilyItsSubsystemIds) {
    load_machine_json(
        R"({"platform": "dogwood", "cio_integers": {"GPU_PROP_V2_EXIST": 1}, "ipmi_properties": {
        "/ac/hxsd/dm/planar/0/gpu_pci_slot/3/model": "NVIDIA H100 80GB HBM3",
        "/ac/hxsd/dm/planar/0/gpu_pci_slot/3/fw_version": "96.00.74.00.1C",
        "/ac/hxsd/dm/planar/0/gpu_pci_slot/3/build_date": "2023-03-14"}})");
    add_pci_function(0x3B, 0, 0, 0x10DE, 0x2330, 0x10DE, 0x16C1, 3, 4, 1);
    add_pci_function(0x3B, 0, 1, 0x10DE, 0x2330, 0x10DE, 0x16C1, 3, 4, 1);
    ASSERT_EQ(0, run_empty());
    expect_log({"INFO !!!!! slot 3, func_type 4 - NVidia GPU, found_gpu_info 0, ubb_gpu 1, is_kelpie 0"});
    EXPECT_EQ(2u, count("Firmwares", "SoftwareID='10DE16C1'"));
    expect_row("PldmDeviceFirmware", "",
               "DeviceType=4;PCIFuncKey=3866624;DeviceName=NVIDIA H100 80GB HBM3;Manufacture=N/A;"
               "SoftwareID=10DE16C1;VersionString=96.00.74.00.1C;ReleaseDate=2023-03-14");
    for (const char* op : {"insert", "update"})
        EXPECT_EQ(0u, logged_prefix(host::log_level::warn, std::string("AIM PARSER: failed to ") + op))
            << log_text();
    host::db_fail_writes(db, "PldmDeviceFirmware", "insert");
    ASSERT_EQ(0, run_empty());
    expect_log({"WARN AIM PARSER: failed to insert UBB PLDM Adapter Information in slot 3, rc=10"});
    host::db_fail_writes(db, "");
    host::db_fail_writes(db, "PldmDeviceFirmware", "update");
    ASSERT_EQ(0, run_empty());
    expect_log({"WARN AIM PARSER: failed to update UBB PLDM Adapter Information in slot 3, rc=10"});
    host::db_fail_writes(db, "");

    exec("DELETE FROM PCIs; DELETE FROM VPDs; DELETE FROM Firmwares;");
    load_machine_json(R"({"platform": "ginkgo"})");
    add_pci_function(0x3B, 0, 0, 0x10DE, 0x2335, 0x10DE, 0x2330, 3, 4, 1);
    ASSERT_EQ(0, run_empty());
    expect_log({"INFO !!!!! slot 3, func_type 4 - NVidia GPU, found_gpu_info 0, ubb_gpu 0, is_kelpie 1"});
    expect_row("Firmwares", "", "SoftwareID=10DE2330");
    EXPECT_EQ(0u, count("PldmDeviceFirmware"));
}

TEST_F(AfterWalk, ConnectorOfAKnownCardIsTheSlotsWidthCode) {
    // Slot type, PCIe generation and lanes as stored, and the width code written.
    const char* cases[][2] = {{"184, 1, 1", "19"}, {"184, 2, 2", "20"},  {"184, 4, 4", "21"},
                              {"184, 3, 8", "22"}, {"170, 1, 16", "23"}, {"184, 3, 12", "0"},
                              {"165, 3, 16", "0"}};
    add_pci_function(0x3B, 0, 0, 0x8086, 0x0D5C, 0x8086, 0x0000, 3, 12);
    for (const auto& c : cases) {
        exec(std::string("UPDATE PCIs SET (SlotType, MaxPCIeType, MaxLanes) = (") + c[0] + ")");
        ASSERT_EQ(0, run_empty());
        expect_row("PCIAdapter", "",
                   std::string("CardName=Intel ACC100 Accelerating NFV PCIe Gen3;ConnectorType=") + c[1]);
    }
}

TEST_F(AfterWalk, OnlyUncoveredTypedFunctionsAreHandled) {
    load_gpu_machine();
    add_nvidia();                                                        // covered by the AIM file
    add_pci_function(0x20, 0, 0, 0x144D, 0xA80A, 0x144D, 0xA801, 2, 9);  // NVM Express
    exec("UPDATE PCIs SET ClsCode=67586 WHERE BusNo=32");
    add_pci_function(0x30, 0, 0, 0x1234, 0x0001, 0x1234, 0x0001, 4, 7);     // unknown type
    add_pci_function(0x40, 0, 0, 0x1234, 0x0002, 0x1234, 0x0002, 4, 2, 2);  // location 2
    add_pci_function(0x50, 0, 0, 0x1234, 0x0003, 0x1234, 0x0003, 5, 2);     // two devices, one of
    add_pci_function(0x50, 0, 1, 0x1234, 0x0003, 0x1234, 0x0003, 5, 2);     // them with two functions
    add_pci_function(0x50, 1, 0, 0x1234, 0x0003, 0x1234, 0x0003, 5, 2);
    ASSERT_EQ(0, run_xml(testutil::aim_doc(testutil::aim_config(
                     "gpu", "0x3B", "0", "0", testutil::aim_setting("Card Name", "A100")))));
    EXPECT_EQ(0u, host::nvidia_gpu_calls("gpu3"));
    expect_row("PCIAdapter", "BusNo=59", "CardName=A100");
    EXPECT_EQ(0u, count("PCIAdapter", "BusNo IN (32, 48, 64)"));
    // The list holds one entry per device of bus 0x50: one catch-all adapter each.
    expect_row("PCIAdapter", "BusNo=80 AND DeviceNo=0", "CardName=Adapter 00:50:00.00");
    expect_row("PCIAdapter", "BusNo=80 AND DeviceNo=1", "CardName=Adapter 00:50:01.00");
    expect_log({"INFO AIM-not-supported adapter, Key: 5243136, funcKey: 5243136",
                "DBG vqmdb_merge_aim_ucm_pfa: merged AIM and UCM PCI addresses (previous rc=0)"});
}

// The condition leaves out each covered device with its own "DevKey <> k" term. With more
// covered devices than SQLite nests terms (1000) the query still runs, and the list holds
// exactly the uncovered devices, in DevKey order; a row without DevKey stays out.
TEST_F(AfterWalk, UncoveredListWithManyCoveredDevices) {
    const unsigned devices = 1500;
    std::vector<std::string> expected;
    aim_parser::parser p;
    for (unsigned d = 0; d < devices; ++d) {
        const unsigned bus = 1 + d / 32, dev = d % 32;
        add_pci_function(bus, dev, 0, 0x8086, 0x1572, 0x8086, 1, 2, 2);
        if (d % 7 == 0)
            expected.push_back(num(awtest::fun_key(bus, dev)));
        else
            (d % 2 ? p.vnic_supported_keys : p.aim_supported_keys).insert(awtest::fun_key(bus, dev));
    }
    add_pci({{"SegNo", "0"},
             {"BusNo", "99"},
             {"DeviceNo", "0"},
             {"FunctionNo", "0"},
             {"FunType", "2"},
             {"Location", "0"},
             {"ClsCode", "0"}});
    std::vector<aim_parser::aim_pci_key_unit> list;
    EXPECT_EQ(static_cast<int>(expected.size()), p.get_pci_no_aim_supported_node_slot_list(db, list));
    std::vector<std::string> got;
    for (const aim_parser::aim_pci_key_unit& key : list) got.push_back(num(key.dev_key));
    EXPECT_EQ(expected, got);
}

}  // namespace
