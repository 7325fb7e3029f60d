#include <gtest/gtest.h>

#include "HeapCount.h"
#include "PacketTesting.h"

using namespace Ovix;
using namespace TestSupport;
using namespace TestSupport::Raw;

TEST(FrameAllocation, AWarmFrameIsTakenParsedAndHashedWithoutOne) {
    if (slabsFromHeap) {
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
