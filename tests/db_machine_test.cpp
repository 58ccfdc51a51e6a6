// Machine sections of the simulated storage ("pcis", "storage", "properties") and the example
// machine. Controller types and properties are shown at work by the wipe (ingest_wipe_test).
#include <string>
#include <vector>

#include "host/machine.h"
#include "host/storage.h"
#include "tests/fixture.h"

namespace {

class MachineStorage : public testutil::IngestTest {};

TEST_F(MachineStorage, BadSectionsAreMachineErrorsNamingKeyAndReason) {
    const char* const cases[][2] = {
        {R"({"pcis": {}})", "\"pcis\": must be a list of PCI functions"},
        {R"({"pcis": [{"BusNo": 1}, {"_id": 1}]})",
         "\"pcis\": function 1: \"_id\" is not a column of \"PCIs\""},
        {R"({"pcis": [{"BusNo": -1}]})", "\"pcis\": function 0: \"BusNo\" must not be negative"},
        {R"({"pcis": [{"VendorId": "0xZZ"}]})",
         "\"pcis\": function 0: \"VendorId\" is not a number: \"0xZZ\""},
        {R"({"pcis": [{"FunKey": 4294967296}]})",
         "\"pcis\": function 0: \"FunKey\" is out of range (0 to 4294967295)"},
        {R"({"pcis": [{"SlotDesignation": [1]}]})",
         "\"pcis\": function 0: \"SlotDesignation\" must be a text"},
        {R"({"storage": {"types": [1]}})", "\"storage\": unknown key \"types\""},
        {R"({"storage": {"controller_types": [1, 2, 3]}})",
         "\"storage\": \"controller_types\" must be a list of at most two controller types (number or null)"},
        {R"({"storage": {"controller_types": [256]}})",
         "\"storage\": controller type 0 is out of range (0 to 255)"},
        {R"({"properties": {"a": 1.5}})", "\"properties\": property \"a\" must be a text or a whole number"},
        {R"({"disks": []})", "unknown key \"disks\""},
    };
    for (const auto& c : cases) {
        std::string what = "no error";
        try {
            load_machine_json(c[0]);
        } catch (const host::machine_error& e) {
            what = e.what();
        }
        std::string expected = c[1];
        EXPECT_EQ(expected, what.substr(what.size() > expected.size() ? what.size() - expected.size() : 0));
    }
}

TEST_F(MachineStorage, PciFunctionsReplaceTheRowsOfPCIs) {
    add_pci_function(1, 0, 0);
    load_machine_json(R"({"pcis": [{"BusNo": "0x3b", "FunKey": "0x003B0001", "SlotDesignation": "Slot 1"},
                                   {"BusNo": 94, "SlotDesignation": 7}]})");
    std::vector<host::row> r;
    ASSERT_EQ(0,
              host::db_select(db,
                              "SELECT group_concat(quote(BusNo) || quote(FunKey) || quote(SlotDesignation) ||"
                              " quote(NodeIndex), ' ') AS r FROM PCIs",
                              r));
    EXPECT_EQ("593866625'Slot 1'NULL 94NULL'7'NULL", r.at(0)["r"]);

    // A machine without "pcis" leaves the table alone in the fixture; the host call empties it.
    load_machine_json(R"({"storage": {}})");
    EXPECT_EQ(2u, count("PCIs"));
    ASSERT_EQ(0, host::load_machine_pcis(db));
    EXPECT_EQ(0u, count("PCIs"));
}

// The example machine packs each function's address into its keys, as the controller does.
TEST_F(MachineStorage, ExampleMachineKeysPackTheAddress) {
    load_machine("examples/machines/server-2u");
    std::vector<host::row> r;
    ASSERT_EQ(0, host::db_select(
                     db,
                     "SELECT count(*) AS n, sum(FunKey = (SegNo * 16777216 + BusNo * 65536 + DeviceNo * 256"
                     " + FunctionNo) AND DevKey = FunKey & ~255 AND HardwareId = FunKey AND"
                     " SlotDesignation IS NOT NULL AND MaxLanes IS NOT NULL) AS ok FROM PCIs",
                     r));
    EXPECT_GE(std::stoi(r.at(0)["n"]), 8);
    EXPECT_EQ(r.at(0)["n"], r.at(0)["ok"]);
}

}  // namespace
