#include "MulticastTesting.h"
#include "Ovix/rewrite/MplsRewrites.h"
#include "Ovix/routing/RewriteInfo.h"
#include "Ovix/viaset/ViaSets.h"
#include "handlers/MplsIpViaTypeHandler.h"

namespace ReplicationTest {

namespace {

using namespace Ovix;
using namespace TestSupport;

constexpr const char* several = "Using first nexthop, but %s nexthops found";
constexpr const char* skipping = "no rewrite for multicast, skipping via";

class Replication : public MulticastFixture {
  protected:
    /// Handles every via of the set, as selection does.
    void replicate(const std::vector<OvixMplsVia>& vias, bool counting = true) {
        const auto context = contextFor(Tessel::make<ReplicatedVias>(vias), counting);
        for (std::uint32_t i = 0; i < vias.size(); ++i) {
            context->viaIndexIs(i);
            EXPECT_EQ(handler->processMplsVia(context), 1);
        }
    }
    Ptr<MplsContext> contextFor(const Ptr<OvixMplsViaSet>& set, bool counting = true) {
        trace.clear();
        return Tessel::make<MplsContext>(contextOf(frame, counting), entryOf(500), nullptr, set,
                                         nullptr, Lumo::MplsStackEntryIndex(0), nexthops);
    }
    std::vector<Ptr<RoutingNexthop>> replicas() const {
        std::vector<Ptr<RoutingNexthop>> all;
        for (const auto& nexthop : *nexthops) {
            all.push_back(nexthop);
        }
        all.erase(all.begin());
        return all;
    }
    static std::vector<std::uint32_t> swappedTo(const RoutingNexthop& nexthop) {
        std::vector<std::uint32_t> all;
        for (const auto& info : nexthop.rewriteInfos().rewrites()) {
            const auto swap = Tessel::ptrCast<MplsSwapRewriteInfo>(info);
            all.push_back(swap ? swap->labels.operation().label(0).value() : 0);
        }
        return all;
    }
    std::vector<Mpls::WeightedRecord> swapVias(std::uint32_t count) const {
        std::vector<Mpls::WeightedRecord> vias;
        for (std::uint32_t i = 0; i < count; ++i) {
            vias.push_back({swapVia(1000 + i), 1});
        }
        return vias;
    }
    /// The labels of what routing the frame sends out, in order.
    std::vector<std::uint32_t> routedTo() {
        const auto output = routeFrame(frame);
        std::vector<std::uint32_t> all;
        for (const auto& nexthop : *output->nexthops()) {
            EXPECT_EQ(swappedTo(*nexthop).size(), 1U);
            all.push_back(swappedTo(*nexthop).at(0));
        }
        return all;
    }

