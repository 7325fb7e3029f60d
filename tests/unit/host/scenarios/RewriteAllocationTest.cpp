#include <gtest/gtest.h>

#include "HeapCount.h"
#include "RewriteTesting.h"

using namespace Ovix;
using namespace TestSupport;
using namespace TestSupport::Raw;

namespace {

void rewriteFrame(const Bytes& frame, const Operation& operation, Lumo::MplsLabelAction action) {
    const auto context = Tessel::make<RoutingContext>(
        1U, Tessel::make<PacketContext>(Lumo::globalPktManager()->newPkt(frame), PktHdrType::mpls),
        nullptr);
    const auto infos = MplsRewriteHelper::createMplsRewrite(
        context, Lumo::MplsLabelEntry::load(frame.data()),
        context->packetContext()->parsedPkt().header(1), action, operation.get(),
        Mpls::PayloadType::automatic, Mpls::TtlMode::uniform, false);
    ASSERT_TRUE(infos);
    for (const Ptr<RewriteInfo>& info : infos->rewrites()) {
        ASSERT_FALSE(implOf(info)->apply(context));
    }
}

} // namespace

TEST(RewriteAllocation, AWarmFrameIsRewrittenWithoutOne) {
    if (slabsFromHeap) {
        GTEST_SKIP();
    }
    const Bytes frame = join({stack({{100}}), ipv4({}, udp())});
    const Operation eight({16, 17, 18, 19, 20, 21, 22, 23});
    const Operation nothing({});
    const auto run = [&] {
        rewriteFrame(frame, eight, Lumo::MplsLabelAction::swap);
        rewriteFrame(frame, eight, Lumo::MplsLabelAction::push);
        rewriteFrame(frame, nothing, Lumo::MplsLabelAction::pop);
    };
    run();
    const std::uint64_t warm = heapAllocations;
    for (int i = 0; i < 1000; ++i) {
        run();
    }
    EXPECT_EQ(heapAllocations, warm);
}
