#include "ConfigTesting.h"

namespace ConfigErrorsTest {

using namespace OvixAgent;
using namespace OvixAgent::Testing;

namespace {

/// A single port with one key changed or added.
std::string port(const std::string& keys) {
    return "ports:\n  - {" + keys + "}\n";
}

} // namespace

TEST(ConfigErrors, OfTheWholeFile) {
    expectErrors({
        {"empty", "", "t.yaml:1: ports: missing (the file is empty)"},
        {"comments only", "# nothing\n", "t.yaml:1: ports: missing (the file is empty)"},
        {"no ports", "mpls-routing: true\n", "t.yaml:1: ports: missing"},
        {"list", "- 1\n", "t.yaml:1: expected a map, found a list"},
        {"word", "ports\n", "t.yaml:1: expected a map, found \"ports\""},
        {"unknown key, close", twoPorts + "neighbors: []\n",
         "t.yaml:4: neighbors: unknown key \"neighbors\"; did you mean \"neighbours\"?"},
        {"unknown key, far", twoPorts + "interfaces: []\n",
         "t.yaml:4: interfaces: unknown key \"interfaces\"; known: mpls-routing, toggles, ports, "
         "neighbours, lfib, hardware, fecs, pseudowires, mvpn, answers, cpu, dpdk, workers, "
         "cpus, routes"},
        {"duplicate key", twoPorts + "lfib: {}\nlfib: {}\n",
         "t.yaml:5: lfib: the key \"lfib\" is already given at line 4"},
        {"a list as a key", "[a, b]: 1\n", "t.yaml:1: a key must be a non-empty word"},
        {"an unspeakable key", twoPorts + "\"a\\tb.c d\": 1\n",
         "t.yaml:4: \"a\\x09b.c d\": unknown key \"a\\x09b.c d\"; known: mpls-routing, toggles, "
         "ports, neighbours, lfib, hardware, fecs, pseudowires, mvpn, answers, cpu, dpdk, workers, "
         "cpus, routes"},
        {"not a boolean", twoPorts + "mpls-routing: 1\n",
         "t.yaml:4: mpls-routing: \"1\" is not true or false"},
        {"nothing for a boolean", twoPorts + "mpls-routing:\n",
         "t.yaml:4: mpls-routing: expected true or false, found nothing"},
    });
}

TEST(ConfigErrors, OfToggles) {
    const std::string longName(101, 'x');
    expectErrors({
        {"list", twoPorts + "toggles: []\n", "t.yaml:4: toggles: expected a map, found a list"},
        {"flat", twoPorts + "toggles: {MvpnLib.json: true}\n",
         "t.yaml:4: toggles.MvpnLib.json: expected a map, found \"true\""},
        {"not a boolean", twoPorts + "toggles: {MvpnLib.json: {MvpnSfe: on}}\n",
         "t.yaml:4: toggles.MvpnLib.json.MvpnSfe: \"on\" is not true or false"},
        {"twice", twoPorts + "toggles:\n  A: {B: true,\n   B: true}\n",
         "t.yaml:6: toggles.A.B: the key \"B\" is already given at line 5"},
    });
    EXPECT_EQ(errorOf(twoPorts + "toggles: {" + longName + ": {}}\n"),
              "t.yaml:4: toggles.\"" + std::string(60, 'x') +
                  "...\": the name is longer than 100 bytes");
}

TEST(ConfigErrors, OfAnswers) {
    expectErrors({
        {"word", twoPorts + "answers: true\n", "t.yaml:4: answers: expected a map, found \"true\""},
        {"unknown", twoPorts + "answers: {lsp-ping: false}\n",
         "t.yaml:4: answers.lsp-ping: unknown key \"lsp-ping\"; known: time-exceeded, "
         "too-big, unreachable, lsp-echo"},
        {"not a boolean", twoPorts + "answers: {lsp-echo: 5}\n",
         "t.yaml:4: answers.lsp-echo: \"5\" is not true or false"},
        {"no rate", twoPorts + "answers: {too-big: {per-second: 0}}\n",
         "t.yaml:4: answers.too-big.per-second: per-second 0 is out of range (1..1000000)"},
        {"unknown rate", twoPorts + "answers: {too-big: {rate: 5}}\n",
         "t.yaml:4: answers.too-big.rate: unknown key \"rate\"; known: per-second, burst, "
         "source-per-second, source-burst"},
    });
}

TEST(Config, AnswersHaveTheirLimits) {
    const AgentConfig config = configOf(twoPorts + R"(
answers:
  time-exceeded: false
  too-big: {per-second: 7, burst: 9}
  unreachable: {per-second: 8, source-per-second: 3, source-burst: 4}
)",
                                        "t.yaml");
    const auto rates = [&](AnswerReason reason) {
        const AnswerRates& of = config.answers[static_cast<std::size_t>(reason)];
        return std::pair(of.all, of.perSource);
    };
    const AnswerRates usual;
    EXPECT_EQ(rates(AnswerReason::timeExceeded), std::pair(TokenRate(), TokenRate()));
    EXPECT_EQ(rates(AnswerReason::tooBig), std::pair(TokenRate{7, 9}, usual.perSource));
    EXPECT_EQ(rates(AnswerReason::unreachable), std::pair(TokenRate{8, 8}, TokenRate{3, 4}));
    EXPECT_EQ(rates(AnswerReason::lspEcho), std::pair(usual.all, usual.perSource));
}

