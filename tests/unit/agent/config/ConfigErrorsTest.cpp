#include <gtest/gtest.h>

#include "ConfigTesting.h"

using namespace OvixAgent;
using namespace OvixAgent::Testing;

namespace {

struct Case {
    const char* what;
    std::string text;
    const char* error;
};

void expectErrors(const std::vector<Case>& cases) {
    for (const Case& c : cases) {
        EXPECT_EQ(errorOf(c.text), c.error) << c.what;
    }
}

/// A single port with one key changed or added.
std::string port(const std::string& keys) {
    return "ports:\n  - {" + keys + "}\n";
}

std::string decap(const std::string& routes) {
    return twoPorts + "lfib:\n  decap:\n" + routes;
}

const std::string popVia = "via: {interface: eth1, action: pop}";

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
         "neighbours, lfib, hardware, pseudowires, routes, fecs, mvpn"},
        {"duplicate key", twoPorts + "lfib: {}\nlfib: {}\n",
         "t.yaml:5: lfib: the key \"lfib\" is already given at line 4"},
        {"a list as a key", "[a, b]: 1\n", "t.yaml:1: a key must be a non-empty word"},
        {"an unspeakable key", "\"a\\tb.c d\": 1\n",
         "t.yaml:1: \"a\\x09b.c d\": unknown key \"a\\x09b.c d\"; known: mpls-routing, toggles, "
         "ports, neighbours, lfib, hardware, pseudowires, routes, fecs, mvpn"},
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

TEST(ConfigErrors, OfPorts) {
    const std::string mac = "mac: 02:00:00:00:00:01";
    expectErrors({
        {"no list", "ports: eth1\n", "t.yaml:1: ports: expected a list, found \"eth1\""},
        {"none", "ports: []\n", "t.yaml:1: ports: at least one port is needed"},
        {"no map", "ports: [eth1]\n", "t.yaml:1: ports[0]: expected a map, found \"eth1\""},
        {"no name", port(mac), "t.yaml:2: ports[0].name: missing"},
        {"no MAC", port("name: eth1"), "t.yaml:2: ports[0].mac: missing"},
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
         "t.yaml:2: ports[0].mac: \"00:00:00:00:00:00\" is no station's address"},
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
         "t.yaml:2: ports[0].tagging: tagging \"both\" is none of keep, none, or a VLAN id"},
        {"status", port("name: e, status: dwn, " + mac),
         "t.yaml:2: ports[0].status: unknown status \"dwn\"; did you mean \"down\"?"},
        {"misspelt", port("name: e, mtuu: 1, " + mac),
         "t.yaml:2: ports[0].mtuu: unknown key \"mtuu\"; did you mean \"mtu\"?"},
        {"twice", twoPorts + "  - {name: eth1, mac: 02:00:00:00:00:03}\n",
         "t.yaml:4: ports[2].name: port \"eth1\" is already defined at line 2"},
    });
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

