#include "route/RouteGrammar.h"

#include "CtlTables.h"

namespace RouteGrammarTest {

using namespace OvixCtl;
using CtlTesting::words;
using Lumo::IntfId;
using Lumo::MplsLabel;
using Mpls::LabelRoute;
using Mpls::TableId;

namespace {

LabelRoute parsed(const std::string& line) {
    const auto found = parseEntry(words(line));
    EXPECT_TRUE(found) << line << ": " << found.refused().what;
    return found ? std::get<LabelRoute>(found.value().entry.content) : LabelRoute();
}

std::string errorOf(const std::string& line) {
    const auto found = parseEntry(words(line));
    return found ? "" : found.refused().what;
}

} // namespace

TEST(RouteGrammar, AHopWithoutLabelsPops) {
    const LabelRoute route = parsed("100 via inet 10.0.2.2 dev east");
    EXPECT_EQ(route.table, TableId::transitLfib);
    EXPECT_EQ(route.label, MplsLabel(100));
    ASSERT_EQ(route.vias.size(), 1U);
    const Mpls::Via& via = route.vias.front().via;
    EXPECT_EQ(via.action(), Lumo::MplsLabelAction::pop);
    EXPECT_EQ(via.nexthop().text(), "10.0.2.2");
    EXPECT_EQ(via.intf(), IntfId("east"));
    EXPECT_EQ(route.vias.front().weight, 1U);
    EXPECT_EQ(parseEntry(words("100 dev east")).value().interfaces,
              std::vector<std::string>{"east"});
}

TEST(RouteGrammar, LabelsAreSwappedInOrPushed) {
    for (const char* swap : {"as 200/300", "as to 200/300"}) {
        const LabelRoute route = parsed(std::string("100 ") + swap + " dev east");
        EXPECT_EQ(route.vias.front().via.action(), Lumo::MplsLabelAction::swap);
        EXPECT_EQ(route.vias.front().via.labels(),
                  (std::vector<MplsLabel>{MplsLabel(200), MplsLabel(300)}));
    }
    const LabelRoute pushed = parsed("100 push 7 via fe80::1 dev east table decap");
    EXPECT_EQ(pushed.table, TableId::decapLfib);
    EXPECT_EQ(pushed.vias.front().via.action(), Lumo::MplsLabelAction::push);
    EXPECT_EQ(pushed.vias.front().via.nexthop().family(), Lumo::IpFamily::ipv6);
}

TEST(RouteGrammar, TheTableMayStandBeforeTheLabel) {
    EXPECT_EQ(parsed("pseudowire 100 dev a"), parsed("100 table pseudowire dev a"));
}

TEST(RouteGrammar, EachNexthopIsAHopOfItsOwn) {
    const LabelRoute route = parsed("100 nexthop as 200 via 10.0.0.1 dev a weight 3 nexthop via "
                                    "inet6 fe80::2 dev b");
    ASSERT_EQ(route.vias.size(), 2U);
    EXPECT_EQ(route.vias[0].weight, 3U);
    EXPECT_TRUE(route.vias[1].via.labels().empty());
    EXPECT_EQ(route.vias[1].via.intf(), IntfId("b"));
}

TEST(RouteGrammar, AVrfWithoutAHopIsLookedUpIn) {
    const LabelRoute route = parsed("100 vrf red payload ipv6");
    EXPECT_EQ(route.viaType, Mpls::LfibViaType::ipLookup);
    EXPECT_EQ(route.table, TableId::decapLfib);
    ASSERT_TRUE(route.isLookUp());
    EXPECT_EQ(route.vias.front().via.options().vrf.view(), "red");
    EXPECT_EQ(route.vias.front().via.options().payload, Mpls::PayloadType::ipv6);
    const LabelRoute automatic = parsed("100 vrf red table pseudowire");
    EXPECT_EQ(automatic.vias.front().via.options().payload, Mpls::PayloadType::automatic);
}

TEST(RouteGrammar, TheDefaultVrfBesideAHopSaysNothing) {
    const LabelRoute route = parsed("100 vrf default dev a");
    EXPECT_FALSE(route.isLookUp());
    EXPECT_EQ(route.table, TableId::transitLfib);
    EXPECT_TRUE(route.vias.front().via.options().vrf.empty());
}

TEST(RouteGrammar, AnAttributeSetsItsOption) {
    const Mpls::ViaOptions options =
        parsed("100 as 200/201 dev a ttl pipe tc 0 push-tc 6 push-ttl 9 mtu 1400 vlan 7")
            .vias.front()
            .via.options();
    EXPECT_EQ(options.ttl, Mpls::TtlMode::pipe);
    EXPECT_EQ(options.tc, std::uint8_t{0});
    EXPECT_EQ(options.pushTtl, 9);
    EXPECT_EQ(options.mtu, 1400U);
    EXPECT_EQ(options.vlan, 7);
    EXPECT_EQ(options.pushTc, std::uint8_t{6});
    EXPECT_FALSE(options.entropy);
    EXPECT_TRUE(parsed("100 push 200 dev a entropy").vias.front().via.options().entropy);
    EXPECT_TRUE(parsed("100 dev a tc uniform").vias.front().via.options().tcUniform);
    EXPECT_EQ(parsed("100 dev a payload none").vias.front().via.options().payload,
              Mpls::PayloadType::none);
    EXPECT_EQ(parsed("100 as 200 fec 5").vias.front().via.fec(), 5U);
}

TEST(RouteGrammar, ATailMayHaveAnInterfaceAndHops) {
    const LabelRoute alone = parsed("100 tail");
    EXPECT_EQ(alone.viaType, Mpls::LfibViaType::multicastIpLookup);
    EXPECT_EQ(alone.table, TableId::decapLfib);
    EXPECT_TRUE(alone.isMulticast());
    EXPECT_TRUE(alone.tail->intf().empty());
    EXPECT_EQ(parsed("100 tail dev a").tail->intf(), IntfId("a"));
    const LabelRoute bud = parsed("100 tail vlan 7 nexthop as 200 dev a nexthop dev b");
    EXPECT_EQ(bud.tail->intf(), Lumo::VlanIntfId::vlanIdToIntfId(7));
    EXPECT_EQ(bud.vias.size(), 2U);
}

TEST(RouteGrammar, TheTypeFollowsFromTheVias) {
    EXPECT_EQ(parsed("100 as 16 fec 1").viaType, Mpls::LfibViaType::externalFec);
    EXPECT_EQ(parsed("100 dev a type 77").viaType, Mpls::LfibViaType{77});
    EXPECT_EQ(parsed("decap 100 nexthop vrf a nexthop vrf b").viaType, Mpls::LfibViaType::ipLookup);
}

// What is printed of an entry makes the same entry again.
TEST(RouteGrammar, EveryPrintedEntryIsParsed) {
    for (const std::string line :
         {"transit 100 dev a",
          "transit 100 via inet 10.0.0.1",
          "transit 100 as to 200/300 via "
          "inet6 fe80::1 dev a",
          "transit 100 push 16 dev a",
          "transit 100 push 16/17 dev a entropy",
          "decap 100 type external-fec as to 304 dev a",
          "decap 100 type external-fec dev a",
          "transit 100 multicast nexthop as to 200 dev a nexthop dev b weight 4294967294",
          "transit 100 as to 16/17 dev a ttl pipe tc 7 push-ttl 255 mtu 65535 vlan 4094",
          "transit 100 dev a payload undefined",
          "transit 100 as to 16/17 dev a tc 0 push-tc 0",
          "transit 100 dev a tc uniform",
          "transit 100 as to 16 fec 72057594037927935 tc 0",
          "transit 100 push 16 fec 1 weight 2 ttl pipe push-ttl 1",
          "transit 100 dev 0x0100000000000abc",
          "transit 100 dev 0x0200000000000064",
          "transit 100 dev 0x0300000000000002",
          "transit 100 type 77 dev a",
          "transit 100 type 0 owner 255 flags 1 dev a",
          "transit 100 owner file preference 255 dev a",
          "transit 100 owner fpm dev a",
          "hardware 100 adjacency 5 derived",
          "decap 100 dev a payload none",
          "decap 100 dev a payload ethernet",
          "decap 100 vrf red payload auto",
          "decap 100 vrf default payload ipv4",
          "decap 100 type ip-lookup-per-prefix owner 7 vrf red payload ipv6",
          "decap 100 multicast tail",
          "decap 100 multicast owner 7 flags 255 tail vlan 100",
          "decap 100 multicast tail dev a nexthop dev b",
          "decap 100 multicast tail vlan 7 nexthop as to 200 dev a ttl pipe nexthop dev b",
          "decap 100 nexthop weight 2 vrf red payload auto nexthop vrf blue payload ipv4",
          "evpn-ethernet-segment-filter 100 dev a",
          "evpn-etree-leaf-label 100 dev a",
          "pseudowire 100 dev a payload ethernet",
          "hardware 100 adjacency 5",
          "hardware 1048575 adjacency 1048575 unprogrammed",
          "adjacency 0 as to 16 via inet 10.0.0.1 dev a",
          "adjacency 5 multicast nexthop dev a nexthop push 16/17 dev b weight 0",
          "adjacency 5 use-backups dev a backup as to 17 dev b weight 7 backup dev c mtu 68",
          "adjacency 5 nexthop dev a nexthop dev b weight 2 backup dev c",
          "adjacency 5 type 77 dev a",
          "adjacency 5 vrf red payload auto",
          "adjacency 5 push 16 fec 9",
          "mvpn 4294967295 dev a",
          "mvpn 7 vlan 100"}) {
        const CtlTesting::PublishedRoute published(line);
        const Entry entry = published.read();
        const std::string printed = routeText(entry, published.names());
        EXPECT_EQ(printed, line);
        const auto again = parseEntry(words(printed));
        ASSERT_TRUE(again) << line << ": " << again.refused().what;
        EXPECT_EQ(again.value().entry, entry) << line;
    }
}

// Names come from other publishers, too.
TEST(RouteGrammar, AnInterfaceWhoseNameIsNoWordIsPrintedByItsId) {
    for (const char* name : {"a b", "a\nb", "a\x7f"}) {
        CtlTesting::Tables tables;
        Mpls::ViaOptions options;
        options.intf = tables.publisher().interfaces().intfId(name);
        LabelRoute route;
        route.label = MplsLabel(100);
        route.vias = {{Mpls::Via::pop(options).value(), 1}};
        tables.commit();
        const Entry entry{TableId::transitLfib, 100, route};
        const auto again = parseEntry(words(routeText(entry, tables.names())));
        ASSERT_TRUE(again) << name;
        EXPECT_EQ(again.value().entry, entry) << name;
    }
}

TEST(RouteGrammar, WordsThatAreNotARouteAreNamed) {
    const std::pair<const char*, const char*> cases[]{
        {"x", "\"x\" is neither a table nor a label; known: decap, evpn-ethernet-segment-filter, "
              "evpn-etree-leaf-label, pseudowire, transit, hardware, adjacency, mvpn"},
        {"trnsit 100 dev a",
         "\"trnsit\" is neither a table nor a label; did you mean \"transit\"?"},
        {"transit", "a label is missing at the end"},
        {"1048576 dev a", "label 1048576 is out of range (0..1048575)"},
        {"99999999999999999999 dev a", "label 99999999999999999999 is out of range (0..1048575)"},
        {"100", "a route needs via, dev, fec, vrf, nexthop or tail"},
        {"100 table transit", "a route needs via, dev, fec, vrf, nexthop or tail"},
        {"100 tabel transit", "\"tabel\" is not expected here; did you mean \"table\"?"},
        {"100 dev a push-ttll 1", "\"push-ttll\" is not expected here; did you mean \"push-ttl\"?"},
        {"100 table trnsit dev a", "there is no table \"trnsit\"; did you mean \"transit\"?"},
        {"100 table hardware dev a",
         "there is no table \"hardware\"; known: decap, evpn-ethernet-segment-filter, "
         "evpn-etree-leaf-label, pseudowire, transit"},
        {"100 as 200", "via 1: leads nowhere: interface, nexthop or fec is needed"},
        {"100 as", "a label stack is missing at the end"},
        {"100 as 200/ dev a", "label \"\" is not a number"},
        {"100 as 200/x dev a", "label \"x\" is not a number"},
        {"100 as 3 dev a",
         "label 3 (implicit null) never stands in a frame (RFC 3032 section 2.1); leave out \"as\" "
         "to pop"},
        {"100 as 7 push 8 dev a", "a via has either \"as\" or \"push\""},
        {"100 via 10.0.0", "\"10.0.0\" is not an IPv4 or IPv6 address"},
        {"100 via inet fe80::1", "\"fe80::1\" is not an IPv4 address"},
        {"100 via inet6 10.0.0.1", "\"10.0.0.1\" is not an IPv6 address"},
        {"100 via inet", "an address is missing at the end"},
        {"100 via 10.0.0.1 via 10.0.0.2", "\"via\" is given twice"},
        {"100 dev a dev b", "\"dev\" is given twice"},
        {"100 dev sixteen-bytes-xx",
         "the name of an interface is 1 to 15 bytes without blanks, not \"sixteen-bytes-xx\""},
        {"100 dev a weight 0", "the weights add up to 0, which is out of range (1..4294967295)"},
        {"100 nexthop dev a weight 0 nexthop dev b weight 0",
         "the weights add up to 0, which is out of range (1..4294967295)"},
        {"adjacency 5 dev a backup dev b weight 0",
         "the weights add up to 0, which is out of range (1..4294967295)"},
        {"100 dev a weight -1", "weight \"-1\" is not a number"},
        {"100 dev a nexthop dev b", "\"nexthop\" comes before the words of its via"},
        {"100 nexthop dev a nexthop", "via 2: leads nowhere: interface, nexthop or fec is needed"},
        {"100 dev a ttl pip", "ttl \"pip\" is unknown; did you mean \"pipe\"?"},
        {"100 dev a ttl", "the value of ttl is missing at the end"},
        {"100 dev a tc 8", "tc 8 is out of range (0..7)"},
        {"100 dev a payload ethernet ttl uniform",
         "via 1: ttl goes with a packet, and an Ethernet frame has none"},
        {"100 dev a tc 1", "via 1: tc 1 goes with push and swap, which write labels"},
        {"100 as 200 dev a tc uniform", "via 1: tc uniform goes with pop"},
        {"100 as 200 dev a push-tc 1", "via 1: push-tc 1 goes with a swap to several labels"},
        {"100 fec 5", "via 1: only push and swap lead to a fec"},
        {"100 as 200 fec 5 dev a",
         "via 1: the next hops of a fec have its interface, nexthop, vrf, mtu and vlan"},
        {"100 dev a push-ttl 0", "push-ttl 0 is out of range (1..255)"},
        {"100 dev a mtu 67", "mtu 67 is out of range (68..65535)"},
        {"100 dev a mtu 65536", "mtu 65536 is out of range (68..65535)"},
        {"100 dev a vlan 4095", "vlan 4095 is out of range (1..4094)"},
        {"100 dev a type tunnel",
         "type \"tunnel\" is unknown; known: ip, ip-lookup, external-fec, ip-lookup-per-prefix, "
         "multicast-ip-lookup"},
        {"100 tail dev a type ip", "type multicast-ip-lookup goes with tail"},
        {"100 tail vlan 5 dev east", "beside a tail each via begins with \"nexthop\""},
        {"100 dev east tail vlan 5", "beside a tail each via begins with \"nexthop\""},
        {"100 type ip-lookup dev a", "a route of type ip-lookup has no via of type ip"},
        {"100 type ip vrf red", "a route of type ip has no via of type ip-lookup"},
        {"100 type ip push 16 fec 5", "a route of type ip has no via of type external-fec"},
        {"100 type external-fec vrf red",
         "a route of type external-fec has no via of type ip-lookup"},
        {"100 nexthop dev a nexthop vrf red", "a route of type ip has no via of type ip-lookup"},
        {"adjacency 5 dev a backup vrf red", "a route of type ip has no via of type ip-lookup"},
        {"100 dev a type 256", "type 256 is out of range (0..255)"},
        {"100 dev a weight 1 weight 2", "\"weight\" is given twice"},
        {"100 dev a mtu 100 mtu 200", "\"mtu\" is given twice"},
        {"decap 100 table transit dev a", "\"table\" is given twice"},
        {"100 owner 1 owner 1 dev a", "\"owner\" is given twice"},
        {"100 owner 256 dev a", "owner 256 is out of range (0..255)"},
        {"100 owner fmp dev a",
         "owner \"fmp\" is unknown; known: operator, file, fpm, pseudowires"},
        {"100 preference 0 dev a", "preference 0 is out of range (1..255)"},
        {"100 dev a control-word",
         "\"control-word\" is not expected here; known: table, "
         "multicast, type, owner, preference, flags, tail, nexthop, as, push, via, "
         "dev, weight, fec, ttl, tc, ..."},
        {"100 dev a backup dev b",
         "\"backup\" is not expected here; known: table, multicast, "
         "type, owner, preference, flags, tail, nexthop, as, push, via, dev, weight, "
         "fec, ttl, tc, ..."},
        {"hardware 100", "a hardware route needs adjacency"},
        {"hardware 100 dev a",
         "\"dev\" is not expected here; known: adjacency, derived, unprogrammed"},
        {"adjacency 5", "an adjacency needs via, dev, fec, vrf or nexthop"},
        {"adjacency 1048576 dev a", "adjacency 1048576 is out of range (0..1048575)"},
        {"mvpn 5", "a multicast VPN needs either dev or vlan"},
        {"mvpn 5 dev a vlan 7", "a multicast VPN needs either dev or vlan"},
        {"100 dev a type multicast-ip-lookup", "type multicast-ip-lookup goes with tail"},
        {"100 vrf red ttl pipe", "via 1: a lookup in a VRF takes payload only"},
        {"100 vrf red ttl uniform", "via 1: a lookup in a VRF takes payload only"},
        {"100 vrf red weight 2", "a lookup in a VRF has neither weight nor multicast"},
        {"100 vrf red multicast", "a lookup in a VRF has neither weight nor multicast"},
        {"100 as 200 vrf red", "via 1: leads nowhere: interface, nexthop or fec is needed"},
        {"100 vrf red dev a",
         "via 1: vrf goes with a lookup, which leads to no interface, nexthop or fec"},
        {"100 as 200 dev a payload ipv4", "via 1: only a pop exposes a payload"},
        {"100 nexthop dev b nexthop dev a tc uniform payload ethernet",
         "via 2: tc uniform writes the class of a packet (RFC 3270), and an Ethernet frame has "
         "none"},
        {"100 vrf red payload ipv5", "payload \"ipv5\" is unknown; did you mean \"ipv4\"?"},
    };
    for (const auto& [line, error] : cases) {
        EXPECT_EQ(errorOf(line), error) << line;
    }
    EXPECT_EQ(errorOf("100 vrf " + std::string(101, 'v')),
              "the name of a VRF is 1 to 100 bytes without blanks, not \"" + std::string(60, 'v') +
                  "...\"");
    for (const std::string name : {"a b", "a\nb", "a\tb", ""}) {
        for (const std::string word : {"dev", "vrf"}) {
            const auto found = parseEntry({"100", word, name});
            ASSERT_FALSE(found) << word << " " << name;
            EXPECT_NE(found.refused().what.find("without blanks, not"), std::string::npos);
        }
    }
    std::string deep = "100 dev a as 16";
    for (int i = 0; i < 33; ++i) {
        deep += "/16";
    }
    EXPECT_EQ(errorOf(deep), "via 1: 34 labels given, push and swap take 1 to 33");
}

TEST(RouteGrammar, ANameIsATableAndALabel) {
    EXPECT_EQ(parseEntryName(words("100")).value().table, TableId::transitLfib);
    EXPECT_EQ(parseEntryName(words("100 table pseudowire")).value().table, TableId::pseudowireLfib);
    EXPECT_EQ(parseEntryName(words("decap 100")).value().table, TableId::decapLfib);
    EXPECT_FALSE(parseEntryName(words("100 dev a")));
    EXPECT_FALSE(parseEntryName({}));
}

} // namespace RouteGrammarTest
