// Network and ports through parse_aim: "PCINetwork", "PCIPhysicalPort",
// "PCIPhysicalPortStat" and "PCILogicalPort" rows, and the function type from the link.
#include <tuple>

#include "tests/writers_util.h"

using namespace writers_test;

namespace {

class NetworkPorts : public testutil::IngestTest {
protected:
    void add_nic(unsigned fun_type = 7, unsigned device = 0x1015, unsigned subdevice = 0x350,
                 unsigned loc = 0) {
        exec("DELETE FROM PCIs");
        add_pci_function(0x5e, 0, 1, 0x15B3, device, 0x15B3, subdevice, 3, fun_type, loc);
    }
    int run(const std::string& network) {
        return run_xml(
            aim_doc(aim_config("nic", "0x5e", "0", "1", aim_group("Network Information", network))));
    }
    // "Physical Port N" or "Logical Port N" with its index setting (N, or `index`) and `content`.
    static std::string port(int n, const std::string& content = "", const std::string& suppress = "",
                            const std::string& index = "", const std::string& kind = "Physical") {
        std::string i = index.empty() ? std::to_string(n) : index;
        return aim_group(kind + " Port " + std::to_string(n),
                         settings("#" + kind + " Port Index=" + i) + content, suppress);
    }
    static std::string logical(int n, const std::string& content = "", const std::string& suppress = "") {
        return port(n, content, suppress, "", "Logical");
    }
    texts idx(const char* table, const char* name = "Idx") { return column(rows(table), name); }
};

TEST_F(NetworkPorts, WritesEveryColumnOfEachTable) {
    add_nic();
    const std::string logical_port = settings(
        "Link Technology=2; vNIC Mode=none; Permanent Address=P1; Network Addresses=N2; Protocol Type=E; "
        "Current Work Protocol Ethernet=true; Current Work Protocol FCoE/FC=false; Current Work Protocol "
        "iSCSI=no; FCoE Permanent Address=F3; FCoE Network Addresses=F4; Connection Type=direct; Role=R; "
        "Target Relative Port Number=7; #Max Data Size=9600; #Max Speed=100000000000");
    const std::string port1 =
        settings("Physical Port's Connector Layout=SFP28; Permanent Address=P1; #Number of Logical Ports=1");
    ASSERT_EQ(0, run(settings("#Number of Physical Ports=2; #Max Number of Logical Ports=16") +
                     port(1, port1 + logical(1, logical_port))));
    const std::string keys =
        "SegNo=0; BusNo=94; DeviceNo=0; FunctionNo=1; NodeNo=1; SlotNo=3; PCIKey=6160384; ";
    const std::pair<const char*, std::string> expected[] = {
        {"PCINetwork", keys + "PCIFuncKey=6160385; NumberofPhysicalPorts=2; MaxNumberofLogicalPorts=16"},
        {"PCIPhysicalPort",
         keys + "ConnectorLayout=SFP28; Idx=1; NumberofLogicalPorts=1; PermanentAddress=P1"},
        {"PCIPhysicalPortStat", "PCIFuncKey=6160385; Idx=1"},
        {"PCILogicalPort",
         keys + "MaxDataSize=9600; PermanentAddress=P1; NetworkAddresses=N2; PhyIdx=1; "
                "Idx=1; LinkTechnology=2; vNICMode=none; MaxSpeed=100000000000; "
                "ProtocolType=E; Ethernet=true; FCoEFC=false; iSCSI=no; FCoEPermanentAddress=F3; "
                "FCoENetworkAddressess=F4; ConnectionType=direct; Role=R; "
                "TargetRelativePortNumber=7"}};
    for (const auto& e : expected) {
        ASSERT_EQ(1u, count(e.first)) << e.first;
        EXPECT_EQ(e.second, pick(rows(e.first)[0], e.second));
    }
}

// Without port counts there is no network row, but the ports are written; a suppressed port
// is skipped with its logical ports; logical ports are tried from 1 to the number of
// sub-groups of their physical port only; the function keeps the statistics row of its first
// port with an index.
TEST_F(NetworkPorts, PortsAndLogicalPortNumbering) {
    add_nic();
    ASSERT_EQ(0, run(port(1, logical(1), "true") + port(2, logical(1), "TRUE") +
                     port(3, logical(1) + logical(2) + logical(5) + logical(3, "", "true"))));
    EXPECT_EQ(0u, count("PCINetwork"));
    EXPECT_EQ((texts{"2", "3"}), idx("PCIPhysicalPort"));
    EXPECT_EQ((texts{"2"}), idx("PCIPhysicalPortStat"));
    EXPECT_EQ((texts{"2", "3", "3"}), idx("PCILogicalPort", "PhyIdx"));
    EXPECT_EQ((texts{"1", "1", "2"}), idx("PCILogicalPort"));
}

// The physical port rows are written before the index is checked (a text-typed index reads
// as the default -1); the port without an index adds no statistics row, the next port's does.
TEST_F(NetworkPorts, MissingOrInvalidPortIndexStopsLogicalPorts) {
    add_nic();
    ASSERT_EQ(0, run(aim_group("Physical Port 1", text("Permanent Address", "AA") + logical(1)) +
                     port(2, logical(1), "", "-1") +
                     aim_group("Physical Port 3", text("Physical Port Index", "1") + logical(1))));
    const std::string stop = ", stop parsing logical ports!", bad = "AIM PARSER: Invalid physical port index";
    EXPECT_TRUE(logged(host::log_level::warn,
                       "AIM PARSER: No physical port index provided for Physical Port 1" + stop));
    EXPECT_TRUE(logged(host::log_level::warn, bad + " for Physical Port 2" + stop));
    EXPECT_TRUE(logged(host::log_level::warn, bad + " for Physical Port 3" + stop));
    EXPECT_EQ((texts{"<null>", "4294967295", "0"}), idx("PCIPhysicalPort"));
    EXPECT_EQ((texts{"4294967295"}), idx("PCIPhysicalPortStat"));
    EXPECT_EQ(0u, count("PCILogicalPort"));
}

// Port index 2 of one adapter (device 0x1015, sub-device 0x350, location 0) gets connector
// layout 5 on the platforms RVT_CODENAME names, whatever the AIM layout.
TEST_F(NetworkPorts, ConnectorOverride) {
    const std::tuple<const char*, const char*, int, const char*, const char*> cases[] = {
        // RVT_CODENAME, port index, the function (0: that adapter, 1: device 0x1017, 2: sub-device
        // 0x351, 3: location 1), the AIM layout, the layout written
        {"gravel", "2", 0, "QSFP", "5"},    {"xx-tinwhistlers-2", "2", 0, "QSFP", "5"},
        {"gravel", "2", 0, "", "5"},        {"Gravel", "2", 0, "QSFP", "QSFP"},
        {"", "2", 0, "QSFP", "QSFP"},       {"gravel", "1", 0, "QSFP", "QSFP"},
        {"gravel", "2", 1, "QSFP", "QSFP"}, {"gravel", "2", 2, "QSFP", "QSFP"},
        {"gravel", "2", 3, "", "<null>"}};
    for (const auto& c : cases) {
        int f = std::get<2>(c);
        add_nic(1, f == 1 ? 0x1017 : 0x1015, f == 2 ? 0x351 : 0x350, f == 3);
        load_machine_json(std::string("{\"env\": {\"RVT_CODENAME\": \"") + std::get<0>(c) + "\"}}");
        std::string aim = *std::get<3>(c) ? text("Physical Port's Connector Layout", std::get<3>(c)) : "";
        ASSERT_EQ(0, run(port(1, aim, "", std::get<1>(c))));
        EXPECT_EQ((texts{std::get<4>(c)}), idx("PCIPhysicalPort", "ConnectorLayout")) << std::get<0>(c) << f;
    }
}

TEST_F(NetworkPorts, FunctionTypeFromLinkTechnology) {
    const std::tuple<unsigned, std::string, const char*> cases[] = {
        // the function's type, "Link Technology" ("-": none), the type written
        {7, "2", "1"},   {7, "3", "3"}, {7, "0x3", "3"}, {7, "4", "2"}, {7, "04", "2"},
        {7, "010", "9"}, {7, "5", "9"}, {7, "", "9"},    {7, "-", "9"}, {9, "4", "2"},
        {1, "4", "1"},   {8, "2", "8"}, {0, "3", "0"}};
    for (const auto& c : cases) {
        add_nic(std::get<0>(c));
        std::string link = std::get<1>(c) == "-" ? "" : text("Link Technology", std::get<1>(c));
        ASSERT_EQ(0, run(port(1, logical(1, link))));
        EXPECT_EQ(std::get<2>(c), col(rows("PCIs")[0], "FunType")) << std::get<0>(c) << std::get<1>(c);
    }
}

}  // namespace
