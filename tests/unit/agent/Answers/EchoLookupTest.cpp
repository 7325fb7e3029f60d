#include "Answers/EchoLookup.h"

#include "ConfigTesting.h"
#include "EchoTesting.h"
#include "LocalTables.h"
#include "Published/TransitRoutes.h"

namespace EchoLookupTest {

using namespace OvixAgent;
using namespace OvixAgent::Testing;
using namespace TestSupport::Raw;

namespace {

constexpr std::uint16_t validateFecs = 1;

class EchoLookupTest : public testing::Test {
  protected:
    EchoLookupTest() {
        viasAre(100, {swapTo(300, "core", "10.0.2.2")});
        viasAre(101, {popTo("core", "10.0.2.2")});
        viasAre(102, {swapTo(300, "edge", "10.0.2.2"), swapTo(302, "core", "10.0.2.2")});
        tables.commit();
    }

    void viasAre(std::uint32_t label, const std::vector<Mpls::WeightedVia>& vias) {
        Mpls::LabelRoute route;
        route.label = Lumo::MplsLabel(label);
        route.vias = vias;
        EXPECT_TRUE(Mpls::transitRouteIs(tables.publisher, route));
    }
    static Mpls::ViaOptions toward(const char* intf, const char* nexthop) {
        Mpls::ViaOptions options;
        options.intf = Lumo::IntfId(intf);
        options.nexthop = Lumo::IpGenAddr::fromText(nexthop);
        return options;
    }
    static Mpls::WeightedVia popTo(const char* intf, const char* nexthop) {
        return {Mpls::Via::pop(toward(intf, nexthop)).value(), 1};
    }
    static Mpls::WeightedVia swapTo(std::uint16_t label, const char* intf, const char* nexthop) {
        const std::vector labels{Lumo::MplsLabel(label)};
        return {Mpls::Via::swap(labels, toward(intf, nexthop)).value(), 1};
    }

    /// Return code and subcode to a request with this FEC stack.
    std::string codesFor(const std::vector<Entry>& labels, const Bytes& tlvs,
                         std::uint16_t flags = validateFecs) {
        const Bytes frame = labelled(labels, echo4(message({.flags = flags, .tlvs = tlvs})));
        return codes(lspEchoReply(read(frame), 0, at, lookup, own).packet);
    }
    static Bytes adjacency(const std::string& local, const std::string& remote) {
        const auto bytesOf = [](const std::string& text) {
            const auto bytes = Lumo::IpGenAddr::fromText(text).bytes();
            return Bytes(bytes.begin(), bytes.begin() + 4);
        };
        return tlv(36, join({{4, 1, 0, 0}, bytesOf(local), bytesOf(remote), filled(8, 7)}));
    }
    static Bytes ldp(std::uint8_t second, std::uint8_t length = 16) {
        return tlv(1, {10, second, 0, 0, length});
    }

    const AgentConfig config = configOf(R"(
ports:
  - {name: core, mac: "02:00:00:00:00:01", addresses: [10.0.2.1/24]}
  - {name: edge, mac: "02:00:00:00:00:02", addresses: [10.0.3.1/24]}
routes:
  - {prefix: 10.5.0.0/16, drop: true}
  - {prefix: 10.6.0.0/16, vias: [{interface: core, nexthop: 10.0.2.2}]}
  - {prefix: 10.7.0.0/16, vias: [{interface: core, nexthop: 10.0.2.2, labels: [301]}]}
  - {prefix: 10.8.0.0/16, vias: [{interface: core, nexthop: 10.0.2.2, labels: [300]}]}
  - {prefix: 10.9.0.0/16, vias: [{interface: core, nexthop: 10.0.2.3, labels: [300]}]}
  - {prefix: 10.10.0.0/16, vias: [{interface: core, nexthop: 10.0.2.2, labels: [300, 301]}]}
  - prefix: 10.11.0.0/16
    vias:
      - {interface: edge, nexthop: 10.0.3.2, labels: [999]}
      - {interface: core, nexthop: 10.0.2.2, labels: [302]}
)",
                                        "test.yaml");
    ForwardingTables forwarding{config};
    TestSupport::LocalTables tables;
    EchoLookup lookup{config, forwarding, tables.published};
};

} // namespace

