#include "FastPath/DecisionTable.h"

#include <gtest/gtest.h>
#include <set>

#include "LocalTables.h"
#include "TableTesting.h"

namespace DecisionTableTest {

using namespace OvixAgent;
using TableTesting::key;
using Vias = std::vector<Mpls::WeightedRecord>;

namespace {

class DecisionTableTest : public ::testing::Test {
  protected:
    DecisionTableTest() { EXPECT_TRUE(decisions.refresh()); }

    /// Makes a decision for the label from what the tables hold.
    void decide(std::uint32_t label) {
        decisions.dependsOnTables(label);
        decisions.at(label).stamp = decisions.stamp();
    }
    std::set<std::uint32_t> awaited() {
        std::set<std::uint32_t> labels;
        while (decisions.areAwaited()) {
            labels.insert(decisions.takeAwaiting());
        }
        return labels;
    }
    bool isValid(std::uint32_t label) { return decisions.isValid(decisions.at(label)); }
    void routeIs(Mpls::TableId table, std::uint32_t label, std::uint32_t mtu = 1400) {
        const Vias vias{TableTesting::swapVia(mtu)};
        local.change([&] {
            local.publisher.lfib(table).routeIs(key(label), Mpls::LfibViaType::ip,
                                                Mpls::LfibViaSetType::unicast, vias);
        });
    }
    void hardwareRouteIs(std::uint32_t label, std::uint64_t adjacency) {
        local.change([&] { local.publisher.hardware().routeIs({key(label), adjacency, false}); });
    }
    void adjacencyIs(std::uint64_t adjacency, std::uint32_t mtu) {
        const Vias vias{TableTesting::swapVia(mtu)};
        local.change([&] {
            local.publisher.hardware().adjacencyIs(
                adjacency, *Mpls::Hardware::Adjacency::create(vias, {}, false));
        });
    }

