// aimctl init-db, show, ingest and rebuild, run as processes.
#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "host/db.h"
#include "tests/fixture.h"

namespace {

class AimctlDb : public testutil::IngestTest {
protected:
    testutil::aimctl_result aimctl(const std::string& args) { return testutil::run_aimctl(args, dir); }
    // Runs `sql` on the database file `path`: a SELECT answers column "r" of its first row.
    std::string on(const std::string& path, const std::string& sql) {
        _vqm_db_handle_t* h = host::db_open_file(path);
        std::vector<host::row> rows;
        EXPECT_EQ(0, sql.rfind("SELECT", 0) ? host::db_exec_script(h, sql) : host::db_select(h, sql, rows));
        vqm_db_close(h);
        return rows.empty() ? "" : rows[0]["r"];
    }
};

// The table format cuts a value wider than 64 characters to 61 and "...", never inside an
// escape; csv and json keep the whole value.
TEST_F(AimctlDb, ShowCutsWideValuesInTheTableOnly) {
    std::string path = dir + "/wide.db";
    ASSERT_EQ(0, aimctl("init-db " + path).status);
    const std::string a64(64, 'a'), b65(65, 'b'), c60(60, 'c');
    on(path, "INSERT INTO PCIAdapter (CardName) VALUES ('" + a64 + "'), ('" + b65 + "'), ('" + c60 +
                 "' || char(10) || 'dd'), ('" + c60 + "x' || char(200) || 'yyy')");
    std::string table = aimctl("show --db " + path + " PCIAdapter").out;
    EXPECT_NE(std::string::npos, table.find("1    " + a64 + "\n")) << table;
    EXPECT_NE(std::string::npos, table.find("2    " + std::string(61, 'b') + "...\n")) << table;
    EXPECT_NE(std::string::npos, table.find("3    " + c60 + "\\ndd\n")) << "64 wide: whole";
    EXPECT_NE(std::string::npos, table.find("4    " + c60 + "x...\n")) << "\\xC8 is not split";
    std::string csv = aimctl("show --db " + path + " PCIAdapter --format csv").out;
    EXPECT_NE(std::string::npos, csv.find("," + b65 + ",")) << csv;
}

TEST_F(AimctlDb, InitDbShowAndRebuild) {
    std::string path = dir + "/cli.db", show = "show --db " + path + " ";
    EXPECT_EQ(1, aimctl("rebuild --db " + path).status);
    EXPECT_EQ(1, aimctl(show + "PCIs").status);
    EXPECT_FALSE(std::filesystem::exists(path)) << "neither show nor rebuild creates a database";
    ASSERT_EQ(0, aimctl("init-db " + path).status);
    on(path,
       "INSERT INTO PCIAdapter (SegNo, BusNo, CardName, PCIFuncKey) VALUES (0, 59, 'Intel, \"E810\"', "
       "3866624),"
       " (0, 202, 'A100', NULL); INSERT INTO PCIPhysicalPort (Idx, PCIFuncKey) VALUES (1, 3866624), (2, 9)");
    EXPECT_EQ(
        "_id  SegNo  BusNo  CardName       PCIFuncKey\n"
        "---  -----  -----  -------------  ----------\n"
        "1    0      59     Intel, \"E810\"  3866624\n"
        "2    0      202    A100           NULL\n"
        "(2 rows)\n",
        aimctl(show + "PCIAdapter").out);
    EXPECT_EQ(
        "_id,SegNo,BusNo,DeviceNo,FunctionNo,NodeNo,SlotNo,CardName,ConnectorType,AIMSupported,OOBSrc,PCIKey,"
        "PCIFuncKey,Location\n1,0,59,,,,,\"Intel, \"\"E810\"\"\",,,,,3866624,\n2,0,202,,,,,A100,,,,,,\n",
        aimctl(show + "PCIAdapter --format csv").out);
    EXPECT_EQ(
        R"({"AIMSupported":null,"BusNo":202,"CardName":"A100","ConnectorType":null,"DeviceNo":null,)"
        R"("FunctionNo":null,"Location":null,"NodeNo":null,"OOBSrc":null,"PCIFuncKey":null,"PCIKey":null,)"
        R"("SegNo":0,"SlotNo":null,"_id":2})",
        nlohmann::json::parse(aimctl("show --format=json --db " + path + " PCIAdapter").out).at(1).dump());
    ASSERT_EQ(0, aimctl("rebuild --db " + path).status);
    EXPECT_EQ("_id,PCIFuncKey,Idx,LinkStatus,LinkSpeed,TxUtil,RxUtil\n1,3866624,1,0,0,0,0\n2,9,2,0,0,0,0\n",
              aimctl(show + "PCIPhysicalPortStat --format csv").out);

    testutil::aimctl_result o = aimctl(show + "NoSuchTable");
    EXPECT_EQ(2, o.status);
    EXPECT_NE(std::string::npos,
              o.err.find("aimctl show: unknown table 'NoSuchTable' (tables of " + path + ": "))
        << o.err;
    for (const char* bad : {"init-db", "init-db a b", "show PCIs", "show --db x.db PCIs --format xml",
                            "rebuild", "rebuild --db", "rebuild --db x y"})
        EXPECT_EQ(2, aimctl(bad).status) << bad;
    EXPECT_EQ(0, aimctl("rebuild --help").status);
}

// The demo: the example AIM file on the example machine, into a database that ingest creates;
// the machine's functions replace the rows of "PCIs" and the run stays in its sysroot.
TEST_F(AimctlDb, Ingest) {
    std::string path = dir + "/example.db", ingest = "ingest --db " + path;
    bool real_tmp_file = std::filesystem::exists("/tmp/aim_filtered.xml");
    testutil::aimctl_result o = aimctl(ingest + " " + dir + "/no-such.xml");
    EXPECT_EQ(1, o.status) << o.err;
    EXPECT_NE(std::string::npos, o.out.find("parse_aim: -1")) << o.out;
    on(path, "INSERT INTO PCIs (BusNo) VALUES (99)");
    o = aimctl(ingest + " --machine " + testutil::source_path("examples/machines/server-2u") + " " +
               testutil::source_path("examples/aim/server-2u.xml"));
    ASSERT_EQ(0, o.status) << o.out << o.err;
    EXPECT_NE(std::string::npos, o.out.find("parse_aim: 0\n")) << o.out;
    EXPECT_NE(std::string::npos, o.err.find("AIM PARSER: successfully parsed \"/tmp/aim_filtered.xml\""))
        << o.err;
    EXPECT_EQ(real_tmp_file, std::filesystem::exists("/tmp/aim_filtered.xml"));
    EXPECT_EQ("0", on(path, "SELECT count(*) AS r FROM PCIs WHERE BusNo=99"));
    // The file's functions (AIM-supported) and the machine's others that have adapter rows.
    EXPECT_EQ("0:3.0:1 0:23.0:0 0:59.0:1 0:59.1:1 0:94.0:1 0:134.0:0 0:175.0:0 0:202.0:1 0:216.0:1",
              on(path,
                 "SELECT group_concat(a, ' ') AS r FROM (SELECT SegNo || ':' || BusNo || '.' || FunctionNo"
                 " || ':' || AIMSupported AS a FROM PCIAdapter ORDER BY BusNo, FunctionNo)"));
    // The NVMe drive of bay 4, listed like the other adapter tables.
    o = aimctl("show --db " + path + " AimDisks --format csv");
    EXPECT_EQ(0, o.status);
    EXPECT_NE(std::string::npos,
              o.out.find(",Front Bay 4,1,1,2,,,S4YPNE0R601234,36344330-4E60-1234-0025-38500000A1B2,"))
        << o.out;

    testutil::write_file(dir + "/m/machine.json", R"({"pcis": [], "gadgets": 1})");
    o = aimctl(ingest + " --machine " + dir + "/m x.xml");
    EXPECT_EQ(2, o.status);
    EXPECT_NE(std::string::npos, o.err.find("machine.json: unknown key \"gadgets\"")) << o.err;
    for (std::string bad : {ingest + " --machine " + dir + "/none x.xml", ingest, ingest + " --bogus x.xml",
                            std::string("ingest x.xml")})
        EXPECT_EQ(2, aimctl(bad).status) << bad;
}

}  // namespace
