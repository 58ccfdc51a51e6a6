// Network and ports through parse_aim: "PCINetwork", "PCIPhysicalPort",
// "PCIPhysicalPortStat" and "PCILogicalPort" rows, and the function type from the link.
#include "tests/writers_util.h"

using namespace writers_test;

namespace {

class NetworkPorts : public testutil::IngestTest {
protected:
    void add_nic(unsigned fun_type = 7, unsigned device = 0x1593, unsigned subdevice = 2,
                 unsigned location = 0) {
        exec("DELETE FROM PCIs");
        add_pci_function(0x5e, 0, 1, 0x15B3, device, 0x15B3, subdevice, 3, fun_type, location);
    }
    int run_network(const std::string& network_content) {
        return run_xml(
            aim_doc(aim_config("nic", "0x5e", "0", "1", aim_group("Network Information", network_content))));
    }
    // Physical port N with index N (or `index` when given).
    static std::string port(unsigned n, const std::string& content = "", const std::string& suppress = "",
                            const std::string& index = "") {
        return aim_group("Physical Port " + std::to_string(n),
                         num("Physical Port Index", index.empty() ? std::to_string(n) : index) + content,
                         suppress);
    }
    static std::string logical(unsigned n, const std::string& content = "",
                               const std::string& suppress = "") {
        return aim_group("Logical Port " + std::to_string(n),
                         num("Logical Port Index", std::to_string(n)) + content, suppress);
    }
    std::vector<std::string> idx(const char* table, const char* name = "Idx") {
        return column(rows(table), name);
    }
};

TEST_F(NetworkPorts, WritesEveryColumnOfEachTable) {
    add_nic();
    const std::string lp =
        "Link Technology=2; vNIC Mode=none; Permanent Address=P1; Network Addresses=N2; Protocol "
        "Type=Ethernet; "
        "Current Work Protocol Ethernet=true; Current Work Protocol FCoE/FC=false; Current Work Protocol "
        "iSCSI=no; FCoE Permanent Address=F3; FCoE Network Addresses=F4; Connection Type=direct; "
        "Role=initiator; "
        "Target Relative Port Number=7";
    ASSERT_EQ(0,
              run_network(settings("Number of Physical Ports=2; Max Number of Logical Ports=16", true) +
                          port(1, settings("Physical Port's Connector Layout=SFP28; Permanent Address=P1") +
                                      num("Number of Logical Ports", "1") +
                                      logical(1, settings(lp) + settings("Max Data Size=9600; Max Speed="
                                                                         "100000000000",
                                                                         true)))));
    const std::string keys =
        "SegNo=0; BusNo=94; DeviceNo=0; FunctionNo=1; NodeNo=1; SlotNo=3; PCIKey=6160384; PCIFuncKey=6160385";
    const std::pair<const char*, std::string> expected[] = {
        {"PCINetwork", keys + "; NumberofPhysicalPorts=2; MaxNumberofLogicalPorts=16"},
        {"PCIPhysicalPort",
         keys + "; ConnectorLayout=SFP28; Idx=1; NumberofLogicalPorts=1; PermanentAddress=P1"},
        {"PCIPhysicalPortStat", "PCIFuncKey=6160385; Idx=1"},
        {"PCILogicalPort",
         keys + "; MaxDataSize=9600; PermanentAddress=P1; NetworkAddresses=N2; PhyIdx=1; Idx=1; "
                "LinkTechnology=2; "
                "vNICMode=none; MaxSpeed=100000000000; ProtocolType=Ethernet; Ethernet=true; FCoEFC=false; "
                "iSCSI=no; FCoEPermanentAddress=F3; FCoENetworkAddressess=F4; ConnectionType=direct; "
                "Role=initiator; TargetRelativePortNumber=7"},
    };
    for (const auto& e : expected) {
        auto r = rows(e.first);
        ASSERT_EQ(1u, r.size()) << e.first;
        EXPECT_EQ(e.second, pick(r[0], e.second));
    }
}

// Without port counts there is no network row, but the ports are written; a suppressed port
// is skipped with its logical ports; logical ports are tried from 1 to the number of
// sub-groups of their physical port only.
TEST_F(NetworkPorts, PortsAndLogicalPortNumbering) {
    add_nic();
    ASSERT_EQ(0, run_network(port(1, logical(1), "true") + port(2, logical(1), "TRUE") +
                             port(3, logical(1) + logical(2) + logical(5) + logical(3, "", "true"))));
    EXPECT_EQ(0u, count("PCINetwork"));
    EXPECT_EQ((std::vector<std::string>{"2", "3"}), idx("PCIPhysicalPort"));
    // The function keeps the statistics row of its first port with an index only.
    EXPECT_EQ((std::vector<std::string>{"2"}), idx("PCIPhysicalPortStat"));
    EXPECT_EQ((std::vector<std::string>{"2", "3", "3"}), idx("PCILogicalPort", "PhyIdx"));
    EXPECT_EQ((std::vector<std::string>{"1", "1", "2"}), idx("PCILogicalPort"));
}

TEST_F(NetworkPorts, MissingOrInvalidPortIndexStopsLogicalPorts) {
    add_nic();
    // A text-typed index reads as the default -1 too.
    ASSERT_EQ(0, run_network(aim_group("Physical Port 1", text("Permanent Address", "AA") + logical(1)) +
                             port(2, logical(1), "", "-1") +
                             aim_group("Physical Port 3", text("Physical Port Index", "1") + logical(1))));
    const std::string stop = ", stop parsing logical ports!";
    EXPECT_TRUE(logged(host::log_level::warn,
                       "AIM PARSER: No physical port index provided for Physical Port 1" + stop));
    for (const char* n : {"2", "3"})
        EXPECT_TRUE(
            logged(host::log_level::warn,
                   std::string("AIM PARSER: Invalid physical port index for Physical Port ") + n + stop));
    // The physical port rows are written before the index is checked; the port without an
    // index adds no statistics row, the next port's does.
    EXPECT_EQ((std::vector<std::string>{"<null>", "4294967295", "0"}), idx("PCIPhysicalPort"));
    EXPECT_EQ((std::vector<std::string>{"4294967295"}), idx("PCIPhysicalPortStat"));
    EXPECT_EQ(0u, count("PCILogicalPort"));
}

TEST_F(NetworkPorts, ConnectorOverride) {
    struct Case {
        const char* codename;  // null: unset
        unsigned index, device, subdevice, location;
        const char *aim, *connector;  // the AIM connector layout (null: none), the row's
    } cases[] = {
        {"gravel", 2, 0x1015, 0x0350, 0, "QSFP", "5"},
        {"xx-tinwhistlers-2", 2, 0x1015, 0x0350, 0, "QSFP", "5"},
        {"gravel", 2, 0x1015, 0x0350, 0, nullptr, "5"},
        {"Gravel", 2, 0x1015, 0x0350, 0, "QSFP", "QSFP"},
        {nullptr, 2, 0x1015, 0x0350, 0, "QSFP", "QSFP"},
        {"gravel", 1, 0x1015, 0x0350, 0, "QSFP", "QSFP"},
        {"gravel", 2, 0x1017, 0x0350, 0, "QSFP", "QSFP"},
        {"gravel", 2, 0x1015, 0x0351, 0, "QSFP", "QSFP"},
        {"gravel", 2, 0x1015, 0x0350, 1, "QSFP", "QSFP"},
    };
    for (const auto& c : cases) {
        add_nic(1, c.device, c.subdevice, c.location);
        load_machine_json(c.codename ? std::string("{\"env\": {\"RVT_CODENAME\": \"") + c.codename + "\"}}"
                                     : "{}");
        std::string layout = c.aim ? text("Physical Port's Connector Layout", c.aim) : "";
        ASSERT_EQ(0, run_network(port(1, layout, "", std::to_string(c.index))));
        EXPECT_EQ((std::vector<std::string>{c.connector}), idx("PCIPhysicalPort", "ConnectorLayout"))
            << (c.codename ? c.codename : "unset") << " index " << c.index << " device " << c.device;
    }
}

TEST_F(NetworkPorts, FunctionTypeFromLinkTechnology) {
    struct Case {
        unsigned fun_type;
        std::string link;  // "-": no label
        const char* expected;
    } cases[] = {
        {7, "2", "1"},   {7, "3", "3"}, {7, "0x3", "3"}, {7, "4", "2"}, {7, "04", "2"},
        {7, "010", "9"}, {7, "5", "9"}, {7, "", "9"},    {7, "-", "9"}, {9, "4", "2"},
        {1, "4", "1"},   {8, "2", "8"}, {0, "3", "0"},
    };
    for (const auto& c : cases) {
        add_nic(c.fun_type);
        ASSERT_EQ(0, run_network(port(1, logical(1, c.link == "-" ? "" : text("Link Technology", c.link)))));
        EXPECT_EQ(c.expected, col(rows("PCIs")[0], "FunType")) << c.fun_type << " link '" << c.link << "'";
    }
}

TEST_F(NetworkPorts, InsertFailuresLogged) {
    add_nic();
    // A failed network row ends the group; a failed physical port row ends the port.
    const std::pair<const char*, const char*> cases[] = {
        {"PCINetwork", "Network Information"},
        {"PCIPhysicalPort", "Logical Port Information"},
        {"PCIPhysicalPortStat", "Physical Port Stat Information"},
        {"PCILogicalPort", "Logical Port Information"},
    };
    for (const auto& c : cases) {
        host::log_capture_end();
        host::log_capture_begin();
        host::db_fail_writes(db, "");
        host::db_fail_writes(db, c.first, "insert");
        ASSERT_EQ(0, run_network(num("Number of Physical Ports", "1") + port(1, logical(1))));
        EXPECT_EQ(1u, logged_prefix(host::log_level::warn,
                                    std::string("AIM PARSER: failed to insert ") + c.second + ", rc="))
            << c.first << "\n"
            << log_text();
        EXPECT_EQ(std::string(c.first) == "PCIPhysicalPortStat" ? 1u : 0u, count("PCILogicalPort"))
            << c.first;
    }
}

}  // namespace
