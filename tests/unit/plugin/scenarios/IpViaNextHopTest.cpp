#include "MadeUpVias.h"
#include "Ovix/rewrite/MplsRewrites.h"
#include "handlers/MplsIpViaTypeHandler.h"

namespace IpViaNextHopTest {

namespace {

using namespace Ovix;
using namespace TestSupport;

/// A set whose vias differ.
class DifferentVias : public MadeUpViaSet {
  public:
    explicit DifferentVias(std::vector<OvixMplsVia> viasOfSet)
        : MadeUpViaSet(std::vector<std::uint32_t>(viasOfSet.size(), 1)),
          vias(std::move(viasOfSet)) {}
    OvixMplsVia via(std::uint32_t index) const override { return vias[index]; }

    std::vector<OvixMplsVia> vias;
};

class IpViaNextHop : public MadeUpViasFixture {
  protected:
    Ptr<MplsContext> contextFor(const Ptr<OvixMplsViaSet>& set, std::uint32_t index = 0,
                                bool counting = true) {
        const auto frame = contextOf(mplsFrame({{100}}, udpPacket(0x0a090001)), counting);
        const auto made = Tessel::make<MplsContext>(frame, entryOf(100), nullptr, set, nullptr,
                                                    Lumo::MplsStackEntryIndex(0), nexthops);
        made->viaIndexIs(index);
        trace.clear();
        return made;
    }
    Ptr<MplsContext> contextFor(const OvixMplsVia& via, bool counting = true) {
        return contextFor(Tessel::make<DifferentVias>(std::vector<OvixMplsVia>{via}), 0, counting);
    }
    RoutingNexthop& front() { return *nexthops->nexthopFront(); }
    static std::uint32_t swappedTo(const RoutingNexthop& nexthop) {
        const auto info =
            Tessel::ptrCast<MplsSwapRewriteInfo>(nexthop.rewriteInfos().rewrites().front());
        return info->labels.operation().label(0).value();
    }
    /// The next hop as somebody left it before.
    void occupy() {
        front().intfIdIs(Lumo::IntfId("west"));
        front().addressIs(Lumo::IpGenAddr::fromText("192.0.2.1"));
        front().mtuIs(1300);
        front().vlanIdIs(9);
        front().vrfNameIs(std::string_view("red"));
    }

