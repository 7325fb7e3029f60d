// Labels that end at this router above others: the rest of the stack is routed again, as the same
// frame.

#include "ForwarderTesting.h"
#include "HeapCount.h"
#include "Ovix/rewrite/MplsRewriteHelper.h"

namespace TerminatedLabelsTest {

using namespace OvixAgent;
using namespace OvixAgent::Testing;
using Mpls::TtlMode;

namespace {

/// Labels 100 to 149 end here in pipe mode, 150 to 199 in uniform mode; 200 is swapped for 300 and
/// sent to each of `nexthops`; for others nothing is found.
class LabelByLabel : public Ovix::RoutingHandler {
  public:
    LabelByLabel() : RoutingHandler("Mpls") {}

    void processPacket(const Ptr<Ovix::RoutingOutput>& output,
                       const Ptr<Ovix::RoutingContext>& context,
                       const Ptr<Ovix::PacketHeader>& header,
                       const Ptr<Ovix::RoutingVrfRoot>&) override {
        Ovix::PacketContext& packet = *context->packetContext();
        ++passes;
        ids.push_back(context->packetId());
        hashes.push_back(packet.hash());
        EXPECT_EQ(packet.pkt()->bytes(), frameBytes);
        EXPECT_EQ(header->bytes().size(), Ovix::mplsHeaderData(*header)->entries() * 4);
        const Lumo::MplsLabelEntry top = *Ovix::mplsHeaderData(*header)->begin();
        const std::uint32_t label = top.label().value();
        if (label == 200) {
            for (const auto& one : nexthops) {
                output->nexthops()->nexthopEnq(one);
            }
        } else if (label < 200) {
            Ovix::MplsRewriteHelper::createMplsPopRewrite(
                context, top, packet.parsedPkt().header(header->position() + 1),
                Mpls::PayloadType::none, label < 150 ? TtlMode::pipe : TtlMode::uniform, top.bos());
            if (!eventAfterPop.empty()) {
                context->namedCounters()->count("Drop", "Routing::Mpls", eventAfterPop);
            }
        }
    }

    static Ptr<Ovix::RoutingNexthop> swapped() {
        return withRewrite(nexthop("east", "10.0.2.2"), swapInfo(300));
    }

    std::vector<Ptr<Ovix::RoutingNexthop>> nexthops{swapped()};
    std::string eventAfterPop;
    std::size_t frameBytes = 0;
    int passes = 0;
    std::vector<std::uint64_t> ids;
    std::vector<std::uint32_t> hashes;
};

class TerminatedLabels : public ForwarderFixture {
  protected:
    TerminatedLabels() {
        manager->routingHandlers()->handlerIs(byLabel);
        forwarder.emplace(manager, tables, cpu);
    }

    void receive(const Bytes& frame) {
        byLabel->frameBytes = frame.size();
        ForwarderFixture::receive(frame);
    }
    static Bytes leaving(std::uint8_t ttl) {
        return join({eastHeader(ethMpls), stack({{300, 0, ttl}}), packet()});
    }

    Ptr<LabelByLabel> byLabel = Tessel::make<LabelByLabel>();
};

constexpr const char* nothingBeneath = "No next hop beneath a terminated label";

} // namespace

TEST_F(TerminatedLabels, TheRestIsRoutedAgainAsTheSameFrame) {
    receive(labelled({{100}, {101}, {102}, {103}, {104}, {200, 0, 50}}));
    EXPECT_EQ(out[east].frames, Frames{leaving(49)});
    EXPECT_EQ(byLabel->passes, 6);
    EXPECT_EQ(byLabel->ids, std::vector<std::uint64_t>(6, 1));
    EXPECT_EQ(byLabel->hashes, std::vector<std::uint32_t>(6, byLabel->hashes.front()));
    const Summary counted = summary();
    EXPECT_EQ(counted.in.frames, 1U);
    EXPECT_EQ(counted.forwardedTotal().frames, 1U);
    EXPECT_EQ(counted.replicas, 0U);
}

TEST_F(TerminatedLabels, OneTtlIsTakenByTheModesOfTheLabels) {
    const struct {
        const char* what;
        std::vector<Entry> entries;
        std::uint8_t ttl;
    } rows[]{
        {"pipe", {{100, 0, 9}, {200, 0, 50}}, 49},
        {"pipe, pipe", {{100, 0, 9}, {101, 0, 7}, {200, 0, 50}}, 49},
        {"uniform", {{150, 0, 20}, {200, 0, 50}}, 19},
        {"uniform, uniform", {{150, 0, 20}, {151, 0, 90}, {200, 0, 50}}, 19},
        {"pipe over uniform", {{100, 0, 9}, {150, 0, 30}, {200, 0, 50}}, 29},
        {"uniform over pipe", {{150, 0, 20}, {100, 0, 30}, {200, 0, 50}}, 49},
    };
    for (const auto& row : rows) {
        out[east].frames.clear();
        receive(labelled(row.entries));
        EXPECT_EQ(out[east].frames, Frames{leaving(row.ttl)}) << row.what;
    }
}

TEST_F(TerminatedLabels, ATrappedFrameReachesTheCpuAsReceived) {
    byLabel->nexthops = {cpuTrap()};
    const Bytes frame = labelled({{100}, {101}, {200}});
    receive(frame);
    EXPECT_EQ(cpu.frames, Frames{frame});
    EXPECT_EQ(summary().punted.total(), 1U);
}

TEST_F(TerminatedLabels, EveryCopyLosesThem) {
    byLabel->nexthops = {LabelByLabel::swapped(), LabelByLabel::swapped()};
    receive(labelled({{100}, {200, 0, 50}}));
    EXPECT_EQ(out[east].frames, (Frames{leaving(49), leaving(49)}));
    EXPECT_EQ(summary().replicas, 1U);
}

TEST_F(TerminatedLabels, WhatIsLeftWithoutANextHopIsDroppedForAReasonOfItsOwn) {
    receive(labelled({{100}, {999}}));
    receive(labelled({{999}}));
    EXPECT_EQ(dropped(), (ReasonCounts{{nothingBeneath, 1}, {"No next hop", 1}}));
}

TEST_F(TerminatedLabels, ADropAfterThePopEndsTheFrame) {
    byLabel->eventAfterPop = "no rewrite";
    receive(labelled({{100}, {200}}));
    EXPECT_EQ(byLabel->passes, 1);
    EXPECT_EQ(dropped(), (ReasonCounts{{"no rewrite", 1}}));
}

TEST_F(TerminatedLabels, AStackWithoutABottomTakesNoMorePassesThanItHasLabels) {
    const Bytes frame = join({eth(ethMpls), entry({100}, false), entry({101}, false)});
    receive(frame);
    EXPECT_EQ(byLabel->passes, 2);
    EXPECT_EQ(dropped(), (ReasonCounts{{nothingBeneath, 1}}));
}

TEST_F(TerminatedLabels, NothingIsTakenFromTheHeap) {
    if (TestSupport::slabsFromHeap) {
        GTEST_SKIP();
    }
    class NullPort : public TransmitPort {
      public:
        void transmit(const Frame&) override {}
    } nowhere;
    ports.ports()[east].out = &nowhere;
    const Bytes frame = labelled({{100}, {101}, {102}, {103}, {104}, {200}});
    receive(frame);
    byLabel->ids.reserve(1000);
    byLabel->hashes.reserve(1000);
    const std::uint64_t warm = TestSupport::heapAllocations;
    for (int i = 0; i < 100; ++i) {
        receive(frame);
    }
    EXPECT_EQ(TestSupport::heapAllocations, warm);
}

} // namespace TerminatedLabelsTest
