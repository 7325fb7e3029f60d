#include <gtest/gtest.h>

#include "HeapCount.h"
#include "PacketTesting.h"
#include "RewriteTesting.h"
#include "Tessel/FlatMap.h"
#include "Tessel/PtrList.h"
#include "Tessel/Slab.h"

namespace AllocationTest {

namespace {

using namespace Tessel;
using TestSupport::heapAllocations;

struct Item : Counted, Slabbed<Item> {
    std::uint64_t content = 0;
};

/// What `step` allocates from the heap when it has run once before.
template <typename Step>
std::uint64_t allocationsOnceWarm(Step step) {
    step();
    const std::uint64_t before = heapAllocations;
    step();
    return heapAllocations - before;
}

TEST(RuntimeAllocation, WarmObjectsAndListsOfThemTakeNothingFromTheHeap) {
    if (TestSupport::slabsFromHeap) {
        GTEST_SKIP();
    }
    EXPECT_EQ(allocationsOnceWarm([] {
                  for (std::size_t length = 0; length <= 100; ++length) {
                      PtrList<Item, 4> list;
                      for (std::size_t i = 0; i < length; ++i) {
                          list.push(make<Item>());
                      }
                  }
              }),
              0U);
}

TEST(RuntimeAllocation, AMapThatHasHadItsEntriesTakesThemBackWithoutTheHeap) {
    FlatMap<std::uint64_t> map;
    EXPECT_EQ(allocationsOnceWarm([&map] {
                  for (std::uint64_t key = 0; key < 1000; ++key) {
                      map[key] = key;
                  }
                  for (std::uint64_t key = 0; key < 1000; ++key) {
                      map.erase(key);
                  }
              }),
              0U);
}

} // namespace

using namespace Ovix;
using namespace TestSupport;
using namespace TestSupport::Raw;

TEST(FrameAllocation, AWarmFrameIsTakenParsedAndHashedWithoutOne) {
    if (TestSupport::slabsFromHeap) {
        GTEST_SKIP();
    }
    const Bytes frames[] = {
        join({eth(ethMpls), stack({{100}}), ipv4({}, udp())}),
        join({eth(ethServiceVlan), tag(1, ethVlan), tag(2, ethMpls),
              stack(std::vector<Entry>(300, Entry{100})), ipv6({}, udp())}),
        join({eth(ethIpv4), ipv4({}, udp(1, 2, filled(60000, 0)))}),
    };
    const auto run = [&] {
        for (const Bytes& frame : frames) {
            const auto context =
                Tessel::make<PacketContext>(Lumo::globalPktManager()->newPkt(frame));
            context->parsedPkt().maybeDoFullParse();
            context->hash();
            context->classificationInput();
            context->pkt()->pushFront(1000);
            context->outerTypeIs(PktHdrType::mpls);
            context->parsedPkt().header(0);
        }
    };
    run();
    const std::uint64_t warm = heapAllocations;
    for (int i = 0; i < 1000; ++i) {
        run();
    }
    EXPECT_EQ(heapAllocations, warm);
}

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
    if (TestSupport::slabsFromHeap) {
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

} // namespace AllocationTest