    Ptr<RoutingNexthops> nexthops = oneNexthop();
    Ptr<MplsIpViaTypeHandler> handler = mplsIpViaTypeHandlerFactory(
        Mpls::LfibViaType::ip, plugin->lfibTables(), plugin->lfibCounterCollection());
};

TEST_F(IpViaNextHop, TheViaAtTheContextsIndexIsUsed) {
    const auto set = Tessel::make<DifferentVias>(
        std::vector<OvixMplsVia>{swapVia(300), OvixMplsVia(), swapVia(302)});
    EXPECT_EQ(handler->processMplsVia(contextFor(set, 2)), 1);
    EXPECT_EQ(swappedTo(front()), 302U);
    nexthops = oneNexthop();
    EXPECT_EQ(handler->processMplsVia(contextFor(set, 1)), 1);
    EXPECT_TRUE(front().unresolved());
    EXPECT_EQ(everythingCounted(), (std::vector{row("Drop", "No via")}));
}

TEST_F(IpViaNextHop, WhatTheViaSaysReplacesWhatStoodThere) {
    occupy();
    auto via = swapVia(300);
    via.nexthopMtu = 0xffffffff;
    via.nexthopVlan = 4094;
    via.vrfName = std::string_view("blue");
    handler->processMplsVia(contextFor(via));
    EXPECT_EQ(front().intfId(), Lumo::IntfId("east"));
    EXPECT_EQ(front().address().text(), "10.0.2.2");
    EXPECT_EQ(front().mtu(), 0xffffffffU);
    EXPECT_EQ(front().vlanId(), 4094U);
    EXPECT_EQ(front().vrfName().view(), "blue");

    occupy();
    via.intfId = Lumo::IntfId();
    via.nexthop = Lumo::IpGenAddr();
    via.nexthopMtu = 0;
    via.nexthopVlan = 0;
    via.vrfName = std::string_view();
    handler->processMplsVia(contextFor(via));
    EXPECT_TRUE(front().unresolved());
    EXPECT_EQ(front().mtu(), 0U);
    EXPECT_EQ(front().vlanId(), 0U);
    EXPECT_TRUE(front().vrfName().empty());
}

TEST_F(IpViaNextHop, OnlyTheFirstNexthopIsFilled) {
    const auto second = Tessel::make<RoutingNexthop>(Lumo::IntfId());
    nexthops->nexthopEnq(second);
    handler->processMplsVia(contextFor(swapVia(300)));
    EXPECT_EQ(nexthops->size(), 2U);
    EXPECT_FALSE(front().unresolved());
    EXPECT_TRUE(second->unresolved());
    EXPECT_TRUE(second->rewriteInfos().rewrites().empty());
    EXPECT_TRUE(second->rewriteInfos().finalCounterActions().empty());
}

TEST_F(IpViaNextHop, TheRewritesFollowTheOnesOfTheLabelsAbove) {
    const auto popped =
        Tessel::make<MplsPopRewriteInfo>(Mpls::PayloadType::none, Mpls::TtlMode::uniform);
    front().rewriteInfos().rewriteInfoEnq(popped);
    handler->processMplsVia(contextFor(swapVia(300)));
    const auto& rewrites = front().rewriteInfos().rewrites();
    ASSERT_EQ(rewrites.size(), 2U);
    EXPECT_EQ(*rewrites.begin(), popped);
    EXPECT_EQ(front().rewriteInfos().finalCounterActions().size(), 1U);
}

TEST_F(IpViaNextHop, AForwardedFrameIsNeitherCountedNorTraced) {
    EXPECT_EQ(handler->processMplsVia(contextFor(swapVia(300))), 1);
    EXPECT_TRUE(counters->counters().empty());
    EXPECT_TRUE(trace.empty());
    EXPECT_EQ(plugin->lfibCounterCollection()->size(), 0U); // counted when it is sent
}

struct DropCase {
    const char* reason;
    OvixMplsVia via;
};

TEST_F(IpViaNextHop, AViaThatCannotBeUsedIsADropThatLeavesTheNexthopUntouched) {
    auto noLabels = swapVia(300);
    noLabels.labels = std::string_view();
    auto noAction = swapVia(300);
    noAction.labelAction = 0;
    for (const DropCase& one : {DropCase{"No via", OvixMplsVia()}, DropCase{"no rewrite", noLabels},
                                DropCase{"no rewrite", noAction}}) {
        for (const bool counting : {true, false}) {
            counters = Tessel::make<OvixNamedCounters>();
            nexthops = oneNexthop();
            occupy();
            EXPECT_EQ(handler->processMplsVia(contextFor(one.via, counting)), 1);
            EXPECT_EQ(trace, lines({one.reason}));
            EXPECT_EQ(counters->counters().size(), counting ? 1U : 0U);
            EXPECT_EQ(counted("Drop", one.reason), counting ? 1U : 0U);
            EXPECT_EQ(nexthops->size(), 1U);
            EXPECT_EQ(front().intfId(), Lumo::IntfId("west"));
            EXPECT_EQ(front().address().text(), "192.0.2.1");
            EXPECT_EQ(front().mtu(), 1300U);
            EXPECT_EQ(front().vlanId(), 9U);
            EXPECT_EQ(front().vrfName().view(), "red");
            EXPECT_TRUE(front().rewriteInfos().rewrites().empty());
            EXPECT_TRUE(front().rewriteInfos().finalCounterActions().empty());
        }
    }
}

TEST_F(IpViaNextHop, ADroppedFrameHasNoNextHop) {
    Mpls::LfibViaSet raw;
    raw.viaKeys.push({0, Mpls::LfibViaType::ip, 0, 0, 0});
    raw.members.push({0, 1, 0}); // no such via
    writers[decap]->rawRouteIs(key(100), raw);
    EXPECT_TRUE(routeFrame(mplsFrame({{100}}, udpPacket(0x0a090001)))->nexthops()->empty());
    EXPECT_EQ(everythingCounted(), (std::vector{row("Drop", "No via")}));
}

TEST_F(IpViaNextHop, TheHandlerKeepsWhatItWasBuiltFrom) {
    EXPECT_EQ(handler->viaType(), Mpls::LfibViaType::ip);
    EXPECT_EQ(handler->lfibTables(), plugin->lfibTables());
    EXPECT_EQ(handler->counterCollection(), plugin->lfibCounterCollection());
    const auto other = MplsIpViaTypeHandler::MplsIpViaTypeHandlerIs(
        madeUpViaType, plugin->lfibTables(), plugin->lfibCounterCollection());
    EXPECT_EQ(other->viaType(), madeUpViaType);
    EXPECT_EQ(other->lfibTables(), plugin->lfibTables());
    EXPECT_EQ(other->counterCollection(), plugin->lfibCounterCollection());
}

} // namespace

} // namespace IpViaNextHopTest
