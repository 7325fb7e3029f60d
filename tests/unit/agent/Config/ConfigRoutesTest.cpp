#include <gtest/gtest.h>

#include "ConfigTesting.h"

namespace ConfigRoutesTest {

using namespace OvixAgent;
using namespace OvixAgent::Testing;

namespace {

/// Two ports with subnets, in the first three lines; the routes stand from line 5 on.
std::string routes(const std::string& list) {
    return "ports:\n"
           "  - {name: eth1, mac: 02:00:00:00:00:01, addresses: [10.0.1.1/24, 10.0.1.129/25]}\n"
           "  - {name: eth2, mac: 02:00:00:00:00:02, vrf: red, addresses: [10.0.1.1/24]}\n"
           "routes:\n" +
           list;
}

/// One route with the keys given.
std::string route(const std::string& keys) {
    return routes("  - {" + keys + "}\n");
}

} // namespace

TEST(ConfigRoutes, AreReadWithAllTheirKeys) {
    const AgentConfig config = configOf(
        routes("  - {prefix: 10.1.0.0/16, via: {interface: eth2}}\n"
               "  - vrf: red\n"
               "    prefix: 2001:db8::/33\n"
               "    vias:\n"
               "      - {interface: eth1, nexthop: 2001:db8::1, labels: [16, 1048575], weight: 7,\n"
               "         ttl: pipe, tc: 5, push-ttl: 9}\n"
               "      - {interface: eth2, weight: 0}\n"
               "  - {prefix: 0.0.0.0/0, drop: true}\n"),
        "t.yaml");
    ASSERT_EQ(config.routes.size(), 3U);
    const L3::Route& plain = config.routes[0].value;
    EXPECT_TRUE(plain.vrf.empty());
    EXPECT_EQ(plain.key.range(), (Lumo::IpGenPrefix{Lumo::IpGenAddr::fromText("10.1.0.0"), 16}));
    Mpls::ViaOptions onLink;
    onLink.intf = Lumo::IntfId("eth2");
    EXPECT_EQ(plain.vias,
              (std::vector<Mpls::WeightedVia>{{Mpls::Via::forward(onLink).value(), 1}}));
    EXPECT_EQ(config.routes[0].line, 5U);

    const L3::Route& pushing = config.routes[1].value;
    EXPECT_EQ(pushing.vrf.view(), "red");
    EXPECT_EQ(pushing.key.prefix.text(), "2001:db8::");
    ASSERT_EQ(pushing.vias.size(), 2U);
    EXPECT_EQ(pushing.vias[0].weight, 7U);
    Mpls::ViaOptions options;
    options.intf = Lumo::IntfId("eth1");
    options.nexthop = Lumo::IpGenAddr::fromText("2001:db8::1");
    options.ttl = Mpls::TtlMode::pipe;
    options.tc = 5;
    options.pushTtl = 9;
    const std::vector<Lumo::MplsLabel> labels{Lumo::MplsLabel(16), Lumo::MplsLabel(1048575)};
    EXPECT_EQ(pushing.vias[0].via, Mpls::Via::push(labels, options).value());
    EXPECT_EQ(config.routes[2].value.kind, L3::Route::Kind::drop);
    EXPECT_TRUE(config.routes[2].value.vias.empty());
}

TEST(ConfigRoutes, ARouteThatDropsMayAnswer) {
    const auto kind = [](const std::string& drop) {
        const AgentConfig config =
            configOf(routes("  - {prefix: 10.1.0.0/16, drop: " + drop + "}\n"), "t.yaml");
        EXPECT_TRUE(config.routes[0].value.vias.empty());
        return config.routes[0].value.kind;
    };
    EXPECT_EQ(kind("true"), L3::Route::Kind::drop);
    EXPECT_EQ(kind("unreachable"), L3::Route::Kind::unreachable);
    EXPECT_EQ(kind("prohibit"), L3::Route::Kind::prohibit);
    EXPECT_NE(errorOf(routes("  - {prefix: 10.1.0.0/16, drop: maybe}\n")), "");
    EXPECT_NE(
        errorOf(routes("  - {prefix: 10.1.0.0/16, drop: prohibit, via: {interface: eth1}}\n")), "");
}

TEST(ConfigRoutes, ANextHopIsReachedAtThePortOfItsVrfWithTheLongestSubnet) {
    const AgentConfig config =
        configOf(routes("  - {prefix: 10.1.0.0/16, via: {nexthop: 10.0.1.2}}\n"
                        "  - {prefix: 10.2.0.0/16, via: {nexthop: 10.0.1.200}}\n"
                        "  - {vrf: red, prefix: 10.1.0.0/16, via: {nexthop: 10.0.1.2}}\n"),
                 "t.yaml");
    EXPECT_EQ(config.routes[0].value.vias[0].via.intf(), Lumo::IntfId("eth1"));
    EXPECT_EQ(config.routes[1].value.vias[0].via.intf(), Lumo::IntfId("eth1"));
    EXPECT_EQ(config.routes[2].value.vias[0].via.intf(), Lumo::IntfId("eth2"));
}

TEST(ConfigRoutes, APortRoutesIpWhenItNamesAVrfOrItsVrfHasRoutes) {
    const auto routing = [](const std::string& text) {
        std::vector<bool> all;
        for (const PortConfig& port : configOf(text, "t.yaml").ports) {
            all.push_back(port.routesIp);
        }
        return all;
    };
    EXPECT_EQ(routing(twoPorts), (std::vector<bool>{false, false}));
    EXPECT_EQ(routing(twoPorts + "routes: []\n"), (std::vector<bool>{false, false}));
    EXPECT_EQ(routing(routes("  []\n")), (std::vector<bool>{false, true}));
    EXPECT_EQ(routing(route("vrf: blue, prefix: 10.1.0.0/16, drop: true")),
              (std::vector<bool>{false, true}));
    EXPECT_EQ(routing(route("prefix: 10.1.0.0/16, drop: true")), (std::vector<bool>{true, true}));
}

TEST(ConfigRoutes, TheSamePrefixMayStandInTwoVrfsAndTwoLengths) {
    EXPECT_EQ(errorOf(routes("  - {prefix: 10.1.0.0/16, drop: true}\n"
                             "  - {prefix: 10.1.0.0/17, drop: true}\n"
                             "  - {vrf: red, prefix: 10.1.0.0/16, drop: true}\n")),
              "");
    EXPECT_EQ(errorOf(routes("  - {prefix: 0.0.0.0/0, drop: true}\n"
                             "  - {prefix: \"::/0\", drop: true}\n")),
              "");
}

TEST(ConfigRoutes, ErrorsNameLineKeyAndValue) {
    const std::string via = "via: {nexthop: 10.0.1.2}";
    const std::pair<std::string, const char*> cases[]{
        {route(via), "t.yaml:5: routes[0].prefix: missing"},
        {route("prefix: 10.1.0.0, " + via),
         "t.yaml:5: routes[0].prefix: \"10.1.0.0\" lacks its prefix length, as in 10.0.1.1/24"},
        {route("prefix: 10.1.0.1/16, " + via),
         "t.yaml:5: routes[0].prefix: \"10.1.0.1/16\" has bits set beyond its prefix length"},
        {route("prefix: 128.0.0.0/0, " + via),
         "t.yaml:5: routes[0].prefix: \"128.0.0.0/0\" has bits set beyond its prefix length"},
        {route("prefix: \"2001:db8::1/127\", " + via),
         "t.yaml:5: routes[0].prefix: \"2001:db8::1/127\" has bits set beyond its prefix length"},
        {route("prefix: 10.0.1.0/24, " + via),
         "t.yaml:5: routes[0].prefix: \"10.0.1.0/24\" is the subnet or address of port \"eth1\""},
        {route("vrf: red, prefix: 10.0.1.1/32, " + via),
         "t.yaml:5: routes[0].prefix: \"10.0.1.1/32\" is the subnet or address of port \"eth2\""},
        {routes("  - {prefix: 10.1.0.0/16, " + via + "}\n  - {prefix: 10.1.0.0/16, " + via + "}\n"),
         "t.yaml:6: routes[1].prefix: prefix \"10.1.0.0/16\" of VRF \"default\" is already defined "
         "at line 5"},
        {route("vrf: \"\", prefix: 10.1.0.0/16, " + via),
         "t.yaml:5: routes[0].vrf: VRF name \"\" has 0 bytes, allowed are 1 to 100"},
        {route("prefix: 10.1.0.0/16"), "t.yaml:5: routes[0].vias: missing"},
        {route("prefix: 10.1.0.0/16, drop: false"), "t.yaml:5: routes[0].vias: missing"},
        {route("prefix: 10.1.0.0/16, vias: []"),
         "t.yaml:5: routes[0].vias: 0 vias given, allowed are 1 to 599"},
        {route("prefix: 10.1.0.0/16, drop: true, " + via),
         "t.yaml:5: routes[0].drop: a route that drops has no vias"},
        {route("prefix: 10.1.0.0/16, vias: [], " + via),
         "t.yaml:5: routes[0].via: via and vias cannot both be given"},
        {route("prefix: 10.1.0.0/16, via: {}"),
         "t.yaml:5: routes[0].via.interface: missing (interface or nexthop is needed)"},
        {route("prefix: 10.1.0.0/16, via: {interface: eth3}"),
         "t.yaml:5: routes[0].via.interface: no port is named \"eth3\"; did you mean \"eth1\"?"},
        {route("prefix: \"2001:db8::/48\", via: {interface: eth1, nexthop: 10.0.1.2}"),
         "t.yaml:5: routes[0].via.nexthop: \"10.0.1.2\" is an IPv4 address, to which an IPv6 "
         "prefix "
         "needs labels"},
        {route("vrf: blue, prefix: 10.1.0.0/16, " + via),
         "t.yaml:5: routes[0].via.nexthop: \"10.0.1.2\" is on no subnet of the ports in VRF "
         "\"blue\"; name its interface"},
        {route("prefix: 10.1.0.0/16, via: {nexthop: 10.0.1.2, weight: 0}"),
         "t.yaml:5: routes[0].via: the weights add up to 0, which is out of range (1..4294967295)"},
        {route("prefix: 10.1.0.0/16, vias: [{nexthop: 10.0.1.2, weight: 4294967295}, {nexthop: "
               "10.0.1.3}]"),
         "t.yaml:5: routes[0].vias: the weights add up to 4294967296, which is out of range "
         "(1..4294967295)"},
        {route("prefix: 10.1.0.0/16, via: {nexthop: 10.0.1.2, labels: []}"),
         "t.yaml:5: routes[0].via.labels: 0 labels given, allowed are 1 to 33"},
        {route("prefix: 10.1.0.0/16, via: {nexthop: 10.0.1.2, labels: [3]}"),
         "t.yaml:5: routes[0].via.labels[0]: label 3 (implicit null) never stands in a frame (RFC "
         "3032 section 2.1); "
         "leave "
         "it out"},
        {route("prefix: 10.1.0.0/16, via: {nexthop: 10.0.1.2, labels: [1048576]}"),
         "t.yaml:5: routes[0].via.labels[0]: label 1048576 is out of range (0..1048575)"},
        {route("prefix: 10.1.0.0/16, via: {nexthop: 10.0.1.2, tc: 1}"),
         "t.yaml:5: routes[0].via.tc: no labels are pushed"},
        {route("prefix: 10.1.0.0/16, via: {nexthop: 10.0.1.2, labels: [16], tc: 8}"),
         "t.yaml:5: routes[0].via.tc: tc 8 is out of range (0..7)"},
    };
    for (const auto& [text, error] : cases) {
        EXPECT_EQ(errorOf(text), error) << text;
    }
}

} // namespace ConfigRoutesTest
