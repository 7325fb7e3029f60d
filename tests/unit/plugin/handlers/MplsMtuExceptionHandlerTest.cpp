#include <cstring>
#include <numeric>

#include "HeapCount.h"
#include "NetworkNamespace.h"
#include "PluginFixture.h"
#include "RawTxCollector.h"

namespace MplsMtuExceptionHandlerTest {

namespace {

using namespace Ovix;
using TestSupport::Bytes;
using TestSupport::mplsFrame;

constexpr std::uint16_t exceptionEtherType = 0x8139;
constexpr auto message = "Mpls mtu exception handler.";
const Lumo::IntfId east("east");

/// Bytes of which no neighbours are alike.
Bytes frameOf(std::size_t size) {
    Bytes frame(size);
    std::iota(frame.begin(), frame.end(), std::uint8_t{1});
    return frame;
}

void append64(Bytes& to, std::uint64_t value) {
    to.resize(to.size() + sizeof value);
    std::memcpy(to.data() + to.size() - sizeof value, &value, sizeof value);
}

/// What the control plane is to receive for a frame whose context has the id 7.
Bytes exceptionOf(Bytes frame) {
    append64(frame, east.value());
    append64(frame, 7);
    frame[12] = 0x81;
    frame[13] = 0x39;
    return frame;
}

class MtuException : public TestSupport::PluginFixture {
  protected:
    MtuException() : PluginFixture("mtu") {}

