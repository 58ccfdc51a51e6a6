// The Redfish mapping of the inventory tables: exact properties from crafted rows, what is
// left out, Ids that stay unique, untrusted bytes, unknown URIs and unreadable databases.
// (The example machines as real clients see them: clients_test.py.)
#include <gtest/gtest.h>

#include <fstream>
#include <set>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "host/db.h"
#include "host/sysroot.h"
#include "redfish/cache.h"
#include "redfish/service.h"
#include "redfish/snapshot.h"
#include "tests/fixture.h"

namespace {

using redfish::json;

// A fresh inventory database with the schema; rows are added as SQL.
class RedfishMapping : public ::testing::Test {
protected:
    void SetUp() override {
        path = sys.dir() + "/inventory.db";
        db = host::db_open_file(path);
        ASSERT_NE(nullptr, db);
        ASSERT_EQ(0, host::db_apply_schema(db));
    }
    void TearDown() override {
        if (db) vqm_db_close(db);
    }
    void sql(const std::string& text) {
        std::string error;
        ASSERT_EQ(0, host::db_exec_script(db, text, &error)) << error;
    }
    // One PCI function of device bus:00 and its "PCIAdapter" row.
    void adapter(unsigned bus, unsigned function, const std::string& name, unsigned slot,
                 const std::string& extra_pcis = "") {
        unsigned dev_key = bus << 16, fun_key = dev_key | function;
        sql("INSERT INTO PCIs (SegNo,BusNo,DeviceNo,FunctionNo,NodeIndex,SlotNo,DevKey,FunKey,HardwareId,"
            "HardwareTypeId,Location,FunType,VendorId,DeviceId,SubVendorId,SubDeviceId,ClsCode,MaxPCIeType,"
            "MaxLanes,SlotDesignation) VALUES (0," +
            std::to_string(bus) + ",0," + std::to_string(function) + ",1," + std::to_string(slot) + "," +
            std::to_string(dev_key) + "," + std::to_string(fun_key) + "," + std::to_string(fun_key) +
            ",1,1,1,32902,5531,32902,3,131072,4,8,'Slot " + std::to_string(slot) + "'" + extra_pcis + ");");
        sql("INSERT INTO PCIAdapter "
            "(SegNo,BusNo,DeviceNo,FunctionNo,NodeNo,SlotNo,CardName,AIMSupported,OOBSrc,"
            "PCIKey,PCIFuncKey,Location) VALUES (0," +
            std::to_string(bus) + ",0," + std::to_string(function) + ",1," + std::to_string(slot) + ",'" +
            name + "',1,1," + std::to_string(dev_key) + "," + std::to_string(fun_key) + ",1);");
    }
    // The resource at `uri` of the database as it is now.
    redfish::response get(const std::string& uri) {
        redfish::snapshot s;
        std::string error;
        EXPECT_TRUE(s.read(path, error)) << error;
        return redfish::service(s).get(uri);
    }
    json body(const std::string& uri) {
        redfish::response r = get(uri);
        EXPECT_EQ(200, r.status) << uri << ": " << r.body.dump();
        return r.body;
    }

    // Runs `aimctl ARGS` (through the shell).
    testutil::aimctl_result aimctl(const std::string& args) { return testutil::run_aimctl(args, sys.dir()); }

