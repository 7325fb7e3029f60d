#include "Ovix/rewrite/MplsPushRewriteImpl.h"

#include <gtest/gtest.h>

#include "RewriteTesting.h"

namespace MplsPushRewriteImplTest {

using namespace Ovix;
using namespace TestSupport;
using namespace TestSupport::Raw;

namespace {

/// Makes what its base does reachable.
class Push : public MplsPushRewriteImpl {
  public:
    explicit Push(const ImposedLabels& labels) : MplsPushRewriteImpl(labels) {}
    using MplsPushRewriteImpl::applyMplsEncap;

    std::string_view name() const noexcept override { return "Push"; }
    Ptr<const RewriteInfo> baseInfo() const noexcept override { return nullptr; }
    Ptr<RoutingException> apply(const Ptr<RoutingContext>&) override { return nullptr; }
};

const Bytes frame = join({eth(0x88b5), filled(46, 0x5a)});

struct Encap {
    const char* what;
    std::vector<std::uint32_t> labels;
    unsigned label;
    std::uint8_t ttl;
    std::uint8_t tc;
    bool ontoLabels;
    Bytes pushed;
};

} // namespace

TEST(MplsPushRewriteImpl, PushesTheLabelsOfItsRecordOrTheOneItIsGiven) {
    const Encap rows[]{
        {"the one given", {}, 0, 255, 5, false, stack({{0, 5, 255}})},
        {"the largest given", {}, 0xfffff, 0, 0, false, stack({{0xfffff, 0, 0}})},
        {"the one given, onto labels", {}, 9, 1, 7, true, entry({9, 7, 1}, false)},
        {"one of the record", {500}, 9, 255, 2, false, stack({{500, 2, 255}})},
        {"two, outermost first",
         {100, 500},
         0,
         255,
         0,
         false,
         stack({{100, 0, 255}, {500, 0, 255}})},
        {"two onto labels",
         {100, 500},
         0,
         64,
         1,
         true,
         join({entry({100, 1, 64}, false), entry({500, 1, 64}, false)})},
    };
    for (const Encap& row : rows) {
        const Operation operation(row.labels, 3, 77);
        const ImposedLabels labels(operation.get());
        Rewritten packet(frame, PktHdrType::eth, true);
        EXPECT_FALSE(Tessel::make<Push>(labels)->applyMplsEncap(packet.routingContext(), row.label,
                                                                row.ttl, row.tc, row.ontoLabels))
            << row.what;
        EXPECT_EQ(packet.bytes(), join({row.pushed, frame})) << row.what;
        EXPECT_EQ(packet.context().outerType(), PktHdrType::mpls) << row.what;
        EXPECT_FALSE(packet.context().ttlDecremented()) << row.what;
        EXPECT_TRUE(packet.surroundingsIntact()) << row.what;
    }
}

TEST(MplsPushRewriteImpl, PushesStacksOfAnyDepth) {
    for (const std::size_t depth : {8U, 9U, 32U, 33U}) {
        const Operation operation(std::vector<std::uint32_t>(depth, 1000));
        const ImposedLabels labels(operation.get());
        Rewritten packet(frame, PktHdrType::eth);
        EXPECT_FALSE(
            Tessel::make<Push>(labels)->applyMplsEncap(packet.routingContext(), 0, 255, 0, false));
        EXPECT_EQ(packet.bytes(), join({stack(std::vector<Entry>(depth, {1000, 0, 255})), frame}))
            << depth;
    }
}

TEST(MplsPushRewriteImpl, RefusesWhatDoesNotFitAndLeavesThePacketAlone) {
    const Operation two({100, 500});
    const ImposedLabels labels(two.get());
    const Bytes large = join({eth(0x88b5), filled(65535 - 14 - 7, 0)});
    const auto context = Tessel::make<RoutingContext>(
        std::uint64_t{1}, Tessel::make<PacketContext>(Lumo::globalPktManager()->newPkt(large)),
        nullptr);
    const auto refused = Tessel::make<Push>(labels)->applyMplsEncap(context, 0, 255, 0, false);
    ASSERT_TRUE(refused);
    EXPECT_EQ(refused->reason(), "Label stack does not fit the packet");
    EXPECT_EQ(context->packetContext()->pkt()->bytes(), large.size());
    EXPECT_EQ(context->packetContext()->outerType(), PktHdrType::eth);
}

TEST(MplsPushRewriteImpl, RefusesALabelOfMoreThan20Bits) {
    const ImposedLabels none(Operation({}).get());
    Rewritten packet(frame, PktHdrType::eth);
    EXPECT_THROW(
        Tessel::make<Push>(none)->applyMplsEncap(packet.routingContext(), 0x100000, 255, 0, false),
        Tessel::RangeError);
    EXPECT_EQ(packet.bytes(), frame);
}

} // namespace MplsPushRewriteImplTest