TEST_F(EchoLookupTest, ALabelMayLeadToAPortWithoutMpls) {
    viasAre(103, {swapTo(300, "core", "10.0.2.2"), popTo("edge", "10.0.3.2")});
    tables.commit();
    EXPECT_EQ(codesFor({{103, 0, 1}}, fecStack({ldp(8)})), "8/1");
    forwarding.ports.ports()[1].mpls = false;
    EXPECT_EQ(codesFor({{103, 0, 1}}, fecStack({ldp(8)})), "9/1");
    EXPECT_EQ(codesFor({{103, 0, 1}, {200}}, fecStack({ldp(8)}), 0), "9/2");
    EXPECT_EQ(codesFor({{100, 0, 1}}, fecStack({ldp(8)})), "8/1");
}

TEST_F(EchoLookupTest, ALabelMapsToTheFecWithTheSameNextHop) {
    const struct {
        const char* what;
        std::uint32_t label;
        Bytes fec;
        const char* codes;
    } cases[]{
        {"the same next hop and label", 100, ldp(8), "8/1"},
        {"another label", 100, ldp(7), "10/1"},
        {"another next hop", 100, ldp(9), "10/1"},
        {"a label more", 100, ldp(10), "10/1"},
        {"no label", 100, ldp(6), "10/1"},
        {"dropped", 100, ldp(5), "10/1"},
        {"popped, and none pushed", 101, ldp(6), "8/1"},
        {"popped, and one pushed", 101, ldp(8), "10/1"},
        {"one of several vias", 102, ldp(11), "8/1"},
        {"another interface", 102, ldp(8), "10/1"},
        {"no route", 100, ldp(250), "4/1"},
        {"a longer prefix", 100, ldp(8, 24), "4/1"},
        {"a shorter prefix", 100, ldp(8, 15), "4/1"},
        {"an own address", 100, tlv(1, {10, 0, 2, 1, 32}), "10/1"},
        {"a prefix of IPv6", 100, ldp6, "4/1"},
        {"hidden", 100, nilFec, "8/1"},
        {"an adjacency", 101, adjacency("10.0.2.1", "10.0.2.2"), "8/1"},
        {"another router's adjacency", 101, adjacency("10.0.2.1", "10.0.2.3"), "10/1"},
        {"another port's adjacency", 101, adjacency("10.0.3.1", "10.0.2.2"), "10/1"},
    };
    for (const auto& given : cases) {
        EXPECT_EQ(codesFor({{given.label, 0, 1}}, fecStack({given.fec})), given.codes)
            << given.what;
    }
}

TEST_F(EchoLookupTest, ALabelOfTheDecapTableMayBeSwitched) {
    const auto decap = [&](std::uint32_t label, const Mpls::WeightedVia& via) {
        Mpls::LabelRoute route;
        route.label = Lumo::MplsLabel(label);
        route.table = Mpls::TableId::decapLfib;
        route.viaType = Mpls::impliedType(std::vector{via}, false);
        route.vias = {via};
        EXPECT_TRUE(tables.publisher.labelRoutes().routeIs(route));
    };
    decap(110, swapTo(300, "core", "10.0.2.2"));
    decap(111, popTo("core", "10.0.2.2"));
    decap(112, {Mpls::Via::popAndLookUp({}, Mpls::PayloadType::automatic).value(), 1});
    tables.commit();
    EXPECT_EQ(codesFor({{110, 0, 1}}, fecStack({ldp(8)})), "8/1");
    EXPECT_EQ(codesFor({{110, 0, 1}}, fecStack({ldp(7)})), "10/1");
    EXPECT_EQ(codesFor({{111, 0, 1}}, fecStack({ldp(6)})), "8/1");
    EXPECT_EQ(codesFor({{112, 0, 1}}, fecStack({ldp(8)})), "4/1");
}