TEST(ConfigErrors, OfPorts) {
    const std::string mac = "mac: 02:00:00:00:00:01";
    expectErrors({
        {"no list", "ports: eth1\n", "t.yaml:1: ports: expected a list, found \"eth1\""},
        {"none", "ports: []\n", "t.yaml:1: ports: at least one port is needed"},
        {"no map", "ports: [eth1]\n", "t.yaml:1: ports[0]: expected a map, found \"eth1\""},
        {"no name", port(mac), "t.yaml:2: ports[0].name: missing"},
        {"no MAC", port("name: eth1"),
         "t.yaml:2: ports[0].mac: missing: port \"eth1\" has no kind to take it from"},
        {"long name", port("name: sixteen-bytes-ab, " + mac),
         "t.yaml:2: ports[0].name: port name \"sixteen-bytes-ab\" has 16 bytes, allowed are 1 to "
         "15"},
        {"empty name", port("name: '', " + mac),
         "t.yaml:2: ports[0].name: port name \"\" has 0 bytes, allowed are 1 to 15"},
        {"slash", port("name: a/b, " + mac),
         "t.yaml:2: ports[0].name: \"a/b\" cannot name a port (no \"/\", \":\", \"=\" or blank)"},
        {"control", port("name: \"a\\0b\", " + mac),
         "t.yaml:2: ports[0].name: port name \"a\\x00b\" contains a control character"},
        {"taken", port("name: cpu, " + mac),
         "t.yaml:2: ports[0].name: \"cpu\" cannot name a port: cpu.pcap is one of the agent's own "
         "captures"},
        {"list as name", port("name: [], " + mac),
         "t.yaml:2: ports[0].name: expected port name, found a list"},
        {"short MAC", port("name: e, mac: 02:00:00:00:01"),
         "t.yaml:2: ports[0].mac: \"02:00:00:00:01\" is not a MAC address, as in "
         "02:00:00:00:00:01"},
        {"no hex MAC", port("name: e, mac: 02:00:00:00:00:0g"),
         "t.yaml:2: ports[0].mac: \"02:00:00:00:00:0g\" is not a MAC address, as in "
         "02:00:00:00:00:01"},
        {"signed MAC", port("name: e, mac: 02:00:00:00:00:-1"),
         "t.yaml:2: ports[0].mac: \"02:00:00:00:00:-1\" is not a MAC address, as in "
         "02:00:00:00:00:01"},
        {"group MAC", port("name: e, mac: 03:00:00:00:00:01"),
         "t.yaml:2: ports[0].mac: \"03:00:00:00:00:01\" is a group address; a unicast address is "
         "needed"},
        {"zero MAC", port("name: e, mac: 00:00:00:00:00:00"),
         "t.yaml:2: ports[0].mac: \"00:00:00:00:00:00\" is not the address of a station"},
        {"MTU too small", port("name: e, mtu: 67, " + mac),
         "t.yaml:2: ports[0].mtu: mtu 67 is out of range (68..65535)"},
        {"MTU too large", port("name: e, mtu: 65536, " + mac),
         "t.yaml:2: ports[0].mtu: mtu 65536 is out of range (68..65535)"},
        {"MTU is text", port("name: e, mtu: 1k, " + mac),
         "t.yaml:2: ports[0].mtu: mtu \"1k\" is not a decimal number"},
        {"MTU is octal", port("name: e, mtu: 01500, " + mac),
         "t.yaml:2: ports[0].mtu: mtu \"01500\" is not a decimal number"},
        {"VLAN", port("name: e, tagging: 4095, " + mac),
         "t.yaml:2: ports[0].tagging: VLAN id 4095 is out of range (1..4094)"},
        {"tagging", port("name: e, tagging: both, " + mac),
         "t.yaml:2: ports[0].tagging: tagging \"both\" is not keep, none, or a VLAN id"},
        {"status", port("name: e, status: dwn, " + mac),
         "t.yaml:2: ports[0].status: unknown status \"dwn\"; did you mean \"down\"?"},
        {"misspelt", port("name: e, mtuu: 1, " + mac),
         "t.yaml:2: ports[0].mtuu: unknown key \"mtuu\"; did you mean \"mtu\"?"},
        {"twice", twoPorts + "  - {name: eth1, mac: 02:00:00:00:00:03}\n",
         "t.yaml:4: ports[2].name: port \"eth1\" is already defined at line 2"},
    });
}

