#include "Mpls/LabelRoute.h"

#include "LocalTables.h"
#include "TableTesting.h"

namespace LabelRouteTest {

namespace {

using namespace Mpls;
using Lumo::MplsLabel;
using TestSupport::LocalTables;

class LabelRoutes : public testing::Test {
  protected:
    static WeightedVia swapTo(std::uint32_t label, std::uint32_t weight = 1) {
        ViaOptions options;
        options.intf = Lumo::IntfId("east");
        options.mtu = 1400;
        return {Via::swap(std::array{MplsLabel(label)}, options).value(), weight};
    }
    static LabelRoute routeOf(std::uint32_t label, std::vector<WeightedVia> vias) {
        LabelRoute route;
        route.label = MplsLabel(label);
        route.table = TableId::decapLfib;
        route.vias = std::move(vias);
        return route;
    }
    Tessel::Result<void> publish(const LabelRoute& route) {
        auto done = tables.publisher.lfib(route.table).routeIs(route);
        tables.commit();
        return done;
    }
    Tessel::Result<LabelRoute> read(std::uint32_t label) const {
        return readLabelRoute(*tables.published.lfib(TableId::decapLfib), TableId::decapLfib,
                              MplsLabel(label));
    }

    LocalTables tables;
};

TEST_F(LabelRoutes, WhatIsPublishedIsRead) {
    LabelRoute weighted = routeOf(100, {swapTo(200, 3), swapTo(201, 4)});
    weighted.viaType = LfibViaType::externalFec;
    LabelRoute lookUp = routeOf(101, {{Via::popAndLookUp("red", PayloadType::ipv4).value(), 1}});
    lookUp.viaType = LfibViaType::ipLookupPerPrefix;
    LabelRoute tree = routeOf(102, {swapTo(202), swapTo(203)});
    tree.setType = LfibViaSetType::multicast;
    LabelRoute leaf = tree;
    leaf.label = MplsLabel(103);
    leaf.viaType = LfibViaType::multicastIpLookup;
    leaf.tail = LfibMulticastIpLookupVia::toward(Lumo::VlanIntfId::vlanIdToIntfId(7));
    for (const LabelRoute& route : {weighted, lookUp, tree, leaf}) {
        ASSERT_TRUE(publish(route));
        const auto back = read(route.label.value());
        ASSERT_TRUE(back) << route.label.value();
        EXPECT_EQ(back.value(), route) << route.label.value();
    }
    EXPECT_EQ(read(103).value().tail->intf(), Lumo::VlanIntfId::vlanIdToIntfId(7));
}

TEST_F(LabelRoutes, WeightsOutOfRangeAreRefused) {
    const auto refused = publish(routeOf(100, {swapTo(200, 0), swapTo(201, 0)}));
    ASSERT_FALSE(refused);
    EXPECT_EQ(refused.refused().what, "the weights of the vias add up to 0");
    EXPECT_FALSE(publish(routeOf(100, {})));
    EXPECT_FALSE(publish(routeOf(100, std::vector<WeightedVia>(600, swapTo(200)))));
    EXPECT_EQ(tables.published.lfib(TableId::decapLfib)->routes(), 0U);
}

TEST(LabelRoute, NoneIsForASpecialPurposeLabel) {
    EXPECT_EQ(checkRouteLabel(Lumo::implicitNull).refused().what,
              "label 3 (implicit null) never stands in a frame (RFC 3032 section 2.1)");
    for (const std::uint32_t label : {0U, 1U, 2U, 7U, 13U, 15U}) {
        EXPECT_EQ(checkRouteLabel(Lumo::MplsLabel(label)).refused().what,
                  "label " + std::to_string(label) +
                      " is a special-purpose label, and no table holds labels 0 to 15 (RFC 7274)");
    }
    EXPECT_TRUE(checkRouteLabel(Lumo::MplsLabel(16)));
    EXPECT_TRUE(checkRouteLabel(Lumo::MplsLabel(Lumo::MplsLabel::max)));
}

TEST_F(LabelRoutes, AViaThatIsNotLegalReadsAsDamage) {
    Ovix::OvixMplsVia illegal = swapTo(200).via.record();
    illegal.payloadType = 9;
    const WeightedRecord record{illegal, 1};
    tables.publisher.lfib(TableId::decapLfib)
        .routeIs(TableTesting::key(100), LfibViaType::ip, LfibViaSetType::unicast, {&record, 1});
    tables.commit();
    const auto route = read(100);
    ASSERT_FALSE(route);
    EXPECT_EQ(route.refused().what, "payload type 9 is unknown");
}

} // namespace

} // namespace LabelRouteTest
