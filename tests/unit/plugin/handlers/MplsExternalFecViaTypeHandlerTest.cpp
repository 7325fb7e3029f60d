#include "handlers/MplsExternalFecViaTypeHandler.h"

#include "MadeUpVias.h"
#include "Ovix/rewrite/MplsRewrites.h"
#include "Tessel/Fib/FecId.h"

namespace MplsExternalFecViaTypeHandlerTest {

namespace {

using namespace Ovix;
using Mpls::LfibViaType;
using Tessel::Fib::FecId;
using TestSupport::MadeUpViaSet;
using TestSupport::mplsFrame;
using TestSupport::udpPacket;
using Weights = std::vector<std::uint32_t>;

class ExternalFecVia : public TestSupport::MadeUpViasFixture {
  protected:
    static OvixMplsVia viaOf(std::uint32_t action, std::uint64_t fec) {
        OvixMplsVia via = swapVia(300);
        via.labelAction = action;
        via.fecIdHigh = static_cast<std::uint32_t>(fec >> 32U);
        via.fecIdLow = static_cast<std::uint32_t>(fec);
        via.nexthop = Lumo::IpGenAddr();
        return via;
    }
    static constexpr auto push = static_cast<std::uint32_t>(Lumo::MplsLabelAction::push);
    static constexpr auto swap = static_cast<std::uint32_t>(Lumo::MplsLabelAction::swap);
    static_assert(push == 1 && swap == 3);

    ProcessingResult process(const OvixMplsVia& via, const Weights& weights = {1},
                             std::size_t nexthopCount = 1, bool counting = true) {
        const auto set = Tessel::make<MadeUpViaSet>(weights);
        set->viaOfAll = via;
        nexthops = Tessel::make<RoutingNexthops>();
        for (std::size_t i = 0; i < nexthopCount; ++i) {
            nexthops->nexthopEnq(Tessel::make<RoutingNexthop>(Lumo::IntfId()));
        }
        trace.clear();
        return handler->processMplsVia(Tessel::make<MplsContext>(
            contextOf(mplsFrame({{100}}, udpPacket(0x0a090001)), counting), entryOf(100, 64, true),
            nullptr, set, nullptr, Lumo::MplsStackEntryIndex(0), nexthops));
    }
    const RoutingNexthop& nexthop() const { return *nexthops->nexthopFront(); }
    const RewriteInfos::Rewrites& rewrites() const { return nexthop().rewriteInfos().rewrites(); }
    void expectDrop(const std::string& reason) {
        EXPECT_EQ(everythingCounted(), (std::vector{row("Drop", reason.c_str())}));
        EXPECT_EQ(trace, lines({reason}));
        EXPECT_TRUE(nexthop().unresolved());
        EXPECT_TRUE(rewrites().empty());
    }

