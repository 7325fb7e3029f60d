#include "Lumo/IntfId.h"

#include <gtest/gtest.h>
#include <string>
#include <unordered_set>

#include "Tessel/Exceptions.h"

namespace IntfIdTest {

using namespace Lumo;

TEST(IntfId, TheEmptyNameMeansNoInterface) {
    EXPECT_TRUE(IntfId().empty());
    EXPECT_TRUE(IntfId("").empty());
    EXPECT_EQ(IntfId("").value(), 0U);
    EXPECT_EQ(IntfId().kind(), IntfId::Kind::none);
}

TEST(IntfId, NamesTellInterfacesApart) {
    EXPECT_EQ(IntfId("Ethernet1"), IntfId("Ethernet1"));
    EXPECT_EQ(IntfId("Ethernet1").kind(), IntfId::Kind::ethernet);
    EXPECT_FALSE(IntfId("Ethernet1").empty());
    std::unordered_set<IntfId> ids;
    for (int port = 1; port <= 10000; ++port) {
        ids.insert(IntfId("Ethernet" + std::to_string(port)));
    }
    EXPECT_EQ(ids.size(), 10000U);
}

TEST(IntfId, AHundredBytesAreTheLongestName) {
    EXPECT_NO_THROW(IntfId(std::string(100, 'x')));
    EXPECT_THROW(IntfId(std::string(101, 'x')), Tessel::RangeError);
}

TEST(IntfId, GoesThroughARecordUnchanged) {
    const IntfId ethernet("Ethernet7/1");
    EXPECT_EQ(IntfId::fromValue(ethernet.value()), ethernet);
}

TEST(IntfId, KindAndIdShareTheWord) {
    const IntfId vlan = VlanIntfId::vlanIdToIntfId(4094);
    EXPECT_TRUE(VlanIntfId::isVlanIntfId(vlan));
    EXPECT_EQ(VlanIntfId::vlanId(vlan), 4094);
    EXPECT_FALSE(VlanIntfId::isVlanIntfId(IntfId("Vlan4094")));

    EXPECT_EQ(CpuIntfId::cpuIdToIntfId(0).kind(), IntfId::Kind::cpu);
    EXPECT_FALSE(CpuIntfId::cpuIdToIntfId(0).empty());
    EXPECT_NE(CpuIntfId::cpuIdToIntfId(0), CpuIntfId::cpuIdToIntfId(1));

    const IntfId hierarchical = IntfId::ofKind(IntfId::Kind::hierarchical, ~std::uint64_t{0});
    EXPECT_EQ(hierarchical.kind(), IntfId::Kind::hierarchical);
    EXPECT_EQ(hierarchical.id(), (std::uint64_t{1} << 56U) - 1);
}

} // namespace IntfIdTest