    host::scoped_sysroot sys;
    std::string path;
    _vqm_db_handle_t* db = nullptr;
};

const std::string dev = "/redfish/v1/Chassis/chassis/PCIeDevices/0000_3B_00";
const std::string adapters = "/redfish/v1/Chassis/chassis/NetworkAdapters/0000_3B_00";

TEST_F(RedfishMapping, DeviceAndFunctionsFromTheirRows) {
    adapter(0x3b, 0, "Intel E810", 1);
    adapter(0x3b, 1, "Intel E810", 1);
    sql("INSERT INTO VPDs "
        "(SlotNo,UUID,ProductName,Manufacture,SerialNo,PartNo,Model,FRUNo,HardwareId,HardwareTypeId) "
        "VALUES "
        "(1,'GPU-6a1f0c3e-2b7d-4e51-9c0a-b49691a73c10','E810','Intel','SN1','N/A','','FRU9',3866624,3);"
        "INSERT INTO Firmwares (FirmwareName,VersionString,HardwareId) VALUES ('NVM','4.20',3866624);");
    json d = body(dev);
    EXPECT_EQ("#PCIeDevice.v1_9_0.PCIeDevice", d["@odata.type"]);
    EXPECT_EQ("Intel E810", d["Name"]);
    EXPECT_EQ("Intel", d["Manufacturer"]);
    EXPECT_EQ("SN1", d["SerialNumber"]);
    EXPECT_EQ("FRU9", d["SparePartNumber"]);
    EXPECT_EQ("6a1f0c3e-2b7d-4e51-9c0a-b49691a73c10", d["UUID"]) << "NVIDIA's GPU- prefix dropped";
    EXPECT_FALSE(d.contains("PartNumber")) << "N/A is left out";
    EXPECT_FALSE(d.contains("Model")) << "an empty text is left out";
    EXPECT_EQ("MultiFunction", d["DeviceType"]);
    EXPECT_EQ("4.20", d["FirmwareVersion"]);
    EXPECT_EQ(json({{"MaxPCIeType", "Gen4"}, {"MaxLanes", 8}}), d["PCIeInterface"]);
    EXPECT_EQ("Slot 1", d["Slot"]["Location"]["PartLocation"]["ServiceLabel"]);
    EXPECT_EQ("#AimInventory.v1_0_0.PCIeDevice", d["Oem"]["AIM"]["@odata.type"]);
    EXPECT_EQ(2u, d["Oem"]["AIM"]["PCIAdapter"].size()) << "every function's row, whole";

    json f = body(dev + "/PCIeFunctions/1");
    EXPECT_EQ(1, f["FunctionId"]);
    EXPECT_EQ("0x8086", f["VendorId"]);
    EXPECT_EQ("0x159B", f["DeviceId"]);
    EXPECT_EQ("0x0003", f["SubsystemId"]);
    EXPECT_EQ("0x020000", f["ClassCode"]);
    EXPECT_EQ("NetworkController", f["DeviceClass"]);
    EXPECT_EQ("0x0000", f["SegmentNumber"]);
    EXPECT_EQ("0x3B", f["BusNumber"]);
    EXPECT_EQ("0x00", f["DeviceNumber"]);
    EXPECT_EQ("0x1", f["FunctionNumber"]);
    EXPECT_EQ(dev, f["Links"]["PCIeDevice"]["@odata.id"]);
}

// What the tables hold as codes, and texts that are no value, each on a fresh database.
TEST_F(RedfishMapping, CodesAndTextsThatAreNoValue) {
    adapter(0x3b, 0, "NIC", 1, "");
    sql("UPDATE PCIs SET MaxPCIeType=9, MaxLanes=NULL;"
        "INSERT INTO PCIPhysicalPort "
        "(SegNo,BusNo,DeviceNo,FunctionNo,PCIKey,PCIFuncKey,Idx,PermanentAddress) VALUES "
        "(0,59,0,0,3866624,3866624,1,'b49691a73c10'), (0,59,0,0,3866624,3866624,2,'00-0A-F7-6B-2C-41'),"
        "(0,59,0,0,3866624,3866624,2,'not a mac'), (0,59,0,0,3866624,3866624,3,'000000000000');"
        "INSERT INTO PCIPhysicalPortStat (PCIFuncKey,Idx,LinkStatus,LinkSpeed) VALUES (3866624,1,1,25000),"
        "(3866624,2,2,0),(3866624,3,0,0);"
        "INSERT INTO PCILogicalPort "
        "(FunctionNo,PCIKey,PCIFuncKey,PhyIdx,Idx,PermanentAddress,NetworkAddresses,"
        "Ethernet,iSCSI) VALUES (0,3866624,3866624,1,1,'B4:96:91:A7:3C:10','N/A','0','1');");
    EXPECT_FALSE(body(dev).contains("PCIeInterface")) << "generation 9 and no lane count: nothing to say";

    json p1 = body(adapters + "/Ports/0_1");
    EXPECT_EQ("B4:96:91:A7:3C:10", p1["Ethernet"]["AssociatedMACAddresses"][0]);
    EXPECT_EQ("LinkUp", p1["LinkStatus"]);
    EXPECT_EQ(25.0, p1["CurrentSpeedGbps"]);
    json p2 = body(adapters + "/Ports/0_2");
    EXPECT_EQ("00:0A:F7:6B:2C:41", p2["Ethernet"]["AssociatedMACAddresses"][0]);
    EXPECT_EQ("LinkDown", p2["LinkStatus"]);
    EXPECT_FALSE(p2.contains("CurrentSpeedGbps")) << "0 Mbit/s is not reported yet";
    json p3 = body(adapters + "/Ports/0_2_2");
    EXPECT_FALSE(p3.contains("Ethernet")) << "a second row of one port gets its own Id; no MAC in it";
    json p4 = body(adapters + "/Ports/0_3");
    EXPECT_FALSE(p4.contains("LinkStatus")) << "0: not reported";
    EXPECT_EQ("00:00:00:00:00:00", p4["Ethernet"]["AssociatedMACAddresses"][0]);

    json f = body(adapters + "/NetworkDeviceFunctions/0_1_1");
    EXPECT_EQ("iSCSI", f["NetDevFuncType"]);
    EXPECT_EQ(json({{"PermanentMACAddress", "B4:96:91:A7:3C:10"}}), f["Ethernet"]);
    EXPECT_EQ(adapters + "/Ports/0_1", f["Links"]["PhysicalNetworkPortAssignment"]["@odata.id"]);
    EXPECT_EQ(4u, body(adapters + "/Ports")["Members@odata.count"]);
}

TEST_F(RedfishMapping, DrivesGpusAndFirmware) {
    adapter(0x5e, 0, "RAID", 3);
    sql("INSERT INTO AimDisks "
        "(FunctionNo,SlotNo,PCIKey,PCIFuncKey,DriveTypeId,BayNo,LocationId,Presence,MediaTypeId,"
        "SerialNo,Model,Manufacturer,FwVersion,Capacity,UUID,FruNo) VALUES "
        "(0,3,6160384,6160384,1,0,1,1,1,'S1','HUC1','WDC','C3J0','1800360124416','5000CCA0A1B2C3D5','02JG183'"
        "),"
        "(0,3,6160384,6160384,4,'M.2 Bay 1',4,0,NULL,'S2',NULL,NULL,NULL,'big',"
        "'36344330-4E60-3401-0025-38500000C3D4',NULL),"
        "(0,3,6160384,6160384,2,0,1,1,2,'S3',NULL,NULL,NULL,NULL,NULL,NULL);"
        "INSERT INTO PCIGPU (PCIKey,PCIFuncKey,VideoMemorySize) VALUES (6160384,6160384,'81920');"
        "INSERT INTO PCIGPUChip "
        "(PCIKey,PCIFuncKey,GPUChipName,GPUChipModel,GPUChipIndex,GPUChipMaxClockSpeed) "
        "VALUES (6160384,6160384,'GA100','A100',0,1410);"
        "INSERT INTO Firmwares (FirmwareName,VersionString,ReleaseDate,SoftwareID,HardwareId) VALUES "
        "('Pkg','1.0','08/30/2022','100010E2',6160384),('Pkg','2.0','14032023',NULL,6160384);"
        "INSERT INTO PldmDeviceFirmware (PCIKey,DeviceName,VersionString,ReleaseDate,UpdateSupport) VALUES "
        "(6160384,'RAID','1.0','2023-01-19',1);");
    const std::string storage = "/redfish/v1/Systems/system/Storage/0000_5E_00";
    const std::string drives = "/redfish/v1/Chassis/chassis/Drives";
    json s = body(storage);
    EXPECT_EQ(3, s["Drives@odata.count"]);
    EXPECT_EQ(drives + "/Bay_0", s["Drives"][0]["@odata.id"]);
    json d0 = body(drives + "/Bay_0");
    EXPECT_EQ("HDD", d0["MediaType"]);
    EXPECT_FALSE(d0.contains("Protocol")) << "an HDD's protocol is not in the row";
    EXPECT_EQ(1800360124416, d0["CapacityBytes"]);
    EXPECT_EQ("C3J0", d0["Revision"]);
    EXPECT_EQ("NAA", d0["Identifiers"][0]["DurableNameFormat"]);
    EXPECT_EQ("Enabled", d0["Status"]["State"]);
    EXPECT_EQ("0", d0["PhysicalLocation"]["PartLocation"]["ServiceLabel"]);
    json d1 = body(drives + "/M.2_Bay_1");
    EXPECT_EQ("SSD", d1["MediaType"]) << "an NVMe drive without a media type is an SSD";
    EXPECT_EQ("NVMe", d1["Protocol"]);
    EXPECT_EQ("Absent", d1["Status"]["State"]);
    EXPECT_FALSE(d1.contains("CapacityBytes")) << "'big' is no number";
    EXPECT_EQ("UUID", d1["Identifiers"][0]["DurableNameFormat"]);
    EXPECT_EQ("SSD", body(drives + "/Bay_0_2")["MediaType"]) << "a second bay 0 gets its own Id";

    json gpu = body("/redfish/v1/Systems/system/Processors/0000_5E_00_GPU0");
    EXPECT_EQ("GPU", gpu["ProcessorType"]);
    EXPECT_EQ("A100", gpu["Model"]);
    EXPECT_EQ(1410, gpu["MaxSpeedMHz"]);
    EXPECT_EQ("81920", gpu["Oem"]["AIM"]["PCIGPU"]["VideoMemorySize"]);
    EXPECT_EQ(dev.substr(0, dev.size() - 10) + "0000_5E_00", gpu["Links"]["PCIeDevice"]["@odata.id"]);

    json fw1 = body("/redfish/v1/UpdateService/FirmwareInventory/FW_1");
    EXPECT_EQ("2022-08-30T00:00:00Z", fw1["ReleaseDate"]);
    EXPECT_EQ("100010E2", fw1["SoftwareId"]);
    EXPECT_EQ(2, fw1["RelatedItem@odata.count"]) << "the adapter and its GPU";
    EXPECT_FALSE(body("/redfish/v1/UpdateService/FirmwareInventory/FW_2").contains("ReleaseDate"))
        << "a date of no known form is left out";
    json pldm = body("/redfish/v1/UpdateService/FirmwareInventory/PLDM_1");
    EXPECT_EQ("2023-01-19T00:00:00Z", pldm["ReleaseDate"]);
    EXPECT_EQ(true, pldm["Updateable"]);
    EXPECT_EQ("RAID (PLDM)", pldm["Name"]);
}

// Texts from the database are untrusted: any bytes come out as valid JSON.
TEST_F(RedfishMapping, AnyBytesComeOutAsValidJson) {
    adapter(0x3b, 0, "x", 1);
    sql("UPDATE PCIAdapter SET CardName = CAST(X'C328FF22275C0A003C2F7363726970743EF09F98' AS TEXT);");
    std::string text = redfish::to_text(body(dev));
    json parsed = json::parse(text);  // throws on invalid JSON
    std::string name = parsed["Name"];
    EXPECT_NE(std::string::npos, name.find("\xEF\xBF\xBD")) << "invalid UTF-8 became U+FFFD";
    EXPECT_NE(std::string::npos, name.find("</script>"));
}

TEST_F(RedfishMapping, UnknownUrisAndDatabasesThatCannotBeRead) {
    EXPECT_EQ(json({{"v1", "/redfish/v1/"}}), body("/redfish"));
    EXPECT_EQ(body("/redfish/v1"), body("/redfish/v1/"));
    for (const char* uri : {"/redfish/v2", "/redfish/v1/Systems/other", dev.c_str(), "/", "",
                            "/redfish/v1/Systems/system/PCIeDevices/0000_3B_00/PCIeFunctions/0"}) {
        redfish::response r = get(uri);
        EXPECT_EQ(404, r.status) << uri;
        EXPECT_EQ("Base.1.13.0.ResourceMissingAtURI", r.body["error"]["code"]);
        EXPECT_EQ(uri, r.body["error"]["@Message.ExtendedInfo"][0]["MessageArgs"][0]);
    }
    EXPECT_EQ(0, body("/redfish/v1/Systems/system")["PCIeDevices@odata.count"]) << "no adapter yet";

    redfish::snapshot s;
    std::string error;
    EXPECT_FALSE(s.read(sys.dir() + "/missing.db", error));
    EXPECT_FALSE(error.empty());
    EXPECT_FALSE(std::ifstream(sys.dir() + "/missing.db").good()) << "reading creates no database";
    std::string empty = sys.dir() + "/empty.db";
    std::ofstream(empty).close();
    ASSERT_TRUE(s.read(empty, error)) << "a database without the tables reads as empty: " << error;
    EXPECT_EQ(
        0,
        redfish::service(s).get("/redfish/v1/UpdateService/FirmwareInventory").body["Members@odata.count"]);
    std::ofstream(empty, std::ios::trunc) << "not a database at all, but long enough to have a header ...";
    EXPECT_FALSE(s.read(empty, error));
}

TEST_F(RedfishMapping, AimctlRedfishAndServeExitCodes) {
    adapter(0x3b, 0, "NIC", 1);
    vqm_db_close(db);
    db = nullptr;
    testutil::aimctl_result r = aimctl("redfish --db " + path);
    EXPECT_EQ(0, r.status);
    EXPECT_EQ("/redfish/v1", json::parse(r.out)["@odata.id"]);
    r = aimctl("redfish --db " + path + " " + dev);
    EXPECT_EQ(0, r.status);
    EXPECT_EQ("NIC", json::parse(r.out)["Name"]);
    r = aimctl("redfish --db " + path + " /redfish/v1/Nope");
    EXPECT_EQ(1, r.status);
    EXPECT_EQ("Base.1.13.0.ResourceMissingAtURI", json::parse(r.out)["error"]["code"]) << "the error object";
    EXPECT_EQ(1, aimctl("redfish --db " + sys.dir() + "/missing.db").status);
    for (const char* bad : {"redfish", "redfish --db", "redfish --db x --bogus", "redfish --db x a b",
                            "redfish --db x redfish/v1", "redfish --db x /redfish/v1 --mockup d", "serve",
                            "serve --db x --port 70000", "serve --db x --port abc", "serve --db x extra"}) {
        EXPECT_EQ(2, aimctl(bad).status) << bad;
    }
    EXPECT_EQ(1, aimctl("serve --db " + sys.dir() + "/missing.db --port 0").status);

    r = aimctl("redfish --db " + path + " --mockup " + sys.dir() + "/mockup");
    ASSERT_EQ(0, r.status);
    redfish::snapshot s;
    std::string error;
    ASSERT_TRUE(s.read(path, error));
    redfish::service svc(s);
    for (const std::string& uri : svc.uris()) {
        if (svc.get(uri).content_type) continue;  // the documents: $metadata and the OEM schema files
        std::ifstream in(sys.dir() + "/mockup" + uri + "/index.json");
        ASSERT_TRUE(in.good()) << uri;
        json written = json::parse(in);
        EXPECT_EQ(json::parse(redfish::render(svc.get(uri))->body), written)
            << uri << ": as the server sends it";
    }
}

}  // namespace