    Ptr<MplsExternalFecViaTypeHandler> handler =
        mplsExternalFecViaTypeHandlerFactory(LfibViaType::externalFec, plugin->lfibTables());
    Ptr<RoutingNexthops> nexthops;
};

TEST_F(ExternalFecVia, SwapsTowardTheInterfaceOfTheFec) {
    EXPECT_EQ(process(viaOf(swap, 0x0012345600000042)), 1);
    EXPECT_EQ(nexthop().intfId(), FecId::fecIdToHierarchicalIntfId(FecId(0x0012345600000042)));
    EXPECT_TRUE(nexthop().address().empty());
    ASSERT_EQ(rewrites().size(), 1U);
    ASSERT_EQ(rewrites().front()->typeName().text(), "MplsSwap");
    const auto& info = static_cast<const MplsSwapRewriteInfo&>(*rewrites().front());
    EXPECT_EQ(info.labels.operation().label(0).value(), 300U);
    EXPECT_EQ(info.ttlMode, Mpls::TtlMode::uniform);
    EXPECT_TRUE(counters->counters().empty());
    EXPECT_TRUE(trace.empty());
}

TEST_F(ExternalFecVia, PushesInTheViasTtlMode) {
    OvixMplsVia via = viaOf(push, 42);
    via.ttlMode = static_cast<std::uint32_t>(Mpls::TtlMode::pipe);
    EXPECT_EQ(process(via), 1);
    ASSERT_EQ(rewrites().size(), 2U);
    auto rewrite = rewrites().begin();
    EXPECT_EQ((*rewrite)->typeName().text(), "MplsTtl");
    ++rewrite;
    ASSERT_EQ((*rewrite)->typeName().text(), "MplsIpPush");
    EXPECT_EQ(static_cast<const MplsIpPushRewriteInfo&>(**rewrite).ttlMode, Mpls::TtlMode::pipe);
}

TEST_F(ExternalFecVia, WithoutAFecTheViasOwnInterfaceIsUsed) {
    EXPECT_EQ(process(viaOf(swap, 0)), 1);
    EXPECT_EQ(nexthop().intfId(), Lumo::IntfId("east"));
    EXPECT_EQ(rewrites().size(), 1U);
}

TEST_F(ExternalFecVia, NothingOfTheViaButItsInterfaceGoesIntoTheNextHop) {
    for (const std::uint64_t fec : {0U, 42U}) {
        OvixMplsVia via = viaOf(swap, fec);
        via.nexthop = Lumo::IpGenAddr::fromText("10.0.2.2");
        via.vrfName = std::string_view("red");
        via.nexthopMtu = 1400;
        via.nexthopVlan = 7;
        EXPECT_EQ(process(via), 1);
        EXPECT_FALSE(nexthop().intfId().empty());
        EXPECT_TRUE(nexthop().address().empty());
        EXPECT_TRUE(nexthop().vrfName().empty());
        EXPECT_EQ(nexthop().mtu(), 0U);
        EXPECT_EQ(nexthop().vlanId(), 0U);
    }
}

TEST_F(ExternalFecVia, AnIdThatNoInterfaceStandsForLeadsNowhere) {
    EXPECT_EQ(process(viaOf(swap, FecId::maxOfInterface + 1)), 1);
    EXPECT_TRUE(nexthop().unresolved());
}

TEST_F(ExternalFecVia, TheIncomingLabelIsNotCounted) {
    for (const std::uint64_t fec : {0U, 42U}) {
        process(viaOf(swap, fec));
        EXPECT_TRUE(nexthop().rewriteInfos().finalCounterActions().empty());
    }
}

TEST_F(ExternalFecVia, ASetOfAnyOtherNumberOfViasIsDroppedUnhashed) {
    const auto hasher = tellingHasher();
    for (const Weights& weights : {Weights{}, Weights{1, 1}, Weights(599, 1)}) {
        counters = Tessel::make<OvixNamedCounters>();
        EXPECT_EQ(process(viaOf(swap, 42), weights), 1);
        expectDrop("More than 1 via");
    }
    EXPECT_EQ(hasher->asked, 0U);
}

TEST_F(ExternalFecVia, OnlyPushAndSwapAreValidActions) {
    for (std::uint32_t action = 0; action < 300; ++action) {
        counters = Tessel::make<OvixNamedCounters>();
        EXPECT_EQ(process(viaOf(action, 42)), 1);
        if (action == push || action == swap) {
            EXPECT_FALSE(nexthop().unresolved()) << action;
        } else {
            expectDrop("Invalid label action " + std::to_string(action));
        }
    }
}

TEST_F(ExternalFecVia, AnEmptyViaHasNoValidAction) {
    process(OvixMplsVia());
    expectDrop("Invalid label action 0");
}

TEST_F(ExternalFecVia, AnOperationThatCannotBeDoneIsADrop) {
    OvixMplsVia via = viaOf(swap, 42);
    via.labels = std::string_view();
    EXPECT_EQ(process(via), 1);
    expectDrop("no rewrite");
}

TEST_F(ExternalFecVia, OfSeveralNextHopsTheFirstIsUsed) {
    EXPECT_EQ(process(viaOf(swap, 42), {1}, 2), 1);
    EXPECT_EQ(everythingCounted(),
              (std::vector{row("Exceptional", "Using first nexthop, but %s nexthops found")}));
    EXPECT_EQ(trace, lines({"Using first nexthop, but 2 nexthops found"}));
    EXPECT_FALSE(nexthop().unresolved());
    EXPECT_TRUE((*++nexthops->begin())->unresolved());
}

TEST_F(ExternalFecVia, WithoutCountersTheVerdictsAreTheSame) {
    EXPECT_EQ(process(viaOf(0, 42), {1}, 2, false), 1);
    EXPECT_EQ(trace, lines({"Invalid label action 0"}));
    EXPECT_EQ(process(viaOf(swap, 42), {1}, 2, false), 1);
    EXPECT_FALSE(nexthop().unresolved());
    EXPECT_TRUE(counters->counters().empty());
}

TEST_F(ExternalFecVia, IsServedFromTheRegistry) {
    const auto& registry = *plugin->mplsViaTypeHandlerRegistry();
    const auto registered =
        Tessel::ptrCast<MplsExternalFecViaTypeHandler>(registry.handler(LfibViaType::externalFec));
    ASSERT_TRUE(registered);
    EXPECT_EQ(registered->viaType(), LfibViaType::externalFec);
    EXPECT_EQ(registered->lfibTables(), plugin->lfibTables());
    plugin->doRegisterMplsViaTypeHandlers();
    EXPECT_NE(Ptr<MplsViaTypeHandler>(registered), registry.handler(LfibViaType::externalFec));
}

TEST_F(ExternalFecVia, ALabelledFrameLeavesThePluginTowardTheFec) {
    const Mpls::WeightedRecord via{viaOf(swap, 42), 1};
    writers[decap]->routeIs(key(100), LfibViaType::externalFec, Mpls::LfibViaSetType::unicast,
                            {&via, 1});
    const auto output = routeFrame(mplsFrame({{100}, {200}}, udpPacket(0x0a090001)));
    ASSERT_EQ(output->nexthops()->size(), 1U);
    EXPECT_EQ(output->nexthops()->nexthopFront()->intfId(),
              FecId::fecIdToHierarchicalIntfId(FecId(42)));
}

} // namespace

} // namespace MplsExternalFecViaTypeHandlerTest
