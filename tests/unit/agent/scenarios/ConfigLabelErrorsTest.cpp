#include "ConfigTesting.h"

namespace ConfigLabelErrorsTest {

using namespace OvixAgent;
using namespace OvixAgent::Testing;

namespace {

std::string decap(const std::string& routes) {
    return twoPorts + "lfib:\n  decap:\n" + routes;
}

const std::string popVia = "via: {interface: eth1, action: pop}";

} // namespace

TEST(ConfigLabelErrors, OfRoutes) {
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
        {"implicit null", decap("    - {label: 3, " + popVia + "}"),
         "t.yaml:6: lfib.decap[0].label: label 3 (implicit null) never stands in a frame (RFC 3032 "
         "section 2.1)"},
        {"explicit null", decap("    - {label: 0, " + popVia + "}"),
         "t.yaml:6: lfib.decap[0].label: label 0 is a special-purpose label, and no table holds "
         "labels 0 to 15 (RFC 7274)"},
        {"hardware route of a special-purpose label",
         twoPorts + "hardware:\n  adjacencies: [{id: 1, " + popVia +
             "}]\n  routes: [{label: 15, adjacency: 1}]\n",
         "t.yaml:6: hardware.routes[0].label: label 15 is a special-purpose label, and no table "
         "holds labels 0 to 15 (RFC 7274)"},
        {"type", decap("    - {label: 16, type: ip-lockup, " + popVia + "}"),
         "t.yaml:6: lfib.decap[0].type: unknown via type \"ip-lockup\"; did you mean "
         "\"ip-lookup\"?"},
        {"type number", decap("    - {label: 16, type: 256, " + popVia + "}"),
         "t.yaml:6: lfib.decap[0].type: via type 256 is out of range (0..255)"},
        {"a tail's type", decap("    - {label: 16, type: multicast-ip-lookup, " + popVia + "}"),
         "t.yaml:6: lfib.decap[0].tail: missing: type multicast-ip-lookup delivers on its VLAN"},
        {"a tail's type with its tail",
         decap("    - {label: 16, type: multicast-ip-lookup, multicast: true, tail: {vlan: 5}}"),
         ""},
        {"two lookups",
         decap("    - {label: 16, type: ip-lookup, vias: [{vrf: red}, {vrf: blue}]}"),
         "t.yaml:6: lfib.decap[0].vias: 2 vias given, a lookup in a VRF has one"},
        {"no vias", decap("    - {label: 16}"), "t.yaml:6: lfib.decap[0].vias: missing"},
        {"empty vias", decap("    - {label: 16, vias: []}"),
         "t.yaml:6: lfib.decap[0].vias: 0 vias given, allowed are 1 to 599"},
        {"both", decap("    - {label: 16, vias: [], " + popVia + "}"),
         "t.yaml:6: lfib.decap[0].via: via and vias cannot both be given"},
        {"vias not a list", decap("    - {label: 16, vias: {interface: eth1, action: pop}}"),
         "t.yaml:6: lfib.decap[0].vias: expected a list, found a map"},
    });
}

TEST(ConfigLabelErrors, OfVias) {
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
         "[0].labels: 0 labels given, push and swap take 1 to 33"},
        {"{interface: eth1, action: swap, labels: 200}",
         "[0].labels: expected a list, found \"200\""},
        {"{interface: eth1, action: pop, labels: []}", "[0].labels: action pop takes no labels"},
        {"{interface: eth1, action: swap, labels: [16, 1048576]}",
         "[0].labels[1]: label 1048576 is out of range (0..1048575)"},
        {"{interface: eth1, action: swap, labels: [16, x]}",
         "[0].labels[1]: label \"x\" is not a decimal number"},
        {"{interface: eth1, action: swap, labels: [3]}",
         "[0].labels[0]: label 3 (implicit null) never stands in a frame (RFC 3032 section 2.1); "
         "use "
         "action pop instead"},
        {"{interface: eth1, action: pop, tc: 8}", "[0].tc: tc 8 is out of range (0..7)"},
        {"{interface: eth1, action: pop, push-ttl: 0}",
         "[0].push-ttl: push-ttl 0 is out of range (1..255)"},
        {"{interface: eth1, action: pop, ttl: short}",
         "[0].ttl: unknown ttl \"short\"; known: uniform, pipe"},
        {"{interface: eth1, action: pop, payload: ip}",
         "[0].payload: unknown payload \"ip\"; known: undefined, none, ipv4, ipv6, ethernet, auto"},
        {"{interface: eth1, action: push, labels: [16], push-ttl: 9}",
         "[0]: push-ttl 9 goes with ttl pipe; in uniform mode pushed labels have the packet's TTL "
         "(RFC 3443)"},
        {"{interface: eth1, action: push, labels: [16], nexthop: 224.0.0.1}",
         "[0]: next hop 224.0.0.1 is not the address of one station"},
        {"{interface: eth1, action: swap, labels: [16], payload: ipv4}",
         "[0].payload: only a pop exposes a payload"},
        {"{interface: eth1, action: push, labels: [16], payload: auto}",
         "[0].payload: only a pop exposes a payload"},
        {"{interface: eth1, action: pop, vrf: red}",
         "[0].vrf: goes with type ip-lookup or ip-lookup-per-prefix, which route in a VRF"},
        {"{interface: eth1, action: pop, tc: uniform, payload: ethernet}",
         "[0].tc: uniform writes the class of a packet (RFC 3270), and an Ethernet frame has none"},
        {"{interface: eth1, action: pop, ttl: uniform, payload: ethernet}",
         "[0].ttl: goes with a packet, and an Ethernet frame has none"},
        {"{interface: eth1, action: swap, labels: [16], ttl: pipe, push-ttl: 9}",
         "[0]: push-ttl 9 goes with a push, and with a swap to several labels"},
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

TEST(ConfigLabelErrors, ASubInterfaceHasItsOwnVlan) {
    const auto via = [](const std::string& port) {
        return twoPorts +
               "  - {name: eth1.7, parent: eth1, vlan: 7}\nlfib: {decap: [{label: 16, via: "
               "{interface: " +
               port + ", action: pop, vlan: 9}}]}\n";
    };
    EXPECT_EQ(errorOf(via("eth1")), "");
    EXPECT_EQ(
        errorOf(via("eth1.7")),
        "t.yaml:5: lfib.decap[0].via.vlan: \"eth1.7\" is a sub-interface, which has its own VLAN");
}

TEST(ConfigLabelErrors, OfASingleViaNameIt) {
    EXPECT_EQ(errorOf(decap("    - {label: 16, via: {interface: eth1, action: pop, weight: 0}}")),
              "t.yaml:6: lfib.decap[0].via: the weights add up to 0, which is out of range "
              "(1..4294967295)");
    EXPECT_EQ(errorOf(decap("    - {label: 16, via: {interface: eth1}}")),
              "t.yaml:6: lfib.decap[0].via.action: missing");
}

TEST(ConfigLabelErrors, OfHardware) {
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
         "(0..1048575)"},
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

TEST(ConfigLabelErrors, RoutesMayStandBeforeTheAdjacenciesThatTheyName) {
    EXPECT_EQ(errorOf(twoPorts +
                      "hardware:\n  routes: [{label: 300, adjacency: 1}]\n"
                      "  adjacencies: [{id: 1, " +
                      popVia + "}]\n"),
              "");
}

} // namespace ConfigLabelErrorsTest
