// Which frames that are too big the MTU exception handler gets to see, and how.

#include "ForwarderTesting.h"
#include "Ovix/routing/Handlers.h"

namespace MtuExceptionTest {

using namespace OvixAgent;
using namespace OvixAgent::Testing;

namespace {

/// Keeps what it is given.
class KeepingHandler : public Ovix::MtuExceptionHandler {
  public:
    KeepingHandler() : MtuExceptionHandler("Mpls") {}
    void handle(const Ptr<Ovix::RoutingContext>& context, Lumo::IntfId egress) override {
        const auto data = context->packetContext()->pkt()->data();
        frames.emplace_back(data.begin(), data.end());
        packetIds.push_back(context->packetId());
        egresses.push_back(egress);
    }

    Frames frames;
    std::vector<std::uint64_t> packetIds;
    std::vector<Lumo::IntfId> egresses;
};

/// The east port takes packets of 100 bytes.
class MtuExceptionTest : public ForwarderFixture {
  protected:
    MtuExceptionTest() {
        manager->mtuExceptionHandlers()->handlerIs(exceptions);
        forwarder.emplace(manager, tables, cpu);
    }

    static Bytes payload(std::size_t size) {
        Ipv4 fields;
        fields.fragment = 0x4000; // DF
        return ipv4(fields, udp(1024, 9, filled(size - 28, 7)));
    }
    static Bytes labelledOf(std::size_t size) {
        return join({eth(ethMpls), stack({{100}}), payload(size - 4)});
    }
    /// As it would leave the east port with the label given instead.
    static Bytes swappedOf(std::size_t size, std::uint32_t label) {
        return join({eastHeader(ethMpls), stack({{label, 0, 63}}), payload(size - 4)});
    }
    Ptr<Ovix::RoutingNexthop> swapTo(std::uint16_t label) const {
        return withRewrite(nexthop("east", "10.0.2.2"), swapInfo(label));
    }

    Ptr<KeepingHandler> exceptions = Tessel::make<KeepingHandler>();
};

} // namespace

TEST_F(MtuExceptionTest, ALabelledFrameIsHandedOverAsItWouldHaveLeft) {
    receive(labelledOf(100), always(swapTo(300)));
    EXPECT_TRUE(exceptions->frames.empty());
    receive(labelledOf(101));
    EXPECT_EQ(exceptions->frames, Frames{swappedOf(101, 300)});
    EXPECT_EQ(exceptions->packetIds, std::vector<std::uint64_t>{2});
    EXPECT_EQ(exceptions->egresses, std::vector<Lumo::IntfId>{Lumo::IntfId("east")});
    EXPECT_EQ(out[east].frames, Frames{swappedOf(100, 300)});
    EXPECT_EQ(dropped(), (ReasonCounts{{"MTU exceeded", 1}}));
}

TEST_F(MtuExceptionTest, WithItsTags) {
    const Bytes behind = join({stack({{100}}), payload(97)});
    receive(join({eth(ethVlan), tag(0x6005, ethMpls), behind}),
            always(nexthop("east", "10.0.2.2")));
    EXPECT_EQ(exceptions->frames,
              Frames{join({eastHeader(ethVlan), tag(0x6005, ethMpls), behind})});
}

TEST_F(MtuExceptionTest, AnIpPacketIsOnlyDropped) {
    receive(labelledOf(105), always(withRewrite(nexthop("east", "10.0.2.2"), popInfo())));
    EXPECT_TRUE(exceptions->frames.empty());
    EXPECT_EQ(dropped(), (ReasonCounts{{"MTU exceeded", 1}}));
}

TEST_F(MtuExceptionTest, EachReplicaThatIsTooBigIsHandedOver) {
    receive(labelledOf(101), [&](const auto&, Ovix::RoutingNexthops& nexthops) {
        nexthops.nexthopEnq(swapTo(300));
        nexthops.nexthopEnq(nexthop("west", "10.0.1.2"));
        nexthops.nexthopEnq(swapTo(301));
    });
    EXPECT_EQ(exceptions->frames, (Frames{swappedOf(101, 300), swappedOf(101, 301)}));
    EXPECT_EQ(out[west].frames.size(), 1U);
    EXPECT_EQ(dropped(), (ReasonCounts{{"MTU exceeded", 2}}));
}

TEST_F(MtuExceptionTest, AFrameWithoutRoomForALinkHeaderIsOnlyDropped) {
    const Bytes longest = join({eth(ethMpls), stack({{100}}), filled(Lumo::Pkt::maxBytes - 18, 0)});
    auto tagged = nexthop("east", "10.0.2.2");
    tagged->vlanIdIs(7);
    receive(longest, always(tagged));
    EXPECT_TRUE(exceptions->frames.empty());
    EXPECT_EQ(dropped(), (ReasonCounts{{"MTU exceeded", 1}}));
}

TEST_F(MtuExceptionTest, WithoutAHandlerTheFrameIsDroppedAllTheSame) {
    manager = Tessel::make<Ovix::PluginManager>();
    manager->routingHandlers()->handlerIs(handler);
    forwarder.emplace(manager, tables, cpu);
    receive(labelledOf(101), always(nexthop("east", "10.0.2.2")));
    EXPECT_EQ(dropped(), (ReasonCounts{{"MTU exceeded", 1}}));
}

} // namespace MtuExceptionTest
