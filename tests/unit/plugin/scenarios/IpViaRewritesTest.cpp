#include "MadeUpVias.h"
#include "Ovix/rewrite/MplsRewrites.h"
#include "Ovix/routing/RewriteInfo.h"
#include "handlers/MplsIpViaTypeHandler.h"

namespace IpViaRewritesTest {

namespace {

using namespace Ovix;
using namespace TestSupport;
using Lumo::MplsLabelAction;
using Mpls::PayloadType;
using Mpls::TtlMode;

class IpViaRewrites : public MadeUpViasFixture {
  protected:
    /// A context for the entry, over the payload when `inner`.
    Ptr<MplsContext> contextFor(Lumo::MplsLabelEntry entry, bool inner = true,
                                const Bytes& payload = udpPacket(0x0a090001)) {
        const auto frame = contextOf(mplsFrame({{entry.label().value()}}, payload));
        return Tessel::make<MplsContext>(
            frame, entry, inner ? frame->packetContext()->parsedPkt().header(2) : nullptr,
            Tessel::make<MadeUpViaSet>(), nullptr, Lumo::MplsStackEntryIndex(0), oneNexthop());
    }
    static OvixMplsVia viaOf(MplsLabelAction action, TtlMode mode = TtlMode::uniform,
                             PayloadType payload = PayloadType::automatic) {
        auto via = swapVia(300);
        via.labelAction = static_cast<std::uint32_t>(action);
        via.ttlMode = static_cast<std::uint32_t>(mode);
        via.payloadType = static_cast<std::uint32_t>(payload);
        if (action == MplsLabelAction::pop) {
            via.labels = std::string_view();
        }
        return via;
    }
    static Ptr<RewriteInfos> rewritesOf(const Ptr<MplsContext>& context, const OvixMplsVia& via) {
        return MplsIpViaTypeHandler::createRewrites(context, via, false);
    }
    static std::string names(const RewriteInfos& infos) {
        std::string all;
        for (const Ptr<RewriteInfo>& info : infos.rewrites()) {
            all += (all.empty() ? "" : " ") + std::string(info->typeName().text());
        }
        return all;
    }
    /// The one counter action of the list.
    static Ptr<LfibCounterActionInfo> counterActionOf(const RewriteInfos& infos) {
        EXPECT_EQ(infos.finalCounterActions().size(), 1U);
        return Tessel::ptrCast<LfibCounterActionInfo>(infos.finalCounterActions().front());
    }
};

TEST_F(IpViaRewrites, EveryActionIsFollowedByOneCounterAction) {
    for (const auto& [action, expected] :
         {std::pair{MplsLabelAction::swap, "MplsSwap"}, std::pair{MplsLabelAction::pop, "MplsPop"},
          std::pair{MplsLabelAction::push, "MplsTtl MplsIpPush"}}) {
        const auto infos = rewritesOf(contextFor(entryOf(100, 64, true)), viaOf(action));
        ASSERT_TRUE(infos);
        EXPECT_EQ(names(*infos), expected);
        EXPECT_EQ(counterActionOf(*infos)->routeKey(), key(100));
    }
}

TEST_F(IpViaRewrites, TheWholeLabelOperationIsHandedOn) {
    const auto context = contextFor(entryOf(100));
    auto via = viaOf(MplsLabelAction::swap, TtlMode::pipe);
    via.labelsIs(std::vector<std::uint8_t>{0, 1, 44, 0xf, 0xff, 0xff});
    via.trafficClass = 5;
    via.pushTtl = 9;
    const auto infos = rewritesOf(context, via);
    via = OvixMplsVia(); // the list does not refer to the via
    const auto swap = Tessel::ptrCast<MplsSwapRewriteInfo>(infos->rewrites().front());
    ASSERT_TRUE(swap);
    EXPECT_EQ(swap->ttlMode, TtlMode::pipe);
    const auto operation = swap->labels.operation();
    ASSERT_EQ(operation.depth(), 2U);
    EXPECT_EQ(operation.label(0).value(), 300U);
    EXPECT_EQ(operation.label(1).value(), 0xfffffU);
    EXPECT_EQ(operation.tc, std::optional<std::uint8_t>{5});
    EXPECT_EQ(operation.ttl, 9);
}

TEST_F(IpViaRewrites, TtlModeAndPayloadTypeAreHandedOn) {
    for (const auto mode : {TtlMode::uniform, TtlMode::pipe}) {
        for (const auto payload : {PayloadType::ipv4, PayloadType::ipv6, PayloadType::ethernet}) {
            const auto infos = rewritesOf(contextFor(entryOf(100, 64, true), false),
                                          viaOf(MplsLabelAction::pop, mode, payload));
            ASSERT_TRUE(infos);
            const auto pop = Tessel::ptrCast<MplsPopRewriteInfo>(infos->rewrites().front());
            ASSERT_TRUE(pop);
            EXPECT_EQ(pop->payload, payload);
            EXPECT_EQ(pop->ttlMode, mode);
        }
        const auto push = rewritesOf(contextFor(entryOf(100)), viaOf(MplsLabelAction::push, mode));
        auto at = push->rewrites().begin();
        ++at;
        EXPECT_EQ(Tessel::ptrCast<MplsIpPushRewriteInfo>(*at)->ttlMode, mode);
    }
}

TEST_F(IpViaRewrites, APopLooksAtTheEntryAndAtWhatFollowsTheStack) {
    const auto via = viaOf(MplsLabelAction::pop);
    EXPECT_TRUE(rewritesOf(contextFor(entryOf(100, 64, true)), via));
    EXPECT_FALSE(rewritesOf(contextFor(entryOf(100, 64, true), false), via));
    EXPECT_TRUE(rewritesOf(contextFor(entryOf(100, 64, false), false), via));
}

TEST_F(IpViaRewrites, WhatCannotBeDoneGivesNoListAtAll) {
    auto via = viaOf(MplsLabelAction::swap);
    via.labels = std::string_view();
    EXPECT_FALSE(rewritesOf(contextFor(entryOf(100)), via));
    EXPECT_FALSE(rewritesOf(contextFor(entryOf(100)), viaOf(MplsLabelAction::none)));
    EXPECT_TRUE(counters->counters().empty());
}

TEST_F(IpViaRewrites, TheIncomingLabelAloneIsTheKeyOfTheCounter) {
    for (const std::uint32_t label : {0U, 16U, 0x12345U, 0xfffffU}) {
        const Lumo::MplsLabelEntry entry(Lumo::MplsLabel(label), 7, true, 255);
        const auto infos = rewritesOf(contextFor(entry), viaOf(MplsLabelAction::swap));
        EXPECT_EQ(counterActionOf(*infos)->routeKey(), key(label));
    }
}

TEST_F(IpViaRewrites, TheWholeFrameAsReceivedIsTheSizeOfTheCounter) {
    for (const std::size_t bytes : {0U, 1U, 1500U, 9000U}) {
        const auto infos = rewritesOf(contextFor(entryOf(100), false, Bytes(bytes, 0)),
                                      viaOf(MplsLabelAction::push));
        EXPECT_EQ(counterActionOf(*infos)->byteCount(), 14 + 4 + bytes);
    }
}

} // namespace

} // namespace IpViaRewritesTest
