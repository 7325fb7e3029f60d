// Several next hops: a copy for each, of which all but one are replicas.

#include "ForwarderTesting.h"

namespace ReplicationTest {

using namespace OvixAgent;
using namespace OvixAgent::Testing;

namespace {

using ReplicationTest = ForwarderFixture;

Decide toAll(std::vector<Ptr<Ovix::RoutingNexthop>> list) {
    return [list = std::move(list)](const auto&, Ovix::RoutingNexthops& nexthops) {
        for (const auto& to : list) {
            nexthops.nexthopEnq(to);
        }
    };
}

} // namespace

TEST_F(ReplicationTest, EveryCopyIsRewrittenOnItsOwn) {
    receive(labelled(), toAll({withRewrite(nexthop("east", "10.0.2.2"), swapInfo(300)),
                               withRewrite(nexthop("east", "10.0.2.2"), popInfo()),
                               nexthop("east", "10.0.2.2")}));
    Ipv4 aged;
    aged.destination = 0x0a000202;
    aged.ttl = 63;
    EXPECT_EQ(out[east].frames,
              (Frames{join({eastHeader(ethMpls), stack({{300, 0, 63}}), packet()}),
                      join({eastHeader(ethIpv4), ipv4(aged, udp())}),
                      join({eastHeader(ethMpls), stack({{100}}), packet()})}));
    const Summary counted = summary();
    EXPECT_EQ(counted.in.frames, 1U);
    EXPECT_EQ(counted.replicas, 2U);
    EXPECT_EQ(counted.forwardedTotal().frames, 3U);
}

TEST_F(ReplicationTest, ACopyThatCannotBeSentKeepsNoOtherBack) {
    receive(labelled(), toAll({nexthop("east", "10.0.2.9"), nexthop("east", "10.0.2.2"),
                               nexthop("dark", "10.0.3.2")}));
    EXPECT_EQ(out[east].frames.size(), 1U);
    EXPECT_EQ(dropped(),
              (ReasonCounts{{"No neighbour for the next hop", 1}, {"Egress port is down", 1}}));
    EXPECT_EQ(summary().replicas, 2U);
}

TEST_F(ReplicationTest, ACopyForTheCpuGoesThereWhereverItStandsInTheList) {
    receive(labelled(), toAll({nexthop("east", "10.0.2.2"), cpuTrap()}));
    receive(labelled(), toAll({cpuTrap(), nexthop("east", "10.0.2.2")}));
    EXPECT_EQ(cpu.frames, (Frames{labelled(), labelled()}));
    EXPECT_EQ(out[east].frames.size(), 2U);
    EXPECT_EQ(summary().punted.counts(), (ReasonCounts{{"Trapped to the CPU", 2}}));
    EXPECT_EQ(summary().replicas, 2U);
}

} // namespace ReplicationTest
