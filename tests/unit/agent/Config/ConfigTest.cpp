#include <cstdio>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <unistd.h>

#include "ConfigTesting.h"

namespace ConfigTest {

using namespace OvixAgent;
using namespace OvixAgent::Testing;

namespace {

constexpr const char* everything = R"(
mpls-routing: false
toggles: {MvpnLib.json: {MvpnSfe: false, Other: true}}
ports:
  - name: eth1
    mac: 02:00:00:00:00:01
    mtu: 9000
    addresses: [10.0.1.1/24, 2001:db8:1::1/64]
    tagging: none
    status: down
  - {name: eth2, mac: 02:00:00:00:00:02, tagging: 4094}
  - {name: eth3, mac: 02:00:00:00:00:03}
neighbours:
  - {address: 10.0.2.2, port: eth2, mac: 02:00:00:00:02:02}
  - {address: "fe80::2", port: eth3, mac: 02:00:00:00:03:02}
  - {address: "fe80::2", port: eth2, mac: 02:00:00:00:03:02}
lfib:
  transit:
    - label: 100
      type: external-fec
      vias:
        - {interface: eth2, nexthop: 10.0.2.2, weight: 3, action: swap, labels: [200, 16],
           ttl: pipe, tc: 3, push-ttl: 64, mtu: 1400, vlan: 10, push-tc: 0}
        - {nexthop: "2001:db8::1", action: pop}
hardware:
  adjacencies:
    - id: 1048575
      use-backups: true
      vias: [{interface: eth1, action: pop}]
      backups: [{interface: eth2, action: push, labels: [17]}]
  routes:
    - {label: 300, adjacency: 1048575, unprogrammed: true}
    - {label: 301, adjacency: 1048575}
)";

using Mpls::LfibViaType;
using Mpls::PayloadType;
using Mpls::TtlMode;
using Labels = std::vector<Lumo::MplsLabel>;

/// The routes of one table.
std::vector<Placed<Mpls::LabelRoute>> routesOf(const AgentConfig& config, Mpls::TableId table) {
    std::vector<Placed<Mpls::LabelRoute>> routes;
    for (const auto& route : config.labelRoutes) {
        if (route.value.table == table) {
            routes.push_back(route);
        }
    }
    return routes;
}

} // namespace

TEST(Config, ReadsPorts) {
    const AgentConfig config = configOf(everything, "t.yaml");
    ASSERT_EQ(config.ports.size(), 3U);
    const PortConfig& first = config.ports[0];
    EXPECT_EQ(first.name, "eth1");
    EXPECT_EQ(first.mac, (Lumo::EthAddr{2, 0, 0, 0, 0, 1}));
    EXPECT_EQ(first.mtu, 9000U);
    EXPECT_FALSE(first.isUp);
    EXPECT_EQ(first.tagging.kind, Tagging::Kind::none);
    ASSERT_EQ(first.addresses.size(), 2U);
    EXPECT_EQ(first.addresses[0].address.text(), "10.0.1.1");
    EXPECT_EQ(first.addresses[0].prefixLength, 24);
    EXPECT_EQ(first.addresses[1].address.text(), "2001:db8:1::1");
    EXPECT_EQ(first.addresses[1].prefixLength, 64);
    EXPECT_EQ(config.ports[1].tagging.kind, Tagging::Kind::vlan);
    EXPECT_EQ(config.ports[1].tagging.vlan, 4094);
}

TEST(Config, PortsHaveDefaults) {
    const PortConfig port = configOf(everything, "t.yaml").ports.at(2);
    EXPECT_EQ(port.mtu, 1500U);
    EXPECT_TRUE(port.isUp);
    EXPECT_EQ(port.tagging.kind, Tagging::Kind::keep);
    EXPECT_TRUE(port.addresses.empty());
}

TEST(Config, ASubInterfaceHasFromItsParentWhatItLacks) {
    const AgentConfig config =
        configOf("ports:\n"
                 "  - {name: e.7, parent: e, vlan: 7, mac: 02:00:00:00:00:09, mtu: 1400}\n"
                 "  - {name: q, parent: e, vlan: [7, 8]}\n"
                 "  - {name: e, mac: 02:00:00:00:00:01, mtu: 9000, kind: xdp, status: down}\n");
    EXPECT_FALSE(config.ports[2].isSubInterface());
    EXPECT_FALSE(config.ports[0].isUp || config.ports[1].isUp);
    EXPECT_EQ(config.ports[0].parent, 2U);
    EXPECT_EQ(config.ports[0].mac, (Lumo::EthAddr{2, 0, 0, 0, 0, 9}));
    EXPECT_EQ(config.ports[0].mtu, 1400U);
    EXPECT_EQ(config.ports[0].tagging, (Tagging{Tagging::Kind::subInterface, 7, 0}));
    EXPECT_EQ(config.ports[1].mac, (Lumo::EthAddr{2, 0, 0, 0, 0, 1}));
    EXPECT_EQ(config.ports[1].mtu, 9000U);
    EXPECT_EQ(config.ports[1].kind, PortKind::xdp);
    EXPECT_EQ(config.ports[1].tagging, (Tagging{Tagging::Kind::subInterface, 7, 8}));
}

