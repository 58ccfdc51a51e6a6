// aimctl init-db, show, ingest and rebuild, run as processes.
#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>

#include "host/db.h"
#include "tests/fixture.h"

namespace {

using testutil::IngestTest;

typedef testutil::aimctl_result outcome;

class AimctlDb : public IngestTest {
protected:
    outcome aimctl(const std::string& args) { return testutil::run_aimctl(args, dir); }
    // A database file with the schema, filled by `sql`.
    std::string make_db(const std::string& sql) {
        std::string path = dir + "/cli.db";
        std::string e;
        _vqm_db_handle_t* h = host::db_open_file(path, &e);
        EXPECT_NE(nullptr, h) << e;
        EXPECT_EQ(0, host::db_apply_schema(h, &e)) << e;
        if (!sql.empty()) {
            EXPECT_EQ(0, host::db_exec_script(h, sql, &e)) << e;
        }
        vqm_db_close(h);
        return path;
    }
};

TEST_F(AimctlDb, InitDbCreatesTheSchemaAndShowPrintsAnEmptyTable) {
    std::string path = dir + "/new.db";
    outcome o = aimctl("init-db " + path);
    ASSERT_EQ(0, o.status) << o.err;
    o = aimctl("show --db " + path + " PCIPhysicalPortStat");
    ASSERT_EQ(0, o.status) << o.err;
    EXPECT_EQ(
        "_id  PCIFuncKey  Idx  LinkStatus  LinkSpeed  TxUtil  RxUtil\n"
        "---  ----------  ---  ----------  ---------  ------  ------\n"
        "(0 rows)\n",
        o.out);
    EXPECT_EQ(2, aimctl("init-db").status);
    EXPECT_EQ(2, aimctl("init-db a b").status);
}

TEST_F(AimctlDb, ShowPrintsTableCsvAndJson) {
    std::string path = make_db(
        "INSERT INTO PCIAdapter (SegNo, BusNo, CardName, PCIFuncKey) VALUES (0, 59, 'Intel, \"E810\"', "
        "3866624);"
        "INSERT INTO PCIAdapter (SegNo, BusNo, CardName) VALUES (0, 202, 'A100');");
    outcome o = aimctl("show --db " + path + " PCIAdapter");
    ASSERT_EQ(0, o.status) << o.err;
    EXPECT_EQ(
        "_id  SegNo  BusNo  CardName       PCIFuncKey\n"
        "---  -----  -----  -------------  ----------\n"
        "1    0      59     Intel, \"E810\"  3866624\n"
        "2    0      202    A100           NULL\n"
        "(2 rows)\n",
        o.out);

    o = aimctl("show --db " + path + " PCIAdapter --format csv");
    ASSERT_EQ(0, o.status) << o.err;
    EXPECT_EQ(
        "_id,SegNo,BusNo,DeviceNo,FunctionNo,NodeNo,SlotNo,CardName,ConnectorType,AIMSupported,OOBSrc,PCIKey,"
        "PCIFuncKey,Location\n"
        "1,0,59,,,,,\"Intel, \"\"E810\"\"\",,,,,3866624,\n"
        "2,0,202,,,,,A100,,,,,,\n",
        o.out);

    o = aimctl("show --format=json --db " + path + " PCIAdapter");
    ASSERT_EQ(0, o.status) << o.err;
    nlohmann::json j = nlohmann::json::parse(o.out);
    ASSERT_EQ(2u, j.size());
    EXPECT_EQ(59, j[0]["BusNo"]);
    EXPECT_EQ("Intel, \"E810\"", j[0]["CardName"]);
    EXPECT_TRUE(j[1]["PCIFuncKey"].is_null());
    EXPECT_EQ(14u, j[1].size());
}

TEST_F(AimctlDb, ShowRejectsUnknownTablesFormatsAndMissingDatabases) {
    std::string path = make_db("");
    outcome o = aimctl("show --db " + path + " NoSuchTable");
    EXPECT_EQ(2, o.status);
    EXPECT_NE(std::string::npos,
              o.err.find("aimctl show: unknown table 'NoSuchTable' (tables of " + path + ": "))
        << o.err;
    EXPECT_NE(std::string::npos, o.err.find("PCIAdapter")) << o.err;
    EXPECT_EQ(2, aimctl("show --db " + path + " PCIs --format xml").status);
    EXPECT_EQ(2, aimctl("show PCIs").status);
    EXPECT_EQ(2, aimctl("show --db " + path).status);
    o = aimctl("show --db " + dir + "/absent.db PCIs");
    EXPECT_EQ(1, o.status);
    EXPECT_FALSE(std::filesystem::exists(dir + "/absent.db")) << "show creates no database";
}

TEST_F(AimctlDb, IngestLoadsTheMachineFunctionsAndRefusesBadMachines) {
    std::string machine = dir + "/m";
    testutil::write_file(
        machine + "/machine.json",
        R"({"pcis": [{"SegNo": 0, "BusNo": 1, "DeviceNo": 0, "FunctionNo": 0, "FunKey": 65536},
                                      {"SegNo": 0, "BusNo": 2, "DeviceNo": 0, "FunctionNo": 0, "FunKey": 131072}]})");
    std::string path = make_db("INSERT INTO PCIs (BusNo) VALUES (99)");
    std::string aim = dir + "/in.xml";
    testutil::write_file(aim, testutil::aim_doc(""));
    outcome o = aimctl("ingest --db " + path + " --machine " + machine + " " + aim);
    EXPECT_EQ(0, o.status) << o.err;
    EXPECT_NE(std::string::npos, o.out.find("parse_aim: ")) << o.out;
    std::vector<host::row> rows;
    _vqm_db_handle_t* h = host::db_open_file(path);
    ASSERT_NE(nullptr, h);
    ASSERT_EQ(0, host::db_select(h, "SELECT BusNo FROM PCIs ORDER BY _id", rows));
    vqm_db_close(h);
    ASSERT_EQ(2u, rows.size()) << "the machine's functions replace the rows of PCIs";
    EXPECT_EQ("1", rows[0]["BusNo"]);
    EXPECT_EQ("2", rows[1]["BusNo"]);

    testutil::write_file(machine + "/machine.json", R"({"pcis": [], "gadgets": 1})");
    o = aimctl("ingest --db " + path + " --machine " + machine + " " + aim);
    EXPECT_EQ(2, o.status);
    EXPECT_NE(std::string::npos, o.err.find("machine.json: unknown key \"gadgets\"")) << o.err;
    EXPECT_EQ(2, aimctl("ingest --db " + path + " --machine " + dir + "/none " + aim).status);
    EXPECT_EQ(2, aimctl("ingest --db " + path).status);
    EXPECT_EQ(2, aimctl("ingest " + aim).status);
    EXPECT_EQ(2, aimctl("ingest --db " + path + " --bogus " + aim).status);
}