// ---- Mapping branches that the example machines do not reach ----------------------------------

namespace more {

using redfish::json;

// Every URI reachable from the service root by its links.
std::set<std::string> crawl(const redfish::service& svc) {
    std::set<std::string> seen;
    std::vector<std::string> pending = {"/redfish/v1"};
    while (!pending.empty()) {
        std::string uri = pending.back();
        pending.pop_back();
        if (!seen.insert(uri).second) continue;
        redfish::response r = svc.get(uri);
        if (r.status != 200 || r.content_type) continue;
        std::vector<const json*> stack = {&r.body};
        std::vector<std::string> found;
        while (!stack.empty()) {
            const json* j = stack.back();
            stack.pop_back();
            if (j->is_object()) {
                for (auto it = j->begin(); it != j->end(); ++it) {
                    if (it.key() == "@odata.id" && it->is_string()) found.push_back(*it);
                    stack.push_back(&*it);
                }
            } else if (j->is_array()) {
                for (const auto& v : *j) stack.push_back(&v);
            }
        }
        for (auto& f : found) pending.push_back(f);
    }
    return seen;
}

}  // namespace more

TEST_F(RedfishMapping, BranchesTheExamplesDoNotReach) {
    // An adapter whose functions are gone ("PCIAdapter" without "PCIs").
    sql("INSERT INTO PCIAdapter (SegNo,BusNo,DeviceNo,FunctionNo,SlotNo,CardName,PCIKey,PCIFuncKey) "
        "VALUES (0,0x41,0,0,7,'Gone',4259840,4259840);");
    json gone = body("/redfish/v1/Chassis/chassis/PCIeDevices/0000_41_00");
    EXPECT_EQ("Absent", gone["Status"]["State"]);
    EXPECT_FALSE(gone.contains("PCIeFunctions"));
    EXPECT_FALSE(gone.contains("DeviceType"));
    EXPECT_EQ(404, get("/redfish/v1/Chassis/chassis/PCIeDevices/0000_41_00/PCIeFunctions").status);

    // Drives of a controller that no adapter row names: storage of the slot alone.
    sql("INSERT INTO AimDisks (SlotNo,PCIKey,PCIFuncKey,BayNo,SerialNo) VALUES (9,1,1,'3','SX');");
    json st = body("/redfish/v1/Systems/system/Storage/Slot9");
    EXPECT_EQ("Storage Slot9", st["Name"]);
    EXPECT_FALSE(st.contains("Links")) << "no enclosure known";
    json dr = body("/redfish/v1/Chassis/chassis/Drives/Bay_3");
    EXPECT_EQ(json({{"Chassis", {{"@odata.id", "/redfish/v1/Chassis/chassis"}}}}), dr["Links"])
        << "no function to link";
    EXPECT_EQ("SX", dr["Oem"]["AIM"]["AimDisks"]["SerialNo"]);

    // PCIe generations 1 to 6, and what lies outside them.
    adapter(0x3b, 0, "NIC", 1);
    for (int gen = 0; gen <= 7; ++gen) {
        sql("UPDATE PCIs SET MaxPCIeType=" + std::to_string(gen) + " WHERE BusNo=59;");
        json d = body(dev);
        if (gen >= 1 && gen <= 6)
            EXPECT_EQ("Gen" + std::to_string(gen), d["PCIeInterface"]["MaxPCIeType"]) << gen;
        else
            EXPECT_FALSE(d["PCIeInterface"].contains("MaxPCIeType")) << gen;
    }

    // Device classes by the base class of the class code.
    const std::pair<int, const char*> classes[] = {
        {0x010802, "MassStorageController"},  {0x030000, "DisplayController"},
        {0x040300, "MultimediaController"},   {0x0C0330, "SerialBusController"},
        {0x120000, "ProcessingAccelerators"}, {0xFF0000, nullptr}};
    for (const auto& c : classes) {
        sql("UPDATE PCIs SET ClsCode=" + std::to_string(c.first) + " WHERE BusNo=59;");
        json f = body(dev + "/PCIeFunctions/0");
        if (c.second)
            EXPECT_EQ(c.second, f["DeviceClass"]) << c.first;
        else
            EXPECT_FALSE(f.contains("DeviceClass")) << c.first;
    }

    // A network adapter's own properties, from its VPD, firmware and network rows.
    sql("INSERT INTO VPDs (SlotNo,Manufacture,Model,PartNo,SerialNo,HardwareId) VALUES "
        "(1,'Intel','E810','K1','SN7',3866624);"
        "INSERT INTO Firmwares (FirmwareName,VersionString,HardwareId) VALUES ('NVM','4.2',3866624);"
        "INSERT INTO PCINetwork (PCIKey,PCIFuncKey,NumberofPhysicalPorts) VALUES (3866624,3866624,2);");
    json na = body(adapters);
    EXPECT_EQ("#NetworkAdapter.v1_5_0.NetworkAdapter", na["@odata.type"]);
    for (const char* k : {"Manufacturer", "Model", "PartNumber", "SerialNumber"})
        EXPECT_TRUE(na.contains(k)) << k;
    EXPECT_EQ("SN7", na["SerialNumber"]);
    EXPECT_EQ("4.2", na["Controllers"][0]["FirmwarePackageVersion"]);
    EXPECT_EQ(2, na["Controllers"][0]["ControllerCapabilities"]["NetworkPortCount"]);
    EXPECT_EQ(dev, na["Controllers"][0]["Links"]["PCIeDevices"][0]["@odata.id"]);
    EXPECT_EQ(1u, na["Oem"]["AIM"]["PCINetwork"].size());

    // A GPU's serial, UUID and maker: from its chip row, else from the adapter's VPD.
    sql("INSERT INTO PCIGPU (PCIKey,PCIFuncKey) VALUES (3866624,3866624);");
    json p = body("/redfish/v1/Systems/system/Processors/0000_3B_00_GPU");
    EXPECT_EQ("SN7", p["SerialNumber"]);
    EXPECT_EQ("Intel", p["Manufacturer"]);
    sql("INSERT INTO PCIGPUChip (PCIKey,PCIFuncKey,GPUChipIndex,GPUChipSerialNumber,GPUChipManufacturer,"
        "GPUChipUniqueID) VALUES "
        "(3866624,3866624,0,'CHIP1','NVIDIA','GPU-6a1f0c3e-2b7d-4e51-9c0a-b49691a73c10'),"
        "(3866624,3866624,1,'CHIP2','NVIDIA',NULL);");
    json c0 = body("/redfish/v1/Systems/system/Processors/0000_3B_00_GPU0");
    EXPECT_EQ("CHIP1", c0["SerialNumber"]);
    EXPECT_EQ("NVIDIA", c0["Manufacturer"]);
    EXPECT_EQ("6a1f0c3e-2b7d-4e51-9c0a-b49691a73c10", c0["UUID"]);
    EXPECT_EQ("CHIP2", body("/redfish/v1/Systems/system/Processors/0000_3B_00_GPU1")["SerialNumber"]);
    EXPECT_EQ(404, get("/redfish/v1/Systems/system/Processors/0000_3B_00_GPU").status)
        << "chips replace the row";

    // Two adapters at one address (two device keys): two devices with unique Ids.
    sql("INSERT INTO PCIs (SegNo,BusNo,DeviceNo,FunctionNo,SlotNo,DevKey,FunKey) VALUES (0,59,0,0,2,999,999);"
        "INSERT INTO PCIAdapter (SegNo,BusNo,DeviceNo,FunctionNo,SlotNo,CardName,PCIKey,PCIFuncKey) "
        "VALUES (0,59,0,0,2,'Twin',999,999);");
    EXPECT_EQ("Twin", body(dev + "_2")["Name"]);

    // Every URI the service lists is reached from the root, and every link leads to one.
    redfish::snapshot s;
    std::string error;
    ASSERT_TRUE(s.read(path, error));
    redfish::service svc(s);
    // (The documents, "/redfish" and the OData service document are found by their fixed
    // URIs, not by links.)
    std::set<std::string> resources;
    for (const std::string& uri : svc.uris()) {
        if (!svc.get(uri).content_type && uri != "/redfish" && uri != "/redfish/v1/odata")
            resources.insert(uri);
    }
    EXPECT_EQ(resources, more::crawl(svc));
}

