#include "Ip/SharedIpRoutes.h"

#include <gtest/gtest.h>

#include "ConfigTesting.h"
#include "LocalTables.h"
#include "State/ForwardingTables.h"

namespace SharedIpRoutesTest {

using namespace OvixAgent;
using namespace OvixAgent::Testing;

namespace {

using Kind = L3::Route::Kind;

L3::RouteKey key(const std::string& prefix, std::uint8_t length,
                 std::uint32_t table = L3::RouteKey::mainTable) {
    return {table, Lumo::IpGenAddr::fromText(prefix), length};
}

Mpls::ViaOptions toward(const std::string& port, const std::string& nexthop) {
    Mpls::ViaOptions options;
    options.intf = Lumo::IntfId(port);
    options.nexthop = Lumo::IpGenAddr::fromText(nexthop);
    return options;
}

Mpls::WeightedVia via(const std::string& port, const std::string& nexthop,
                      std::uint32_t weight = 1) {
    return {Mpls::Via::forward(toward(port, nexthop)).value(), weight};
}

class SharedIpRoutesTest : public testing::Test {
  protected:
    void routeIs(const L3::RouteKey& of, const std::vector<Mpls::WeightedVia>& vias,
                 const L3::VrfName& vrf = {}) {
        writer.routeIs({of, Kind::forward, vias, vrf});
    }
    void routeIs(const L3::RouteKey& of, Kind kind, const L3::VrfName& vrf = {}) {
        writer.routeIs({of, kind, {}, vrf});
    }

    /// Makes the changes visible, and has them taken over.
    void commit() {
        tables.commit();
        takeOver();
    }
    void takeOver() {
        for (int i = 0; !routes.refresh(); ++i) {
            ASSERT_LT(i, 2000);
        }
    }
    /// "local", "drop", or the vias.
    std::string to(const std::string& destination, const std::string& vrf = {}) const {
        const Fib* fib = forwarding.vrfs->fib(vrf);
        const IpRoute* found =
            fib != nullptr ? fib->find(Lumo::IpGenAddr::fromText(destination)) : nullptr;
        if (found == nullptr || found->isLocal() || found->drops()) {
            return found == nullptr ? "" : found->isLocal() ? "local" : "drop";
        }
        std::string all;
        for (const IpRouteVia& each : found->vias()) {
            all +=
                std::to_string(each.port) + (each.onLink ? " on link" : " " + each.nexthop.text());
            all += each.push ? " pushes" : "";
            all += each.weight != 1 ? " x" + std::to_string(each.weight) + "; " : "; ";
        }
        return all;
    }

    const AgentConfig config = configOf(R"(
ports:
  - {name: west, mac: "02:00:00:00:00:01", addresses: [10.0.1.1/24, "2001:db8:1::1/64"]}
  - {name: east, mac: "02:00:00:00:00:02", addresses: [10.0.2.1/24]}
routes:
  - {prefix: 10.9.0.0/16, drop: true}
)",
                                        "test.yaml");
    ForwardingTables forwarding{config};
    TestSupport::LocalTables tables;
    L3::RoutesWriter& writer = tables.publisher.ipRoutes();
    SharedIpRoutes routes{tables.reader, forwarding.ports, forwarding.vrfs};
    const L3::RouteKey ten = key("10.10.0.0", 16);
    const L3::RouteKey eleven = key("10.11.0.0", 16);
};

} // namespace

TEST_F(SharedIpRoutesTest, RoutesComeChangeAndGo) {
    routeIs(ten, {via("east", "10.0.2.2")});
    routeIs(key("2001:db8:9::", 48), {via("west", "2001:db8:1::2")});
    EXPECT_EQ(to("10.10.0.1"), "");
    commit();
    EXPECT_EQ(to("10.10.0.1"), "1 10.0.2.2; ");
    EXPECT_EQ(to("2001:db8:9::1"), "0 2001:db8:1::2; ");
    routeIs(ten, {via("west", "10.0.1.2", 2), via("east", "10.0.2.2", 3)});
    commit();
    EXPECT_EQ(to("10.10.0.1"), "0 10.0.1.2 x2; 1 10.0.2.2 x3; ");
    writer.routeDel(ten);
    commit();
    EXPECT_EQ(to("10.10.0.1"), "");
    EXPECT_EQ(to("2001:db8:9::1"), "0 2001:db8:1::2; ");
}

