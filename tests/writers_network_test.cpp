// Network and ports through parse_aim: "PCINetwork", "PCIPhysicalPort",
// "PCIPhysicalPortStat" and "PCILogicalPort" rows, and the function type from the link.
#include "tests/writers_util.h"

using namespace writers_test;

namespace {

const unsigned fun_key = 0x5e0001;  // bus 0x5e, device 0, function 1

class NetworkPorts : public testutil::IngestTest {
protected:
    void add_nic(unsigned vendor = 0x8086, unsigned device = 0x1593, unsigned subdevice = 0x0002,
                 unsigned fun_type = 7, unsigned location = 0) {
        add_pci_function(0x5e, 0, 1, vendor, device, vendor, subdevice, 3, fun_type, location);
    }
    int run_network(const std::string& network_content) {
        return run_xml(aim_doc(
            aim_config("nic", "0x5e", "0", "1",
                       text("Card Name", "NIC") + aim_group("Network Information", network_content))));
    }
    static std::string port(unsigned n, const std::string& content, const std::string& suppress = "") {
        return aim_group("Physical Port " + std::to_string(n), content, suppress);
    }
    static std::string logical(unsigned n, const std::string& content = "",
                               const std::string& suppress = "") {
        return aim_group("Logical Port " + std::to_string(n),
                         num("Logical Port Index", std::to_string(n)) + content, suppress);
    }
    std::string fun_type() { return col(rows("PCIs")[0], "FunType"); }
};

TEST_F(NetworkPorts, WritesEveryColumnOfEachTable) {
    add_nic();
    ASSERT_EQ(
        0,
        run_network(
            num("Number of Physical Ports", "2") + num("Max Number of Logical Ports", "16") +
            port(1, num("Physical Port Index", "1") + text("Physical Port's Connector Layout", "SFP28") +
                        num("Number of Logical Ports", "1") + text("Permanent Address", "AA:BB:CC:00:00:01") +
                        logical(1, num("Max Data Size", "9600") +
                                       text("Permanent Address", "AA:BB:CC:00:00:01") +
                                       text("Network Addresses", "AA:BB:CC:00:00:02") +
                                       text("Link Technology", "2") + text("vNIC Mode", "none") +
                                       num("Max Speed", "100000000000") + text("Protocol Type", "Ethernet") +
                                       text("Current Work Protocol Ethernet", "true") +
                                       text("Current Work Protocol FCoE/FC", "false") +
                                       text("Current Work Protocol iSCSI", "false") +
                                       text("FCoE Permanent Address", "AA:BB:CC:00:00:03") +
                                       text("FCoE Network Addresses", "AA:BB:CC:00:00:04") +
                                       text("Connection Type", "direct") + text("Role", "initiator") +
                                       text("Target Relative Port Number", "7")))));
    auto net = rows("PCINetwork");
    ASSERT_EQ(1u, net.size());
    const std::vector<std::pair<std::string, std::string>> key_columns = {
        {"SegNo", "0"},
        {"BusNo", "94"},
        {"DeviceNo", "0"},
        {"FunctionNo", "1"},
        {"NodeNo", "1"},
        {"SlotNo", "3"},
        {"PCIKey", std::to_string(0x5e0000)},
        {"PCIFuncKey", std::to_string(fun_key)},
    };
    for (const auto& table : {"PCINetwork", "PCIPhysicalPort", "PCILogicalPort"}) {
        auto r = rows(table);
        ASSERT_EQ(1u, r.size()) << table;
        for (const auto& c : key_columns) EXPECT_EQ(c.second, col(r[0], c.first)) << table << " " << c.first;
    }
    EXPECT_EQ("2", col(net[0], "NumberofPhysicalPorts"));
    EXPECT_EQ("16", col(net[0], "MaxNumberofLogicalPorts"));

    auto phys = rows("PCIPhysicalPort")[0];
    EXPECT_EQ("SFP28", col(phys, "ConnectorLayout"));
    EXPECT_EQ("1", col(phys, "Idx"));
    EXPECT_EQ("1", col(phys, "NumberofLogicalPorts"));
    EXPECT_EQ("AA:BB:CC:00:00:01", col(phys, "PermanentAddress"));

    auto stat = rows("PCIPhysicalPortStat");
    ASSERT_EQ(1u, stat.size());
    EXPECT_EQ(std::to_string(fun_key), col(stat[0], "PCIFuncKey"));
    EXPECT_EQ("1", col(stat[0], "Idx"));

    auto lp = rows("PCILogicalPort")[0];
    const std::vector<std::pair<std::string, std::string>> expected = {
        {"MaxDataSize", "9600"},
        {"PermanentAddress", "AA:BB:CC:00:00:01"},
        {"NetworkAddresses", "AA:BB:CC:00:00:02"},
        {"PhyIdx", "1"},
        {"Idx", "1"},
        {"LinkTechnology", "2"},
        {"vNICMode", "none"},
        {"MaxSpeed", "100000000000"},  // above 32 bits
        {"ProtocolType", "Ethernet"},
        {"Ethernet", "true"},
        {"FCoEFC", "false"},
        {"iSCSI", "false"},
        {"FCoEPermanentAddress", "AA:BB:CC:00:00:03"},
        {"FCoENetworkAddressess", "AA:BB:CC:00:00:04"},
        {"ConnectionType", "direct"},
        {"Role", "initiator"},
        {"TargetRelativePortNumber", "7"},
    };
    for (const auto& e : expected) EXPECT_EQ(e.second, col(lp, e.first)) << e.first;
    EXPECT_EQ("1", fun_type());  // Ethernet link on a type-7 function
}

TEST_F(NetworkPorts, WithoutPortCountsNoNetworkRowButPortsWritten) {
    add_nic();
    ASSERT_EQ(
        0, run_network(port(1, num("Physical Port Index", "1")) + port(2, num("Physical Port Index", "2"))));
    EXPECT_EQ(0u, count("PCINetwork"));
    EXPECT_EQ((std::vector<std::string>{"1", "2"}), column(rows("PCIPhysicalPort"), "Idx"));
    // The function keeps the statistics row of its first port with an index only.
    EXPECT_EQ((std::vector<std::string>{"1"}), column(rows("PCIPhysicalPortStat"), "Idx"));
}

TEST_F(NetworkPorts, SuppressedPortSkippedWithItsLogicalPorts) {
    add_nic();
    ASSERT_EQ(0, run_network(port(1, num("Physical Port Index", "1") + logical(1), "true") +
                             port(2, num("Physical Port Index", "2") + logical(1), "TRUE")));
    EXPECT_EQ((std::vector<std::string>{"2"}), column(rows("PCIPhysicalPort"), "Idx"));
    EXPECT_EQ((std::vector<std::string>{"2"}), column(rows("PCILogicalPort"), "PhyIdx"));
}

TEST_F(NetworkPorts, LogicalPortsNumberedUpToSubGroupCount) {
    add_nic();
    // Four sub-groups: logical ports 1, 2 and 5 and a suppressed 3; only 1 to 4 are tried.
    ASSERT_EQ(0, run_network(port(1, num("Physical Port Index", "1") + logical(1) + logical(2) + logical(5) +
                                         logical(3, "", "true"))));
    EXPECT_EQ((std::vector<std::string>{"1", "2"}), column(rows("PCILogicalPort"), "Idx"));
}

TEST_F(NetworkPorts, MissingOrInvalidPortIndexStopsLogicalPorts) {
    add_nic();
    ASSERT_EQ(0, run_network(port(1, text("Permanent Address", "AA") + logical(1)) +
                             port(2, num("Physical Port Index", "-1") + logical(1)) +
                             port(3, text("Physical Port Index", "1") + logical(1))));
    EXPECT_TRUE(logged(
        host::log_level::warn,
        "AIM PARSER: No physical port index provided for Physical Port 1, stop parsing logical ports!"))
        << log_text();
    EXPECT_TRUE(
        logged(host::log_level::warn,
               "AIM PARSER: Invalid physical port index for Physical Port 2, stop parsing logical ports!"));
    // A text-typed index reads as the default -1 too.
    EXPECT_TRUE(
        logged(host::log_level::warn,
               "AIM PARSER: Invalid physical port index for Physical Port 3, stop parsing logical ports!"));
    // The physical port rows are written before the index is checked.
    auto phys = rows("PCIPhysicalPort");
    ASSERT_EQ(3u, phys.size());
    EXPECT_EQ((std::vector<std::string>{"<null>", "4294967295", "0"}), column(phys, "Idx"));
    EXPECT_EQ("AA", col(phys[0], "PermanentAddress"));
    EXPECT_EQ(0u, count("PCILogicalPort"));
    // The port without an index adds no statistics row; the next port's does.
    EXPECT_EQ((std::vector<std::string>{"4294967295"}), column(rows("PCIPhysicalPortStat"), "Idx"));
}

TEST_F(NetworkPorts, ConnectorOverride) {
    struct Case {
        const char* codename;  // null: unset
        unsigned index;
        unsigned device;
        unsigned subdevice;
        unsigned location;
        const char* connector;
    } cases[] = {
        {"gravel", 2, 0x1015, 0x0350, 0, "5"},    {"xx-tinwhistlers-2", 2, 0x1015, 0x0350, 0, "5"},
        {"Gravel", 2, 0x1015, 0x0350, 0, "QSFP"}, {nullptr, 2, 0x1015, 0x0350, 0, "QSFP"},
        {"gravel", 1, 0x1015, 0x0350, 0, "QSFP"}, {"gravel", 2, 0x1017, 0x0350, 0, "QSFP"},
        {"gravel", 2, 0x1015, 0x0351, 0, "QSFP"}, {"gravel", 2, 0x1015, 0x0350, 1, "QSFP"},
    };
    for (const auto& c : cases) {
        exec("DELETE FROM PCIs");
        add_pci_function(0x5e, 0, 1, 0x15B3, c.device, 0x15B3, c.subdevice, 3, 1, c.location);
        load_machine_json(c.codename ? std::string("{\"env\": {\"RVT_CODENAME\": \"") + c.codename + "\"}}"
                                     : "{}");
        ASSERT_EQ(0, run_network(port(2, num("Physical Port Index", std::to_string(c.index)) +
                                             text("Physical Port's Connector Layout", "QSFP"))));
        auto phys = rows("PCIPhysicalPort");
        ASSERT_EQ(1u, phys.size());
        EXPECT_EQ(c.connector, col(phys[0], "ConnectorLayout"))
            << (c.codename ? c.codename : "unset") << " index " << c.index << " device " << c.device;
    }
}

TEST_F(NetworkPorts, OverrideAppliesWithoutAimConnector) {
    add_pci_function(0x5e, 0, 1, 0x15B3, 0x1015, 0x15B3, 0x0350, 3, 1, 0);
    load_machine_json(R"({"env": {"RVT_CODENAME": "gravel"}})");
    ASSERT_EQ(0, run_network(port(1, num("Physical Port Index", "2"))));
    EXPECT_EQ("5", col(rows("PCIPhysicalPort")[0], "ConnectorLayout"));
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
        exec("DELETE FROM PCIs");
        add_nic(0x8086, 0x1593, 0x0002, c.fun_type);
        std::string link = c.link == "-" ? "" : text("Link Technology", c.link);
        ASSERT_EQ(0, run_network(port(1, num("Physical Port Index", "1") + logical(1, link))));
        EXPECT_EQ(c.expected, fun_type()) << "type " << c.fun_type << " link '" << c.link << "'";
    }
}

