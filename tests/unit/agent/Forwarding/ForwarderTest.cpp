// What becomes of a frame: forwarded, punted, dropped or handed on, each exactly once.

#include "Forwarding/Forwarder.h"

#include "ForwarderTesting.h"
#include "State/Frame.h"
#include "Tessel/Exceptions.h"

namespace ForwarderTest {

using namespace OvixAgent;
using namespace OvixAgent::Testing;

namespace {

using ForwarderTest = ForwarderFixture;

void noNexthop(const Ptr<Ovix::RoutingContext>&, Ovix::RoutingNexthops&) {}

class FullPort : public TransmitPort {
  public:
    void transmit(const Frame&) override { throw CaptureError("east.pcap: no space"); }
};

} // namespace

TEST_F(ForwarderTest, AFrameIsRewrittenGivenALinkHeaderAndSentWithItsTime) {
    receive(labelled(), always(withRewrite(nexthop("east", "10.0.2.2"), swapInfo(300))));
    EXPECT_EQ(out[east].frames,
              Frames{join({eastHeader(ethMpls), stack({{300, 0, 63}}), packet()})});
    EXPECT_EQ(out[east].times, (std::vector<CaptureTime>{{1, 2}}));
    const Summary counted = summary();
    EXPECT_EQ(counted.in, (Traffic{1, labelled().size()}));
    EXPECT_EQ(counted.forwarded.at(east).port, "east");
    EXPECT_EQ(counted.forwarded.at(east).traffic, (Traffic{1, labelled().size()}));
    EXPECT_EQ(counted.forwardedTotal().frames, 1U);
}

TEST_F(ForwarderTest, WhatAlertsRoutersLeavesUnderARouterAlertLabel) {
    handler->decide = always(withRewrite(nexthop("east", "10.0.2.2"), swapInfo(300)));
    const auto sendOf = [&](const Bytes& frame) {
        forwarder->receive({west, {}, frame, static_cast<std::uint32_t>(frame.size()), true, true});
        return out[east].frames;
    };
    EXPECT_EQ(sendOf(labelled({{100, 5, 64}})),
              Frames{join({eastHeader(ethMpls), stack({{1, 5, 63}, {300, 5, 63}}), packet()})});
    handler->decide = always(withRewrite(nexthop("east", "10.0.2.2"), popInfo()));
    EXPECT_EQ(sendOf(labelled()).back()[13], 0); // IPv4: there is no label to be above
    out[east].frames.clear();
    handler->decide = always(withRewrite(nexthop("east", "10.0.2.2"), swapInfo(300)));
    const Bytes longest = join({eth(ethMpls), stack({{100}}), filled(96, 0)});
    EXPECT_TRUE(sendOf(longest).empty());
    EXPECT_EQ(dropped(), (ReasonCounts{{"MTU exceeded", 1}}));
}

TEST_F(ForwarderTest, AFrameForWhichTheTablesMustBeRefreshedIsCountedOnceTakenAgain) {
    const Decide onward = always(withRewrite(nexthop("east", "10.0.2.2"), swapInfo(300)));
    EXPECT_THROW(receive(labelled(),
                         [](const Ptr<Ovix::RoutingContext>& context, const auto&) {
                             context->namedCounters()->count("Drop", "Routing::Mpls", "first try");
                             throw Tessel::SnapshotLost("replaced");
                         }),
                 Tessel::SnapshotLost);
    EXPECT_TRUE(summary().counters.empty());
    EXPECT_EQ(summary().in, Traffic());
    EXPECT_TRUE(out[east].frames.empty());
    receive(labelled(), onward);
    EXPECT_EQ(out[east].frames.size(), 1U);
    EXPECT_EQ(summary().in, (Traffic{1, labelled().size()}));
    EXPECT_EQ(summary().forwardedTotal().frames, 1U);
    EXPECT_EQ(summary().dropped.total(), 0U);
}

TEST_F(ForwarderTest, ANeighboursLabelsAreNotLookedUpUnlessThePortSaysSo) {
    const Bytes frame = join({eth(ethMplsUpstream), stack({{100}}), packet()});
    const Bytes tagged = join({eth(ethVlan), tag(5, ethMplsUpstream), stack({{100}}), packet()});
    int routed = 0;
    const Decide note = [&](const auto&, Ovix::RoutingNexthops& nexthops) {
        ++routed;
        nexthops.nexthopEnq(cpuTrap());
    };
    receive(frame, note);
    receive(tagged, note);
    EXPECT_EQ(routed, 0);
    EXPECT_EQ(dropped(),
              (ReasonCounts{{"Upstream-assigned label at a port without a context", 2}}));
    ports.ports()[west].upstreamLabels = true;
    receive(frame, note);
    receive(tagged, note);
    EXPECT_EQ(routed, 2);
}

TEST_F(ForwarderTest, OnlyLabelsOfTreesLeadOnFromFramesToGroups) {
    const auto replica = [] {
        auto made = nexthop("east", "10.0.2.2");
        made->isReplicaIs(true);
        return made;
    };
    const std::vector<Bytes> groups{{0xff, 0xff, 0xff, 0xff, 0xff, 0xff},
                                    {1, 0, 0x5e, 0x80, 0, 100}};
    const std::vector<Bytes> links{eth(ethMpls), join({eth(ethVlan), tag(5, ethMpls)}),
                                   join({eth(ethServiceVlan), tag(5, ethVlan), tag(6, ethMpls)})};
    for (const Bytes& link : links) {
        for (const Bytes& group : groups) {
            Bytes frame = join({link, stack({{100}}), packet()});
            std::copy(group.begin(), group.end(), frame.begin());
            receive(frame, always(withRewrite(nexthop("east", "10.0.2.2"), popInfo())));
            EXPECT_TRUE(out[east].frames.empty());
            receive(frame, always(withRewrite(replica(), popInfo())));
            EXPECT_EQ(out[east].frames.size(), 1U);
            out[east].frames.clear();
        }
        receive(join({link, stack({{100}}), packet()}),
                always(withRewrite(nexthop("east", "10.0.2.2"), popInfo())));
        EXPECT_EQ(out[east].frames.size(), 1U);
        out[east].frames.clear();
    }
    EXPECT_EQ(dropped(), (ReasonCounts{{"Unicast label in a frame to a group of stations", 6}}));
}

TEST_F(ForwarderTest, BothMplsEtherTypesGoToTheHandlerAndNothingElseDoes) {
    ports.ports()[west].upstreamLabels = true;
    const struct {
        const char* what;
        Bytes frame;
        bool routed;
    } cases[]{
        {"downstream-assigned labels", labelled(), true},
        {"upstream-assigned labels", join({eth(ethMplsUpstream), stack({{100}}), packet()}), true},
        {"behind a tag", join({eth(ethVlan), tag(5, ethMpls), stack({{100}}), packet()}), true},
        {"no whole label", join({eth(ethMpls), {0, 0}}), true},
        {"IPv4", join({eth(ethIpv4), packet()}), false},
        {"IPv4 behind a tag", join({eth(ethVlan), tag(5, ethIpv4), packet()}), false},
        {"ARP", join({eth(0x0806), filled(28, 0)}), false},
        {"a tag cut short", join({eth(ethVlan), {0}}), false},
        {"nothing behind the header", eth(ethIpv4), false},
    };
    for (const auto& given : cases) {
        bool routed = false;
        receive(given.frame, [&](const auto&, auto&) { routed = true; });
        EXPECT_EQ(routed, given.routed) << given.what;
    }
    EXPECT_EQ(summary().handedOn.counts(),
              (ReasonCounts{{"Not MPLS", 4}, {"VLAN tags cut short, or more than three", 1}}));
    EXPECT_EQ(summary().dropped.total(), 4U);
}

TEST_F(ForwarderTest, AFrameShorterThanItsLinkHeaderIsDropped) {
    receive(filled(13, 0), noNexthop);
    receive({}, noNexthop);
    EXPECT_EQ(dropped(), (ReasonCounts{{"Shorter than an Ethernet header", 2}}));
}

TEST_F(ForwarderTest, WithoutAHandlerMplsIsDropped) {
    Forwarder alone(Tessel::make<Ovix::PluginManager>(), tables, cpu);
    const Bytes frame = labelled();
    alone.receive({west, {}, frame, static_cast<std::uint32_t>(frame.size())});
    Summary counted;
    alone.addTo(counted);
    EXPECT_EQ(counted.dropped.counts(), (ReasonCounts{{"No routing handler for MPLS", 1}}));
}

TEST_F(ForwarderTest, WithoutANextHopTheReasonIsWhatWasCountedLastForTheFrame) {
    receive(labelled(), [](const Ptr<Ovix::RoutingContext>& context, auto&) {
        context->namedCounters()->count("Drop", "Routing::Mpls", "first");
        context->namedCounters()->count("Drop", "Routing::Mpls", "second");
    });
    receive(labelled(), noNexthop);
    EXPECT_EQ(dropped(), (ReasonCounts{{"second", 1}, {"No next hop", 1}}));
    EXPECT_EQ(summary().counters.size(), 2U);
}

TEST_F(ForwarderTest, ATrappedFrameReachesTheCpuAsReceived) {
    const Bytes frame = join({eth(ethVlan), tag(5, ethMpls), stack({{100}}), packet()});
    receive(frame, always(withRewrite(cpuTrap(), popInfo())));
    receive(frame, [](const Ptr<Ovix::RoutingContext>& context, Ovix::RoutingNexthops& nexthops) {
        context->namedCounters()->count("Action", "Routing::Mpls", "MPLS Oam packet");
        nexthops.nexthopEnq(cpuTrap());
    });
    EXPECT_EQ(cpu.frames, (Frames{frame, frame}));
    EXPECT_EQ(summary().punted.counts(),
              (ReasonCounts{{"Trapped to the CPU", 1}, {"MPLS Oam packet", 1}}));
}

TEST_F(ForwarderTest, AnExceptionDropsTheFrameForItsTextAndNotTheNextOne) {
    receive(labelled(), [](const auto&, auto&) { throw Tessel::RangeError("too deep"); });
    receive(labelled(), always(nexthop("east", "10.0.2.2")));
    EXPECT_EQ(dropped(), (ReasonCounts{{"too deep", 1}}));
    EXPECT_EQ(summary().forwardedTotal().frames, 1U);
}

TEST_F(ForwarderTest, AFrameTooLongForAPacketIsDroppedAndNotTheNextOne) {
    receive(join({labelled(), filled(70000, 0)}), always(nexthop("east", "10.0.2.2")));
    receive(labelled());
    EXPECT_EQ(summary().dropped.total(), 1U);
    EXPECT_EQ(summary().forwardedTotal().frames, 1U);
}

TEST_F(ForwarderTest, AnOutputThatCannotBeWrittenIsNoDrop) {
    FullPort full;
    ports.ports()[east].out = &full;
    EXPECT_THROW(receive(labelled(), always(nexthop("east", "10.0.2.2"))), CaptureError);
    Summary counted;
    forwarder->addTo(counted);
    EXPECT_EQ(counted.dropped.total(), 0U);
}

TEST_F(ForwarderTest, TheHandlerIsToldTheFrameNumberAndWhereItCameIn) {
    std::vector<std::uint64_t> numbers;
    const auto note = [&](const Ptr<Ovix::RoutingContext>& context, auto&) {
        numbers.push_back(context->packetId());
        EXPECT_EQ(context->ingressIntfId(), Lumo::IntfId("west"));
        EXPECT_EQ(context->namedCounters(), forwarder->namedCounters());
    };
    receive(labelled(), note);
    receive(join({eth(ethIpv4), packet()}), note);
    receive(labelled(), note);
    EXPECT_EQ(numbers, (std::vector<std::uint64_t>{1, 3}));
}

} // namespace ForwarderTest
