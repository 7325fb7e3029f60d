// Rewrites and counter actions on the way out.

#include "ForwarderTesting.h"
#include "Ovix/rewrite/RewriteImpl.h"

namespace ForwarderRewriteTest {

using namespace OvixAgent;
using namespace OvixAgent::Testing;

namespace {

class StrangeInfo : public Ovix::RewriteInfo {
  public:
    static constexpr Tessel::TypeName infoTypeName{"Strange"};
    const Tessel::TypeName& typeName() const noexcept override { return infoTypeName; }
};

class TestCounterInfo : public Ovix::CounterActionInfo {
  public:
    static constexpr Tessel::TypeName infoTypeName{"TestCounter"};
    const Tessel::TypeName& typeName() const noexcept override { return infoTypeName; }
};

std::vector<std::size_t> countedSizes;

/// Notes how long the packet is when it is counted.
class TestCounterImpl : public Ovix::CounterActionImpl {
  public:
    std::string_view name() const noexcept override { return "TestCounterImpl"; }
    void apply(const Ptr<Ovix::RoutingContext>& context) override {
        countedSizes.push_back(context->packetContext()->pkt()->bytes());
    }
    static Ptr<Ovix::CounterActionImpl> fromInfo(const Ptr<Ovix::CounterActionInfo>&) {
        return Tessel::make<TestCounterImpl>();
    }
};

class ForwarderRewriteTest : public ForwarderFixture {
  protected:
    ForwarderRewriteTest() {
        countedSizes.clear();
        manager->sharedObjects()->rewriteInfoImplMap()->counterMapIs("TestCounter",
                                                                     TestCounterImpl::fromInfo);
    }

    static Ptr<Ovix::RoutingNexthop> counting(Ptr<Ovix::RoutingNexthop> to) {
        to->rewriteInfos().finalCounterActionInfoEnq(Tessel::make<TestCounterInfo>());
        return to;
    }
};

} // namespace

TEST_F(ForwarderRewriteTest, RewritesAreAppliedInTheirOrder) {
    auto to = withRewrite(nexthop("east", "10.0.2.2"), popInfo());
    receive(labelled({{100, 0, 50}, {200, 0, 90}}), always(withRewrite(to, swapInfo(300))));
    EXPECT_EQ(out[east].frames,
              Frames{join({eastHeader(ethMpls), stack({{300, 0, 49}}), packet()})});
}

TEST_F(ForwarderRewriteTest, TheEtherTypeFollowsWhatIsLeft) {
    const Bytes packet6 = ipv6({}, udp());
    receive(labelled(), always(withRewrite(nexthop("east", "10.0.2.2"), popInfo())));
    receive(join({eth(ethMpls), stack({{100}}), packet6}));
    receive(labelled({{100}, {200}}));
    ASSERT_EQ(out[east].frames.size(), 3U);
    const std::uint16_t types[]{ethIpv4, ethIpv6, ethMpls};
    for (std::size_t i = 0; i < 3; ++i) {
        const Bytes& frame = out[east].frames[i];
        EXPECT_EQ(Bytes(frame.begin(), frame.begin() + 14), eastHeader(types[i]));
    }
}

TEST_F(ForwarderRewriteTest, ARewriteThatNoPluginAppliesDropsTheFrame) {
    receive(labelled(),
            always(withRewrite(nexthop("east", "10.0.2.2"), Tessel::make<StrangeInfo>())));
    EXPECT_EQ(dropped(), (ReasonCounts{{"No plugin applies the rewrite", 1}}));
}

TEST_F(ForwarderRewriteTest, ARewriteThatCannotBeAppliedDropsTheFrameForItsReason) {
    auto twoPops = withRewrite(nexthop("east", "10.0.2.2"), popInfo());
    receive(labelled(), always(withRewrite(twoPops, popInfo())));
    const auto context = Tessel::make<Ovix::RoutingContext>(
        1U,
        Tessel::make<Ovix::PacketContext>(Lumo::globalPktManager()->newPkt(packet()),
                                          Ovix::PktHdrType::ipv4),
        nullptr);
    const auto failed = Ovix::MplsPopRewriteImpl::fromInfo(popInfo())->apply(context);
    ASSERT_TRUE(failed);
    EXPECT_EQ(dropped(), (ReasonCounts{{std::string(failed->reason()), 1}}));
}

TEST_F(ForwarderRewriteTest, WhatIsSentIsCountedWithItsLinkHeader) {
    receive(labelled(), always(counting(nexthop("east", "10.0.2.2"))));
    EXPECT_EQ(countedSizes, std::vector{labelled().size()});
}

TEST_F(ForwarderRewriteTest, WhatIsNotSentIsNotCounted) {
    const Ptr<Ovix::RoutingNexthop> unsent[]{
        counting(nexthop("dark", "10.0.3.2")),
        counting(nexthop("east", "10.0.2.9")),
        counting(nexthop("", "10.0.1.1")),
        counting(cpuTrap()),
        counting(withRewrite(nexthop("east", "10.0.2.2"), Tessel::make<StrangeInfo>())),
    };
    for (const auto& to : unsent) {
        receive(labelled(), always(to));
    }
    auto small = counting(nexthop("east", "10.0.2.2"));
    small->mtuIs(10);
    receive(labelled(), always(small));
    EXPECT_TRUE(countedSizes.empty());
    EXPECT_EQ(summary().forwardedTotal().frames, 0U);
}

} // namespace ForwarderRewriteTest
