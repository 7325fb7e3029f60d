#include "Ovix/routing/RoutingNexthop.h"

#include <gtest/gtest.h>
#include <vector>

#include "Ovix/routing/RoutingContext.h"

namespace RoutingNexthopTest {

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

} // namespace

} // namespace RoutingNexthopTest
