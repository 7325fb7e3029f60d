#include "whatif/Wires.h"

#include <gtest/gtest.h>

#include "LocalTables.h"
#include "whatif/Moves.h"

namespace WiresTest {

using namespace OvixCtl;

namespace {

Lumo::IpGenAddr address(const char* text) {
    return Lumo::IpGenAddr::fromText(text);
}

Mpls::WeightedVia via(const char* port, const char* nexthop,
                      const std::vector<Lumo::MplsLabel>& labels, std::uint64_t weight = 1) {
    Mpls::ViaOptions options;
    options.intf = Lumo::IntfId(port);
    options.nexthop = address(nexthop);
    return {labels.empty() ? Mpls::Via::forward(options).value()
                           : Mpls::Via::push(labels, options).value(),
            static_cast<std::uint32_t>(weight)};
}

L3::Route route(const char* prefix, std::uint8_t length, std::vector<Mpls::WeightedVia> vias) {
    return {{L3::RouteKey::mainTable, address(prefix), length},
            L3::Route::Kind::forward,
            std::move(vias)};
}

L2::Pseudowire wire(const char* name, const char* neighbour,
                    L2::Pseudowire::State state = L2::Pseudowire::State::up) {
    L2::Pseudowire made;
    made.name = name;
    made.circuit = std::string("ce-") + name;
    made.neighbour = address(neighbour);
    made.localLabel = 500;
    made.remoteLabel = 501;
    made.state = state;
    return made;
}

class WiresTest : public testing::Test {
  protected:
    Moves moves(const char* down, const std::vector<L3::Route>& further = {},
                const std::vector<Wires::Configured>& configured = {}) {
        tables.commit();
        Assumptions assumed;
        assumed.downLinks = {Lumo::IntfId(down)};
        return movesUnder(tables.reader, assumed, further, configured);
    }
    /// "NAME: 1 > 0" by what moves, with the shares before and after that are not lost.
    static std::vector<std::string> told(Moves moves, Moved of) {
        std::vector<std::string> all;
        for (const Move& move : moves.all()) {
            const auto alive = [](const Way& way) {
                return std::count_if(way.shares.begin(), way.shares.end(), [](const Share& share) {
                    return share.kind != Share::Kind::lost;
                });
            };
            for (const std::string& example : move.examples) {
                if (move.of == of) {
                    all.push_back(example + ": " + std::to_string(alive(move.before)) + " > " +
                                  std::to_string(alive(move.after)));
                }
            }
        }
        return all;
    }
    using Told = std::vector<std::string>;

    const std::vector<Lumo::MplsLabel> push{Lumo::MplsLabel(100)};
    TestSupport::LocalTables tables;
};

} // namespace

TEST_F(WiresTest, APublishedPseudowireGoesByTheLongestRouteToItsOtherEnd) {
    tables.publisher.pseudowires().pseudowiresAre(
        {wire("a", "10.255.0.2"), wire("b", "10.255.0.3"),
         wire("c", "10.255.0.4", L2::Pseudowire::State::down)});
    tables.publisher.ipRoutes().routeIs(
        route("10.255.0.0", 24, {via("west", "10.0.1.2", push), via("east", "10.0.2.2", push)}));
    tables.publisher.ipRoutes().routeIs(route("10.255.0.3", 32, {via("west", "10.0.1.2", push)}));
    tables.publisher.ipRoutes().routeIs(route("0.0.0.0", 0, {via("east", "10.0.2.2", push)}));
    EXPECT_EQ(told(moves("east"), Moved::pseudowires), Told{"a: 2 > 1"});
    EXPECT_EQ(told(moves("west"), Moved::pseudowires), (Told{"a: 2 > 1", "b: 1 > 0"}));
    EXPECT_EQ(moves("west").counts(Moved::pseudowires).lost, 1U);
}

TEST_F(WiresTest, ARouteWithoutLabelsIsATunnelOnlyToTheOtherEndItself) {
    L2::Pseudowire near = wire("near", "10.255.0.2");
    near.adjacent = {address("10.0.2.2")};
    tables.publisher.pseudowires().pseudowiresAre({near, wire("far", "10.255.0.3")});
    tables.publisher.ipRoutes().routeIs(route("10.255.0.0", 24, {via("east", "10.0.2.2", {})}));
    EXPECT_EQ(told(moves("east"), Moved::pseudowires), Told{"near: 1 > 0"});
}

TEST_F(WiresTest, ACircuitThatGoesDownStopsBothDirections) {
    tables.publisher.pseudowires().pseudowiresAre({wire("a", "10.255.0.2")});
    const std::vector<L3::Route> configuration{
        route("10.255.0.2", 32, {via("east", "10.0.2.2", push)})};
    const Moves down = moves("ce-a", configuration);
    EXPECT_EQ(told(down, Moved::pseudowires), Told{"a: 1 > 0"});
    EXPECT_EQ(told(down, Moved::circuits), Told{"a: 1 > 0"});
}

TEST_F(WiresTest, ThoseOfTheConfigurationComeFirstAndGoByNoRoute) {
    tables.publisher.pseudowires().pseudowiresAre({wire("a", "10.255.0.2")});
    tables.publisher.ipRoutes().routeIs(route("10.255.0.2", 32, {via("east", "10.0.2.2", push)}));
    const std::vector<Wires::Configured> own{
        {"mine", Lumo::IntfId("ce-a"), route("0.0.0.0", 0, {via("west", "10.0.1.2", push)})}};
    EXPECT_EQ(told(moves("east", {}, own), Moved::pseudowires), Told{});
    EXPECT_EQ(told(moves("west", {}, own), Moved::pseudowires), Told{"mine: 1 > 0"});
}

} // namespace WiresTest