TEST_F(AimctlDb, IngestCreatesTheDatabaseAndFailsOnAMissingFile) {
    std::string path = dir + "/fresh.db";
    outcome o = aimctl("ingest --db " + path + " " + dir + "/no-such.xml");
    EXPECT_EQ(1, o.status) << o.out << o.err;
    EXPECT_NE(std::string::npos, o.out.find("parse_aim: -1")) << o.out;
    _vqm_db_handle_t* h = host::db_open_file(path);
    ASSERT_NE(nullptr, h);
    std::vector<host::row> rows;
    EXPECT_EQ(0, host::db_select(h, "SELECT count(*) AS n FROM PCIAdapter", rows));
    vqm_db_close(h);
}

// The demo: the example AIM file on the example machine.
TEST_F(AimctlDb, IngestOfTheExampleWritesItsAdapters) {
    std::string path = dir + "/example.db";
    bool real_tmp_file = std::filesystem::exists("/tmp/aim_filtered.xml");
    outcome o =
        aimctl("ingest --db " + path + " --machine " + testutil::source_path("examples/machines/server-2u") +
               " " + testutil::source_path("examples/aim/server-2u.xml"));
    ASSERT_EQ(0, o.status) << o.out << o.err;
    EXPECT_NE(std::string::npos, o.out.find("parse_aim: 0\n")) << o.out;
    EXPECT_NE(std::string::npos, o.err.find("AIM PARSER: successfully parsed \"/tmp/aim_filtered.xml\""))
        << o.err;
    EXPECT_EQ(real_tmp_file, std::filesystem::exists("/tmp/aim_filtered.xml"))
        << "the run stays in its sysroot";
    o = aimctl("show --db " + path + " PCIAdapter --format csv");
    ASSERT_EQ(0, o.status) << o.err;
    for (const char* address :
         {"\n1,0,94,0,0,", ",0,59,0,0,", ",0,59,0,1,", ",0,202,0,0,", ",0,216,0,0,", ",0,3,0,0,"}) {
        EXPECT_NE(std::string::npos, o.out.find(address)) << address << " in\n" << o.out;
    }
}

TEST_F(AimctlDb, RebuildFillsAnEmptyStatisticsTable) {
    std::string path = make_db(
        "INSERT INTO PCIPhysicalPort (Idx, PCIFuncKey) VALUES (1, 3866624), (2, 3866624), (1, 3866625)");
    outcome o = aimctl("rebuild --db " + path);
    ASSERT_EQ(0, o.status) << o.err;
    o = aimctl("show --db " + path + " PCIPhysicalPortStat --format csv");
    EXPECT_EQ(
        "_id,PCIFuncKey,Idx,LinkStatus,LinkSpeed,TxUtil,RxUtil\n"
        "1,3866624,1,0,0,0,0\n"
        "2,3866624,2,0,0,0,0\n"
        "3,3866625,1,0,0,0,0\n",
        o.out);
    ASSERT_EQ(0, aimctl("rebuild --db " + path).status);
    EXPECT_EQ(o.out, aimctl("show --db " + path + " PCIPhysicalPortStat --format csv").out)
        << "kept when not empty";
}

TEST_F(AimctlDb, RebuildNeedsAnExistingDatabase) {
    EXPECT_EQ(1, aimctl("rebuild --db " + dir + "/absent.db").status);
    EXPECT_FALSE(std::filesystem::exists(dir + "/absent.db"));
    EXPECT_EQ(2, aimctl("rebuild").status);
    EXPECT_EQ(2, aimctl("rebuild --db").status);
    EXPECT_EQ(2, aimctl("rebuild --db x y").status);
    EXPECT_EQ(0, aimctl("rebuild --help").status);
}

}  // namespace