TEST(ConfigErrors, OfRoutes) {
    expectErrors({
        {"no such table", twoPorts + "lfib: {decaps: []}\n",
         "t.yaml:4: lfib.decaps: unknown key \"decaps\"; did you mean \"decap\"?"},
        {"no list", twoPorts + "lfib: {decap: {}}\n",
         "t.yaml:4: lfib.decap: expected a list, found a map"},
        {"no label", decap("    - {" + popVia + "}"), "t.yaml:6: lfib.decap[0].label: missing"},
        {"label too large", decap("    - {label: 1048576, " + popVia + "}"),
         "t.yaml:6: lfib.decap[0].label: label 1048576 is out of range (0..1048575)"},
        {"label negative", decap("    - {label: -1, " + popVia + "}"),
         "t.yaml:6: lfib.decap[0].label: label -1 is out of range (0..1048575)"},
        {"label huge", decap("    - {label: 99999999999999999999999, " + popVia + "}"),
         "t.yaml:6: lfib.decap[0].label: label 99999999999999999999999 is out of range "
         "(0..1048575)"},
        {"label twice",
         decap("    - {label: 16, " + popVia + "}\n    - {label: 17, " + popVia +
               "}\n    - label: 16\n      " + popVia),
         "t.yaml:8: lfib.decap[2].label: label 16 is already defined at line 6"},
        {"type", decap("    - {label: 16, type: ip-lockup, " + popVia + "}"),
         "t.yaml:6: lfib.decap[0].type: unknown via type \"ip-lockup\"; did you mean "
         "\"ip-lookup\"?"},
        {"type number", decap("    - {label: 16, type: 256, " + popVia + "}"),
         "t.yaml:6: lfib.decap[0].type: via type 256 is out of range (0..255)"},
        {"no vias", decap("    - {label: 16}"), "t.yaml:6: lfib.decap[0].vias: missing"},
        {"empty vias", decap("    - {label: 16, vias: []}"),
         "t.yaml:6: lfib.decap[0].vias: 0 vias given, allowed are 1 to 599"},
        {"both", decap("    - {label: 16, vias: [], " + popVia + "}"),
         "t.yaml:6: lfib.decap[0].via: via and vias cannot both be given"},
        {"vias not a list", decap("    - {label: 16, vias: {interface: eth1, action: pop}}"),
         "t.yaml:6: lfib.decap[0].vias: expected a list, found a map"},
    });
}

TEST(ConfigErrors, OfVias) {
    const std::string place = "t.yaml:6: lfib.decap[0].vias";
    const std::pair<const char*, const char*> cases[]{
        {"{action: pop}", "[0]: leads nowhere: interface, nexthop or fec is needed"},
        {"{action: pop, fec: 0}", "[0]: leads nowhere: interface, nexthop or fec is needed"},
        {"{interface: eth1}", "[0].action: missing"},
        {"{interface: eth9, action: pop}",
         "[0].interface: no port is named \"eth9\"; did you mean \"eth1\"?"},
        {"{interface: eth1, action: drop}",
         "[0].action: unknown action \"drop\"; did you mean \"pop\"?"},
        {"{interface: eth1, action: forward}",
         "[0].action: unknown action \"forward\"; known: push, pop, swap"},
        {"{interface: eth1, action: push}",
         "[0].labels: missing (push and swap need at least one label)"},
        {"{interface: eth1, action: swap, labels: []}",
         "[0].labels: 0 labels given, push and swap take 1 to 16383"},
        {"{interface: eth1, action: swap, labels: 200}",
         "[0].labels: expected a list, found \"200\""},
        {"{interface: eth1, action: pop, labels: []}", "[0].labels: action pop takes no labels"},
        {"{interface: eth1, action: swap, labels: [16, 1048576]}",
         "[0].labels[1]: label 1048576 is out of range (0..1048575)"},
        {"{interface: eth1, action: swap, labels: [16, x]}",
         "[0].labels[1]: label \"x\" is not a decimal number"},
        {"{interface: eth1, action: swap, labels: [3]}",
         "[0].labels[0]: label 3 (implicit null) never stands in a frame; use action pop instead"},
        {"{interface: eth1, action: pop, tc: 8}", "[0].tc: tc 8 is out of range (0..7)"},
        {"{interface: eth1, action: pop, push-ttl: 0}",
         "[0].push-ttl: push-ttl 0 is out of range (1..255)"},
        {"{interface: eth1, action: pop, ttl: short}",
         "[0].ttl: unknown ttl \"short\"; known: uniform, pipe"},
        {"{interface: eth1, action: pop, payload: ip}",
         "[0].payload: unknown payload \"ip\"; known: undefined, none, ipv4, ipv6, ethernet, auto"},
        {"{interface: eth1, action: pop, mtu: 0}", "[0].mtu: mtu 0 is out of range (68..65535)"},
        {"{interface: eth1, action: pop, vlan: 4095}",
         "[0].vlan: vlan 4095 is out of range (1..4094)"},
        {"{nexthop: eth1, action: pop}", "[0].nexthop: \"eth1\" is not an IPv4 or IPv6 address"},
        {"{interface: eth1, action: pop, nexthopp: 10.0.0.1}",
         "[0].nexthopp: unknown key \"nexthopp\"; did you mean \"nexthop\"?"},
        {"{interface: eth1, action: pop, weight: 4294967296}",
         "[0].weight: weight 4294967296 is out of range (0..4294967295)"},
        {"{interface: eth1, action: pop, weight: 0}, {interface: eth1, action: pop, weight: 0}",
         ": the weights add up to 0, which is out of range (1..4294967295)"},
        {"{interface: eth1, action: pop, weight: 4294967295}, {interface: eth1, action: pop}",
         ": the weights add up to 4294967296, which is out of range (1..4294967295)"},
    };
    for (const auto& [via, error] : cases) {
        EXPECT_EQ(errorOf(withVia(via)), place + error) << via;
    }
    EXPECT_EQ(
        errorOf(withVia("{interface: eth1, action: pop, vrf: " + std::string(101, 'v') + "}")),
        place + "[0].vrf: VRF name \"" + std::string(60, 'v') +
            "...\" has 101 bytes, allowed are 1 to 100");
}