TEST_F(SharedIpRoutesTest, EveryKindIsTakenOver) {
    const std::vector<Lumo::MplsLabel> labels{Lumo::MplsLabel(258)};
    routeIs(ten, {{Mpls::Via::push(labels, toward("east", "10.0.2.2")).value(), 1}});
    routeIs(eleven, Kind::drop);
    routeIs(key("10.12.0.1", 32), Kind::local);
    routeIs(key("10.13.0.0", 16), {via("west", "")});
    routeIs(key("0.0.0.0", 0), {via("west", "10.0.1.2")});
    commit();
    EXPECT_EQ(to("10.10.0.1"), "1 10.0.2.2 pushes; ");
    EXPECT_EQ(to("10.11.0.1"), "drop");
    EXPECT_EQ(to("10.12.0.1"), "local");
    EXPECT_EQ(to("10.13.0.1"), "0 on link; ");
    EXPECT_EQ(to("172.16.0.1"), "0 10.0.1.2; ");
}

TEST_F(SharedIpRoutesTest, WhatThereIsAtTheStartIsTakenOver) {
    routeIs(ten, {via("east", "10.0.2.2")});
    tables.commit();
    EXPECT_EQ(to("10.10.0.1"), "");
    takeOver();
    EXPECT_EQ(to("10.10.0.1"), "1 10.0.2.2; ");
}

TEST_F(SharedIpRoutesTest, WhatAnotherReaderHasTakenOverGoesOnWithThisOne) {
    routeIs(ten, {via("east", "10.0.2.2")});
    commit();
    const auto vrfs = Tessel::make<VrfRoot>(config, forwarding.ports, forwarding.neighbours);
    SharedIpRoutes prepared{tables.reader->another(), forwarding.ports, vrfs};
    while (!prepared.refresh()) {
    }
    forwarding.vrfs = vrfs;
    EXPECT_EQ(to("10.10.0.1"), "1 10.0.2.2; ");
    writer.routeDel(ten);
    routeIs(eleven, {via("east", "10.0.2.2")});
    tables.commit(); // which the other reader does not hear of
    EXPECT_TRUE(prepared.refresh());
    EXPECT_EQ(to("10.11.0.1"), "");
    prepared.readerIs(tables.reader);
    while (!prepared.refresh()) {
    }
    EXPECT_EQ(to("10.11.0.1"), "1 10.0.2.2; ");
    EXPECT_EQ(to("10.10.0.1"), "");
}

TEST_F(SharedIpRoutesTest, VrfsThatAreMadeAnewGetAllRoutesAgain) {
    routeIs(ten, {via("east", "10.0.2.2")});
    routeIs(eleven, {via("east", "10.0.2.2")});
    commit();
    forwarding.configure(config);
    EXPECT_EQ(to("10.10.0.1"), "");
    routes.startOver(forwarding.vrfs);
    writer.routeDel(eleven); // meanwhile
    commit();
    EXPECT_EQ(to("10.10.0.1"), "1 10.0.2.2; ");
    EXPECT_EQ(to("10.11.0.1"), "");
    writer.routeDel(ten);
    commit();
    EXPECT_EQ(to("10.10.0.1"), "");
}

TEST_F(SharedIpRoutesTest, OwnAddressesStayTheDevicesOwn) {
    for (const auto& own : {key("10.0.1.1", 32), key("2001:db8:1::1", 128)}) {
        routeIs(own, {via("east", "10.0.2.2")});
    }
    commit();
    EXPECT_EQ(to("10.0.1.1"), "local");
    EXPECT_EQ(to("2001:db8:1::1"), "local");
    for (const auto& own : {key("10.0.1.1", 32), key("2001:db8:1::1", 128)}) {
        writer.routeDel(own);
    }
    commit();
    EXPECT_EQ(to("10.0.1.1"), "local");
    EXPECT_EQ(to("2001:db8:1::1"), "local");
}

TEST_F(SharedIpRoutesTest, AConfiguredRouteGivesWayToASharedOneAsLongAsThatIsThere) {
    const L3::RouteKey nine = key("10.9.0.0", 16);
    EXPECT_EQ(to("10.9.0.1"), "drop");
    routeIs(nine, {via("east", "10.0.2.2")});
    commit();
    EXPECT_EQ(to("10.9.0.1"), "1 10.0.2.2; ");
    routeIs(nine, {via("west", "10.0.1.2")});
    commit();
    EXPECT_EQ(to("10.9.0.1"), "0 10.0.1.2; ");
    writer.routeDel(nine);
    commit();
    EXPECT_EQ(to("10.9.0.1"), "drop");
}

TEST_F(SharedIpRoutesTest, AnInterfaceThatIsNoPortLeadsToTheDevice) {
    routeIs(ten, {via("lo", "")});
    routeIs(eleven, {via("lo", ""), via("east", "10.0.2.2")});
    commit();
    EXPECT_EQ(to("10.10.0.1"), "local");
    EXPECT_EQ(to("10.11.0.1"), "1 10.0.2.2; ");
}

