#include "MadeUpVias.h"
#include "Ovix/viaset/ViaSets.h"

namespace HardwareViaSetsTest {

namespace {

using namespace Ovix;
using namespace TestSupport;

class HardwareViaSets : public MadeUpViasFixture {
  protected:
    Ptr<OvixMplsViaSet> find(std::uint32_t label, bool counting = true) {
        const auto context = contextOf(mplsFrame({{label}}, udpPacket(0x0a090001)), counting);
        trace.clear();
        return plugin->viaSetFromHwStatus(context, hardware, key(label));
    }
    void route(std::uint32_t label, bool useBackups, const std::vector<Mpls::WeightedRecord>& vias,
               const std::vector<Mpls::WeightedRecord>& backups = {}) {
        hardware->adjacencyIs(label, Mpls::Hardware::Adjacency::create(vias, backups, useBackups));
        hardware->routeIs({key(label), label, false});
    }
    static OvixMplsVia viaOn(const char* intf, std::uint32_t label) {
        auto via = swapVia(label);
        via.intfId = Lumo::IntfId(intf);
        return via;
    }
    static std::uint32_t outLabel(const OvixMplsViaSet& set, std::uint32_t index) {
        return set.via(index).labelOperation().label(0).value();
    }
};

TEST_F(HardwareViaSets, AnAbsentRouteIsOnlyTraced) {
    for (const bool counting : {true, false}) {
        EXPECT_FALSE(find(100, counting));
        EXPECT_EQ(trace, lines({"No route in hw status for label 100"}));
        EXPECT_TRUE(counters->counters().empty());
    }
}

TEST_F(HardwareViaSets, AnUnprogrammedRouteIsOnlyTracedThoughItsAdjacencyIsThere) {
    route(100, false, {{swapVia(300), 1}});
    hardware->routeIs({key(100), 100, true});
    EXPECT_FALSE(find(100));
    EXPECT_EQ(trace, lines({"Route is unprogrammed for label 100"}));
    EXPECT_TRUE(counters->counters().empty());
    hardware->routeIs({key(100), 100, false});
    EXPECT_TRUE(find(100));
}

TEST_F(HardwareViaSets, AMissingAdjacencyIsExceptionalForAllLabelsInOneCounter) {
    hardware->routeIs({key(100), 99, false});
    hardware->routeIs({key(101), 99, false});
    EXPECT_FALSE(find(100));
    EXPECT_EQ(trace, lines({"No adjacency for label 100"}));
    EXPECT_FALSE(find(101));
    EXPECT_EQ(everythingCounted(),
              (std::vector{row("Exceptional", "No adjacency for label %s", 2)}));
    EXPECT_FALSE(find(101, false));
    EXPECT_EQ(trace, lines({"No adjacency for label 101"}));
    EXPECT_EQ(counted("Exceptional", "No adjacency for label %s"), 2U);
}

TEST_F(HardwareViaSets, AnAdjacencyWithoutAValidViaIsExceptionalForAllLabelsInOneCounter) {
    route(100, false, {{viaOn("down", 300), 1}, {viaOn("down", 301), 1}},
          {{viaOn("down", 400), 1}});
    route(101, false, {});
    EXPECT_FALSE(find(100));
    EXPECT_EQ(trace, lines({"Reading backups from adjacency for 100",
                            "No valid vias adjacency for label 100"}));
    EXPECT_FALSE(find(101));
    EXPECT_EQ(everythingCounted(),
              (std::vector{row("Exceptional", "No valid vias adjacency for label %s", 2)}));
    EXPECT_FALSE(find(101, false));
    EXPECT_EQ(trace, lines({"No valid vias adjacency for label 101"}));
    EXPECT_EQ(counted("Exceptional", "No valid vias adjacency for label %s"), 2U);
}

TEST_F(HardwareViaSets, AUsableAdjacencyIsFoundSilently) {
    route(100, false, {{viaOn("down", 300), 7}, {swapVia(301), 2}, {swapVia(302), 3}});
    const auto set = find(100);
    ASSERT_TRUE(set);
    EXPECT_TRUE(trace.empty());
    EXPECT_TRUE(counters->counters().empty());
    ASSERT_EQ(set->numVias(), 2U);
    EXPECT_EQ(outLabel(*set, 0), 301U);
    EXPECT_EQ(set->weight(0), 2U);
    EXPECT_EQ(outLabel(*set, 1), 302U);
    EXPECT_EQ(set->weight(1), 3U);
}

TEST_F(HardwareViaSets, InterfaceStatusIsReadAsItStandsNow) {
    route(100, false, {{swapVia(300), 1}, {viaOn("west", 301), 1}});
    EXPECT_EQ(find(100)->numVias(), 1U);
    interfaces->intfStatusIs(Lumo::IntfId("west"), true);
    EXPECT_EQ(find(100)->numVias(), 2U);
    interfaces->intfStatusIs(Lumo::IntfId("east"), false);
    EXPECT_EQ(outLabel(*find(100), 0), 301U);
}

TEST_F(HardwareViaSets, TheBackupMarkDecidesBetweenViasAndBackups) {
    const std::vector<Mpls::WeightedRecord> vias{{swapVia(300), 1}};
    const std::vector<Mpls::WeightedRecord> backups{{swapVia(400), 1}};
    for (const bool marked : {false, true}) {
        route(100, marked, vias, backups);
        const auto set = find(100);
        const auto* hwSet = dynamic_cast<OvixHwViaSet*>(set.get());
        ASSERT_NE(hwSet, nullptr);
        EXPECT_EQ(hwSet->useBackups(), marked);
        EXPECT_EQ(outLabel(*set, 0), marked ? 400U : 300U);
        EXPECT_EQ(trace, marked ? lines({"Reading backups from adjacency for 100"})
                                : std::vector<std::string>{});
    }
}

TEST_F(HardwareViaSets, BackupsThatTakeOverAreTracedLikeThoseThatAreMarked) {
    route(100, false, {{viaOn("down", 300), 1}}, {{swapVia(400), 1}});
    const auto set = find(100);
    ASSERT_TRUE(set);
    EXPECT_EQ(outLabel(*set, 0), 400U);
    EXPECT_EQ(trace, lines({"Reading backups from adjacency for 100"}));
}

TEST_F(HardwareViaSets, BackupsThatAreDownAreExceptionalThoughTheViasAreUp) {
    route(100, true, {{swapVia(300), 1}}, {{viaOn("down", 400), 1}});
    EXPECT_FALSE(find(100));
    EXPECT_EQ(trace, lines({"Reading backups from adjacency for 100",
                            "No valid vias adjacency for label 100"}));
    EXPECT_EQ(everythingCounted(),
              (std::vector{row("Exceptional", "No valid vias adjacency for label %s")}));
}

TEST_F(HardwareViaSets, TheAdjacencyTellsViaAndSetType) {
    const Mpls::WeightedRecord via{swapVia(300), 1};
    hardware->adjacencyIs(5, Mpls::Hardware::Adjacency::create({&via, 1}, {}, false, madeUpViaType,
                                                               Mpls::LfibViaSetType::multicast));
    hardware->routeIs({key(100), 5, false});
    const auto set = find(100);
    ASSERT_TRUE(set);
    EXPECT_EQ(set->viaType(0), madeUpViaType);
    EXPECT_EQ(set->type(), Mpls::LfibViaSetType::multicast);
}

} // namespace

} // namespace HardwareViaSetsTest