TEST(ConfigErrors, OfSubInterfaces) {
    const auto with = [](const std::string& keys) { return twoPorts + "  - {" + keys + "}\n"; };
    const std::string sub = "name: eth1.100, parent: eth1, vlan: 100";
    expectErrors({
        {"a whole one", with(sub), ""},
        {"two tags", with("name: q, parent: eth1, vlan: [100, 200]"), ""},
        {"an MTU of its own", with(sub + ", mtu: 9000"), ""},
        {"an MTU above the parent's",
         with("name: big, mac: 02:00:00:00:00:09, mtu: 1600}\n  - {name: big.1, parent: big, vlan: "
              "1, mtu: 1601"),
         "t.yaml:5: ports[3].mtu: mtu 1601 is above that of the parent, 1600"},
        {"no VLAN", with("name: s, parent: eth1"), "t.yaml:4: ports[2].vlan: missing"},
        {"no parent", with("name: s, mac: 02:00:00:00:00:03, vlan: 100"),
         "t.yaml:4: ports[2].vlan: only a sub-interface, which names its parent, has a vlan; see "
         "tagging"},
        {"unknown parent", with("name: s, parent: eth3, vlan: 100"),
         "t.yaml:4: ports[2].parent: no port is named \"eth3\"; did you mean \"eth1\"?"},
        {"nested", with(sub) + "  - {name: s, parent: eth1.100, vlan: 5}\n",
         "t.yaml:5: ports[3].parent: \"eth1.100\" is a sub-interface itself; two VLAN ids take its "
         "place"},
        {"twice", with(sub) + "  - {name: s, parent: eth1, vlan: 100}\n",
         "t.yaml:5: ports[3].vlan: \"eth1\" already has a sub-interface of VLAN 100 at line 4"},
        {"VLAN 0", with("name: s, parent: eth1, vlan: 0"),
         "t.yaml:4: ports[2].vlan: VLAN id 0 is out of range (1..4094)"},
        {"inner VLAN", with("name: s, parent: eth1, vlan: [1, 4095]"),
         "t.yaml:4: ports[2].vlan[1]: VLAN id 4095 is out of range (1..4094)"},
        {"three tags", with("name: s, parent: eth1, vlan: [1, 2, 3]"),
         "t.yaml:4: ports[2].vlan: 3 VLAN ids given, allowed are an outer and an inner one"},
        {"tagging", with(sub + ", tagging: none"),
         "t.yaml:4: ports[2].tagging: \"none\" has no effect on a sub-interface: its parent and "
         "its "
         "vlan decide"},
        {"kind", with(sub + ", kind: xdp"),
         "t.yaml:4: ports[2].kind: \"xdp\" has no effect on a sub-interface: its parent and its "
         "vlan decide"},
        {"labels of an attachment circuit",
         with("name: ce, mac: 02:00:00:00:00:03, mpls: true") +
             "pseudowires:\n  - {name: gold, port: ce, label: 500, interface: eth1, nexthop: "
             "10.0.0.2}\n",
         "t.yaml:4: ports[2].mpls: true contradicts pseudowire \"gold\" at line 6, of which \"ce\" "
         "is the attachment circuit"},
    });
}

