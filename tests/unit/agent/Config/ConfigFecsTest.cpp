#include <gtest/gtest.h>

#include "ConfigTesting.h"

namespace ConfigFecsTest {

using namespace OvixAgent;
using namespace OvixAgent::Testing;

namespace {

std::string fecs(const std::string& list) {
    return twoPorts + "fecs:\n" + list;
}

} // namespace

TEST(ConfigFecs, ReadsIdsAndNextHops) {
    const AgentConfig config =
        configOf(fecs("  - {id: 42, vias: [{interface: eth2, nexthop: 10.0.0.2, weight: 3}]}\n"
                      "  - id: 72057594037927935\n"
                      "    vias:\n"
                      "      - {interface: eth1, nexthop: \"2001:db8::2\"}\n"
                      "      - {interface: eth2, nexthop: 10.0.0.3, weight: 0}\n"),
                 "t.yaml");
    ASSERT_EQ(config.fecs.size(), 2U);
    EXPECT_EQ(config.fecs[0].id, 42U);
    ASSERT_EQ(config.fecs[0].nextHops.size(), 1U);
    EXPECT_EQ(config.fecs[0].nextHops[0].port, 1U);
    EXPECT_EQ(config.fecs[0].nextHops[0].address.text(), "10.0.0.2");
    EXPECT_EQ(config.fecs[0].nextHops[0].weight, 3U);
    EXPECT_EQ(config.fecs[1].id, Mpls::Via::maxFec);
    ASSERT_EQ(config.fecs[1].nextHops.size(), 2U);
    EXPECT_EQ(config.fecs[1].nextHops[0].address.text(), "2001:db8::2");
    EXPECT_EQ(config.fecs[1].nextHops[0].weight, 1U);
    EXPECT_EQ(config.fecs[1].nextHops[1].weight, 0U);
}

TEST(ConfigFecs, AreNoneUnlessGiven) {
    EXPECT_TRUE(configOf(twoPorts, "t.yaml").fecs.empty());
    EXPECT_EQ(errorOf(twoPorts + "fecs: []\n"), "");
}

TEST(ConfigFecs, ErrorsNameLineKeyAndValue) {
    const std::string via = "{interface: eth1, nexthop: 10.0.0.2}";
    const std::pair<std::string, std::string> cases[]{
        {"  - {id: 42, vias: [" + via + "]}\n  - {vias: [" + via + "], id: 42}",
         "t.yaml:6: fecs[1].id: FEC 42 is already defined at line 5"},
        {"  - {id: 42, via: " + via + "}",
         "t.yaml:5: fecs[0].via: unknown key \"via\"; did you mean \"vias\"?"},
        {"  - {vias: [" + via + "]}", "t.yaml:5: fecs[0].id: missing"},
        {"  - {id: 42}", "t.yaml:5: fecs[0].vias: missing"},
        {"  - {id: 0, vias: [" + via + "]}",
         "t.yaml:5: fecs[0].id: FEC id 0 is out of range (1..72057594037927935)"},
        {"  - {id: 72057594037927936, vias: [" + via + "]}",
         "t.yaml:5: fecs[0].id: FEC id 72057594037927936 is out of range (1..72057594037927935)"},
        {"  - {id: 42, vias: []}", "t.yaml:5: fecs[0].vias: at least one via is needed"},
        {"  - {id: 42, vias: [{interface: eth1, nexthop: 10.0.0.2, weight: 0}]}",
         "t.yaml:5: fecs[0].vias: the weights add up to 0, which is out of range (1..4294967295)"},
        {"  - {id: 42, vias: [" + via +
             ", {interface: eth1, nexthop: 10.0.0.2, weight: 4294967295}]}",
         "t.yaml:5: fecs[0].vias: the weights add up to 4294967296, which is out of range "
         "(1..4294967295)"},
        {"  - {id: 42, vias: [{nexthop: 10.0.0.2}]}",
         "t.yaml:5: fecs[0].vias[0].interface: missing"},
        {"  - {id: 42, vias: [{interface: eth1}]}", "t.yaml:5: fecs[0].vias[0].nexthop: missing"},
        {"  - {id: 42, vias: [{interface: eth9, nexthop: 10.0.0.2}]}",
         "t.yaml:5: fecs[0].vias[0].interface: no port is named \"eth9\"; did you mean \"eth1\"?"},
        {"  - {id: 42, vias: [{interface: eth1, nexthop: 10.0.0.2, labels: [16]}]}",
         "t.yaml:5: fecs[0].vias[0].labels: unknown key \"labels\"; known: interface, nexthop, "
         "weight"},
    };
    for (const auto& [text, error] : cases) {
        EXPECT_EQ(errorOf(fecs(text + "\n")), error);
    }
    EXPECT_EQ(errorOf(twoPorts + "fecs: 42\n"), "t.yaml:4: fecs: expected a list, found \"42\"");
}

TEST(ConfigFecs, AViaMayNameAFecThatIsNotThereYet) {
    const auto routed = [](const std::string& via, const std::string& type = "external-fec") {
        return twoPorts + "lfib:\n  decap: [{label: 100, type: " + type + ", via: " + via + "}]\n";
    };
    const AgentConfig config =
        configOf(routed("{fec: 72057594037927935, action: swap, labels: [16]}"), "t.yaml");
    EXPECT_EQ(config.labelRoutes.at(0).value.vias.at(0).via.fec(), Mpls::Via::maxFec);
    const std::string at = "t.yaml:5: lfib.decap[0].via";
    EXPECT_EQ(errorOf(routed("{fec: 72057594037927936, action: swap, labels: [16]}")),
              at + ".fec: fec 72057594037927936 is out of range (0..72057594037927935)");
    EXPECT_EQ(errorOf(routed("{fec: 42, action: pop}")), at + ": only push and swap lead to a fec");
    EXPECT_EQ(errorOf(routed("{fec: 42, action: push, labels: [16]}", "ip")),
              at + ": fec goes with type external-fec");
}

TEST(ConfigFecs, AViaOfALookupHasNothingThatItDoesNotUse) {
    const auto lookup = [](const std::string& keys) {
        return errorOf(twoPorts + "lfib:\n  decap: [{label: 100, type: ip-lookup, via: {" + keys +
                       "}}]\n");
    };
    for (const std::string key :
         {"interface: eth1", "nexthop: 10.0.0.1", "labels: [16]", "ttl: uniform", "tc: uniform",
          "push-tc: 1", "push-ttl: 9", "mtu: 1400", "vlan: 7", "fec: 0"}) {
        EXPECT_EQ(lookup("vrf: red, " + key), "t.yaml:5: lfib.decap[0].via." +
                                                  key.substr(0, key.find(':')) +
                                                  ": a lookup in a VRF takes vrf and payload only");
    }
    EXPECT_EQ(lookup("vrf: red, action: push"),
              "t.yaml:5: lfib.decap[0].via.action: a lookup in a VRF pops");
    EXPECT_EQ(lookup("action: pop, payload: ipv6"), "");
}

TEST(ConfigFecs, AViaOfALookupNeedsNoAction) {
    for (const char* type : {"ip-lookup", "ip-lookup-per-prefix"}) {
        const AgentConfig config =
            configOf(twoPorts + "lfib:\n  decap:\n    - {label: 100, type: " + type +
                         ", via: {vrf: red, payload: ipv4}}\n",
                     "t.yaml");
        EXPECT_EQ(config.labelRoutes.at(0).value.vias.at(0).via,
                  Mpls::Via::popAndLookUp("red", Mpls::PayloadType::ipv4).value());
    }
}

} // namespace ConfigFecsTest
