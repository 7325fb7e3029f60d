#include "Ovix/viaset/ViaSets.h"

#include "Mpls/LfibLayout.h"
#include "PluginFixture.h"

namespace ViaSetsTest {

namespace {

using namespace Ovix;
using TestSupport::mplsFrame;
using TestSupport::PluginFixture;
using TestSupport::udpPacket;

class ViaSets : public PluginFixture {
  protected:
    Ptr<OvixMplsViaSet> fromLfib(std::uint32_t label, bool counting = true) {
        return plugin->viaSetFromLfibStatus(
            contextOf(mplsFrame({{label}}, udpPacket(0x0a090001)), counting),
            Ptr<const Mpls::LfibStatus>(writers[decap]->status()), key(label));
    }
    Ptr<OvixMplsViaSet> fromHardware(std::uint32_t label) {
        return plugin->viaSetFromHwStatus(contextOf(mplsFrame({{label}}, udpPacket(0x0a090001))),
                                          hardware, key(label));
    }
    static Mpls::LfibViaKey viaKey(Mpls::LfibViaType type) {
        Mpls::LfibViaKey made;
        made.viaType = type;
        return made;
    }
    void adjacency(bool useBackups, const std::vector<Mpls::WeightedRecord>& vias,
                   const std::vector<Mpls::WeightedRecord>& backups = {}) {
        hardware->adjacencyIs(1, Mpls::Hardware::Adjacency::create(vias, backups, useBackups));
        hardware->routeIs({key(100), 1, false});
    }
};

TEST_F(ViaSets, AnUnmountedTableHoldsNothing) {
    const auto context = contextOf(mplsFrame({{100}}, udpPacket(0x0a090001)));
    EXPECT_FALSE(plugin->viaSetFromLfibStatus(context, nullptr, key(100)));
    EXPECT_FALSE(plugin->viaSetFromHwStatus(context, nullptr, key(100)));
}

TEST_F(ViaSets, AnAbsentRouteIsANamedDrop) {
    EXPECT_FALSE(fromLfib(100));
    EXPECT_EQ(counted("Drop", "No via set in lfib %s for %s"), 1U);
    EXPECT_TRUE(traced("No via set in lfib viaSet 0 for label 100"));
    EXPECT_FALSE(fromLfib(100, false));
    EXPECT_EQ(counted("Drop", "No via set in lfib %s for %s"), 1U);
}

TEST_F(ViaSets, AViaSetWithoutKeysIsANamedDrop) {
    Mpls::LfibViaSet set;
    set.type = Mpls::LfibViaSetType::unicast;
    writers[decap]->rawRouteIs(key(100), set);
    EXPECT_FALSE(fromLfib(100));
    EXPECT_EQ(counted("Drop", "No via keys in lfib %s for %s"), 1U);
}

TEST_F(ViaSets, TwoViaKeysAreNeverSplit) {
    Mpls::LfibViaSet set;
    set.viaKeys.push(viaKey(Mpls::LfibViaType::ip));
    set.viaKeys.push(viaKey(Mpls::LfibViaType::ip));
    writers[decap]->rawRouteIs(key(100), set);
    EXPECT_FALSE(fromLfib(100));
    EXPECT_EQ(counted("Drop", "More than 1 via key in lfib %s for %s"), 1U);
}

TEST_F(ViaSets, TheKeysTypeDecidesTheKindOfSet) {
    swapRoute(decap, 100, 300);
    const auto unicast = fromLfib(100);
    ASSERT_NE(dynamic_cast<OvixLfibViaSet*>(unicast.get()), nullptr);
    EXPECT_EQ(unicast->numVias(), 1U);
    EXPECT_TRUE(unicast->via(0));
    Mpls::LfibMulticastIpLookupVia lookup;
    lookup.vrfId = 5;
    writers[decap]->multicastIpLookupRouteIs(key(101), lookup);
    const auto multicast = fromLfib(101);
    ASSERT_NE(dynamic_cast<OvixMulticastDecapViaSet*>(multicast.get()), nullptr);
    EXPECT_EQ(multicast->viaType(0), Mpls::LfibViaType::multicastIpLookup);
}

TEST_F(ViaSets, DamageIsReportedToTheTableAndReadsAsAbsent) {
    swapRoute(decap, 100, 300);
    std::uint64_t& entry = writers[decap]->entryOf(key(100));
    const std::uint64_t whole = entry;
    entry = 0x00000001ffffffff; // far outside of what is in use
    EXPECT_FALSE(fromLfib(100));
    EXPECT_EQ(writers[decap]->status()->corruptionsDetected(), 1U);
    EXPECT_EQ(counted("Drop", "No via set in lfib %s for %s"), 1U);
    entry = whole;
    EXPECT_TRUE(fromLfib(100));
}

TEST_F(ViaSets, AListCountBeyondItsCapacityIsARangeError) {
    swapRoute(decap, 100, 300);
    const auto countIs = [this](std::uint16_t viaKeys) {
        std::uint64_t* words = writers[decap]->viaSetWords(key(100)) + 1;
        reinterpret_cast<Mpls::LfibLayout::ViaSetWord*>(words)->viaKeys = viaKeys;
        writers[decap]->reseal(key(100));
    };
    countIs(600);
    EXPECT_THROW(fromLfib(100), Tessel::RangeError);
    countIs(599); // in range, but the record is shorter
    EXPECT_FALSE(fromLfib(100));
    EXPECT_EQ(writers[decap]->status()->corruptionsDetected(), 1U);
}

TEST_F(ViaSets, AHardwareRouteThatIsAbsentIsTracedAlone) {
    EXPECT_FALSE(fromHardware(100));
    EXPECT_TRUE(traced("No route in hw status for label 100"));
    EXPECT_TRUE(counters->counters().empty());
}

TEST_F(ViaSets, AnUnprogrammedRouteIsTracedAlone) {
    hardware->routeIs({key(100), 1, true});
    EXPECT_FALSE(fromHardware(100));
    EXPECT_TRUE(traced("Route is unprogrammed for label 100"));
    EXPECT_TRUE(counters->counters().empty());
}

TEST_F(ViaSets, AMissingAdjacencyIsExceptional) {
    hardware->routeIs({key(100), 99, false});
    EXPECT_FALSE(fromHardware(100));
    EXPECT_EQ(counted("Exceptional", "No adjacency for label %s"), 1U);
    EXPECT_TRUE(traced("No adjacency for label 100"));
}

TEST_F(ViaSets, AnAdjacencyWithoutAUsableViaIsExceptional) {
    auto via = swapVia(300);
    via.intfId = Lumo::IntfId("down");
    adjacency(false, {{via, 1}});
    EXPECT_FALSE(fromHardware(100));
    EXPECT_EQ(counted("Exceptional", "No valid vias adjacency for label %s"), 1U);
    EXPECT_TRUE(traced("No valid vias adjacency for label 100"));
    interfaces->intfStatusIs(Lumo::IntfId("down"), true);
    EXPECT_TRUE(fromHardware(100));
}

TEST_F(ViaSets, BackupsAreReadWhenTheAdjacencyIsMarked) {
    adjacency(true, {{swapVia(300), 1}}, {{swapVia(400), 1}, {swapVia(401), 1}});
    const auto set = fromHardware(100);
    ASSERT_TRUE(set);
    EXPECT_EQ(set->numVias(), 2U);
    EXPECT_EQ(set->via(0).labelOperation().label(0).value(), 400U);
    EXPECT_TRUE(traced("Reading backups from adjacency for 100"));
}

} // namespace

} // namespace ViaSetsTest
