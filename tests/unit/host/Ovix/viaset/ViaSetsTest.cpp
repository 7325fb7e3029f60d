

#include "Ovix/viaset/ViaSets.h"

#include "LocalTables.h"
#include "Ovix/viaset/MplsContext.h"
#include "TableTesting.h"

namespace ViaSetsTest {

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

TEST(OvixMulticastDecapViaSet, TheLookupFollowsTheBranches) {
    TestSupport::LocalLfib writer;
    const auto lookup = lookupOn(Lumo::IntfId("eth2"));
    writer.multicastIpLookupRouteIs(key(100), lookup,
                                    std::vector{swapVia(1400, 3), swapVia(1500, 4)});
    const LfibStatus& table = *writer.status();
    LfibViaSet record = table.viaSet(table.route(key(100)).viaSetKey);
    const OvixMulticastDecapViaSet set(record, lookup);
    ASSERT_EQ(set.numVias(), 3U);
    EXPECT_TRUE(set.isMulticast());
    EXPECT_EQ(set.viaType(0), LfibViaType::ip);
    EXPECT_EQ(set.viaType(1), LfibViaType::ip);
    EXPECT_EQ(set.viaType(2), LfibViaType::multicastIpLookup);
    EXPECT_EQ(set.weight(0), 3U);
    EXPECT_EQ(set.weight(1), 4U);
    EXPECT_EQ(set.weight(2), 1U);
    EXPECT_EQ(set.via(0).nexthopMtu, 1400U);
    EXPECT_EQ(set.via(1).nexthopMtu, 1500U);
    EXPECT_EQ(set.via(2).intfId, Lumo::IntfId("eth2"));
    record.source = nullptr;
    EXPECT_FALSE(OvixMulticastDecapViaSet(record, lookup).via(1));
}

} // namespace

namespace {

using namespace TableTesting;
using Lumo::IntfId;
using Mpls::WeightedRecord;
using Mpls::Hardware::Adjacency;
using Ovix::HwStatusViaHelper;
using Ovix::OvixHwViaSet;

WeightedRecord via(IntfId intf, std::uint32_t weight) {
    WeightedRecord made = swapVia(1400 + weight, weight);
    made.via.intfId = intf;
    return made;
}

class HwViaSet : public testing::Test {
  protected:
    const IntfId eth1{"eth1"};
    const IntfId eth2{"eth2"};
    const IntfId eth3{"eth3"};
    const Ptr<Interface::EthIntfStatusDir> interfaces = Tessel::make<Interface::EthIntfStatusDir>();
    const Ptr<HwStatusViaHelper> helper = Tessel::make<HwStatusViaHelper>(interfaces, nullptr);
    const std::vector<WeightedRecord> vias{via(eth1, 1), via(eth2, 2), via(eth3, 3)};
    const std::vector<WeightedRecord> backups{via(eth3, 9)};