TEST(Config, OnlyPortsOfTheProviderTakeLabelsUnlessTheySay) {
    const AgentConfig config =
        configOf("ports:\n"
                 "  - {name: core, mac: 02:00:00:00:00:01}\n"
                 "  - {name: own, mac: 02:00:00:00:00:02, vrf: default}\n"
                 "  - {name: red, mac: 02:00:00:00:00:03, vrf: red}\n"
                 "  - {name: blue, mac: 02:00:00:00:00:04, vrf: blue, mpls: true}\n"
                 "  - {name: shut, mac: 02:00:00:00:00:05, mpls: false}\n"
                 "  - {name: ce, mac: 02:00:00:00:00:06}\n"
                 "pseudowires:\n"
                 "  - {name: gold, port: ce, label: 500, interface: core, nexthop: 10.0.0.2}\n");
    std::vector<bool> taking;
    for (const PortConfig& port : config.ports) {
        taking.push_back(port.mpls);
    }
    EXPECT_EQ(taking, (std::vector<bool>{true, true, false, true, false, false}));
}

TEST(Config, ReadsTogglesAndMplsRouting) {
    const AgentConfig config = configOf(everything, "t.yaml");
    EXPECT_FALSE(config.mplsRouting);
    const ToggleConfig toggles{{"MvpnLib.json", {{"MvpnSfe", false}, {"Other", true}}}};
    EXPECT_EQ(config.toggles, toggles);
}

TEST(Config, MplsRoutingIsOnAndTheRestIsEmptyWhenNotGiven) {
    const AgentConfig config = configOf(twoPorts, "t.yaml");
    EXPECT_TRUE(config.mplsRouting);
    EXPECT_TRUE(config.toggles.empty());
    EXPECT_TRUE(config.neighbours.empty());
    EXPECT_TRUE(config.labelRoutes.empty());
    EXPECT_TRUE(config.hardware.routes.empty());
}

TEST(Config, OneAddressMayBeANeighbourOnTwoPorts) {
    const AgentConfig config = configOf(everything, "t.yaml");
    ASSERT_EQ(config.neighbours.size(), 3U);
    EXPECT_EQ(config.neighbours[0].port, 1U);
    EXPECT_EQ(config.neighbours[1].port, 2U);
    EXPECT_EQ(config.neighbours[2].port, 1U);
    EXPECT_EQ(config.neighbours[1].address, config.neighbours[2].address);
    EXPECT_EQ(config.neighbours[0].mac, (Lumo::EthAddr{2, 0, 0, 0, 2, 2}));
}

TEST(Config, ReadsEveryFieldOfAVia) {
    const AgentConfig config = configOf(everything, "t.yaml");
    ASSERT_EQ(config.labelRoutes.size(), 1U);
    EXPECT_EQ(config.labelRoutes[0].line, 19U);
    const Mpls::LabelRoute& route = config.labelRoutes[0].value;
    EXPECT_EQ(route.table, Mpls::TableId::transitLfib);
    EXPECT_EQ(route.label, Lumo::MplsLabel(100));
    EXPECT_EQ(route.viaType, LfibViaType::externalFec);
    EXPECT_EQ(route.vias.at(0).weight, 3U);
    EXPECT_EQ(route.vias.at(0).via.action(), Lumo::MplsLabelAction::swap);
    EXPECT_EQ(route.vias.at(0).via.labels(), (Labels{Lumo::MplsLabel(200), Lumo::MplsLabel(16)}));
    const Mpls::ViaOptions via = route.vias.at(0).via.options();
    EXPECT_EQ(via.intf, Lumo::IntfId("eth2"));
    EXPECT_EQ(via.nexthop.text(), "10.0.2.2");
    EXPECT_EQ(via.ttl, TtlMode::pipe);
    EXPECT_EQ(via.tc, 3);
    EXPECT_EQ(via.pushTtl, 64);
    EXPECT_EQ(via.mtu, 1400U);
    EXPECT_EQ(via.vlan, 10);
    EXPECT_EQ(via.pushTc, 0);
    const AgentConfig popped =
        configOf(withVia("{interface: eth1, action: pop, payload: ipv4}"), "t.yaml");
    EXPECT_EQ(popped.labelRoutes.at(0).value.vias.at(0).via.options().payload, PayloadType::ipv4);
}