TEST_F(EchoLookupTest, ThePrefixesOfThisRouterEndHere) {
    const struct {
        const char* what;
        Bytes fec;
        const char* codes;
    } cases[]{
        {"an own address", tlv(1, {10, 0, 2, 1, 32}), "3/1"},
        {"a subnet", tlv(1, {10, 0, 2, 0, 24}), "3/1"},
        {"a part of a subnet", tlv(1, {10, 0, 2, 0, 25}), "4/1"},
        {"more than a subnet", tlv(1, {10, 0, 2, 0, 23}), "4/1"},
        {"a host on a subnet", tlv(1, {10, 0, 2, 2, 32}), "4/1"},
        {"a subnet's broadcast", tlv(1, {10, 0, 2, 255, 32}), "4/1"},
        {"a route to another router", ldp(6), "4/1"},
    };
    for (const auto& given : cases) {
        EXPECT_EQ(codesFor({{0, 0, 1}}, fecStack({given.fec})), given.codes) << given.what;
    }
}

TEST_F(EchoLookupTest, TheFecIsValidatedOnlyOnRequest) {
    EXPECT_EQ(codesFor({{100, 0, 1}}, fecStack({ldp(250)}), 0), "8/1");
    EXPECT_EQ(codesFor({{100, 0, 1}}, fecStack({ldp(7)}), 0), "8/1");
}

TEST_F(EchoLookupTest, EachLabelHasTheFecOfItsDepth) {
    EXPECT_EQ(codesFor({{100, 0, 1}, {55}}, fecStack({ldp(8), ldp(250)})), "8/2");
    EXPECT_EQ(codesFor({{100, 0, 1}, {55}}, fecStack({ldp(250), ldp(8)})), "4/2");
    EXPECT_EQ(codesFor({{100, 0, 1}, {55}}, fecStack({ldp(250)})), "8/2"); // of no label on top
    EXPECT_EQ(codesFor({{1, 0, 1}, {100}}, fecStack({nilFec, ldp(7)})), "8/1"); // hidden
    EXPECT_EQ(codesFor({{1, 0, 1}, {100}}, fecStack({ldp(8), nilFec})), "10/1");
}

TEST_F(EchoLookupTest, EntropyLabelsHaveNoFec) {
    const std::vector<Entry> labels{{100, 0, 1}, {7}, {5000}, {55}};
    EXPECT_EQ(codesFor(labels, fecStack({ldp(8), ldp(250)})), "8/4");
    EXPECT_EQ(codesFor(labels, fecStack({ldp(250), ldp(8)})), "4/2");
}

TEST_F(EchoLookupTest, ImplicitNullsOfTheMappingHaveFecs) {
    const Bytes mapping = mappingOf("10.0.2.1", "10.0.2.1", {{100, 3}});
    EXPECT_EQ(codesFor({{100, 0, 1}}, join({fecStack({ldp(8), ldp(250)}), mapping})), "14/0");
    EXPECT_EQ(codesFor({{100, 0, 1}}, join({fecStack({ldp(7), ldp(250)}), mapping})), "10/2");
}

TEST_F(EchoLookupTest, AValidFecHasDownstreams) {
    const Bytes mapping = mappingOf("10.0.2.1", "10.0.2.1");
    EXPECT_TRUE(lookup.isOwn(Lumo::IpGenAddr::fromText("10.0.3.1")));
    EXPECT_FALSE(lookup.isOwn(Lumo::IpGenAddr::fromText("10.0.3.255")));
    EXPECT_FALSE(lookup.isOfPort(Lumo::IpGenAddr::fromText("10.0.3.1"), 0));
    EXPECT_EQ(codesFor({{100, 0, 1}}, join({fecStack({ldp(8)}), mapping})), "14/0");
    EXPECT_EQ(codesFor({{100, 0, 1}}, join({fecStack({ldp(7)}), mapping})), "10/1");
}

TEST_F(EchoLookupTest, WithoutAnIpRouteAFecHasNoMapping) {
    AgentConfig subnetsOnly = config;
    subnetsOnly.routes.clear();
    forwarding.configure(subnetsOnly);
    EXPECT_EQ(codesFor({{100, 0, 1}}, fecStack({ldp(8)})), "4/1");
}

} // namespace EchoLookupTest