TEST_F(SharedIpRoutesTest, EachVrfHasItsOwnRoutes) {
    const L3::RouteKey inRed = key("10.10.0.0", 16, 10);
    const L3::RouteKey inBlue = key("10.10.0.0", 16, 11);
    routeIs(inRed, {via("east", "10.0.2.2")}, "red");
    routeIs(inBlue, Kind::drop, "blue");
    routeIs(ten, {via("west", "10.0.1.2")});
    commit();
    EXPECT_EQ(to("10.10.0.1"), "0 10.0.1.2; ");
    EXPECT_EQ(to("10.10.0.1", "red"), "1 10.0.2.2; ");
    EXPECT_EQ(to("10.10.0.1", "blue"), "drop");
    writer.routeDel(inRed);
    commit();
    EXPECT_EQ(to("10.10.0.1"), "0 10.0.1.2; ");
    EXPECT_EQ(to("10.10.0.1", "red"), "");
    EXPECT_EQ(to("10.10.0.1", "blue"), "drop");
}

TEST_F(SharedIpRoutesTest, ATableMayComeToBeAnotherVrfs) {
    const L3::RouteKey there = key("10.10.0.0", 16, 10);
    routeIs(there, {via("east", "10.0.2.2")}, "red");
    commit();
    routeIs(there, {via("east", "10.0.2.2")}, "blue");
    commit();
    EXPECT_EQ(to("10.10.0.1", "red"), "");
    EXPECT_EQ(to("10.10.0.1", "blue"), "1 10.0.2.2; ");
}

TEST_F(SharedIpRoutesTest, AnOwnAddressIsOnlyTheDevicesInItsVrf) {
    routeIs(key("10.0.1.1", 32, 10), {via("east", "10.0.2.2")}, "red");
    commit();
    EXPECT_EQ(to("10.0.1.1"), "local");
    EXPECT_EQ(to("10.0.1.1", "red"), "1 10.0.2.2; ");
}

TEST_F(SharedIpRoutesTest, SeveralGenerationsMayLieBetweenTwoRefreshes) {
    routeIs(ten, {via("east", "10.0.2.2")});
    routeIs(eleven, {via("east", "10.0.2.2")});
    commit();
    writer.routeDel(ten);
    tables.commit();
    routeIs(key("10.12.0.0", 16), {via("west", "10.0.1.2")}); // where that one stood
    tables.commit();
    routeIs(eleven, Kind::drop);
    tables.commit();
    routeIs(ten, {via("west", "10.0.1.3")});
    tables.commit();
    takeOver();
    EXPECT_EQ(to("10.10.0.1"), "0 10.0.1.3; ");
    EXPECT_EQ(to("10.11.0.1"), "drop");
    EXPECT_EQ(to("10.12.0.1"), "0 10.0.1.2; ");
}

TEST_F(SharedIpRoutesTest, RoutesThatSwapTheirPlacesStay) {
    for (int round = 0; round < 2; ++round) {
        routeIs(ten, {via("east", "10.0.2.2")});
        routeIs(eleven, {via("west", "10.0.1.2")});
        commit();
        EXPECT_EQ(to("10.10.0.1"), "1 10.0.2.2; ");
        EXPECT_EQ(to("10.11.0.1"), "0 10.0.1.2; ");
        writer.routeDel(ten);
        writer.routeDel(eleven);
    }
}

TEST_F(SharedIpRoutesTest, ARouteThatMovesToAnotherPlaceStays) {
    const L3::RouteKey other = key("10.12.0.0", 16);
    for (const bool upwards : {true, false}) {
        const L3::RouteKey& first = upwards ? ten : other;
        const L3::RouteKey& second = upwards ? other : ten;
        routeIs(first, {via("east", "10.0.2.2")});
        routeIs(second, {via("east", "10.0.2.2")});
        commit();
        writer.routeDel(upwards ? ten : other);
        writer.routeDel(upwards ? other : ten);
        routeIs(ten, {via("east", "10.0.2.2")});
        commit();
        EXPECT_EQ(to("10.10.0.1"), "1 10.0.2.2; ") << (upwards ? "upwards" : "downwards");
        EXPECT_EQ(to("10.12.0.1"), "");
        writer.routeDel(ten);
        commit();
        EXPECT_EQ(to("10.10.0.1"), "");
    }
}

TEST_F(SharedIpRoutesTest, ALocalRouteThatMovesToAnotherPlaceStays) {
    const L3::RouteKey own = key("10.12.0.1", 32);
    for (const bool isFirst : {true, false}) {
        routeIs(isFirst ? own : ten, Kind::local);
        routeIs(isFirst ? ten : own, Kind::local);
        commit();
        writer.routeDel(isFirst ? own : ten);
        writer.routeDel(isFirst ? ten : own);
        routeIs(own, Kind::local);
        commit();
        EXPECT_EQ(to("10.12.0.1"), "local") << isFirst;
        writer.routeDel(own);
        commit();
        EXPECT_EQ(to("10.12.0.1"), "") << isFirst;
    }
}

} // namespace SharedIpRoutesTest
