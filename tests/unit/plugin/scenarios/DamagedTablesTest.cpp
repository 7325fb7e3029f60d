#include <cstring>

#include "MadeUpVias.h"
#include "Mpls/LfibLayout.h"
#include "Ovix/viaset/ViaSets.h"
#include "Tessel/Exceptions.h"

namespace DamagedTablesTest {

namespace {

using namespace Ovix;
using namespace TestSupport;
using Mpls::LfibLayout::ViaSetWord;

constexpr const char* noViaSet = "No via set in lfib %s for %s";

/// A table whose memory the test writes to behind the writer's back.
class DamagedTables : public MadeUpViasFixture {
  protected:
    Ptr<OvixMplsViaSet> find(std::uint32_t label) {
        const auto context = contextOf(mplsFrame({{label}}, udpPacket(0x0a090001)));
        trace.clear();
        return plugin->viaSetFromLfibStatus(context, table(), key(label));
    }
    Ptr<OvixMplsViaSet> findInHardware(std::uint32_t label) {
        const auto context = contextOf(mplsFrame({{label}}, udpPacket(0x0a090001)));
        trace.clear();
        return plugin->viaSetFromHwStatus(context, hardware, key(label));
    }
    void hardwareRoute(std::uint32_t label) {
        const std::vector<Mpls::WeightedRecord> vias{{swapVia(300), 1}};
        hardware->adjacencyIs(label, Mpls::Hardware::Adjacency::create(vias, {}, false));
        hardware->routeIs({key(label), label, false});
    }
    Ptr<const Mpls::LfibStatus> table() const { return writers[decap]->status(); }
    void listCountIs(std::uint32_t label, std::size_t list, std::uint16_t count) {
        auto* words = reinterpret_cast<std::byte*>(writers[decap]->viaSetWords(key(label)) + 1);
        std::memcpy(words + list, &count, sizeof count);
        writers[decap]->reseal(key(label));
    }
    static constexpr std::array<std::size_t, 2> lists = {offsetof(ViaSetWord, viaKeys),
                                                         offsetof(ViaSetWord, members)};
};

TEST_F(DamagedTables, AListCountBeyondTheCapacityPassesOnUncountedAndUntraced) {
    for (const std::size_t list : lists) {
        swapRoute(decap, 100, 300);
        for (const std::uint16_t count : {std::uint16_t{600}, std::uint16_t{0xffff}}) {
            listCountIs(100, list, count);
            EXPECT_THROW(find(100), Tessel::RangeError);
            EXPECT_TRUE(trace.empty());
        }
        listCountIs(100, list, 1);
        EXPECT_TRUE(find(100));
    }
    EXPECT_TRUE(counters->counters().empty());
    EXPECT_EQ(table()->corruptionsDetected(), 0U);
}

TEST_F(DamagedTables, CorruptionIsReportedToTheTableAndReadsAsNoViaSet) {
    swapRoute(decap, 100, 300);
    listCountIs(100, lists[0], 599); // more than the record has room for
    std::string message;
    try {
        table()->viaSet(table()->route(key(100)).viaSetKey);
    } catch (const Tessel::CorruptionDetected& corruption) {
        message = corruption.what();
    }
    ASSERT_FALSE(message.empty());
    for (std::uint64_t reports = 1; reports <= 2; ++reports) {
        EXPECT_FALSE(find(100));
        EXPECT_EQ(table()->corruptionsDetected(), reports);
        EXPECT_EQ(table()->lastCorruption(), message);
        EXPECT_EQ(everythingCounted(), (std::vector{row("Drop", noViaSet, reports)}));
        ASSERT_EQ(trace.size(), 1U);
        EXPECT_EQ(trace[0].rfind("Pkt 7: No via set in lfib ", 0), 0U) << trace[0];
    }
}

TEST_F(DamagedTables, ARouteThatCannotBeReadIsReportedToItsTableAndHasNoViaSet) {
    swapRoute(decap, 100, 300);
    labelTables->pageRefOf(Mpls::TableId::decapLfib, 100) ^= 1U;
    EXPECT_FALSE(find(100));
    EXPECT_EQ(table()->corruptionsDetected(), 1U);
    EXPECT_EQ(everythingCounted(), (std::vector{row("Drop", noViaSet)}));
}

TEST_F(DamagedTables, AHardwareRouteThatCannotBeReadIsReportedAndAbsent) {
    hardwareRoute(100);
    labelTables->entryOf(Mpls::TableId::hardwareRoutes, 100) ^= 4U;
    EXPECT_FALSE(findInHardware(100));
    EXPECT_EQ((*hardware).corruptionsDetected(), 1U);
    EXPECT_EQ(trace, lines({"No route in hw status for label 100"}));
    EXPECT_TRUE(everythingCounted().empty());
}

TEST_F(DamagedTables, AnAdjacencyThatCannotBeReadIsReportedAndMissing) {
    hardwareRoute(100);
    const Tessel::TableRef ref{labelTables->entryOf(Mpls::TableId::hardwareAdjacencies, 100)};
    labelTables->words()[ref.unit() + 1] ^= 1U;
    EXPECT_FALSE(findInHardware(100));
    EXPECT_EQ((*hardware).corruptionsDetected(), 1U);
    EXPECT_EQ(everythingCounted(), (std::vector{row("Exceptional", "No adjacency for label %s")}));
}

TEST_F(DamagedTables, WeightsByWhichNoViaCanBeChosenAreDamage) {
    for (const auto& [first, second] : std::vector<std::pair<std::uint32_t, std::uint32_t>>{
             {0, 0}, {0x80000000, 0x80000000}, {0xffffffff, 1}}) {
        Mpls::LfibViaSet raw;
        raw.viaKeys.push({0, Mpls::LfibViaType::ip, 0, 0, 0});
        raw.members.push({1, first, 0});
        raw.members.push({2, second, 0});
        writers[decap]->rawRouteIs(key(100), raw);
        const std::uint64_t before = table()->corruptionsDetected();
        EXPECT_FALSE(find(100)) << first;
        EXPECT_EQ(table()->corruptionsDetected(), before + 1) << first;
        raw.type = Mpls::LfibViaSetType::multicast; // every via is used
        writers[decap]->rawRouteIs(key(100), raw);
        EXPECT_TRUE(find(100)) << first;
    }
    Mpls::LfibViaSet one; // is taken without a choice
    one.viaKeys.push({0, Mpls::LfibViaType::ip, 0, 0, 0});
    one.members.push({1, 0, 0});
    writers[decap]->rawRouteIs(key(100), one);
    EXPECT_TRUE(find(100));
}

TEST_F(DamagedTables, CorruptionOfOneTableLeavesTheNextOnesToBeAsked) {
    swapRoute(decap, 100, 300);
    swapRoute(evpnLeaf, 100, 400);
    listCountIs(100, lists[0], 599);
    const auto context = contextOf(mplsFrame({{100}}, udpPacket(0x0a090001)));
    const auto set = plugin->findOvixMplsViaSet(context, entryOf(100));
    ASSERT_TRUE(set);
    EXPECT_EQ(set->via(0).labelOperation().label(0).value(), 400U);
    EXPECT_EQ(everythingCounted(), (std::vector{row("Drop", noViaSet, 3)}));
}

TEST_F(DamagedTables, ARecordOfNoKeysIsMissingOnlyWhenNothingElseIsSet) {
    const std::vector<std::function<void(Mpls::LfibViaSet&)>> changes = {
        [](Mpls::LfibViaSet& set) { set.type = Mpls::LfibViaSetType::multicast; },
        [](Mpls::LfibViaSet& set) { set.owner = 1; },
        [](Mpls::LfibViaSet& set) { set.flags = 1; },
        [](Mpls::LfibViaSet& set) { set.members.push({}); },
    };
    for (const auto& change : changes) {
        Mpls::LfibViaSet raw;
        change(raw);
        writers[decap]->rawRouteIs(key(100), raw);
        EXPECT_FALSE(find(100));
    }
    EXPECT_EQ(everythingCounted(), (std::vector{row("Drop", "No via keys in lfib %s for %s", 4)}));
}

TEST_F(DamagedTables, TheRecordGoesIntoTheViaSetUnchanged) {
    for (const auto type : {Mpls::LfibViaType::ip, Mpls::LfibViaType::externalFec}) {
        Mpls::LfibViaSet raw;
        raw.type = Mpls::LfibViaSetType{3};
        raw.owner = 5;
        raw.flags = 6;
        raw.viaKeys.push({1, type, 2, 3, 4});
        raw.members.push({7, 8, 9});
        raw.members.push({10, 11, 12});
        writers[decap]->rawRouteIs(key(100), raw);
        const auto set = find(100);
        const auto* lfibSet = dynamic_cast<OvixLfibViaSet*>(set.get());
        ASSERT_NE(lfibSet, nullptr);
        raw.key = table()->route(key(100)).viaSetKey;
        EXPECT_TRUE(lfibSet->record().isEq(raw));
        EXPECT_EQ(set->viaType(1), type);
        EXPECT_EQ(set->weight(1), 11U);
    }
}

TEST_F(DamagedTables, AMulticastLookupKeepsTheSetTypeAndReadsTheViaThatItsKeyNames) {
    for (const std::uint32_t vrf : {5U, 6U}) {
        Mpls::LfibMulticastIpLookupVia lookup;
        lookup.vrfId = vrf;
        writers[decap]->multicastIpLookupRouteIs(key(100 + vrf), lookup);
    }
    Mpls::LfibViaSet raw = table()->viaSet(table()->route(key(106)).viaSetKey);
    raw.type = Mpls::LfibViaSetType::multicast;
    writers[decap]->rawRouteIs(key(200), raw);
    const auto set = find(200);
    const auto* multicast = dynamic_cast<OvixMulticastDecapViaSet*>(set.get());
    ASSERT_NE(multicast, nullptr);
    EXPECT_EQ(multicast->lookupVia().vrfId, 6U);
    EXPECT_TRUE(set->isMulticast());
}

} // namespace

} // namespace DamagedTablesTest
