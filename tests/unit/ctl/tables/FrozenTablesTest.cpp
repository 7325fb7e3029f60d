#include <chrono>
#include <gtest/gtest.h>
#include <unistd.h>

#include "CtlTables.h"

namespace FrozenTablesTest {

using namespace OvixCtl;
using Mpls::TableId;

namespace {

class FrozenTablesTest : public testing::Test {
  protected:
    void TearDown() override { Tessel::TableMemory::remove(name); }
    std::string name = "frozen-test-" + std::to_string(getpid());
};

} // namespace

TEST_F(FrozenTablesTest, WhatWasFrozenStaysAsItWas) {
    Mpls::TablePublisher publisher(Tessel::TableMemory::sharedForWriting(name, 1U << 24U),
                                   std::chrono::milliseconds(0)); // places are used again at once
    const auto key = Mpls::RouteKey::fromLabel(Lumo::MplsLabel(5));
    auto& lfib = publisher.lfib(TableId::transitLfib);
    lfib.ipLookupRouteIs(key, Mpls::LfibViaType::ipLookup, L3::VrfName("first"),
                         Mpls::PayloadType::ipv4);
    publisher.commit();
    const auto frozen = freezeTables(name).value();
    for (const char* vrf : {"a", "b", "c", "d"}) {
        lfib.ipLookupRouteIs(key, Mpls::LfibViaType::ipLookup, L3::VrfName(vrf),
                             Mpls::PayloadType::ipv4);
        publisher.commit();
    }
    const Entry entry = TableView(frozen).entry(TableId::transitLfib, 5);
    ASSERT_EQ(entry.damage(), nullptr);
    const auto& route = std::get<Mpls::LabelRoute>(entry.content);
    EXPECT_EQ(route.vias.front().via.options().vrf.view(), "first");
    EXPECT_LT(frozen->generation(), freezeTables(name).value()->generation());
}

TEST_F(FrozenTablesTest, TablesThatDoNotExistAreNotMade) {
    EXPECT_FALSE(freezeTables(name));
    EXPECT_FALSE(openTables(name));
    EXPECT_FALSE(Tessel::TableMemory::remove(name));
}

} // namespace FrozenTablesTest