    Ptr<MtuExceptionHandler> handler() const {
        return manager->mtuExceptionHandlers()->handler("Mpls");
    }
    void handle(const Bytes& frame, bool counting = true) {
        handler()->handle(contextOf(frame, counting), east);
    }
};

} // namespace

TEST_F(MtuException, ACopyWithTheExceptionEtherTypeAndATrailerGoesToLoopback) {
    TestSupport::RawTxCollector loopback;
    const Bytes frame = mplsFrame({{100}}, Bytes(1500 - 18, 0xab));
    ASSERT_EQ(frame.size(), 1500U);
    handle(frame);
    ASSERT_EQ(loopback.sent.size(), 1U);
    const auto& sent = loopback.sent[0];
    EXPECT_EQ(sent.bytes.size(), 1516U);
    EXPECT_EQ(sent.bytes, exceptionOf(frame));
    EXPECT_EQ(sent.interfaceName, "lo");
    EXPECT_EQ(sent.interfaceIndex, loopback.loopbackIndex);
    EXPECT_TRUE(sent.enabled);
    EXPECT_EQ(sent.protocol, exceptionEtherType);
}

TEST_F(MtuException, TheTrailerHasAllOfThePacketsNumber) {
    TestSupport::RawTxCollector loopback;
    constexpr std::uint64_t number = 0x8123456789abcdef;
    const auto received = contextOf(mplsFrame({{100}}, Bytes(1500)));
    handler()->handle(Tessel::make<RoutingContext>(number, received->packetContext(), counters),
                      east);
    ASSERT_EQ(loopback.sent.size(), 1U);
    const Bytes& sent = loopback.sent[0].bytes;
    Bytes expected;
    append64(expected, number);
    EXPECT_EQ(Bytes(sent.end() - 8, sent.end()), expected);
}

TEST_F(MtuException, TheFrameItselfStaysAsItWas) {
    TestSupport::RawTxCollector loopback;
    const Bytes frame = mplsFrame({{100}, {200}}, TestSupport::udpPacket(0x0a000001));
    const auto context = contextOf(frame);
    handler()->handle(context, east);
    const auto after = context->packetContext()->pkt()->data();
    EXPECT_EQ(Bytes(after.begin(), after.end()), frame);
}

TEST_F(MtuException, IsCountedAndTraced) {
    TestSupport::RawTxCollector loopback;
    handle(frameOf(100));
    handle(frameOf(100));
    EXPECT_EQ(counted("Exceptional", message), 2U);
    EXPECT_EQ(trace, (std::vector<std::string>(2, std::string("Pkt 7: ") + message)));
}

TEST_F(MtuException, WithoutCountersOnlyTheTraceMarksIt) {
    TestSupport::RawTxCollector loopback;
    handle(frameOf(100), false);
    EXPECT_EQ(loopback.sent.size(), 1U);
    EXPECT_TRUE(traced(message));
    EXPECT_TRUE(counters->counters().empty());
}

TEST_F(MtuException, WhateverTheLengthTheCopyIsSixteenBytesLonger) {
    TestSupport::RawTxCollector loopback;
    for (const std::size_t size :
         {std::size_t{0}, std::size_t{11}, std::size_t{13}, std::size_t{14}, std::size_t{15},
          std::size_t{9018}, Lumo::Pkt::maxBytes - 16}) {
        loopback.sent.clear();
        handle(frameOf(size));
        ASSERT_EQ(loopback.sent.size(), 1U) << size;
        EXPECT_EQ(loopback.sent[0].bytes, exceptionOf(frameOf(size))) << size;
    }
}

TEST_F(MtuException, AFrameWhoseCopyNoPacketHoldsIsOnlyCounted) {
    TestSupport::RawTxCollector loopback;
    handle(frameOf(Lumo::Pkt::maxBytes - 15));
    EXPECT_TRUE(loopback.sent.empty());
    EXPECT_EQ(counted("Exceptional", message), 1U);
}

TEST_F(MtuException, EachCallMakesAPortAndGivesItBackWithThePacket) {
    TestSupport::RawTxCollector loopback;
    const std::int64_t packets = Lumo::Pkt::memAllocationTracker().objectsInUse;
    handle(frameOf(100));
    handle(frameOf(100));
    EXPECT_EQ(loopback.portsMade, 2);
    EXPECT_EQ(loopback.portsOpen, 0);
    EXPECT_EQ(Lumo::Pkt::memAllocationTracker().objectsInUse, packets);
}

TEST_F(MtuException, NothingTellsThatTheCopyWasNotSent) {
    TestSupport::RawTxCollector loopback;
    loopback.refusing = true;
    handle(frameOf(100));
    EXPECT_EQ(loopback.sent.size(), 1U);
    EXPECT_EQ(counters->counters().size(), 1U);
    EXPECT_EQ(trace.size(), 1U);
}

TEST_F(MtuException, APacketSocketOnLoopbackReceivesIt) {
    const Bytes frame = mplsFrame({{100}}, Bytes(1500 - 18, 0xab));
    const auto run = TestSupport::onOwnLoopback(exceptionEtherType, [&] {
        handle(frame);
        return std::string();
    });
    if (!run.unavailable.empty()) {
        GTEST_SKIP() << run.unavailable;
    }
    EXPECT_EQ(run.frames, std::vector<Bytes>{exceptionOf(frame)});
}

TEST_F(MtuException, TakesNothingFromTheHeapOnceWarm) {
    if (TestSupport::slabsFromHeap) {
        GTEST_SKIP() << "the address sanitizer gives every object a heap block of its own";
    }
    const auto run = TestSupport::onOwnLoopback(exceptionEtherType, [&] {
        TraceOutput::instance().textLevelOfAllIs(TraceSource::off);
        const auto context = contextOf(frameOf(1500));
        const auto mtuHandler = handler();
        mtuHandler->handle(context, east);
        const std::uint64_t before = TestSupport::heapAllocations;
        for (int i = 0; i < 20; ++i) {
            mtuHandler->handle(context, east);
        }
        return std::to_string(TestSupport::heapAllocations - before);
    });
    if (!run.unavailable.empty()) {
        GTEST_SKIP() << run.unavailable;
    }
    EXPECT_EQ(run.said, "0");
    EXPECT_EQ(run.frames.size(), 21U);
}

} // namespace MplsMtuExceptionHandlerTest