    TestSupport::LocalTables local;
    DecisionTable decisions{local.published};
};

} // namespace

TEST_F(DecisionTableTest, ALabelThatWasNeverDecidedIsNotValid) {
    EXPECT_FALSE(isValid(100));
    decide(100);
    EXPECT_TRUE(isValid(100));
    EXPECT_FALSE(isValid(99) || isValid(101));
    EXPECT_TRUE(decisions.refresh());
    EXPECT_TRUE(isValid(100));
}

TEST_F(DecisionTableTest, AChangedRouteVoidsItsLabelAndNoOther) {
    for (const auto table :
         {Mpls::TableId::decapLfib, Mpls::TableId::evpnEthernetSegmentFilterLfib,
          Mpls::TableId::pseudowireLfib, Mpls::TableId::evpnEtreeLeafLabelLfib}) {
        for (const std::uint32_t label : {99U, 100U, 101U, Lumo::MplsLabel::max}) {
            decide(label);
        }
        routeIs(table, 100);
        EXPECT_TRUE(decisions.refresh());
        EXPECT_FALSE(isValid(100));
        EXPECT_TRUE(isValid(99) && isValid(101) && isValid(Lumo::MplsLabel::max));
        decide(100);
        local.change([&] { local.publisher.lfib(table).routeDel(key(100)); });
        EXPECT_TRUE(decisions.refresh());
        EXPECT_FALSE(isValid(100));
        EXPECT_TRUE(isValid(99) && isValid(101));
    }
}

TEST_F(DecisionTableTest, AProgrammedRouteThatComesOrGoesVoidsItsLabel) {
    decide(100);
    decide(101);
    hardwareRouteIs(100, 5);
    EXPECT_TRUE(decisions.refresh());
    EXPECT_FALSE(isValid(100));
    EXPECT_TRUE(isValid(101));
    decide(100);
    local.change([&] { local.publisher.hardware().routeDel(key(100)); });
    EXPECT_TRUE(decisions.refresh());
    EXPECT_FALSE(isValid(100));
    EXPECT_TRUE(isValid(101));
}

TEST_F(DecisionTableTest, AnAdjacencyVoidsAllLabelsThatShareIt) {
    for (const std::uint32_t label : {100U, 101U, 102U, 103U}) {
        hardwareRouteIs(label, label == 103 ? 6 : 5);
    }
    adjacencyIs(6, 1400);
    EXPECT_TRUE(decisions.refresh());
    for (int round = 0; round < 2; ++round) {
        for (const std::uint32_t label : {100U, 101U, 102U, 103U}) {
            decide(label);
        }
        adjacencyIs(5, 1400 + static_cast<std::uint32_t>(round));
        EXPECT_TRUE(decisions.refresh());
        EXPECT_FALSE(isValid(100) || isValid(101) || isValid(102));
        EXPECT_TRUE(isValid(103));
    }
}

TEST_F(DecisionTableTest, ALabelThatGetsAnotherAdjacencyLeavesTheList) {
    // The first, the last and one in the middle of the list, in turn.
    for (const std::uint32_t moved : {100U, 101U, 102U}) {
        for (const std::uint32_t label : {100U, 101U, 102U}) {
            hardwareRouteIs(label, 5);
            EXPECT_TRUE(decisions.refresh());
            decide(label);
        }
        hardwareRouteIs(moved, 6);
        EXPECT_TRUE(decisions.refresh());
        decide(moved);
        adjacencyIs(5, 1400 + moved);
        EXPECT_TRUE(decisions.refresh());
        for (const std::uint32_t label : {100U, 101U, 102U}) {
            EXPECT_EQ(isValid(label), label == moved) << label << " of " << moved;
        }
        adjacencyIs(6, 1400 + moved);
        EXPECT_TRUE(decisions.refresh());
        EXPECT_FALSE(isValid(moved));
    }
}

TEST_F(DecisionTableTest, AllAreVoidWhenTheStampMovesOn) {
    decide(100);
    decide(Lumo::MplsLabel::max);
    const std::uint32_t stamp = decisions.stamp();
    decisions.voidAll();
    EXPECT_NE(decisions.stamp(), stamp);
    EXPECT_FALSE(isValid(100) || isValid(Lumo::MplsLabel::max));
    decide(100);
    EXPECT_TRUE(isValid(100));
    EXPECT_FALSE(isValid(Lumo::MplsLabel::max));
}

TEST_F(DecisionTableTest, ChangesOfADamagedPageVoidAll) {
    routeIs(Mpls::TableId::decapLfib, 100);
    EXPECT_TRUE(decisions.refresh());
    decide(100);
    decide(5000);
    routeIs(Mpls::TableId::decapLfib, 101);
    std::uint64_t& page = local.pageRefOf(Mpls::TableId::decapLfib, 100);
    const std::uint64_t whole = std::exchange(page, ~std::uint64_t{0});
    EXPECT_FALSE(decisions.refresh());
    EXPECT_FALSE(isValid(100) || isValid(5000));
    page = whole;
    EXPECT_TRUE(decisions.refresh());
    decide(100);
    EXPECT_TRUE(isValid(100));
}

TEST_F(DecisionTableTest, WhatADecisionRefersToIsReleasedWithIt) {
    const auto made = [](Action action, std::uint32_t value) {
        Decision decision;
        decision.action = action;
        decision.value = value;
        return decision;
    };
    DecidedRewrite towardFec;
    towardFec.isToFec = true;
    towardFec.egress = decisions.fecs.add({});
    DecidedChoice choice;
    choice.add(1, made(Action::rewrite, decisions.rewrites.add(towardFec)));
    choice.add(1, made(Action::drop, 0));
    choice.add(1, made(Action::impose, decisions.rewrites.add({})));
    DecidedByBeneath kinds;
    kinds.decisions = {made(Action::choice, decisions.choices.add(choice)),
                       made(Action::lookup, decisions.lookups.add({})),
                       made(Action::circuit, decisions.circuits.add({})), Decision()};
    Decision whole = made(Action::byBeneath, decisions.byBeneath.add(kinds));
    const auto held = [&] {
        return decisions.fecs.size() + decisions.rewrites.size() + decisions.choices.size() +
               decisions.lookups.size() + decisions.circuits.size() + decisions.byBeneath.size();
    };
    EXPECT_EQ(held(), 7U);
    decisions.release(whole);
    EXPECT_EQ(held(), 0U);
    EXPECT_EQ(whole.action, Action::none);
    EXPECT_FALSE(decisions.isValid(whole));
}

TEST_F(DecisionTableTest, LabelsMayKeepTheirDecisionsUntilTheseAreReplaced) {
    routeIs(Mpls::TableId::decapLfib, 100);
    routeIs(Mpls::TableId::decapLfib, 101);
    decisions.awaitsReplacing();
    EXPECT_TRUE(decisions.refresh());
    EXPECT_EQ(awaited(), (std::set<std::uint32_t>{100, 101}));
    decide(100);
    decide(101);
    routeIs(Mpls::TableId::decapLfib, 100, 1300);
    EXPECT_TRUE(decisions.refresh());
    EXPECT_TRUE(isValid(100));
    EXPECT_EQ(awaited(), std::set<std::uint32_t>{100});
    decisions.voidAll();
    EXPECT_TRUE(decisions.refresh());
    EXPECT_FALSE(isValid(100) || isValid(101));
    EXPECT_EQ(awaited(), (std::set<std::uint32_t>{100, 101}));
}

TEST_F(DecisionTableTest, WhatIsToBeReplacedIsFoundAhead) {
    decisions.awaitsReplacing();
    EXPECT_TRUE(decisions.refresh());
    decide(100);
    routeIs(Mpls::TableId::decapLfib, 100);
    decisions.lookAhead();
    EXPECT_EQ(awaited(), std::set<std::uint32_t>{100});
    EXPECT_TRUE(decisions.refresh());
    EXPECT_TRUE(isValid(100));
    EXPECT_FALSE(decisions.areAwaited());
}

TEST_F(DecisionTableTest, NothingIsFoundAheadWhereChangesVoidDecisions) {
    decide(100);
    routeIs(Mpls::TableId::decapLfib, 100);
    decisions.lookAhead();
    EXPECT_TRUE(isValid(100));
    EXPECT_TRUE(decisions.refresh());
    EXPECT_FALSE(isValid(100));
}

TEST_F(DecisionTableTest, DamageFoundAheadVoidsAllWithTheNextRefresh) {
    routeIs(Mpls::TableId::decapLfib, 100);
    decisions.awaitsReplacing();
    EXPECT_TRUE(decisions.refresh());
    decide(5000);
    routeIs(Mpls::TableId::decapLfib, 101);
    std::uint64_t& page = local.pageRefOf(Mpls::TableId::decapLfib, 100);
    const std::uint64_t whole = std::exchange(page, ~std::uint64_t{0});
    decisions.lookAhead();
    EXPECT_TRUE(isValid(5000));
    page = whole;
    EXPECT_FALSE(decisions.refresh());
    EXPECT_FALSE(isValid(5000));
    EXPECT_TRUE(decisions.refresh());
    EXPECT_EQ(awaited(), (std::set<std::uint32_t>{100, 101}));
}

} // namespace DecisionTableTest