TEST(Config, ViasHaveDefaults) {
    const AgentConfig config = configOf(everything, "t.yaml");
    const Mpls::WeightedVia& via = config.labelRoutes[0].value.vias.at(1);
    EXPECT_EQ(via.weight, 1U);
    Mpls::ViaOptions options;
    options.nexthop = Lumo::IpGenAddr::fromText("2001:db8::1");
    EXPECT_EQ(via.via, Mpls::Via::pop(options).value());
}

TEST(Config, ReadsHardware) {
    const AgentConfig config = configOf(everything, "t.yaml");
    ASSERT_EQ(config.hardware.adjacencies.size(), 1U);
    const AdjacencyConfig& adjacency = config.hardware.adjacencies[0].value;
    EXPECT_EQ(adjacency.id, 1048575U);
    EXPECT_TRUE(adjacency.content.useBackups);
    EXPECT_EQ(adjacency.content.vias.at(0).via.intf(), Lumo::IntfId("eth1"));
    EXPECT_EQ(adjacency.content.backups.at(0).via.labels(), Labels{Lumo::MplsLabel(17)});
    ASSERT_EQ(config.hardware.routes.size(), 2U);
    EXPECT_EQ(config.hardware.routes[0].value.routeKey.topLabel(), Lumo::MplsLabel(300));
    EXPECT_EQ(config.hardware.routes[0].value.adjacencyKey, 1048575U);
    EXPECT_TRUE(config.hardware.routes[0].value.unprogrammed);
    EXPECT_FALSE(config.hardware.routes[1].value.unprogrammed);
}

TEST(Config, EveryTableIsReadUnderItsOwnName) {
    const char* const names[]{"decap", "evpn-ethernet-segment-filter", "evpn-etree-leaf-label",
                              "pseudowire", "transit"};
    for (std::size_t i = 0; i < Mpls::lfibs; ++i) {
        const std::string text = twoPorts + "lfib: {" + names[i] +
                                 ": [{label: 16, via: {interface: eth1, action: pop}}]}\n";
        const AgentConfig config = configOf(text, "t.yaml");
        ASSERT_EQ(config.labelRoutes.size(), 1U);
        EXPECT_EQ(config.labelRoutes[0].value.table, static_cast<Mpls::TableId>(i)) << names[i];
    }
}

TEST(Config, ViaTypesHaveNamesAndNumbers) {
    const std::pair<const char*, std::uint8_t> types[]{
        {"ip", 1},    {"ip-lookup", 3}, {"external-fec", 10}, {"ip-lookup-per-prefix", 11},
        {"\"2\"", 2}, {"0", 0},         {"255", 255},
    };
    for (const auto& [word, number] : types) {
        const AgentConfig config =
            configOf(twoPorts + "lfib: {decap: [{label: 16, type: " + word + ", via: {action: pop" +
                         (Mpls::looksUp(LfibViaType{number}) ? "" : ", interface: eth1") + "}}]}\n",
                     "t.yaml");
        EXPECT_EQ(config.labelRoutes.at(0).value.viaType, LfibViaType{number}) << word;
    }
}

TEST(Config, AnIpLookupNeedsNoNextHop) {
    EXPECT_EQ(errorOf(twoPorts + "lfib: {decap: [{label: 16, type: ip-lookup, "
                                 "via: {action: pop, vrf: red}}]}\n"),
              "");
}

TEST(Config, TheSameLabelMayStandInTwoTables) {
    EXPECT_EQ(errorOf(twoPorts + "lfib:\n"
                                 "  decap: [{label: 16, via: {interface: eth1, action: pop}}]\n"
                                 "  transit: [{label: 16, via: {interface: eth1, action: pop}}]\n"),
              "");
}

TEST(Config, AnAnchoredViaListServesSeveralRoutes) {
    const AgentConfig config =
        configOf(twoPorts + "lfib:\n"
                            "  decap:\n"
                            "    - {label: 16, vias: &shared [{interface: eth2, action: swap, "
                            "labels: [99]}]}\n"
                            "    - {label: 17, vias: *shared}\n",
                 "t.yaml");
    const auto routes = routesOf(config, Mpls::TableId::decapLfib);
    ASSERT_EQ(routes.size(), 2U);
    EXPECT_EQ(routes[1].value.label, Lumo::MplsLabel(17));
    EXPECT_EQ(routes[1].value.vias.at(0).via.labels(), Labels{Lumo::MplsLabel(99)});
    EXPECT_EQ(routes[1].value.vias.at(0).via.intf(), Lumo::IntfId("eth2"));
}