TEST(ConfigErrors, UnknownKeysOfEveryMap) {
    const std::string via = "{interface: eth1, nexthop: 10.0.0.2, action: pop, colour: red}";
    const std::string hop = "{interface: eth1, nexthop: 10.0.0.2, colour: red}";
    const std::string cases[]{
        "neighbours: [{address: 10.0.0.1, port: eth1, mac: 02:00:00:00:00:09, colour: red}]\n",
        "lfib: {colour: []}\n",
        "lfib: {decap: [{label: 16, via: {interface: eth1, action: pop}, colour: red}]}\n",
        "lfib: {decap: [{label: 16, via: " + via + "}]}\n",
        "lfib: {decap: [{label: 16, multicast: true, tail: {vlan: 5, colour: red}}]}\n",
        "hardware: {colour: []}\n",
        "hardware: {adjacencies: [{id: 1, via: {interface: eth1, action: pop}, colour: red}]}\n",
        "hardware: {adjacencies: [{id: 1, via: {interface: eth1, action: pop}}], routes: [{label: "
        "16, adjacency: 1, colour: red}]}\n",
        "fecs: [{id: 1, vias: [{interface: eth1, nexthop: 10.0.0.2}], colour: red}]\n",
        "fecs: [{id: 1, vias: [" + hop + "]}]\n",
        "routes: [{prefix: 10.1.0.0/16, drop: true, colour: red}]\n",
        "routes: [{prefix: 10.1.0.0/16, via: " + hop + "}]\n",
        "pseudowires: [{name: a, port: eth2, label: 500, interface: eth1, nexthop: 10.0.0.2, "
        "colour: red}]\n",
        "mvpn: [{vrf-id: 7, vlan: 5, colour: red}]\n",
        "cpu: {tap: t, colour: red}\n",
        "colour: red\n",
    };
    for (const std::string& text : cases) {
        EXPECT_NE(errorOf(twoPorts + text).find("unknown key \"colour\"; known: "),
                  std::string::npos)
            << text << errorOf(twoPorts + text);
    }
    EXPECT_EQ(errorOf(twoPorts + "mvpn: [{vrf_id: 7, vlan: 5}]\n"),
              "t.yaml:4: mvpn[0].vrf_id: unknown key \"vrf_id\"; did you mean \"vrf-id\"?");
}

TEST(ConfigErrors, OfAddresses) {
    const auto address = [](const std::string& text) {
        return port("name: e, mac: 02:00:00:00:00:01, addresses: [10.0.0.1/8, " + text + "]");
    };
    const std::string place = "t.yaml:2: ports[0].addresses[1]: ";
    const std::pair<const char*, const char*> cases[]{
        {"10.0.1.1", "\"10.0.1.1\" lacks its prefix length, as in 10.0.1.1/24"},
        {"10.0.1/24", "\"10.0.1/24\" is not an IPv4 or IPv6 address with prefix length"},
        {"10.0.1.256/24", "\"10.0.1.256/24\" is not an IPv4 or IPv6 address with prefix length"},
        {"\"10.0.1.1\\0/24\"",
         "\"10.0.1.1\\x00/24\" is not an IPv4 or IPv6 address with prefix length"},
        {"10.0.1.1/33", "the prefix length of \"10.0.1.1/33\" is not in 0..32"},
        {"10.0.1.1/", "the prefix length of \"10.0.1.1/\" is not in 0..32"},
        {"10.0.1.1/8x", "the prefix length of \"10.0.1.1/8x\" is not in 0..32"},
        {"2001:db8::1/129", "the prefix length of \"2001:db8::1/129\" is not in 0..128"},
        {"[]", "expected an IP address with prefix length, found a list"},
    };
    for (const auto& [text, error] : cases) {
        EXPECT_EQ(errorOf(address(text)), place + error);
    }
}

TEST(ConfigErrors, OfNeighbours) {
    const auto neighbours = [](const std::string& list) {
        return twoPorts + "neighbours:\n" + list;
    };
    expectErrors({
        {"unknown port", neighbours("  - {address: 10.0.0.1, port: eth3, mac: 02:00:00:00:00:01}"),
         "t.yaml:5: neighbours[0].port: no port is named \"eth3\"; did you mean \"eth1\"?"},
        {"bad address", neighbours("  - {address: 10.0.0, port: eth1, mac: 02:00:00:00:00:01}"),
         "t.yaml:5: neighbours[0].address: \"10.0.0\" is not an IPv4 or IPv6 address"},
        {"group MAC", neighbours("  - {address: 10.0.0.1, port: eth1, mac: ff:ff:ff:ff:ff:ff}"),
         "t.yaml:5: neighbours[0].mac: \"ff:ff:ff:ff:ff:ff\" is a group address; a unicast address "
         "is needed"},
        {"twice",
         neighbours("  - {address: 'fe80::1', port: eth1, mac: 02:00:00:00:00:01}\n"
                    "  - {address: 'fe80:0::1', port: eth1, mac: 02:00:00:00:00:02}"),
         "t.yaml:6: neighbours[1].address: neighbour \"fe80:0::1\" on this port is already defined "
         "at line 5"},
    });
}

} // namespace ConfigErrorsTest
