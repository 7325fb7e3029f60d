#include "Ovix/trace/NamedCounters.h"

#include <gtest/gtest.h>
#include <string>

#include "Lumo/MplsLabel.h"

namespace NamedCountersTest {

namespace {

using namespace Ovix;

TEST(NamedCounters, CountByNameAndRememberTheLast) {
    OvixNamedCounters counters;
    constexpr CounterKey fixed("Drop", "m", "reason");
    counters.count(fixed);
    counters.count("Drop", "m", "reason");
    EXPECT_EQ(counters.value("Drop", "m", "reason"), 2U);
    EXPECT_EQ(counters.value("Action", "m", "reason"), 0U);
    for (int i = 0; i < 10000; ++i) {
        counters.count("Drop", "m", std::to_string(i));
    }
    EXPECT_EQ(counters.counters().size(), 10001U);
    EXPECT_EQ(counters.value("Drop", "m", "9999"), 1U);
    EXPECT_EQ(counters.last()->reason, "9999");
    counters.forgetLast();
    EXPECT_EQ(counters.last(), nullptr);
}

TEST(NamedCounters, CountEachNameApart) {
    OvixNamedCounters counters;
    counters.count("Drop", "Routing::Mpls", "No via");
    counters.count("Drop", "Routing::Mpls", "No vias");
    counters.count("Action", "Routing::Mpls", "No via");
    counters.count("Drop", "Routing::Ip", "No via");
    counters.count("Drop", "Routing::Mpls", "No via");
    EXPECT_EQ(counters.value("Drop", "Routing::Mpls", "No via"), 2U);
    EXPECT_EQ(counters.value("Drop", "Routing::Mpls", "No vias"), 1U);
    EXPECT_EQ(counters.value("Action", "Routing::Mpls", "No via"), 1U);
    EXPECT_EQ(counters.value("Drop", "Routing::Ip", "No via"), 1U);
    EXPECT_EQ(counters.value("Exceptional", "Routing::Mpls", "No via"), 0U);
    EXPECT_EQ(counters.counters().size(), 4U);
}

TEST(NamedCounters, KeepTheirCountsHoweverManyNamesThereAre) {
    OvixNamedCounters counters;
    constexpr std::uint64_t names = 1000;
    for (int round = 0; round < 2; ++round) {
        for (std::uint64_t i = 0; i < names; ++i) {
            counters.count("Drop", "Routing::Mpls", "reason " + std::to_string(i));
        }
    }
    ASSERT_EQ(counters.counters().size(), names);
    for (std::uint64_t i = 0; i < names; ++i) {
        EXPECT_EQ(counters.counters()[i].reason, "reason " + std::to_string(i));
        EXPECT_EQ(counters.counters()[i].count, 2U);
    }
}

TEST(NamedCounters, RememberWhichWasCountedLast) {
    OvixNamedCounters counters;
    EXPECT_EQ(counters.last(), nullptr);
    counters.count("Drop", "Routing::Mpls", "first");
    counters.count("Drop", "Routing::Mpls", "second");
    counters.count("Drop", "Routing::Mpls", "first");
    ASSERT_NE(counters.last(), nullptr);
    EXPECT_EQ(counters.last()->reason, "first");
    counters.forgetLast();
    EXPECT_EQ(counters.last(), nullptr);
    EXPECT_EQ(counters.value("Drop", "Routing::Mpls", "first"), 2U);
}

TEST(NamedCounters, ALookupThatMissedIsNotWhatEndedTheFrame) {
    OvixNamedCounters counters;
    counters.count("Drop", "Routing::Mpls", "No via set in lfib %s for %s");
    EXPECT_EQ(counters.last(), nullptr);
    counters.count("Drop", "Routing::Mpls", "No via");
    for (const char* reason : {"No via set in lfib %s for %s", "No adjacency for label %s"}) {
        counters.count("Drop", "Routing::Mpls", reason);
        ASSERT_NE(counters.last(), nullptr);
        EXPECT_EQ(counters.last()->reason, "No via") << reason;
    }
}

TEST(NamedCounters, ReadWithoutPlaceholdersAndAMissIsNoDrop) {
    const EventText miss = readableEvent("Drop", "No via set in lfib %s for %s");
    EXPECT_EQ(miss.category, "Lookup");
    EXPECT_EQ(miss.reason, "label not in this table (looked up in the next)");
    const EventText noHandler = readableEvent("Exceptional", "Via type %s handler not found");
    EXPECT_EQ(noHandler.category, "Exceptional");
    EXPECT_EQ(noHandler.reason, "No handler for the via's type");
    EXPECT_EQ(readableEvent("Drop", "No via").reason, "No via");
    EXPECT_EQ(readableEvent("Drop", "no rewrite").reason, "No rewrite for the via and the packet");
    EXPECT_EQ(readableEvent("Drop", "of %s and %s").reason, "of ... and ...");
}

TEST(NamedCounters, MoreLabelsThanAreLookedUpReadAsSuch) {
    try {
        Lumo::MplsStackEntryIndex::outOfRange();
    } catch (const Tessel::RangeError& thrown) {
        const EventText text = readableEvent("Drop", thrown.what());
        EXPECT_EQ(text.category, "Drop");
        EXPECT_EQ(text.reason, "More known labels than are looked up (13)");
    }
}

TEST(NamedCounters, OnlySoManyValuesOfAReasonHaveACounterEach) {
    constexpr std::size_t most = Ovix::OvixNamedCounters::mostValues;
    constexpr Ovix::CounterKey ofLabel("Drop", "m", "label %s");
    constexpr Ovix::CounterKey ofAction("Drop", "m", "action %s");
    Ovix::OvixNamedCounters counters;
    const auto reasonOf = [](std::size_t value) { return "label " + std::to_string(value); };
    for (int round = 0; round < 2; ++round) {
        for (std::size_t value = 0; value < 100'000; ++value) {
            counters.countValue(ofLabel, reasonOf(value));
        }
    }
    counters.countValue(ofAction, "action 4");
    EXPECT_EQ(counters.counters().size(), most + 2);
    EXPECT_EQ(counters.value("Drop", "m", reasonOf(0)), 2U);
    EXPECT_EQ(counters.value("Drop", "m", reasonOf(most - 1)), 2U);
    EXPECT_EQ(counters.value("Drop", "m", reasonOf(most)), 0U);
    EXPECT_EQ(counters.value("Drop", "m", "label %s"), 2 * (100'000 - most));
    EXPECT_EQ(counters.value("Drop", "m", "action 4"), 1U);
}

TEST(NamedCounters, WhatAFrameCountedIsTakenBackWhenItIsTakenAgain) {
    Ovix::OvixNamedCounters counters;
    counters.count("Drop", "m", "before");
    counters.forgetLast();
    counters.count("Drop", "m", "before");
    counters.count("Drop", "m", "first");
    counters.count("Drop", "m", "first");
    counters.takeBack();
    EXPECT_EQ(counters.value("Drop", "m", "before"), 1U);
    EXPECT_EQ(counters.value("Drop", "m", "first"), 0U);
    EXPECT_EQ(counters.last(), nullptr);
    counters.count("Drop", "m", "first");
    counters.forgetLast();
    counters.takeBack();
    EXPECT_EQ(counters.value("Drop", "m", "first"), 1U);
}

TEST(NamedCounters, TakeOverWhatOthersHaveCountedWhichStartOver) {
    Ovix::OvixNamedCounters counters;
    Ovix::OvixNamedCounters others;
    counters.count("Drop", "m", "both");
    others.count("Drop", "m", "new");
    others.count("Drop", "m", "both");
    others.count("Drop", "m", "both");
    counters.absorb(others);
    counters.absorb(others);
    EXPECT_EQ(counters.value("Drop", "m", "both"), 3U);
    EXPECT_EQ(counters.value("Drop", "m", "new"), 1U);
    EXPECT_EQ(others.value("Drop", "m", "both"), 0U);
}

} // namespace

} // namespace NamedCountersTest
