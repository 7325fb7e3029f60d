#include "MadeUpVias.h"
#include "Ovix/viaset/ViaSets.h"

namespace LfibViaSetsTest {

namespace {

using namespace Ovix;
using namespace TestSupport;

class LfibViaSets : public MadeUpViasFixture {
  protected:
    Ptr<OvixMplsViaSet> find(std::uint32_t label, bool counting = true) {
        const auto context = contextOf(mplsFrame({{label}}, udpPacket(0x0a090001)), counting);
        trace.clear();
        return plugin->viaSetFromLfibStatus(
            context, Ptr<const Mpls::LfibStatus>(writers[pseudowire]->status()), key(label));
    }
    static Mpls::LfibViaKey viaKey(Mpls::LfibViaType type, std::uint32_t index = 0) {
        Mpls::LfibViaKey made;
        made.viaType = type;
        made.index = index;
        return made;
    }
    void rawRoute(std::uint32_t label, std::size_t keys) {
        Mpls::LfibViaSet set;
        for (std::size_t i = 0; i < keys; ++i) {
            set.viaKeys.push(viaKey(Mpls::LfibViaType::ip));
        }
        writers[pseudowire]->rawRouteIs(key(label), set);
    }
    /// One trace line about the frame: the message, what was looked up, and the label.
    void expectOneLine(const std::string& message, const std::string& end) {
        ASSERT_EQ(trace.size(), 1U);
        EXPECT_EQ(trace[0].rfind("Pkt 7: " + message, 0), 0U) << trace[0];
        ASSERT_GE(trace[0].size(), end.size());
        EXPECT_EQ(trace[0].substr(trace[0].size() - end.size()), end);
        EXPECT_EQ(trace[0].find('%'), std::string::npos);
    }
};

struct FailureCase {
    std::size_t keys; ///< via keys of the set; more than the capacity: no route at all
    const char* reason;
    const char* message;
};

TEST_F(LfibViaSets, UnusableRoutesAreDropsOfAConstantReasonTracedWithTheirValues) {
    constexpr std::size_t none = 1000;
    for (const FailureCase& one : std::vector<FailureCase>{
             {none, "No via set in lfib %s for %s", "No via set in lfib "},
             {0, "No via keys in lfib %s for %s", "No via keys in lfib "},
             {2, "More than 1 via key in lfib %s for %s", "More than 1 via key in lfib "},
             {599, "More than 1 via key in lfib %s for %s", "More than 1 via key in lfib "},
         }) {
        for (const std::uint32_t label : {100U, 101U}) {
            if (one.keys != none) {
                rawRoute(label, one.keys);
            }
            EXPECT_FALSE(find(label));
            expectOneLine(one.message, " for label " + std::to_string(label));
        }
        EXPECT_EQ(everythingCounted(), (std::vector{row("Drop", one.reason, 2)}));
        EXPECT_FALSE(find(100, false));
        expectOneLine(one.message, " for label 100");
        EXPECT_EQ(counted("Drop", one.reason), 2U);
        counters = Tessel::make<OvixNamedCounters>();
    }
}

TEST_F(LfibViaSets, ARouteWhoseViaSetCannotBeReadIsTracedWithTheSetAndTheLabel) {
    swapRoute(pseudowire, 100, 300);
    *writers[pseudowire]->viaSetWords(key(100)) = 0;
    EXPECT_FALSE(find(100));
    EXPECT_EQ(writers[pseudowire]->status()->corruptionsDetected(), 1U);
    expectOneLine("No via set in lfib ", " for label 100");
}

TEST_F(LfibViaSets, OneKeyOfAnyTypeButMulticastLookupIsAnLfibViaSet) {
    for (const std::uint8_t type : std::vector<std::uint8_t>{0, 1, 2, 3, 4, 10, 11, 13, 77, 255}) {
        const Mpls::WeightedRecord via{swapVia(300), 1};
        writers[pseudowire]->routeIs(key(100), Mpls::LfibViaType{type},
                                     Mpls::LfibViaSetType::unicast, {&via, 1});
        const auto set = find(100);
        ASSERT_NE(dynamic_cast<OvixLfibViaSet*>(set.get()), nullptr) << int{type};
        EXPECT_EQ(set->viaType(0), Mpls::LfibViaType{type});
    }
    EXPECT_TRUE(counters->counters().empty());
    EXPECT_TRUE(trace.empty());
}

TEST_F(LfibViaSets, TheMembersOfAViaSetKeepTheirOrderAndWeights) {
    std::vector<Mpls::WeightedRecord> vias;
    for (std::uint32_t i = 0; i < Mpls::LfibViaSet::capacity; ++i) {
        vias.push_back({swapVia(1000 + i), i + 1});
    }
    writers[pseudowire]->routeIs(key(100), Mpls::LfibViaType::ip, Mpls::LfibViaSetType::multicast,
                                 vias);
    const auto set = find(100);
    ASSERT_TRUE(set);
    EXPECT_EQ(set->type(), Mpls::LfibViaSetType::multicast);
    ASSERT_EQ(set->numVias(), 599U);
    for (const std::uint32_t i : {0U, 1U, 597U, 598U}) {
        EXPECT_EQ(set->weight(i), i + 1);
        EXPECT_TRUE(set->via(i).isEq(swapVia(1000 + i)));
    }
}

TEST_F(LfibViaSets, AMulticastLookupBringsItsWholeRecord) {
    Mpls::LfibMulticastIpLookupVia lookup;
    lookup.vrfId = 5;
    lookup.intfIdHigh = 6;
    lookup.intfIdLow = 7;
    lookup.rpfId = 8;
    lookup.payloadType = 2;
    writers[pseudowire]->multicastIpLookupRouteIs(key(100), lookup);
    const auto set = find(100);
    const auto* multicast = dynamic_cast<OvixMulticastDecapViaSet*>(set.get());
    ASSERT_NE(multicast, nullptr);
    auto read = multicast->lookupVia();
    read.index = lookup.index; // where the table keeps it
    EXPECT_EQ(read, lookup);
    EXPECT_TRUE(counters->counters().empty());
}

TEST_F(LfibViaSets, AMulticastLookupThatCannotBeReadIsTheDefaultRecord) {
    Mpls::LfibViaSet raw;
    raw.viaKeys.push(viaKey(Mpls::LfibViaType::multicastIpLookup, 0x00ffffff));
    writers[pseudowire]->rawRouteIs(key(100), raw);
    const auto set = find(100);
    const auto* multicast = dynamic_cast<OvixMulticastDecapViaSet*>(set.get());
    ASSERT_NE(multicast, nullptr);
    EXPECT_EQ(multicast->lookupVia(), Mpls::LfibMulticastIpLookupVia());
    EXPECT_EQ(writers[pseudowire]->status()->corruptionsDetected(), 1U);
    EXPECT_FALSE(writers[pseudowire]->status()->lastCorruption().empty());
}

TEST_F(LfibViaSets, ARouteIsReadAsItStandsNow) {
    swapRoute(pseudowire, 100, 300);
    const auto before = find(100);
    writers[pseudowire]->routeDel(key(100));
    EXPECT_FALSE(find(100));
    swapRoute(pseudowire, 100, 301);
    EXPECT_EQ(find(100)->via(0).labelOperation().label(0).value(), 301U);
    EXPECT_EQ(before->numVias(), 1U);
}

} // namespace

} // namespace LfibViaSetsTest
