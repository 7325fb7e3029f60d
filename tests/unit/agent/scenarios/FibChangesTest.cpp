#include <gtest/gtest.h>
#include <map>
#include <optional>
#include <random>

#include "State/Fib.h"

namespace FibChangesTest {

using namespace OvixAgent;

namespace {

Lumo::IpGenPrefix prefix(const std::string& address, std::uint8_t length) {
    return Lumo::IpGenPrefix::of(Lumo::IpGenAddr::fromText(address), length);
}

/// A route that can be told from others by the port of its via.
IpRoute routeTo(PortIndex port) {
    IpRouteVia via;
    via.port = port;
    return IpRoute::forward({via});
}

std::optional<PortIndex> portFor(const Fib& fib, const std::string& destination) {
    const IpRoute* found = fib.find(Lumo::IpGenAddr::fromText(destination));
    return found != nullptr ? std::optional(found->vias().front().port) : std::nullopt;
}

} // namespace

TEST(FibChanges, ARouteTakesTheFormerOnesPlace) {
    Fib fib;
    fib.routeIs(prefix("10.0.0.0", 8), routeTo(1));
    fib.routeIs(prefix("10.0.0.0", 8), routeTo(2));
    EXPECT_EQ(portFor(fib, "10.1.1.1"), 2U);
    EXPECT_TRUE(fib.routeDel(prefix("10.0.0.0", 8)));
    EXPECT_EQ(portFor(fib, "10.1.1.1"), std::nullopt);
}

TEST(FibChanges, WithoutTheLongerPrefixTheShorterOneMatchesAgain) {
    Fib fib;
    fib.routeIs(prefix("0.0.0.0", 0), routeTo(0));
    fib.routeIs(prefix("10.0.0.0", 8), routeTo(8));
    fib.routeIs(prefix("10.1.0.0", 16), routeTo(16));
    EXPECT_TRUE(fib.routeDel(prefix("10.1.0.0", 16)));
    EXPECT_EQ(portFor(fib, "10.1.0.1"), 8U);
    EXPECT_TRUE(fib.routeDel(prefix("10.0.0.0", 8)));
    EXPECT_EQ(portFor(fib, "10.1.0.1"), 0U);
    EXPECT_TRUE(fib.routeDel(prefix("0.0.0.0", 0)));
    EXPECT_EQ(portFor(fib, "10.1.0.1"), std::nullopt);
}

TEST(FibChanges, WhatIsNotThereCannotBeTakenAway) {
    Fib fib;
    EXPECT_FALSE(fib.routeDel(prefix("10.0.0.0", 8)));
    fib.routeIs(prefix("10.0.0.0", 8), routeTo(1));
    EXPECT_FALSE(fib.routeDel(prefix("10.0.0.0", 9)));
    EXPECT_FALSE(fib.routeDel(prefix("a00::", 8)));
    EXPECT_EQ(portFor(fib, "10.1.1.1"), 1U);
}

TEST(FibChanges, ARefusedInsertionChangesNothing) {
    Fib fib;
    fib.insert(prefix("10.0.0.0", 8), routeTo(1));
    EXPECT_FALSE(fib.insert(prefix("10.0.0.0", 8), routeTo(2)));
    fib.insert(prefix("11.0.0.0", 8), routeTo(3));
    EXPECT_EQ(portFor(fib, "10.0.0.1"), 1U);
    EXPECT_EQ(portFor(fib, "11.0.0.1"), 3U);
}

TEST(FibChanges, AConfiguredRouteIsBackWhenTheLearnedOneGoes) {
    Fib fib;
    fib.insert(prefix("10.0.0.0", 8), routeTo(1));
    EXPECT_FALSE(fib.routeDel(prefix("10.0.0.0", 8)));
    for (PortIndex round = 2; round < 5; ++round) {
        fib.routeIs(prefix("10.0.0.0", 8), routeTo(round));
        fib.routeIs(prefix("10.0.0.0", 8), routeTo(round + 10));
        EXPECT_EQ(portFor(fib, "10.1.1.1"), round + 10);
        EXPECT_FALSE(fib.insert(prefix("10.0.0.0", 8), routeTo(9)));
        EXPECT_TRUE(fib.routeDel(prefix("10.0.0.0", 8)));
        EXPECT_EQ(portFor(fib, "10.1.1.1"), 1U);
    }
    EXPECT_FALSE(fib.routeDel(prefix("10.0.0.0", 8)));
}

TEST(FibChanges, RoutesThatComeAndGoAtRandomAreAsInAnOrderedMap) {
    std::mt19937 random(11);
    Fib fib;
    std::map<std::pair<std::string, std::uint8_t>, PortIndex> model;
    const auto expected = [&](std::uint32_t second) -> std::optional<PortIndex> {
        for (const unsigned length : {16U, 12U, 8U}) {
            const std::uint32_t masked = length == 16 ? second : length == 12 ? second & 0xf0U : 0;
            const auto found = model.find(
                {"10." + std::to_string(masked) + ".0.0", static_cast<std::uint8_t>(length)});
            if (found != model.end()) {
                return found->second;
            }
        }
        return std::nullopt;
    };
    for (PortIndex step = 0; step < 20000; ++step) {
        const auto length = static_cast<std::uint8_t>(8 + 4 * (random() % 3));
        const auto any = static_cast<std::uint32_t>(random() % 64);
        const std::uint32_t second = length == 16 ? any : length == 12 ? any & 0xf0U : 0;
        const std::string address = "10." + std::to_string(second) + ".0.0";
        if (random() % 2 == 0) {
            fib.routeIs(prefix(address, length), routeTo(step));
            model[{address, length}] = step;
        } else {
            ASSERT_EQ(fib.routeDel(prefix(address, length)), model.erase({address, length}) == 1);
        }
        const auto asked = static_cast<std::uint32_t>(random() % 64);
        ASSERT_EQ(portFor(fib, "10." + std::to_string(asked) + ".7.7"), expected(asked)) << step;
    }
}

} // namespace FibChangesTest