    Ptr<OvixHwViaSet> make(bool useBackups, Ptr<HwStatusViaHelper> with) const {
        return Tessel::make<OvixHwViaSet>(Adjacency::create(vias, backups, useBackups), with,
                                          useBackups);
    }
};

TEST_F(HwViaSet, LeavesOutWhatIsDownAndKeepsTheOrder) {
    interfaces->intfStatusIs(eth1, true);
    interfaces->intfStatusIs(eth2, false);
    interfaces->intfStatusIs(eth3, true);
    const auto set = make(false, helper);
    EXPECT_TRUE(set->hasValidVia());
    ASSERT_EQ(set->numVias(), 2U);
    EXPECT_EQ(set->weight(0), 1U);
    EXPECT_EQ(set->weight(1), 3U);
    EXPECT_TRUE(set->via(1).isEq(vias[2].via));
    EXPECT_EQ(set->viaType(0), Mpls::LfibViaType::ip);
    EXPECT_FALSE(set->isMulticast());
}

TEST_F(HwViaSet, NeverChangesOnceMade) {
    interfaces->intfStatusIs(eth1, true);
    const auto set = make(false, helper);
    interfaces->intfStatusIs(eth1, false);
    EXPECT_EQ(set->numVias(), 1U);
    EXPECT_FALSE(make(false, helper)->hasValidVia());
}

TEST_F(HwViaSet, AnInterfaceThatIsNotListedIsDown) {
    const auto set = make(false, helper);
    EXPECT_EQ(set->numVias(), 0U);
    EXPECT_FALSE(set->hasValidVia());
}

TEST_F(HwViaSet, TheBackupsAreJudgedByThemselves) {
    interfaces->intfStatusIs(eth1, true);
    EXPECT_FALSE(make(true, helper)->hasValidVia());
    interfaces->intfStatusIs(eth3, true);
    const auto set = make(true, helper);
    EXPECT_TRUE(set->useBackups());
    ASSERT_EQ(set->numVias(), 1U);
    EXPECT_EQ(set->weight(0), 9U);
    EXPECT_TRUE(set->via(0).isEq(backups[0].via));
}

TEST_F(HwViaSet, TheBackupsTakeOverWhenTheLastViaGoesDown) {
    interfaces->intfStatusIs(eth1, true);
    EXPECT_FALSE(make(false, helper)->useBackups());
    interfaces->intfStatusIs(eth1, false);
    interfaces->intfStatusIs(eth3, true);
    const std::vector<WeightedRecord> first{via(eth1, 1)};
    const auto set =
        Tessel::make<OvixHwViaSet>(Adjacency::create(first, backups, false), helper, false);
    EXPECT_TRUE(set->hasValidVia());
    EXPECT_TRUE(set->useBackups());
    ASSERT_EQ(set->numVias(), 1U);
    EXPECT_TRUE(set->via(0).isEq(backups[0].via));
}

TEST_F(HwViaSet, EveryViaCountsWithoutInterfaceStatus) {
    EXPECT_EQ(make(false, nullptr)->numVias(), 3U);
    EXPECT_EQ(make(false, Tessel::make<HwStatusViaHelper>(nullptr, nullptr))->numVias(), 3U);
}

TEST_F(HwViaSet, OnlyEthernetInterfacesGoDown) {
    for (const IntfId intf :
         {IntfId(), Lumo::VlanIntfId::vlanIdToIntfId(5), Lumo::CpuIntfId::cpuIdToIntfId(0)}) {
        const std::vector<WeightedRecord> one{via(intf, 1)};
        const OvixHwViaSet set(Adjacency::create(one, {}, false), helper, false);
        EXPECT_EQ(set.numVias(), 1U) << intf.value();
    }
}

TEST_F(HwViaSet, BackupsTakeOverWhenNoViaCanBeChosen) {
    const std::vector<WeightedRecord> none{via({}, 0), via({}, 0)};
    const std::vector<WeightedRecord> other{via({}, 5)};
    const OvixHwViaSet set(Adjacency::create(none, other, false), helper, false);
    EXPECT_TRUE(set.useBackups());
    ASSERT_EQ(set.numVias(), 1U);
    EXPECT_EQ(set.weight(0), 5U);
    EXPECT_TRUE(set.hasValidVia());
}

// No weight is asked for where every via is used, and where there is only one.
TEST_F(HwViaSet, ViasOfNoWeightAreValidWhereNoneIsChosen) {
    const std::vector<WeightedRecord> none{via({}, 0), via({}, 0)};
    const auto tree =
        Adjacency::create(none, {}, false, Mpls::LfibViaType::ip, Mpls::LfibViaSetType::multicast);
    EXPECT_TRUE(OvixHwViaSet(tree, helper, false).hasValidVia());
    const std::vector<WeightedRecord> one{via({}, 0)};
    EXPECT_TRUE(OvixHwViaSet(Adjacency::create(one, {}, false), helper, false).hasValidVia());
    const auto emptyTree =
        Adjacency::create({}, {}, false, Mpls::LfibViaType::ip, Mpls::LfibViaSetType::multicast);
    EXPECT_FALSE(OvixHwViaSet(emptyTree, helper, false).hasValidVia());
}

TEST_F(HwViaSet, ViasOfNoWeightMakeNoValidSet) {
    const std::vector<WeightedRecord> none{via({}, 0), via({}, 0)};
    const OvixHwViaSet set(Adjacency::create(none, {}, false), helper, false);
    EXPECT_EQ(set.numVias(), 2U);
    EXPECT_FALSE(set.hasValidVia());
    EXPECT_FALSE(OvixHwViaSet(Adjacency::create({}, {}, false), helper, false).hasValidVia());
}

TEST(OvixMplsViaSetStackDeathTest, APositionIsAddedOnceAndInOrder) {
    const auto stack = Tessel::make<Ovix::OvixMplsViaSetStack>();
    const Lumo::MplsLabelEntry entry(Lumo::MplsLabel(100), 0, false, 64);
    stack->addViaSetForLabel(Lumo::MplsStackEntryIndex(0), entry, nullptr);
    for (const std::uint32_t position : {0U, 2U}) {
        EXPECT_DEATH(stack->addViaSetForLabel(Lumo::MplsStackEntryIndex(position), entry, nullptr),
                     "position.value\\(\\) == count_");
    }
    EXPECT_EQ(stack->size(), 1U);
}

} // namespace

} // namespace ViaSetsTest