TEST(ConfigErrors, OfASingleViaNameIt) {
    EXPECT_EQ(errorOf(decap("    - {label: 16, via: {interface: eth1, action: pop, weight: 0}}")),
              "t.yaml:6: lfib.decap[0].via: the weights add up to 0, which is out of range "
              "(1..4294967295)");
    EXPECT_EQ(errorOf(decap("    - {label: 16, via: {interface: eth1}}")),
              "t.yaml:6: lfib.decap[0].via.action: missing");
}

TEST(ConfigErrors, OfHardware) {
    const std::string adjacency = "    - {id: 1, " + popVia + "}\n";
    const auto hardware = [&](const std::string& more) {
        return twoPorts + "hardware:\n  adjacencies:\n" + adjacency + more;
    };
    expectErrors({
        {"id twice", hardware(adjacency),
         "t.yaml:7: hardware.adjacencies[1].id: adjacency 1 is already defined at line 6"},
        {"no id", hardware("    - {" + popVia + "}\n"),
         "t.yaml:7: hardware.adjacencies[1].id: missing"},
        {"id too large", hardware("    - {id: 18446744073709551616, " + popVia + "}\n"),
         "t.yaml:7: hardware.adjacencies[1].id: adjacency id 18446744073709551616 is out of range "
         "(0..18446744073709551615)"},
        {"backups", hardware("    - {id: 2, " + popVia + ", backups: [{interface: eth1}]}\n"),
         "t.yaml:7: hardware.adjacencies[1].backups[0].action: missing"},
        {"backup weights",
         hardware("    - {id: 2, " + popVia +
                  ", backups: [{interface: eth1, action: pop, weight: 0}]}\n"),
         "t.yaml:7: hardware.adjacencies[1].backups: the weights add up to 0, which is out of "
         "range (1..4294967295)"},
        {"unknown adjacency", hardware("  routes:\n    - {label: 300, adjacency: 2}\n"),
         "t.yaml:8: hardware.routes[0].adjacency: no adjacency has the id 2"},
        {"label twice",
         hardware("  routes:\n    - {label: 300, adjacency: 1}\n    - {label: 300, adjacency: "
                  "1}\n"),
         "t.yaml:9: hardware.routes[1].label: label 300 is already defined at line 8"},
        {"unprogrammed",
         hardware("  routes:\n    - {label: 300, adjacency: 1, unprogrammed: yes}\n"),
         "t.yaml:8: hardware.routes[0].unprogrammed: \"yes\" is not true or false"},
    });
}

TEST(ConfigErrors, RoutesMayStandBeforeTheAdjacenciesThatTheyName) {
    EXPECT_EQ(errorOf(twoPorts +
                      "hardware:\n  routes: [{label: 300, adjacency: 1}]\n"
                      "  adjacencies: [{id: 1, " +
                      popVia + "}]\n"),
              "");
}
