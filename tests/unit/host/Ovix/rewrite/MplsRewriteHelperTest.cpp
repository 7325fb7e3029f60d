#include "Ovix/rewrite/MplsRewriteHelper.h"

#include <gtest/gtest.h>

#include "RewriteTesting.h"

namespace MplsRewriteHelperTest {

using namespace Ovix;
using namespace TestSupport;
using namespace TestSupport::Raw;
using Lumo::MplsLabelAction;
using Mpls::PayloadType;
using Mpls::TtlMode;

namespace {

Lumo::MplsLabelEntry top(bool bos) {
    return {Lumo::MplsLabel(100), 3, bos, 64};
}

/// What follows the stack of a packet with that payload.
Ptr<PacketHeader> innerOf(const Bytes& payload) {
    return Rewritten(join({stack({{100}}), payload})).context().parsedPkt().header(1);
}

Ptr<RewriteInfos> create(MplsLabelAction action, const Operation& operation, bool bos = true,
                         PayloadType payload = PayloadType::automatic,
                         const Ptr<PacketHeader>& inner = nullptr,
                         TtlMode mode = TtlMode::uniform) {
    return MplsRewriteHelper::createMplsRewrite(nullptr, top(bos), inner, action, operation.get(),
                                                payload, mode, false);
}

std::string names(const Ptr<RewriteInfos>& infos) {
    if (!infos) {
        return "none";
    }
    std::string all;
    for (const Ptr<RewriteInfo>& info : infos->rewrites()) {
        all += (all.empty() ? "" : " ") + std::string(info->typeName().text());
    }
    return all;
}

} // namespace

TEST(CreateMplsRewrite, TurnsAnActionIntoItsRewrites) {
    EXPECT_EQ(names(create(MplsLabelAction::swap, {{300}})), "MplsSwap");
    EXPECT_EQ(names(create(MplsLabelAction::push, {{300, 301}})), "MplsTtl MplsIpPush");
    EXPECT_EQ(names(create(MplsLabelAction::pop, Operation({}), false)), "MplsPop");
    EXPECT_EQ(names(create(MplsLabelAction::none, {{300}})), "none");
    EXPECT_EQ(names(create(static_cast<MplsLabelAction>(4), {{300}})), "none");
}

TEST(CreateMplsRewrite, APopExposesItsClassWhenTheOperationSaysSo) {
    for (const bool exposes : {false, true}) {
        Lumo::UnboundedMplsLabelOperation operation;
        operation.exposesTc = exposes;
        const auto infos = MplsRewriteHelper::createMplsRewrite(
            nullptr, top(false), nullptr, MplsLabelAction::pop, operation, PayloadType::automatic,
            TtlMode::uniform, false);
        ASSERT_TRUE(infos);
        const auto& pop = static_cast<const MplsPopRewriteInfo&>(*infos->rewrites().front());
        EXPECT_EQ(pop.exposesTc, exposes);
    }
}

TEST(CreateMplsRewrite, HandsTheOperationAndTheTtlModeOn) {
    const auto infos = create(MplsLabelAction::swap, {{300, 301}, 6, 9}, true,
                              PayloadType::automatic, nullptr, TtlMode::pipe);
    const auto info = Tessel::ptrCast<MplsSwapRewriteInfo>(infos->rewrites().front());
    ASSERT_TRUE(info);
    EXPECT_EQ(info->ttlMode, TtlMode::pipe);
    EXPECT_EQ(info->labels.operation().depth(), 2U);
    EXPECT_EQ(info->labels.operation().label(1).value(), 301U);
    EXPECT_EQ(info->labels.operation().tc, 6);
    EXPECT_EQ(info->labels.operation().ttl, 9);
}

TEST(CreateMplsRewrite, ImposesNothingThatNeverStandsOnTheWire) {
    for (const auto action : {MplsLabelAction::swap, MplsLabelAction::push}) {
        EXPECT_EQ(names(create(action, Operation({}))), "none");
        EXPECT_EQ(names(create(action, {{3}})), "none");
        EXPECT_EQ(names(create(action, {{300, 3}})), "none");
        EXPECT_EQ(names(create(action, {{3, 300}})), "none");
        EXPECT_NE(names(create(action, {{0, 2, 7, 4}})), "none");
    }
}

TEST(CreateMplsRewrite, PopsTheLastLabelOnlyOffWhatItCanName) {
    const Ptr<PacketHeader> ip4 = innerOf(ipv4({}, {}));
    const Ptr<PacketHeader> ip6 = innerOf(ipv6({}, {}));
    const Ptr<PacketHeader> frame = innerOf(join({eth(ethIpv4), filled(20, 0)}));
    const struct {
        PayloadType payload;
        Ptr<PacketHeader> inner;
        bool can;
    } rows[] = {
        {PayloadType::undefined, ip4, false},     {PayloadType::ipv4, nullptr, true},
        {PayloadType::ipv6, nullptr, true},       {PayloadType::ethernet, nullptr, true},
        {PayloadType::automatic, nullptr, false}, {PayloadType::automatic, frame, false},
        {PayloadType::automatic, ip4, true},      {PayloadType::automatic, ip6, true},
        {PayloadType::none, nullptr, false},      {PayloadType::none, frame, false},
        {PayloadType::none, ip4, true},           {static_cast<PayloadType>(9), ip4, false},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(names(create(MplsLabelAction::pop, Operation({}), true, row.payload, row.inner)),
                  row.can ? "MplsPop" : "none")
            << static_cast<int>(row.payload);
        EXPECT_EQ(names(create(MplsLabelAction::pop, Operation({}), false, row.payload, row.inner)),
                  "MplsPop")
            << "above another label the payload does not matter";
    }
}

TEST(CreateMplsPopRewrite, CarriesPayloadAndTtlMode) {
    for (const auto payload : {PayloadType::none, PayloadType::ipv4, PayloadType::ipv6}) {
        for (const auto mode : {TtlMode::uniform, TtlMode::pipe}) {
            const auto infos = MplsRewriteHelper::createMplsPopRewrite(nullptr, top(false), nullptr,
                                                                       payload, mode, false);
            ASSERT_EQ(names(infos), "MplsPop");
            const auto info = Tessel::ptrCast<MplsPopRewriteInfo>(infos->rewrites().front());
            EXPECT_EQ(info->payload, payload);
            EXPECT_EQ(info->ttlMode, mode);
        }
    }
}

TEST(CreateMplsPopRewrite, NeedsSomethingBeneathTheLastLabelOrAPayloadType) {
    const Ptr<PacketHeader> ip4 = innerOf(ipv4({}, {}));
    const struct {
        bool bottom;
        PayloadType payload;
        Ptr<PacketHeader> inner;
        bool can;
    } rows[]{
        {true, PayloadType::none, nullptr, false},
        {true, PayloadType::none, ip4, true},
        {false, PayloadType::none, nullptr, true},
        {true, PayloadType::ipv4, nullptr, true},
        {true, PayloadType::undefined, nullptr, true},
        {true, static_cast<PayloadType>(9), ip4, true},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(names(MplsRewriteHelper::createMplsPopRewrite(nullptr, top(row.bottom), row.inner,
                                                                row.payload, TtlMode::pipe, false)),
                  row.can ? "MplsPop" : "none")
            << static_cast<int>(row.payload);
    }
}

TEST(RewriteInfos, CopyFromAppends) {
    RewriteInfos infos;
    infos.rewriteInfoEnq(pop());
    infos.copyFrom(create(MplsLabelAction::push, {{300}}));
    infos.copyFrom(create(MplsLabelAction::swap, {{300}}));
    EXPECT_EQ(infos.rewrites().size(), 4U);
    std::string all;
    for (const Ptr<RewriteInfo>& info : infos.rewrites()) {
        all += info->typeName().text();
    }
    EXPECT_EQ(all, "MplsPopMplsTtlMplsIpPushMplsSwap");
}

} // namespace MplsRewriteHelperTest
