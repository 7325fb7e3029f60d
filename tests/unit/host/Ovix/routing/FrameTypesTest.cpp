#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "Ovix/routing/RoutingContext.h"
#include "Ovix/routing/RoutingNexthop.h"
#include "Ovix/trace/NamedCounters.h"
#include "Ovix/viaset/MplsContext.h"

namespace {

using namespace Ovix;

TEST(RoutingNexthop, IsResolvedByAnInterfaceOrAnAddressOfAnyFamily) {
    RoutingNexthop nexthop{Lumo::IntfId()};
    EXPECT_TRUE(nexthop.unresolved());
    nexthop.addressIs(Lumo::IpGenAddr(Lumo::IpFamily::ipv6));
    EXPECT_FALSE(nexthop.unresolved());
    nexthop.addressIs(Lumo::IpGenAddr());
    EXPECT_TRUE(nexthop.unresolved());
    nexthop.vrfNameIs(L3::VrfName("red"));
    nexthop.mtuIs(1500);
    nexthop.vlanIdIs(7);
    EXPECT_TRUE(nexthop.unresolved());
    nexthop.intfIdIs(Lumo::IntfId("east"));
    EXPECT_FALSE(nexthop.unresolved());
    EXPECT_EQ(RoutingNexthop(Lumo::IntfId("east")).intfId(), Lumo::IntfId("east"));
}

TEST(RoutingNexthop, BecomesACpuTrapAndKeepsTheRest) {
    RoutingNexthop nexthop{Lumo::IntfId("east")};
    nexthop.addressIs(Lumo::IpGenAddr::fromText("192.0.2.1"));
    nexthop.vrfNameIs(L3::VrfName("red"));
    EXPECT_FALSE(nexthop.isCpuTrapNexthop());
    nexthop.setCpuTrapNexthop();
    EXPECT_TRUE(nexthop.isCpuTrapNexthop());
    EXPECT_FALSE(nexthop.unresolved());
    EXPECT_EQ(nexthop.address().text(), "192.0.2.1");
    EXPECT_EQ(nexthop.vrfName().view(), "red");
    EXPECT_FALSE(RoutingNexthop{Lumo::IntfId()}.isCpuTrapNexthop());
}

TEST(RoutingNexthops, AreKeptInOrderOfPreference) {
    const auto output = Tessel::make<RoutingOutput>();
    RoutingNexthops& nexthops = *output->nexthops();
    EXPECT_TRUE(nexthops.empty());
    std::vector<const RoutingNexthop*> queued;
    for (int i = 0; i < 6; ++i) {
        auto nexthop = Tessel::make<RoutingNexthop>(Lumo::IntfId());
        queued.push_back(nexthop.get());
        nexthops.nexthopEnq(nexthop);
    }
    std::vector<const RoutingNexthop*> seen;
    for (const auto& nexthop : nexthops) {
        seen.push_back(nexthop.get());
    }
    EXPECT_EQ(seen, queued);
    EXPECT_EQ(nexthops.size(), 6U);
    EXPECT_EQ(nexthops.nexthopFront().get(), queued[0]);
}

TEST(MplsContext, HasAPacketContextOnlyThroughItsRoutingContext) {
    const auto packet = Tessel::make<PacketContext>(Lumo::globalPktManager()->newPkt({}));
    const auto routing = Tessel::make<RoutingContext>(7U, packet, nullptr);
    const Lumo::MplsLabelEntry entry(Lumo::MplsLabel(100), 0, true, 64);
    const auto contextOf = [&](const Ptr<RoutingContext>& of) {
        return Tessel::make<MplsContext>(of, entry, nullptr, nullptr, nullptr,
                                         Lumo::MplsStackEntryIndex(0), nullptr);
    };
    EXPECT_EQ(contextOf(routing)->pktCtx(), packet);
    EXPECT_FALSE(contextOf(nullptr)->pktCtx());
    EXPECT_FALSE(contextOf(nullptr)->viaIndex().has_value());
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

} // namespace
