#include "route/RouteRequest.h"

#include "CtlTables.h"

using namespace OvixCtl;
using CtlTesting::words;
using OvixAgent::PayloadType;
using OvixAgent::ViaAction;

namespace {

RouteRequest parsed(const std::string& line) {
    return parseRoute(words(line)).value();
}

std::string errorOf(const std::string& line) {
    const auto request = parseRoute(words(line));
    return request ? "" : request.refused().what;
}

} // namespace

TEST(RouteRequest, AHopWithoutLabelsPops) {
    const RouteRequest request = parsed("100 via inet 10.0.2.2 dev east");
    EXPECT_EQ(request.table, Mpls::TableId::transitLfib);
    EXPECT_EQ(request.route.label, 100U);
    ASSERT_EQ(request.route.vias.size(), 1U);
    const auto& via = request.route.vias.front();
    EXPECT_EQ(via.action, ViaAction::pop);
    EXPECT_EQ(via.nexthop->bytes[3], 2);
    EXPECT_EQ(via.weight, 1U);
    EXPECT_EQ(request.interfaces.ports[*via.port].name, "east");
}

TEST(RouteRequest, LabelsAreSwappedInOrPushed) {
    for (const char* swap : {"as 200/300", "as to 200/300"}) {
        const auto request = parsed(std::string("100 ") + swap + " dev east");
        EXPECT_EQ(request.route.vias.front().action, ViaAction::swap);
        EXPECT_EQ(request.route.vias.front().labels, (std::vector<std::uint32_t>{200, 300}));
    }
    const auto pushed = parsed("100 push 7 via fe80::1 dev east table decap");
    EXPECT_EQ(pushed.table, Mpls::TableId::decapLfib);
    EXPECT_EQ(pushed.route.vias.front().action, ViaAction::push);
    EXPECT_EQ(pushed.route.vias.front().nexthop->family, OvixAgent::IpAddress::Family::ipv6);
}

TEST(RouteRequest, EachNexthopIsAHopOfItsOwn) {
    const auto request = parsed("100 nexthop as 200 via 10.0.0.1 dev a weight 3 "
                                "nexthop via inet6 fe80::2 dev b");
    ASSERT_EQ(request.route.vias.size(), 2U);
    EXPECT_EQ(request.route.vias[0].weight, 3U);
    EXPECT_EQ(request.route.vias[1].labels.size(), 0U);
    EXPECT_EQ(request.interfaces.ports[*request.route.vias[1].port].name, "b");
}

TEST(RouteRequest, AVrfIsLookedUpIn) {
    const auto request = parsed("100 vrf red payload ipv6");
    EXPECT_EQ(request.route.type, OvixAgent::ViaTypes::ipLookup);
    EXPECT_EQ(request.table, Mpls::TableId::decapLfib);
    ASSERT_EQ(request.route.vias.size(), 1U);
    EXPECT_EQ(request.route.vias.front().vrf, "red");
    EXPECT_EQ(request.route.vias.front().payload, PayloadType::ipv6);
    EXPECT_EQ(parsed("100 vrf red table pseudowire").route.vias.front().payload,
              PayloadType::automatic);
}

TEST(RouteRequest, WordsThatAreNoRouteAreNamed) {
    const std::pair<const char*, const char*> cases[]{
        {"x", "label \"x\" is not a number"},
        {"-1", "label \"-1\" is not a number"},
        {"1048576 dev a", "label 1048576 is out of range (0..1048575)"},
        {"99999999999 dev a", "label 99999999999 is out of range (0..1048575)"},
        {"100", "a route needs via, dev, nexthop or vrf"},
        {"100 table transit", "a route needs via, dev, nexthop or vrf"},
        {"100 tabel transit", "\"tabel\" is not expected here; did you mean \"table\"?"},
        {"100 table trnsit dev a", "there is no table \"trnsit\"; did you mean \"transit\"?"},
        {"100 table hardware dev a",
         "there is no table \"hardware\"; known: decap, evpn-ethernet-segment-filter, "
         "evpn-etree-leaf-label, pseudowire, transit"},
        {"100 as 200", "a hop leads nowhere: via or dev is needed"},
        {"100 as", "a label stack is missing at the end"},
        {"100 as 200/ dev a", "label \"\" is not a number"},
        {"100 as 200/x dev a", "label \"x\" is not a number"},
        {"100 as 3 dev a",
         "label 3 (implicit null) never stands in a frame; leave out \"as\" to pop"},
        {"100 as 7 push 8 dev a", "the labels of a hop are given twice"},
        {"100 via 10.0.0", "\"10.0.0\" is not an IPv4 or IPv6 address"},
        {"100 via inet fe80::1", "\"fe80::1\" is not an IPv4 address"},
        {"100 via inet6 10.0.0.1", "\"10.0.0.1\" is not an IPv6 address"},
        {"100 via inet", "an address is missing at the end"},
        {"100 via 10.0.0.1 via 10.0.0.2", "the address of a hop is given twice"},
        {"100 dev a dev b", "the interface of a hop is given twice"},
        {"100 dev sixteen-bytes-xx",
         "the name of an interface is 1 to 15 bytes, not \"sixteen-bytes-xx\""},
        {"100 dev a weight -1", "weight \"-1\" is not a number"},
        {"100 dev a nexthop dev b", "\"nexthop\" comes before the words of its hop"},
        {"100 nexthop dev a nexthop", "a hop leads nowhere: via or dev is needed"},
        {"100 table transit vrf red", "a route with vrf ends here, and is none of table transit"},
        {"100 vrf red dev a", "a route with vrf has no hops"},
        {"100 nexthop dev a nexthop vrf red", "a route with vrf has no hops"},
        {"100 dev a payload ipv4", "payload goes with vrf"},
        {"100 vrf red payload ethernet", "payload \"ethernet\" is not ipv4, ipv6 or auto"},
    };
    for (const auto& [line, error] : cases) {
        EXPECT_EQ(errorOf(line), error) << line;
    }
    EXPECT_EQ(errorOf("100 vrf " + std::string(101, 'v')), "the name of a VRF is 1 to 100 bytes");
}

TEST(RouteRequest, AKeyIsALabelAndATable) {
    EXPECT_EQ(parseRouteKey(words("100")).value().table, Mpls::TableId::transitLfib);
    EXPECT_EQ(parseRouteKey(words("100 table pseudowire")).value().table,
              Mpls::TableId::pseudowireLfib);
    EXPECT_FALSE(parseRouteKey(words("100 dev a")));
    EXPECT_FALSE(parseRouteKey({}));
}