    const Bytes frame = mplsFrame({{500}}, udpPacket(0xe8010101));
    Ptr<RoutingNexthops> nexthops = oneNexthop();
    Ptr<MplsIpViaTypeHandler> handler = mplsIpViaTypeHandlerFactory(
        Mpls::LfibViaType::ip, plugin->lfibTables(), plugin->lfibCounterCollection());
};

TEST_F(Replication, EveryViaAddsANextHopOfItsOwn) {
    OvixMplsVia second = swapVia(302);
    second.intfId = Lumo::IntfId("west");
    second.nexthop = Lumo::IpGenAddr::fromText("10.0.1.2");
    second.vrfName = std::string_view("red");
    second.nexthopMtu = 1300;
    second.nexthopVlan = 9;
    replicate({swapVia(301), second});
    EXPECT_TRUE(nexthops->nexthopFront()->unresolved());
    EXPECT_TRUE(nexthops->nexthopFront()->rewriteInfos().rewrites().empty());
    const auto added = replicas();
    ASSERT_EQ(added.size(), 2U);
    EXPECT_EQ(added[0]->intfId(), Lumo::IntfId("east"));
    EXPECT_EQ(added[0]->address(), Lumo::IpGenAddr::fromText("10.0.2.2"));
    EXPECT_EQ(added[1]->intfId(), second.intfId);
    EXPECT_EQ(added[1]->address(), second.nexthop);
    EXPECT_EQ(added[1]->vrfName().view(), "red");
    EXPECT_EQ(added[1]->mtu(), 1300U);
    EXPECT_EQ(added[1]->vlanId(), 9U);
    EXPECT_TRUE(added[0]->isReplica() && added[1]->isReplica());
    EXPECT_NE(added[0]->rewriteInfos().rewrites().front(),
              added[1]->rewriteInfos().rewrites().front());
}

TEST_F(Replication, ReplicasCarryWhatWasDoneToTheFrameAndThenTheirOwn) {
    RoutingNexthop& front = *nexthops->nexthopFront();
    const auto done = Tessel::make<RewriteInfos>();
    done->rewriteInfoEnq(
        Tessel::make<MplsPopRewriteInfo>(Mpls::PayloadType::automatic, Mpls::TtlMode::uniform));
    done->finalCounterActionInfoEnq(Tessel::make<LfibCounterActionInfo>(key(0), 1U));
    front.rewriteInfos().copyFrom(done);
    replicate({swapVia(301), swapVia(302), swapVia(303)});
    std::uint32_t label = 301;
    for (const auto& replica : replicas()) {
        EXPECT_EQ(swappedTo(*replica), (std::vector<std::uint32_t>{0, label++}));
        EXPECT_EQ(replica->rewriteInfos().rewrites().front(), done->rewrites().front());
        EXPECT_EQ(replica->rewriteInfos().finalCounterActions().size(), 2U);
    }
    EXPECT_EQ(front.rewriteInfos().rewrites().size(), 1U);
    EXPECT_EQ(label, 304U);
}

TEST_F(Replication, TheIncomingLabelIsCountedWithEveryReplica) {
    replicate({swapVia(301), swapVia(302)});
    for (const auto& replica : replicas()) {
        const auto& actions = replica->rewriteInfos().finalCounterActions();
        ASSERT_EQ(actions.size(), 1U);
        const auto info = Tessel::ptrCast<LfibCounterActionInfo>(actions.front());
        EXPECT_EQ(info->routeKey(), key(500));
        EXPECT_EQ(info->byteCount(), frame.size());
    }
}

TEST_F(Replication, AViaThatCannotBeRewrittenCostsItsOwnReplica) {
    OvixMplsVia unable = swapVia(302);
    unable.labels = std::string_view();
    replicate({swapVia(301), unable, swapVia(303)});
    ASSERT_EQ(replicas().size(), 2U);
    EXPECT_EQ(swappedTo(*replicas()[0]), std::vector<std::uint32_t>{301});
    EXPECT_EQ(swappedTo(*replicas()[1]), std::vector<std::uint32_t>{303});
    EXPECT_EQ(everythingCounted(),
              (std::vector{row("Exceptional", several, 2), row("Drop", skipping)}));
    EXPECT_EQ(trace, lines({"Using first nexthop, but 2 nexthops found", skipping,
                            "Using first nexthop, but 2 nexthops found"}));
}

TEST_F(Replication, AnEmptyViaAddsNothing) {
    replicate({OvixMplsVia(), swapVia(302)});
    ASSERT_EQ(replicas().size(), 1U);
    EXPECT_EQ(everythingCounted(), std::vector{row("Drop", "No via")});
    EXPECT_EQ(trace, lines({"No via"}));
}

TEST_F(Replication, FromTheSecondReplicaOnSeveralNextHopsAreReported) {
    replicate({swapVia(301), swapVia(302), swapVia(303)});
    EXPECT_EQ(everythingCounted(), std::vector{row("Exceptional", several, 2)});
    EXPECT_EQ(trace, lines({"Using first nexthop, but 2 nexthops found",
                            "Using first nexthop, but 3 nexthops found"}));
}

TEST_F(Replication, WithoutCountersTheDecisionsAreTheSame) {
    OvixMplsVia unable = swapVia(302);
    unable.labels = std::string_view();
    replicate({OvixMplsVia(), unable, swapVia(303)}, false);
    EXPECT_EQ(replicas().size(), 1U);
    EXPECT_EQ(trace, lines({"No via", skipping}));
    EXPECT_TRUE(everythingCounted().empty());
}

TEST_F(Replication, AUnicastSetFillsTheFramesOwnNextHop) {
    const auto set = Tessel::make<MadeUpViaSet>();
    set->viaOfAll = swapVia(301);
    const auto context = contextFor(set);
    context->viaIndexIs(0);
    EXPECT_EQ(handler->processMplsVia(context), 1);
    EXPECT_EQ(nexthops->size(), 1U);
    EXPECT_FALSE(nexthops->nexthopFront()->isReplica());
    EXPECT_EQ(swappedTo(*nexthops->nexthopFront()), std::vector<std::uint32_t>{301});
}

TEST_F(Replication, AnUnsetViaIndexIsAnInternalError) {
    const auto context =
        contextFor(Tessel::make<ReplicatedVias>(std::vector<OvixMplsVia>{swapVia(301)}));
    EXPECT_DEATH(handler->processMplsVia(context),
                 "MplsVorn/OvixPlugin/MplsOvixPlugin.*doProcessMplsMulticastVia.*"
                 "viaIndex must be set for transit vias");
}

TEST_F(Replication, TheLargestSetIsReplicatedWholeFromEitherTable) {
    const auto vias = swapVias(599);
    writers[decap]->routeIs(key(500), Mpls::LfibViaType::ip, Mpls::LfibViaSetType::multicast, vias);
    auto routed = routedTo();
    ASSERT_EQ(routed.size(), 599U);
    EXPECT_EQ(routed.front(), 1000U);
    EXPECT_EQ(routed.back(), 1598U);
    writers[decap]->routeDel(key(500));
    hardware->adjacencyIs(1,
                          Mpls::Hardware::Adjacency::create(vias, {}, false, Mpls::LfibViaType::ip,
                                                            Mpls::LfibViaSetType::multicast));
    hardware->routeIs({key(500), 1, false});
    EXPECT_EQ(routedTo(), routed);
}

TEST_F(Replication, ALargerSetIsNotPublished) {
    const auto publish = [&] {
        writers[decap]->routeIs(key(500), Mpls::LfibViaType::ip, Mpls::LfibViaSetType::multicast,
                                swapVias(600));
    };
    EXPECT_THROW(publish(), std::invalid_argument);
    EXPECT_THROW(writers[decap]->multicastIpLookupRouteIs(key(500), tailOn(Lumo::IntfId("east")),
                                                          swapVias(599)),
                 std::invalid_argument);
    EXPECT_TRUE(routedTo().empty());
}

TEST_F(Replication, ABudNodeDeliversAndReplicates) {
    const auto cpu = cpuPort();
    const auto tail = tailOn(Lumo::VlanIntfId::vlanIdToIntfId(100));
    writers[decap]->multicastIpLookupRouteIs(key(500), tail, swapVias(598));
    const auto routed = routedTo();
    ASSERT_EQ(routed.size(), 598U);
    EXPECT_EQ(routed.back(), 1597U);
    EXPECT_EQ(cpu->frames.size(), 1U);
    EXPECT_EQ(counted("Drop", skipping), 0U);
    EXPECT_EQ(counted("Exceptional",
                      "Handler for multicast via %s returned inconsistent processing result"),
              0U);
}

} // namespace

} // namespace ReplicationTest