TEST(Config, LimitsThemselvesAreAccepted) {
    const char* const vias[]{
        "{interface: eth1, action: swap, labels: [0]}",
        "{interface: eth1, action: swap, labels: [1048575]}",
        "{interface: eth1, action: push, labels: [4, 6, 7, 15]}",
        "{interface: eth1, action: pop, weight: 4294967295}",
        "{interface: eth1, action: push, labels: [16], tc: 0, ttl: pipe, push-ttl: 1, mtu: 68, "
        "vlan: 1}",
        "{interface: eth1, action: push, labels: [16], tc: 7, ttl: pipe, push-ttl: 255, vlan: "
        "4094}",
        "{interface: eth1, action: push, labels: [16], mtu: 65535}",
        "{interface: eth1, action: swap, labels: [16, 17], push-tc: 0}",
        "{interface: eth1, action: swap, labels: [16, 17], push-tc: 7}",
        "{interface: eth1, action: pop, tc: uniform}",
        "{interface: eth1, action: pop, weight: 0}, {interface: eth2, action: pop}",
    };
    for (const char* via : vias) {
        EXPECT_EQ(errorOf(withVia(via)), "") << via;
    }
}

TEST(Config, TakesUpTo599Vias) {
    std::string vias = "{interface: eth1, action: pop}";
    for (int i = 1; i < 599; ++i) {
        vias += ", {interface: eth2, action: pop}";
    }
    EXPECT_EQ(errorOf(withVia(vias)), "");
    EXPECT_EQ(errorOf(withVia(vias + ", {interface: eth2, action: pop}")),
              "t.yaml:6: lfib.decap[0].vias: 600 vias given, allowed are 1 to 599");
}

TEST(Config, TakesUpTo33Labels) {
    std::string labels = "16";
    for (int i = 1; i < 33; ++i) {
        labels += ", " + std::to_string(16 + i);
    }
    const auto push = [&](const std::string& more) {
        return withVia("{interface: eth1, action: push, labels: [" + labels + more + "]}");
    };
    const Labels stack =
        configOf(push(""), "t.yaml").labelRoutes.at(0).value.vias.at(0).via.labels();
    ASSERT_EQ(stack.size(), 33U);
    EXPECT_EQ(stack.front(), Lumo::MplsLabel(16));
    EXPECT_EQ(stack.back(), Lumo::MplsLabel(48));
    EXPECT_EQ(errorOf(push(", 49")), "t.yaml:6: lfib.decap[0].vias[0].labels: 34 labels given, "
                                     "push and swap take 1 to 33");
}

TEST(Config, LoadsAHundredThousandRoutes) {
    std::string text = twoPorts + "lfib:\n  decap:\n";
    for (int i = 0; i < 100'000; ++i) {
        const std::string label = std::to_string(16 + i);
        text += "    - {label: " + label + ", via: {interface: eth2, action: swap, labels: [" +
                label + "]}}\n";
    }
    const AgentConfig config = configOf(text, "t.yaml");
    const auto& routes = config.labelRoutes;
    ASSERT_EQ(routes.size(), 100'000U);
    EXPECT_EQ(routes.back().value.label, Lumo::MplsLabel(100'015));
    EXPECT_EQ(routes.back().value.vias.at(0).via.labels(), Labels{Lumo::MplsLabel(100'015)});
    EXPECT_EQ(routes.back().line, 100'005U);
}

TEST(Config, IsLoadedFromAFile) {
    const auto path = std::filesystem::temp_directory_path() /
                      ("config-test-" + std::to_string(getpid()) + ".yaml");
    std::ofstream(path) << twoPorts;
    EXPECT_EQ(loadConfig(path.string()).value().ports.size(), 2U);
    std::ofstream(path) << twoPorts << "mpls-routing: maybe\n";
    const auto refused = loadConfig(path.string());
    ASSERT_FALSE(refused);
    EXPECT_EQ(refused.refused().what,
              path.string() + ":4: mpls-routing: \"maybe\" is not true or false");
    std::filesystem::remove(path);
}

TEST(Config, AnUnreadableFileIsNamed) {
    const auto messageOf = [](const std::string& path) { return loadConfig(path).refused().what; };
    EXPECT_EQ(messageOf("/nonexistent/a.yaml"),
              "/nonexistent/a.yaml: cannot be opened: No such file or directory");
    EXPECT_EQ(messageOf("/"), "/: cannot be read: Is a directory");
}

} // namespace ConfigTest
