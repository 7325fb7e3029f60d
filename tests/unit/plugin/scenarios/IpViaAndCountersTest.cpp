#include "Ovix/viaset/ViaSets.h"
#include "PluginFixture.h"
#include "counting/LfibCounterAction.h"
#include "counting/LfibReactors.h"
#include "handlers/MplsIpViaTypeHandler.h"

namespace IpViaAndCountersTest {

namespace {

using namespace Ovix;
using TestSupport::mplsFrame;
using TestSupport::PluginFixture;
using TestSupport::udpPacket;

class IpVia : public PluginFixture {
  protected:
    Ptr<MplsContext> contextFor(const OvixMplsVia& via) {
        const Mpls::WeightedRecord one{via, 1};
        const auto set = Tessel::make<OvixHwViaSet>(
            Mpls::Hardware::Adjacency::create({&one, 1}, {}, false), nullptr, false);
        nexthops = Tessel::make<RoutingNexthops>();
        nexthops->nexthopEnq(Tessel::make<RoutingNexthop>(Lumo::IntfId()));
        return Tessel::make<MplsContext>(contextOf(mplsFrame({{100}}, udpPacket(0x0a090001))),
                                         Lumo::MplsLabelEntry(Lumo::MplsLabel(100), 0, true, 64),
                                         nullptr, set, nullptr, Lumo::MplsStackEntryIndex(0),
                                         nexthops);
    }
    Ptr<MplsIpViaTypeHandler> handler = mplsIpViaTypeHandlerFactory(
        Mpls::LfibViaType::ip, plugin->lfibTables(), plugin->lfibCounterCollection());
    Ptr<RoutingNexthops> nexthops;
};

TEST_F(IpVia, FillsTheNextHopAndQueuesOneCounterActionForTheIncomingLabel) {
    auto via = swapVia(300);
    via.nexthopMtu = 1400;
    via.nexthopVlan = 7;
    const auto context = contextFor(via);
    context->viaIndexIs(0);
    EXPECT_EQ(handler->processMplsVia(context), 1);
    const RoutingNexthop& nexthop = *nexthops->nexthopFront();
    EXPECT_EQ(nexthop.intfId(), Lumo::IntfId("east"));
    EXPECT_EQ(nexthop.address().text(), "10.0.2.2");
    EXPECT_EQ(nexthop.mtu(), 1400U);
    EXPECT_EQ(nexthop.vlanId(), 7);
    ASSERT_EQ(nexthop.rewriteInfos().finalCounterActions().size(), 1U);
    const auto info = Tessel::ptrCast<LfibCounterActionInfo>(
        nexthop.rewriteInfos().finalCounterActions().front());
    EXPECT_EQ(info->routeKey(), key(100));
    EXPECT_EQ(info->byteCount(), 14U + 4U + 28U);
}

TEST_F(IpVia, AnEmptyViaIsADropThatTouchesNothing) {
    const auto context = contextFor(OvixMplsVia());
    context->viaIndexIs(0);
    EXPECT_EQ(handler->processMplsVia(context), 1);
    EXPECT_EQ(counted("Drop", "No via"), 1U);
    EXPECT_TRUE(traced("No via"));
    EXPECT_TRUE(nexthops->nexthopFront()->unresolved());
}

TEST_F(IpVia, AnOperationThatCannotBeDoneIsADropWithoutACounterAction) {
    auto via = swapVia(300);
    via.labels = std::string_view();
    const auto context = contextFor(via);
    context->viaIndexIs(0);
    EXPECT_EQ(handler->processMplsVia(context), 1);
    EXPECT_EQ(counted("Drop", "no rewrite"), 1U);
    EXPECT_TRUE(traced("no rewrite"));
    EXPECT_TRUE(nexthops->nexthopFront()->rewriteInfos().finalCounterActions().empty());
    EXPECT_TRUE(nexthops->nexthopFront()->unresolved());
}

TEST_F(IpVia, AnUnsetViaIndexIsABrokenPromise) {
    const auto context = contextFor(swapVia(300));
    EXPECT_DEATH(handler->processMplsVia(context), "MplsVorn/OvixPlugin/MplsOvixPlugin.*"
                                                   "doProcessMplsVia.*"
                                                   "viaIndex must be set for transit vias");
}

class LfibCounters : public PluginFixture {
  protected:
    void count(std::uint32_t label, std::uint32_t bytes) {
        const Ptr<CounterActionInfo> info = Tessel::make<LfibCounterActionInfo>(key(label), bytes);
        const auto action = LfibCounterActionImpl::fromInfo(info);
        EXPECT_EQ(action->name(), "LfibCounterActionImpl");
        action->apply(nullptr);
    }
    Counter::PktCounter* counterOf(std::uint32_t label) {
        return plugin->lfibCounterCollection()->counter(key(label));
    }
};

TEST_F(LfibCounters, PacketsOfARouteShareACounter) {
    count(100, 64);
    count(100, 1000);
    count(101, 1);
    ASSERT_NE(counterOf(100), nullptr);
    EXPECT_EQ(counterOf(100)->packets(), 2U);
    EXPECT_EQ(counterOf(100)->bytes(), 1064U);
    EXPECT_EQ(counterOf(101)->packets(), 1U);
    EXPECT_EQ(counterOf(102), nullptr);
}

TEST_F(LfibCounters, GoWithTheirTransitRouteAndStartAgainFromZero) {
    swapRoute(transit, 100, 300);
    count(100, 64);
    swapRoute(transit, 100, 301); // changed, not gone
    ASSERT_NE(counterOf(100), nullptr);
    writers[transit]->routeDel(key(100));
    EXPECT_EQ(counterOf(100), nullptr);
    swapRoute(transit, 100, 300);
    count(100, 10);
    EXPECT_EQ(counterOf(100)->bytes(), 10U);
}

TEST_F(LfibCounters, StayWhenARouteLeavesAnotherTable) {
    swapRoute(decap, 100, 300);
    count(100, 64);
    writers[decap]->routeDel(key(100));
    EXPECT_NE(counterOf(100), nullptr);
}

TEST_F(LfibCounters, AZombieReactorReactsToNothing) {
    swapRoute(transit, 100, 300);
    count(100, 64);
    plugin->lfibStatusSm()->zelDoZombieReactors(true);
    writers[transit]->routeDel(key(100));
    EXPECT_NE(counterOf(100), nullptr);
}

TEST_F(LfibCounters, AreZeroedByAClearRequest) {
    count(100, 64);
    count(101, 64);
    manager->clearCountersRequests()->requestClearAll();
    EXPECT_EQ(counterOf(100)->packets(), 0U);
    EXPECT_EQ(counterOf(101)->bytes(), 0U);
    plugin->clearLfibCountersSmDel();
    count(100, 64);
    manager->clearCountersRequests()->requestClearAll();
    EXPECT_EQ(counterOf(100)->packets(), 1U);
}

TEST_F(LfibCounters, RefuseAnInfoOfAnotherKind) {
    EXPECT_DEATH(LfibCounterActionImpl::fromInfo(nullptr), "info");
}

} // namespace

} // namespace IpViaAndCountersTest
