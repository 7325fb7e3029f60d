#include "LabelDecisionsTesting.h"

namespace LabelDecisionsTest {

using namespace LabelDecisionsTesting;

TEST_F(LabelDecisions, ASwapIsDecidedByTheLabelAlone) {
    for (const Beneath beneath : allBeneath) {
        route(decap, {{swapVia(300), 1}});
        ASSERT_TRUE(decide(100, beneath));
        EXPECT_TRUE(decision.isFound && decision.isLookupKnown);
        ASSERT_EQ(decision.choices.size(), 1U);
        EXPECT_EQ(choice().by, DecidedBy::label);
        EXPECT_FALSE(choice().terminates);
        ASSERT_TRUE(choice().nexthop);
        EXPECT_EQ(choice().nexthop->intfId(), Lumo::IntfId("east"));
        EXPECT_EQ(choice().nexthop->address().text(), "10.0.2.2");
        EXPECT_EQ(labelSwappedIn(choice()), 300U);
        EXPECT_TRUE(decision.lookup.empty() && choice().events.empty());
    }
}

TEST_F(LabelDecisions, APushIsDecidedByTheLabelAlone) {
    route(decap, {{viaOf(MplsLabelAction::push), 1}});
    for (const Beneath beneath : allBeneath) {
        ASSERT_TRUE(decide(100, beneath));
        EXPECT_EQ(choice().by, DecidedBy::label);
        EXPECT_EQ(rewrites(*choice().nexthop), (Texts{"MplsTtl", "MplsIpPush"}));
    }
}

TEST_F(LabelDecisions, APopIsDecidedByWhatLiesBeneathToo) {
    route(decap, {{popOf(PayloadType::automatic), 1}});
    for (const Beneath beneath : allBeneath) {
        ASSERT_TRUE(decide(100, beneath));
        EXPECT_EQ(choice().by, DecidedBy::beneath);
        EXPECT_FALSE(choice().terminates);
        if (beneath == Beneath::ethernet) {
            EXPECT_FALSE(choice().nexthop);
            EXPECT_EQ(reasons(choice().events), Texts{"no rewrite"});
        } else {
            EXPECT_EQ(rewrites(*choice().nexthop), Texts{"MplsPop"});
            EXPECT_TRUE(choice().events.empty());
        }
    }
}

TEST_F(LabelDecisions, WeightedViasAreOneChoiceEach) {
    route(decap, {{swapVia(300), 3}, {swapVia(301), 1}, {popOf(PayloadType::automatic), 7}});
    ASSERT_TRUE(decide(100, Beneath::ethernet));
    ASSERT_EQ(decision.choices.size(), 3U);
    EXPECT_EQ(decision.choices[0].weight, 3U);
    EXPECT_EQ(labelSwappedIn(decision.choices[0]), 300U);
    EXPECT_EQ(decision.choices[1].weight, 1U);
    EXPECT_EQ(labelSwappedIn(decision.choices[1]), 301U);
    EXPECT_EQ(decision.choices[2].weight, 7U);
    EXPECT_FALSE(decision.choices[2].nexthop);
    EXPECT_EQ(reasons(decision.choices[2].events), Texts{"no rewrite"});
    EXPECT_TRUE(decision.choices[0].events.empty() && decision.choices[1].events.empty());
}

TEST_F(LabelDecisions, AWeightedSetIsRefusedForOneViaThatIsUndecided) {
    const auto decided = declaredHandlerIs(DecidedBy::label, [](const auto& context) {
        return ProcessingResult(*context->viaIndex() == 0 ? frameDealtWith : 0);
    });
    route(decap, {{swapVia(300), 1}, {swapVia(301), 1}}, madeUpViaType);
    EXPECT_FALSE(decide(100));
    EXPECT_EQ(decided->seen.size(), 2U);
    route(decap, {{swapVia(300), 1}}, madeUpViaType);
    EXPECT_TRUE(decide(100));
}

TEST_F(LabelDecisions, TheProgrammedRouteIsDecidedAsItsInterfacesStand) {
    OvixMplsVia west = swapVia(301);
    west.intfId = Lumo::IntfId("west");
    hardware->adjacencyIs(5, Mpls::Hardware::Adjacency::create(Vias{{swapVia(300), 2}, {west, 1}},
                                                               Vias{{swapVia(400), 1}}, false));
    hardware->routeIs({key(100), 5, false});
    ASSERT_TRUE(decide(100));
    EXPECT_EQ(reasons(decision.lookup), Texts(4, missed));
    ASSERT_EQ(decision.choices.size(), 1U);
    EXPECT_EQ(labelSwappedIn(choice()), 300U);
    interfaces->intfStatusIs(Lumo::IntfId("west"), true);
    ASSERT_TRUE(decide(100));
    EXPECT_EQ(decision.choices.size(), 2U);
    EXPECT_EQ(choice().weight, 2U);
    interfaces->intfStatusIs(Lumo::IntfId("west"), false);
    interfaces->intfStatusIs(Lumo::IntfId("east"), false);
    ASSERT_TRUE(decide(100));
    EXPECT_FALSE(decision.isFound);
    ASSERT_FALSE(decision.lookup.empty());
    EXPECT_EQ(decision.lookup.back()->reason, "No valid vias adjacency for label %s");
}

TEST_F(LabelDecisions, AnIpLookupIsDecidedByThePayloadsDestination) {
    for (const auto payload : {PayloadType::automatic, PayloadType::ipv4, PayloadType::ipv6}) {
        writers[decap]->ipLookupRouteIs(key(100), LfibViaType::ipLookup, "red", payload);
        for (const auto& [beneath, family, destination] :
             {std::tuple(Beneath::ipv4, PayloadType::ipv4, "192.0.2.2"),
              std::tuple(Beneath::ipv6, PayloadType::ipv6, "2001:db8::2")}) {
            const bool agrees = payload == PayloadType::automatic || payload == family;
            ASSERT_EQ(decide(100, beneath), agrees) << destination;
            if (agrees) {
                EXPECT_EQ(choice().by, DecidedBy::destination);
                EXPECT_FALSE(choice().terminates);
                EXPECT_EQ(choice().nexthop->address().text(), destination);
                EXPECT_EQ(choice().nexthop->vrfName().view(), "red");
                EXPECT_EQ(rewrites(*choice().nexthop), Texts{"MplsPop"});
            }
        }
        EXPECT_FALSE(decide(100, Beneath::ethernet));
    }
}

TEST_F(LabelDecisions, AnIpLookupThatDoesNotLookAtThePayloadIsRefused) {
    for (const auto payload : {PayloadType::none, PayloadType::ethernet, PayloadType::undefined}) {
        writers[decap]->ipLookupRouteIs(key(100), LfibViaType::ipLookup, "red", payload);
        for (const Beneath beneath : {Beneath::ipv4, Beneath::ipv6, Beneath::ethernet}) {
            EXPECT_FALSE(decide(100, beneath)) << static_cast<int>(payload);
        }
    }
}

TEST_F(LabelDecisions, AnIpLookupAboveAnotherLabelTerminates) {
    writers[decap]->ipLookupRouteIs(key(100), LfibViaType::ipLookup, "red", PayloadType::ipv4);
    ASSERT_TRUE(decide(100, Beneath::label));
    ASSERT_EQ(decision.choices.size(), 1U);
    EXPECT_TRUE(choice().terminates);
    EXPECT_EQ(choice().by, DecidedBy::beneath);
    EXPECT_FALSE(choice().nexthop);
    EXPECT_TRUE(choice().events.empty());
}

TEST_F(LabelDecisions, AnExternalFecIsDecidedByTheLabelAlone) {
    OvixMplsVia via = swapVia(300);
    via.fecIdLow = 9;
    route(decap, {{via, 1}}, LfibViaType::externalFec);
    for (const Beneath beneath : allBeneath) {
        ASSERT_TRUE(decide(100, beneath));
        EXPECT_EQ(choice().by, DecidedBy::label);
        EXPECT_EQ(choice().nexthop->intfId(),
                  Tessel::Fib::FecId::fecIdToHierarchicalIntfId(Tessel::Fib::FecId(9)));
        EXPECT_TRUE(choice().nexthop->rewriteInfos().finalCounterActions().empty());
    }
    route(decap, {{viaOf(MplsLabelAction::pop), 1}}, LfibViaType::externalFec);
    ASSERT_TRUE(decide(100));
    EXPECT_EQ(reasons(choice().events), Texts{"Invalid label action 2"});
    EXPECT_FALSE(choice().nexthop);
}

TEST_F(LabelDecisions, AnUnknownLabelIsDecidedAsADrop) {
    for (const Beneath beneath : allBeneath) {
        ASSERT_TRUE(decide(100, beneath));
        EXPECT_FALSE(decision.isFound);
        EXPECT_TRUE(decision.isLookupKnown);
        EXPECT_EQ(reasons(decision.lookup), Texts(4, missed));
        ASSERT_EQ(decision.choices.size(), 1U);
        EXPECT_EQ(choice().by, DecidedBy::label);
        EXPECT_EQ(reasons(choice().events), Texts{nothingFound});
        EXPECT_FALSE(choice().nexthop || choice().terminates);
    }
}

TEST_F(LabelDecisions, TheEventsAreThoseOfTheTablesBeforeTheLabelsOwn) {
    const std::pair<Table, std::size_t> cases[]{
        {decap, 0}, {evpnEs, 1}, {pseudowire, 2}, {evpnLeaf, 3}};
    for (const auto& [table, misses] : cases) {
        const auto label = static_cast<std::uint32_t>(200 + table);
        swapRoute(table, label, 300);
        ASSERT_TRUE(decide(label));
        EXPECT_EQ(reasons(decision.lookup), Texts(misses, missed));
        EXPECT_TRUE(choice().events.empty());
    }
    hardware->routeIs({key(100), 99, false});
    ASSERT_TRUE(decide(100));
    EXPECT_EQ(reasons(decision.lookup),
              (Texts{missed, missed, missed, missed, "No adjacency for label %s"}));
    EXPECT_EQ(reasons(choice().events), Texts{nothingFound});
}

TEST_F(LabelDecisions, AreWhatAFrameMeets) {
    const std::function<void()> routes[]{
        [] {},
        [&] {
            hardware->routeIs({key(100), 99, false});
        },
        [&] {
            route(evpnLeaf, {{swapVia(300), 1}});
        },
        [&] {
            route(pseudowire, {{popOf(PayloadType::ethernet), 1}});
        },
        [&] {
            route(evpnEs, {{viaOf(MplsLabelAction::push), 1}});
        },
        [&] {
            route(decap, {{popOf(PayloadType::automatic), 1}});
        },
        [&] {
            route(decap, {{viaOf(MplsLabelAction::swap, 3), 1}});
        },
        [&] {
            route(decap, {{swapVia(300), 1}}, LfibViaType::externalFec);
        },
        [&] {
            route(decap, {{viaOf(MplsLabelAction::pop), 1}}, LfibViaType::externalFec);
        },
    };
    int number = 0;
    for (const auto& make : routes) {
        SCOPED_TRACE(number++);
        make();
        expectDecided(Beneath::ipv4, ip4);
        expectDecided(Beneath::ipv6, ip6);
        expectDecided(Beneath::ethernet, ethernet);
    }
}

TEST_F(LabelDecisions, AnExternalFecOfSeveralViasIsADropWhicheverIsChosen) {
    route(decap, {{swapVia(300), 1}, {swapVia(301), 1}}, LfibViaType::externalFec);
    ASSERT_TRUE(decide(100));
    EXPECT_EQ(decision.choices.size(), 2U);
    for (const LabelDecision::Choice& one : decision.choices) {
        EXPECT_FALSE(one.nexthop);
        EXPECT_EQ(reasons(one.events), Texts{"More than 1 via"});
    }
}

TEST_F(LabelDecisions, AnIpLookupIsWhatAFrameMeets) {
    writers[evpnEs]->ipLookupRouteIs(key(100), LfibViaType::ipLookup, "red",
                                     PayloadType::automatic);
    expectDecided(Beneath::ipv4, udpPacket(0xc0000202));
    expectDecided(Beneath::ipv6, ip6);
}

TEST_F(LabelDecisions, AMulticastSetHasAReplicaForEachVia) {
    route(pseudowire, {{swapVia(300), 1}, {swapVia(301), 1}, {swapVia(302), 1}}, LfibViaType::ip,
          Mpls::LfibViaSetType::multicast);
    ASSERT_TRUE(decide(100));
    EXPECT_TRUE(decision.isMulticast && decision.isFound);
    ASSERT_EQ(decision.choices.size(), 3U);
    for (std::size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(decision.choices[i].by, DecidedBy::label);
        EXPECT_TRUE(decision.choices[i].nexthop->isReplica());
        EXPECT_EQ(labelSwappedIn(decision.choices[i]), 300U + i);
    }
    // From the second replica on there are several next hops.
    EXPECT_EQ(reasons(decision.choices[0].events),
              Texts(2, "Using first nexthop, but %s nexthops found"));
    swapRoute(decap, 101, 300);
    ASSERT_TRUE(decide(101));
    EXPECT_FALSE(decision.isMulticast);
}

TEST_F(LabelDecisions, AReplicaThatNeedsAPayloadMakesAMulticastSetDependOnIt) {
    route(pseudowire, {{swapVia(300), 1}, {popOf(PayloadType::automatic), 1}}, LfibViaType::ip,
          Mpls::LfibViaSetType::multicast);
    for (const auto& [beneath, replicas] :
         {std::pair(Beneath::ipv4, 2U), std::pair(Beneath::ethernet, 1U)}) {
        ASSERT_TRUE(decide(100, beneath));
        EXPECT_EQ(decision.choices.size(), replicas);
        EXPECT_TRUE(std::any_of(
            decision.choices.begin(), decision.choices.end(),
            [](const LabelDecision::Choice& one) { return one.by == DecidedBy::beneath; }));
    }
}

TEST_F(LabelDecisions, NoViaOfAMulticastSetIsHandledUnlessAllHaveDeclaredThemselves) {
    const auto handler = handlerAnswers({frameDealtWith});
    route(decap, {{swapVia(300), 1}}, madeUpViaType, Mpls::LfibViaSetType::multicast);
    EXPECT_FALSE(decide(100));
    EXPECT_TRUE(decision.isLookupKnown && decision.isFound);
    EXPECT_TRUE(handler->seen.empty());
}

TEST_F(LabelDecisions, NothingIsDecidedWhileRoutingIsOff) {
    swapRoute(decap, 100, 300);
    routingInfo->mplsRoutingEnabledIs(false);
    EXPECT_FALSE(decide(100));
    EXPECT_FALSE(decide(101));
    routingInfo->mplsRoutingEnabledIs(true);
    EXPECT_TRUE(decide(100));
}

TEST_F(LabelDecisions, AHandlerThatHasNotDeclaredItselfIsNotRun) {
    const auto handler = handlerAnswers({frameDealtWith});
    madeUpRoute(decap, 100);
    for (const Beneath beneath : allBeneath) {
        EXPECT_FALSE(decide(100, beneath));
        EXPECT_TRUE(decision.isFound && decision.isLookupKnown);
    }
    EXPECT_TRUE(handler->seen.empty());
}

TEST_F(LabelDecisions, AViaTypeWithoutAHandlerIsRefused) {
    route(decap, {{swapVia(300), 1}}, LfibViaType{78});
    EXPECT_FALSE(decide(100));
}

TEST_F(LabelDecisions, ADeclaredHandlerIsRunWithTheLabelOfItsModel) {
    const auto handler = declaredHandlerIs(DecidedBy::label, [](const auto& context) {
        context->nexthops()->nexthopFront()->intfIdIs(Lumo::IntfId("east"));
        return frameDealtWith;
    });
    madeUpRoute(decap, 100);
    for (const Beneath beneath : allBeneath) {
        ASSERT_TRUE(decide(100, beneath));
        EXPECT_EQ(choice().nexthop->intfId(), Lumo::IntfId("east"));
        const Lumo::MplsLabelEntry entry = handler->seen.back()->entry();
        EXPECT_EQ(entry.label().value(), 100U);
        EXPECT_EQ(entry.bos(), beneath != Beneath::label);
        EXPECT_GT(entry.ttl(), 1);
    }
}

TEST_F(LabelDecisions, AnOutcomeOfSeveralNextHopsIsRefused) {
    declaredHandlerIs(DecidedBy::label, [](const auto& context) {
        context->nexthops()->nexthopEnq(Tessel::make<RoutingNexthop>(Lumo::IntfId("east")));
        return frameDealtWith;
    });
    madeUpRoute(decap, 100);
    EXPECT_FALSE(decide(100));
}

TEST_F(LabelDecisions, CounterActionsAreAboutTheModel) {
    swapRoute(decap, 100, 300);
    ASSERT_TRUE(decide(100, Beneath::ipv6));
    const auto& actions = choice().nexthop->rewriteInfos().finalCounterActions();
    ASSERT_EQ(actions.size(), 1U);
    const auto action = Tessel::ptrCast<LfibCounterActionInfo>(actions.front());
    EXPECT_EQ(action->routeKey(), key(100));
    EXPECT_EQ(action->byteCount(), decision.modelBytes);
    EXPECT_EQ(decision.modelBytes, 44U); // the label and an IPv6 header
}

TEST_F(LabelDecisions, NothingIsCountedForReal) {
    swapRoute(decap, 100, 300);
    routeFrame(mplsFrame({{200}}, ip4));
    const auto before = everythingCounted();
    for (const Beneath beneath : allBeneath) {
        ASSERT_TRUE(decide(100, beneath));
        ASSERT_TRUE(decide(200, beneath));
    }
    EXPECT_EQ(everythingCounted(), before);
    std::size_t counted = 0;
    plugin->lfibCounterCollection()->forEach([&](const auto&...) { ++counted; });
    EXPECT_EQ(counted, 0U);
    // What one label has counted is not another one's.
    ASSERT_TRUE(decide(200));
    ASSERT_TRUE(decide(100));
    EXPECT_TRUE(decision.lookup.empty() && choice().events.empty());
}

TEST_F(LabelDecisions, DamageIsReportedOnce) {
    swapRoute(decap, 100, 300);
    viaKeyCountIs(599); // more than the record has room for
    for (std::uint64_t asked = 1; asked <= 2; ++asked) {
        ASSERT_TRUE(decide(100));
        EXPECT_FALSE(decision.isFound);
        EXPECT_EQ(reasons(decision.lookup), Texts(4, missed));
        EXPECT_EQ(writers[decap]->status()->corruptionsDetected(), asked);
    }
}

TEST_F(LabelDecisions, WhatReadingTablesThrowsPassesOn) {
    swapRoute(decap, 100, 300);
    swapRoute(evpnEs, 101, 300);
    viaKeyCountIs(600);
    EXPECT_THROW(decide(100), Tessel::RangeError);
    EXPECT_TRUE(decide(101));
    EXPECT_EQ(reasons(decision.lookup), Texts{missed});
}

TEST_F(LabelDecisions, TheVersionMovesWithWhateverElseDecides) {
    const MplsRoutingHandler& handler = *plugin->mplsRoutingHandler();
    std::uint64_t seen = handler.decisionVersion();
    const auto moved = [&] {
        const std::uint64_t before = std::exchange(seen, handler.decisionVersion());
        return seen != before;
    };
    swapRoute(decap, 100, 300);
    decide(100);
    EXPECT_FALSE(moved());
    interfaces->intfStatusIs(Lumo::IntfId("east"), true); // as it is
    EXPECT_FALSE(moved());
    interfaces->intfStatusIs(Lumo::IntfId("east"), false);
    EXPECT_TRUE(moved());
    handlerAnswers({});
    EXPECT_TRUE(moved());
    routingInfo->mplsRoutingEnabledIs(false);
    EXPECT_TRUE(moved());
    routingInfo->mplsRoutingEnabledIs(true);
    EXPECT_TRUE(moved());
}

} // namespace LabelDecisionsTest
