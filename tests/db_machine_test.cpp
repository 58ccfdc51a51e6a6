// Machine sections of the simulated storage: "pcis", "storage" and "properties", and the
// example machine.
#include <stdint.h>
#include <stdlib.h>

#include <filesystem>
#include <regex>
#include <set>
#include <string>

#include "host/machine.h"
#include "host/storage.h"
#include "platform/storage.h"
#include "tests/fixture.h"

namespace {

using testutil::IngestTest;

class MachineStorage : public IngestTest {};

TEST_F(MachineStorage, BadSectionsAreMachineErrorsNamingKeyAndReason) {
    struct {
        const char* json;
        const char* message;  // expected at the end of the error text
    } cases[] = {
        {R"({"pcis": {}})", "\"pcis\": must be a list of PCI functions"},
        {R"({"pcis": [5]})", "\"pcis\": function 0 must be an object of \"PCIs\" columns"},
        {R"({"pcis": [{"BusNo": 1}, {"Bogus": 1}]})",
         "\"pcis\": function 1: \"Bogus\" is not a column of \"PCIs\""},
        {R"({"pcis": [{"_id": 1}]})", "\"pcis\": function 0: \"_id\" is not a column of \"PCIs\""},
        {R"({"pcis": [{"BusNo": true}]})", "\"pcis\": function 0: \"BusNo\" must be a number"},
        {R"({"pcis": [{"BusNo": -1}]})", "\"pcis\": function 0: \"BusNo\" must not be negative"},
        {R"({"pcis": [{"VendorId": "0xZZ"}]})",
         "\"pcis\": function 0: \"VendorId\" is not a number: \"0xZZ\""},
        {R"({"pcis": [{"FunKey": 4294967296}]})",
         "\"pcis\": function 0: \"FunKey\" is out of range (0 to 4294967295)"},
        {R"({"pcis": [{"SlotDesignation": [1]}]})",
         "\"pcis\": function 0: \"SlotDesignation\" must be a text"},
        {R"({"storage": []})", "\"storage\": must be an object with \"controller_types\""},
        {R"({"storage": {"types": [1]}})", "\"storage\": unknown key \"types\""},
        {R"({"storage": {"controller_types": [1, 2, 3]}})",
         "\"storage\": \"controller_types\" must be a list of at most two controller types (number or null)"},
        {R"({"storage": {"controller_types": [256]}})",
         "\"storage\": controller type 0 is out of range (0 to 255)"},
        {R"({"properties": ["a"]})", "\"properties\": must be an object from property name to value"},
        {R"({"properties": {"a": 1.5}})", "\"properties\": property \"a\" must be a text or a whole number"},
        {R"({"disks": []})", "unknown key \"disks\""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.json);
        try {
            load_machine_json(c.json);
            ADD_FAILURE() << "no error";
        } catch (const host::machine_error& e) {
            std::string what = e.what();
            std::string expected = c.message;
            EXPECT_EQ(expected,
                      what.substr(what.size() >= expected.size() ? what.size() - expected.size() : 0))
                << what;
        }
    }
}

TEST_F(MachineStorage, PciFunctionsReplaceTheRowsOfPCIs) {
    add_pci_function(1, 0, 0);
    load_machine_json(R"({"pcis": [
        {"SegNo": 0, "BusNo": "0x3b", "DeviceNo": 0, "FunctionNo": 1, "FunKey": "0x003B0001",
         "VendorId": "0x8086", "SlotDesignation": "Slot 1"},
        {"BusNo": 94, "SlotDesignation": 7}]})");
    auto rows = this->rows("PCIs");
    ASSERT_EQ(2u, rows.size());
    EXPECT_EQ("59", rows[0]["BusNo"]);
    EXPECT_EQ("3866625", rows[0]["FunKey"]);
    EXPECT_EQ("32902", rows[0]["VendorId"]);
    EXPECT_EQ("Slot 1", rows[0]["SlotDesignation"]);
    EXPECT_EQ(0u, rows[0].count("NodeIndex"));
    EXPECT_EQ("7", rows[1]["SlotDesignation"]);
    std::vector<host::row> types;
    ASSERT_EQ(
        0, host::db_select(db, "SELECT typeof(BusNo) AS b, typeof(SlotDesignation) AS s FROM PCIs", types));
    EXPECT_EQ("integer", types[0]["b"]);
    EXPECT_EQ("text", types[1]["s"]);

    // A machine without "pcis" leaves the table alone in the fixture, and empties it through
    // the host call.
    load_machine_json(R"({"storage": {"controller_types": [1, 2]}})");
    EXPECT_EQ(2u, count("PCIs"));
    ASSERT_EQ(0, host::load_machine_pcis(db));
    EXPECT_EQ(0u, count("PCIs"));
}