TEST_F(NetworkPorts, LogicalPortWithoutLabelsWritesNoRowButSetsType) {
    add_nic();
    ASSERT_EQ(0, run_network(port(1, num("Physical Port Index", "1") +
                                         aim_group("Logical Port 1", text("Unknown", "x")))));
    EXPECT_EQ(0u, count("PCILogicalPort"));
    EXPECT_EQ("9", fun_type());
}

TEST_F(NetworkPorts, InsertFailuresLogged) {
    add_nic();
    std::string network =
        num("Number of Physical Ports", "1") + port(1, num("Physical Port Index", "1") + logical(1));
    struct Case {
        const char* table;
        const char* message;
        size_t logical_ports;
    } cases[] = {
        // A failed network row ends the group; a failed physical port row ends the port.
        {"PCINetwork", "AIM PARSER: failed to insert Network Information, rc=", 0},
        {"PCIPhysicalPort", "AIM PARSER: failed to insert Logical Port Information, rc=", 0},
        {"PCIPhysicalPortStat", "AIM PARSER: failed to insert Physical Port Stat Information, rc=", 1},
        {"PCILogicalPort", "AIM PARSER: failed to insert Logical Port Information, rc=", 0},
    };
    for (const auto& c : cases) {
        host::log_capture_end();
        host::log_capture_begin();
        host::db_fail_writes(db, "");
        host::db_fail_writes(db, c.table, "insert");
        ASSERT_EQ(0, run_network(network));
        EXPECT_EQ(1u, logged_prefix(host::log_level::warn, c.message)) << c.table << "\n" << log_text();
        EXPECT_EQ(c.logical_ports, count("PCILogicalPort")) << c.table;
    }
}

}  // namespace
