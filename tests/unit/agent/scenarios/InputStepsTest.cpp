// Input pipeline steps: before routing, for every frame, and what the frame becomes by them.

#include "ForwarderTesting.h"

namespace InputStepsTest {

using namespace OvixAgent;
using namespace OvixAgent::Testing;
using Kind = Ovix::InputVerdict::Kind;

namespace {

/// Does as the test says.
class ScriptedStep : public Ovix::InputPipelineStep {
  public:
    using Script = std::function<Ovix::InputVerdict(Ovix::PacketContext&)>;

    ScriptedStep(std::string_view name, Script script)
        : InputPipelineStep(name), script_(std::move(script)) {}
    Ovix::InputVerdict process(const Ptr<Ovix::PacketContext>& context) override {
        return script_(*context);
    }

  private:
    Script script_;
};

class InputStepsTest : public ForwarderFixture {
  protected:
    void stepIs(ScriptedStep::Script script, std::string_view name = "Test") const {
        manager->genericPipelineSteps()->addStep(
            Tessel::make<ScriptedStep>(name, std::move(script)));
    }
    /// Puts a frame in the place of every frame.
    static ScriptedStep::Script replacing(const Bytes& with) {
        return [with](Ovix::PacketContext& context) {
            context.replacePacket(Lumo::globalPktManager()->newPkt(with),
                                  Ovix::PktCtxParse::reparse);
            return Ovix::InputVerdict{Kind::modified, ""};
        };
    }
    static ScriptedStep::Script answering(Kind kind, const char* reason = "") {
        return [=](Ovix::PacketContext&) { return Ovix::InputVerdict{kind, reason}; };
    }
    Ptr<Ovix::Port> port(Lumo::IntfId intf) const { return manager->ports()->port(intf); }
};

} // namespace

TEST_F(InputStepsTest, SeeEveryFrameAsItCameIn) {
    Frames seen;
    std::vector<std::uint64_t> ids;
    stepIs([&](Ovix::PacketContext& context) {
        seen.emplace_back(context.pkt()->data().begin(), context.pkt()->data().end());
        ids.push_back(context.packetId());
        EXPECT_EQ(context.namedCounters(), forwarder->namedCounters().get());
        return Ovix::InputVerdict{};
    });
    const Frames sent{labelled(), {1, 2, 3}, {}, join({eth(0x0806), filled(46, 0)})};
    for (const Bytes& frame : sent) {
        receive(frame, always(nexthop("east", "10.0.2.2")));
    }
    EXPECT_EQ(seen, sent);
    EXPECT_EQ(ids, (std::vector<std::uint64_t>{1, 2, 3, 4}));
    const Summary counted = summary();
    EXPECT_EQ(counted.dropped.counts(), (ReasonCounts{{"Shorter than an Ethernet header", 2}}));
    EXPECT_EQ(counted.forwardedTotal().frames, 1U);
}

TEST_F(InputStepsTest, AModifiedPacketIsWhatIsRouted) {
    const Bytes modified = join({eth(ethVlan), tag(100, ethMpls), stack({{200}}), packet()});
    stepIs(replacing(modified));
    receive(labelled(), [](const auto& context, Ovix::RoutingNexthops& nexthops) {
        const auto mpls = context->packetContext()->parsedPkt().header(2);
        ASSERT_TRUE(mpls);
        EXPECT_EQ((*Ovix::mplsHeaderData(*mpls)->begin()).label().value(), 200U);
        nexthops.nexthopEnq(nexthop("east", "10.0.2.2"));
    });
    EXPECT_EQ(out[east].frames,
              Frames{join({eastHeader(ethVlan), tag(100, ethMpls), stack({{200}}), packet()})});
}

TEST_F(InputStepsTest, AModifiedPacketIsWhatTheCpuGetsAndWhatIsCopied) {
    const Bytes modified = labelled({{200}});
    stepIs(replacing(modified));
    const auto toEast = [] { return withRewrite(nexthop("east", "10.0.2.2"), swapInfo(300)); };
    receive(labelled(), [&](const auto&, Ovix::RoutingNexthops& nexthops) {
        nexthops.nexthopEnq(toEast());
        nexthops.nexthopEnq(toEast());
        nexthops.nexthopEnq(cpuTrap());
    });
    const Bytes swapped = join({eastHeader(ethMpls), stack({{300, 0, 63}}), packet()});
    EXPECT_EQ(out[east].frames, (Frames{swapped, swapped}));
    EXPECT_EQ(cpu.frames, Frames{modified});
}

TEST_F(InputStepsTest, ARefusedFrameIsDroppedForTheStepsReason) {
    stepIs(answering(Kind::refused, "Not today"));
    bool later = false;
    stepIs(
        [&](Ovix::PacketContext&) {
            later = true;
            return Ovix::InputVerdict{};
        },
        "Later");
    receive(labelled(), always(nexthop("east", "10.0.2.2")));
    EXPECT_EQ(dropped(), (ReasonCounts{{"Not today", 1}}));
    EXPECT_FALSE(later);
    EXPECT_TRUE(out[east].frames.empty());
}

TEST_F(InputStepsTest, WhatAStepSendsItselfIsForwardedOnce) {
    stepIs([this](Ovix::PacketContext& context) {
        return Ovix::InputVerdict{port(Lumo::IntfId("east"))->send(context.pkt()) ? Kind::sent
                                                                                  : Kind::refused,
                                  "not sent"};
    });
    receive(labelled(), always(nexthop("plain", "10.0.4.2")));
    EXPECT_EQ(out[east].frames, Frames{labelled()});
    EXPECT_EQ(out[east].times, (std::vector<CaptureTime>{{1, 2}}));
    EXPECT_TRUE(out[plain].frames.empty());
    EXPECT_EQ(summary().forwardedTotal().frames, 1U);
}

TEST_F(InputStepsTest, PortsRefuseWhatTheyCannotSend) {
    const auto to = [&](const char* name, const Bytes& frame) {
        return port(Lumo::IntfId(name))->send(Lumo::globalPktManager()->newPkt(frame));
    };
    stepIs([&](Ovix::PacketContext&) {
        EXPECT_TRUE(to("east", join({eth(ethMpls), filled(100, 0)}))); // the MTU is 100
        EXPECT_FALSE(to("east", join({eth(ethMpls), filled(101, 0)})));
        EXPECT_TRUE(to("east", join({eth(ethVlan), tag(9, ethMpls), filled(100, 0)})));
        EXPECT_FALSE(to("east", join({eth(ethVlan), tag(9, ethMpls), filled(101, 0)})));
        const Bytes twoTags =
            join({eth(ethServiceVlan), tag(9, ethLegacyVlan), tag(8, ethMpls), filled(100, 0)});
        EXPECT_TRUE(to("east", twoTags));
        EXPECT_FALSE(to("east", join({twoTags, {0}})));
        EXPECT_FALSE(to("dark", labelled()));
        EXPECT_FALSE(port(Lumo::IntfId("nowhere")));
        EXPECT_EQ(port(Lumo::IntfId("east"))->shortName(), "east");
        EXPECT_EQ(port(Lumo::CpuIntfId::cpuIdToIntfId(0))->shortName(), "cpu");
        return Ovix::InputVerdict{Kind::refused, "enough"};
    });
    receive(labelled());
    EXPECT_EQ(out[east].frames.size(), 3U);
    EXPECT_TRUE(out[dark].frames.empty());
}

namespace {

/// The manager is not kept alive: it owns the handler that owns this.
Decide handing(const Ptr<Ovix::PluginManager>& manager, int copies, const Decide& then) {
    return [ports = manager->ports().get(), copies, then](const auto& context,
                                                          Ovix::RoutingNexthops& nexthops) {
        for (int i = 0; i < copies; ++i) {
            ports->port(Lumo::CpuIntfId::cpuIdToIntfId(0))
                ->send(Lumo::globalPktManager()->newPkt(filled(60, 1)));
        }
        then(context, nexthops);
    };
}

} // namespace

TEST_F(InputStepsTest, WhatThePluginHandsToTheCpuIsACopyOfTheFrame) {
    const Decide nowhere = [](const auto&, Ovix::RoutingNexthops&) {};
    const Decide onward = always(nexthop("east", "10.0.2.2"));
    const struct {
        int copies;
        const Decide& then;
        std::size_t replicas;
        std::size_t forwardedFrames;
    } rows[] = {{1, nowhere, 0, 0}, {2, nowhere, 1, 0}, {1, onward, 1, 1}, {2, onward, 2, 1}};
    std::size_t replicas = 0;
    std::size_t punted = 0;
    std::size_t sent = 0;
    for (const auto& row : rows) {
        receive(labelled(), handing(manager, row.copies, row.then));
        replicas += row.replicas;
        punted += static_cast<std::size_t>(row.copies);
        sent += row.forwardedFrames;
        const Summary counted = summary(); // balanced
        EXPECT_EQ(counted.replicas, replicas);
        EXPECT_EQ(counted.punted.counts(),
                  (ReasonCounts{{"Multicast delivered to the CPU", punted}}));
        EXPECT_EQ(counted.forwardedTotal().frames, sent);
    }
    EXPECT_EQ(cpu.frames, Frames(6, filled(60, 1)));
}

TEST_F(InputStepsTest, AReplicaWithoutAnAddressGoesToTheGroup) {
    const auto to = [](const char* name, Ptr<Ovix::RewriteInfo> info) {
        auto made = withRewrite(nexthop(name, ""), std::move(info));
        made->addressIs({});
        made->isReplicaIs(true);
        return made;
    };
    receive(labelled(), [&](const auto&, Ovix::RoutingNexthops& nexthops) {
        nexthops.nexthopEnq(to("east", swapInfo(300)));
        nexthops.nexthopEnq(to("plain", swapInfo(301)));
    });
    const Bytes eastMac{1, 0, 0x5e, 0x80, 1, 0x2c, 2, 0, 0, 0, 0, 2};
    ASSERT_EQ(out[east].frames.size(), 1U);
    EXPECT_EQ(out[east].frames[0], join({eastMac, u16(ethMpls), stack({{300, 0, 63}}), packet()}));
    ASSERT_EQ(out[plain].frames.size(), 1U);
    EXPECT_EQ(Bytes(out[plain].frames[0].begin(), out[plain].frames[0].begin() + 6),
              (Bytes{1, 0, 0x5e, 0x80, 1, 0x2d}));
}

} // namespace InputStepsTest
