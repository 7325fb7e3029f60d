#include "Ovix/viaset/OvixMulticastDecapViaSet.h"

#include "LocalTables.h"
#include "TableTesting.h"

namespace {

using namespace TableTesting;
using namespace Mpls;
using Ovix::OvixMulticastDecapViaSet;

LfibMulticastIpLookupVia lookupOn(Lumo::IntfId intf) {
    LfibMulticastIpLookupVia via;
    via.intfIdHigh = static_cast<std::uint32_t>(intf.value() >> 32U);
    via.intfIdLow = static_cast<std::uint32_t>(intf.value());
    return via;
}

TEST(OvixMulticastDecapViaSet, ATailIsOneLookup) {
    const auto vlan = Lumo::VlanIntfId::vlanIdToIntfId(100);
    const OvixMulticastDecapViaSet set(LfibViaSet(), lookupOn(vlan));
    EXPECT_EQ(set.numVias(), 1U);
    EXPECT_EQ(set.viaType(0), LfibViaType::multicastIpLookup);
    EXPECT_EQ(set.weight(0), 1U);
    EXPECT_EQ(set.via(0).intfId, vlan);
    EXPECT_TRUE(set.via(0));
}

TEST(OvixMulticastDecapViaSet, TheDefaultLookupIsAnInvalidVia) {
    const OvixMulticastDecapViaSet set(LfibViaSet(), {});
    EXPECT_EQ(set.numVias(), 1U);
    EXPECT_FALSE(set.via(0));
}

TEST(OvixMulticastDecapViaSet, BranchesFollowTheLookup) {
    TestSupport::LocalLfib writer;
    const auto lookup = lookupOn(Lumo::IntfId("eth2"));
    writer.multicastIpLookupRouteIs(key(100), lookup,
                                    std::vector{swapVia(1400, 3), swapVia(1500, 4)});
    const LfibStatus& table = *writer.status();
    LfibViaSet record = table.viaSet(table.route(key(100)).viaSetKey);
    const OvixMulticastDecapViaSet set(record, lookup);
    ASSERT_EQ(set.numVias(), 3U);
    EXPECT_TRUE(set.isMulticast());
    EXPECT_EQ(set.viaType(0), LfibViaType::multicastIpLookup);
    EXPECT_EQ(set.viaType(1), LfibViaType::ip);
    EXPECT_EQ(set.viaType(2), LfibViaType::ip);
    EXPECT_EQ(set.weight(2), 4U);
    EXPECT_EQ(set.via(0).intfId, Lumo::IntfId("eth2"));
    EXPECT_EQ(set.via(1).nexthopMtu, 1400U);
    EXPECT_EQ(set.via(2).nexthopMtu, 1500U);
    record.source = nullptr;
    EXPECT_FALSE(OvixMulticastDecapViaSet(record, lookup).via(1));
}

} // namespace