TEST_F(MachineStorage, ControllerTypesAnswerPerControllerAndFailWhenUnknown) {
    uint8_t type = 0;
    EXPECT_NE(0, vqmdb_get_mvl_ctrl_type(&type, 0)) << "no machine";
    load_machine_json(R"({"storage": {"controller_types": [null, 4]}})");
    EXPECT_NE(0, vqmdb_get_mvl_ctrl_type(&type, 0));
    ASSERT_EQ(0, vqmdb_get_mvl_ctrl_type(&type, 1));
    EXPECT_EQ(4, type);
    EXPECT_NE(0, vqmdb_get_mvl_ctrl_type(&type, 2));
    EXPECT_NE(0, vqmdb_get_mvl_ctrl_type(nullptr, 1));
    load_machine_json(R"({"storage": {"controller_types": [3]}})");
    ASSERT_EQ(0, vqmdb_get_mvl_ctrl_type(&type, 0));
    EXPECT_EQ(3, type);
    EXPECT_NE(0, vqmdb_get_mvl_ctrl_type(&type, 1));

    EXPECT_EQ(0, dmdb_clear_mv_ctrl_vol_info_by_type(3));
    EXPECT_EQ(0, nvme_remove_drv_db_info(4, 2));
    EXPECT_TRUE(logged(host::log_level::dbg, "storage: clear volumes of controller type 3"));
    EXPECT_TRUE(logged(host::log_level::dbg, "storage: remove drive record, controller type 4, slot 2"));
}

TEST_F(MachineStorage, PropertiesFillThePropertiesDatabaseWhileTheMachineIsLoaded) {
    EXPECT_EQ(nullptr, vqm_db_open("localhost", "root", "", "propertiesdb", 0));
    load_machine_json(R"({"properties": {"/ac/hxsd/dm/mv/0/drive0/presence": "1",
                                         "/ac/hxsd/dm/mv/0/drive1/presence": 0,
                                         "/ac/hxsd/dm/mv/0/slots": "2"}})");
    EXPECT_TRUE(std::filesystem::exists(dir + "/propertiesdb.db"));
    _vqm_db_handle_t* p = vqm_db_open("localhost", "root", "", "propertiesdb", 0);
    ASSERT_NE(nullptr, p);
    const char* cols[] = {"propName", "propValue"};
    vqm_db_result_t* r = nullptr;
    ASSERT_EQ(0, vqm_db_query(p, "propertiesDCTbl", cols, 2, "propName like \"%mv/0/drive%presence\"",
                              nullptr, nullptr, nullptr, &r));
    ASSERT_EQ(2u, vqm_db_result_row_count(r));
    char value[8];
    ASSERT_EQ(VQM_DB_ROW, vqm_db_result_step(r));
    ASSERT_EQ(0, vqm_db_result_column_text(r, 1, value, sizeof value));
    EXPECT_STREQ("1", value);
    ASSERT_EQ(VQM_DB_ROW, vqm_db_result_step(r));
    ASSERT_EQ(0, extract_str_column_from_result(r, "propValue", value, sizeof value));
    EXPECT_STREQ("0", value);
    vqm_db_free_result(r);
    vqm_db_close(p);

    // A machine without properties has no properties database.
    load_machine_json(R"({"storage": {}})");
    EXPECT_FALSE(std::filesystem::exists(dir + "/propertiesdb.db"));
    EXPECT_EQ(nullptr, vqm_db_open("localhost", "root", "", "propertiesdb", 0));
}

// The example machine packs each function's address into its keys and lists every PCI
// address of the example AIM file plus functions that the file does not describe.
TEST_F(MachineStorage, ExampleMachineKeysPackTheAddress) {
    load_machine("examples/machines/server-2u");
    auto rows = this->rows("PCIs");
    ASSERT_GE(rows.size(), 8u);
    std::set<std::string> addresses;
    for (auto& r : rows) {
        unsigned long seg = std::stoul(r["SegNo"]), bus = std::stoul(r["BusNo"]),
                      dev = std::stoul(r["DeviceNo"]), fn = std::stoul(r["FunctionNo"]);
        unsigned long key = seg << 24 | bus << 16 | dev << 8 | fn;
        EXPECT_EQ(std::to_string(key), r["FunKey"]);
        EXPECT_EQ(std::to_string(key & ~0xFFul), r["DevKey"]);
        EXPECT_EQ(r["FunKey"], r["HardwareId"]);
        for (const char* c : {"NodeIndex", "SlotNo", "HardwareTypeId", "Location", "FunType", "VendorId",
                              "DeviceId", "SubVendorId", "SubDeviceId", "ClsCode", "SlotType", "MaxPCIeType",
                              "MaxLanes", "SlotDesignation"}) {
            EXPECT_EQ(1u, r.count(c)) << c << " of " << r["FunKey"];
        }
        addresses.insert(std::to_string(seg) + ":" + std::to_string(bus) + ":" + std::to_string(dev) + "." +
                         std::to_string(fn));
    }
    std::string aim = testutil::read_file(testutil::source_path("examples/aim/server-2u.xml"));
    if (aim.empty()) GTEST_SKIP() << "examples/aim/server-2u.xml is not in this tree";
    std::regex pfa(
        "<pfa>\\s*<segment>([^<]*)</segment>\\s*<bus>([^<]*)</bus>\\s*<device>([^<]*)</"
        "device>\\s*<function>([^<]*)"
        "</function>");
    size_t described = 0;
    for (auto it = std::sregex_iterator(aim.begin(), aim.end(), pfa); it != std::sregex_iterator();
         ++it, ++described) {
        unsigned long n[4];
        for (int i = 0; i < 4; ++i) n[i] = strtoul((*it)[i + 1].str().c_str(), nullptr, 0);
        std::string a = std::to_string(n[0]) + ":" + std::to_string(n[1]) + ":" + std::to_string(n[2]) + "." +
                        std::to_string(n[3]);
        EXPECT_EQ(1u, addresses.count(a)) << "no PCIs row for the config at " << a;
    }
    EXPECT_GT(described, 0u);
    EXPECT_GT(addresses.size(), described)
        << "the machine also has functions that the file does not describe";
}

}  // namespace