// $metadata names the namespace and version of every @odata.type the service sends, Oem.AIM's
// included; the OEM schema types every column of the rows it carries.
TEST_F(RedfishMapping, MetadataReferencesWhatTheServiceSends) {
    adapter(0x3b, 0, "NIC", 1);
    sql("INSERT INTO AimDisks (SlotNo,PCIKey,PCIFuncKey,BayNo) VALUES (1,3866624,3866624,'M.2 Bay 1');"
        "INSERT INTO PCIPhysicalPort (FunctionNo,PCIKey,PCIFuncKey,Idx) VALUES (0,3866624,3866624,1);");
    redfish::response meta = get("/redfish/v1/$metadata");
    ASSERT_STREQ("application/xml", meta.content_type);
    std::string csdl = get("/redfish/v1/schemas/AimInventory_v1.xml").text;
    redfish::snapshot s;
    std::string error;
    ASSERT_TRUE(s.read(path, error));
    redfish::service svc(s);
    std::set<std::string> types;
    for (const std::string& uri : svc.uris()) {
        redfish::response r = svc.get(uri);
        if (r.content_type) continue;
        types.insert(r.body.value("@odata.type", ""));
        if (r.body.contains("Oem")) {
            types.insert(r.body["Oem"]["AIM"].value("@odata.type", ""));
            for (auto& kv : r.body["Oem"]["AIM"].items()) {
                for (const json& row : kv.value().is_array() ? kv.value() : json::array({kv.value()})) {
                    if (!row.is_object()) continue;
                    for (auto& col : row.items())
                        EXPECT_NE(std::string::npos, csdl.find("<Property Name=\"" + col.key() + "\""))
                            << kv.key() << "." << col.key() << " is not in the OEM schema";
                }
            }
        }
    }
    EXPECT_GT(types.size(), 20u);
    types.erase("");  // "/redfish" and the OData service document
    for (const std::string& t : types) {
        ASSERT_EQ('#', t[0]) << t;
        std::string ns = t.substr(1, t.find('.') - 1), versioned = t.substr(1, t.rfind('.') - 1);
        EXPECT_NE(std::string::npos, meta.text.find("<edmx:Include Namespace=\"" + ns + "\"/>")) << t;
        EXPECT_NE(std::string::npos, meta.text.find("<edmx:Include Namespace=\"" + versioned + "\"/>")) << t;
    }
    EXPECT_NE(std::string::npos, meta.text.find("Uri=\"/redfish/v1/schemas/AimInventory_v1.xml\""));
    EXPECT_NE(std::string::npos,
              meta.text.find("<EntityContainer Name=\"Service\" Extends=\"ServiceRoot.v1_1_0"));
    json odata = body("/redfish/v1/odata");
    EXPECT_EQ("/redfish/v1/$metadata", odata["@odata.context"]);
    EXPECT_EQ("/redfish/v1/", odata["value"][0]["url"]);
    EXPECT_NE(std::string::npos, csdl.find("<Property Name=\"BayNo\" Type=\"Edm.PrimitiveType\">"));
    EXPECT_NE(std::string::npos, csdl.find("<Property Name=\"SegNo\" Type=\"Edm.Int64\">"));
}
