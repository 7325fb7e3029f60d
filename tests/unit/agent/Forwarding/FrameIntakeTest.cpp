#include "Forwarding/FrameIntake.h"

#include "ForwarderTesting.h"

namespace FrameIntakeTest {

using namespace OvixAgent;
using namespace OvixAgent::Testing;

namespace {

const std::string trunkConfig = R"(
ports:
  - {name: west, mac: "02:00:00:00:00:01", addresses: [10.0.1.1/24]}
  - {name: east, mac: "02:00:00:00:00:02", addresses: [10.0.2.1/24]}
  - {name: west.7, parent: west, vlan: 7, addresses: [10.0.7.1/24]}
  - {name: east.8, parent: east, vlan: [5, 8], addresses: [10.0.8.1/24]}
  - {name: ce, parent: west, vlan: 9}
  - {name: red, mac: "02:00:00:00:00:05", vrf: red}
  - {name: red.6, parent: red, vlan: 6, vrf: red, mpls: true, addresses: [10.0.6.1/24]}
neighbours:
  - {address: 10.0.2.2, port: east, mac: "02:00:00:00:02:02"}
  - {address: 10.0.8.2, port: east.8, mac: "02:00:00:00:08:02"}
  - {address: 10.0.7.2, port: west.7, mac: "02:00:00:00:07:02"}
  - {address: 10.0.6.2, port: red.6, mac: "02:00:00:00:06:02"}
pseudowires:
  - {name: gold, port: ce, label: 500, interface: east, nexthop: 10.0.2.2}
)";

enum PortNumber : PortIndex { west, east, west7, east8, ce, red, red6 };

class FrameIntakeTest : public ForwarderFixture {
  protected:
    FrameIntakeTest() : ForwarderFixture(trunkConfig) {
        for (std::size_t i = 0; i < config.ports.size(); ++i) {
            const PortIndex parent = config.ports[i].parent;
            ports.ports()[i].out = &out[parent == noPort ? i : parent];
        }
    }

    void receiveAt(PortIndex port, const Bytes& frame) {
        forwarder->receive({port, {}, frame, static_cast<std::uint32_t>(frame.size())});
    }
    /// An MPLS frame with tags outermost first, of 802.1Q.
    static Bytes tagged(const std::vector<std::uint16_t>& vlans) {
        Bytes bytes = eth(vlans.empty() ? ethMpls : ethVlan);
        for (std::size_t i = 0; i < vlans.size(); ++i) {
            bytes = join({bytes, tag(vlans[i], i + 1 < vlans.size() ? ethVlan : ethMpls)});
        }
        return join({bytes, stack({{100}}), packet()});
    }
    /// The link header of a frame to a neighbour of the east port.
    static Bytes header(std::uint8_t neighbour, const Bytes& tagsAndType) {
        return join({{2, 0, 0, 0, neighbour, 2, 2, 0, 0, 0, 0, 2}, tagsAndType});
    }
};

} // namespace

TEST_F(FrameIntakeTest, AFrameOfAVlanComesInAtItsSubInterfaceAndLeavesItsTagsThere) {
    std::vector<Lumo::IntfId> ingress;
    handler->decide = [&](const auto& context, Ovix::RoutingNexthops& nexthops) {
        ingress.push_back(context->ingressIntfId());
        nexthops.nexthopEnq(withRewrite(nexthop("east", "10.0.2.2"), swapInfo(300)));
    };
    for (const std::vector<std::uint16_t>& vlans : {std::vector<std::uint16_t>{}, {7}, {0xe007}}) {
        receiveAt(west, tagged(vlans));
    }
    EXPECT_EQ(ingress, (std::vector<Lumo::IntfId>{Lumo::IntfId("west"), Lumo::IntfId("west.7"),
                                                  Lumo::IntfId("west.7")}));
    const Bytes expected = join({eastHeader(ethMpls), stack({{300, 0, 63}}), packet()});
    EXPECT_EQ(out[east].frames, (Frames{expected, expected, expected}));
    EXPECT_EQ(summary().in.bytes, 3 * tagged({}).size() + 8);
}

TEST_F(FrameIntakeTest, AVlanThatNobodyHasIsDropped) {
    handler->decide = always(nexthop("east", "10.0.2.2"));
    receiveAt(west, tagged({8}));
    receiveAt(west, tagged({7, 8})); // beneath the sub-interface's own tag
    receiveAt(east, tagged({5}));
    EXPECT_TRUE(out[east].frames.empty());
    EXPECT_EQ(dropped(), (ReasonCounts{{"VLAN without a sub-interface", 3}}));
}

TEST_F(FrameIntakeTest, WhatLeavesByASubInterfaceHasItsTags) {
    handler->decide = always(nexthop("east.8", "10.0.8.2"));
    receiveAt(west, tagged({7}));
    const Bytes expected =
        join({header(8, join({u16(ethServiceVlan), tag(5, ethVlan), tag(8, ethMpls)})),
              stack({{100}}), packet()});
    EXPECT_EQ(out[east].frames, Frames{expected});
    EXPECT_EQ(summary().forwarded[east8].traffic.frames, 1U);
    EXPECT_EQ(summary().forwarded[east].traffic.frames, 0U);
}

TEST_F(FrameIntakeTest, TheCpuGetsAFrameWithTheTagsThatItCameWith) {
    handler->decide = always(cpuTrap());
    receiveAt(west, tagged({7}));
    EXPECT_EQ(cpu.frames, Frames{tagged({7})});
}

TEST_F(FrameIntakeTest, ALabelledFrameAtAPortWithoutMplsIsDropped) {
    handler->decide = always(nexthop("east", "10.0.2.2"));
    receiveAt(red, tagged({}));
    EXPECT_TRUE(out[east].frames.empty());
    EXPECT_EQ(dropped(), (ReasonCounts{{"Labelled frame at a port without MPLS", 1}}));
    receiveAt(red, tagged({6})); // the sub-interface takes labels
    EXPECT_EQ(out[east].frames.size(), 1U);
}

TEST_F(FrameIntakeTest, AnExplicitNullLeavesThePacketInTheVrfOfItsPort) {
    handler->decide = always(withRewrite(nexthop("", "10.0.6.2"), popInfo()));
    const auto nulls = [&](std::uint32_t label, std::uint16_t vlan) {
        return join({eth(ethVlan), tag(vlan, ethMpls), stack({{label}}), packet(0x0a000602)});
    };
    receiveAt(red, nulls(0, 6));
    receiveAt(red, nulls(2, 6));
    ASSERT_EQ(out[red].frames.size(), 2U);
    EXPECT_EQ(out[red].frames[0][5], 2); // by red.6, the port of the VRF
    EXPECT_EQ(summary().forwarded[red6].traffic.frames, 2U);
    receiveAt(west, nulls(0, 7));  // the default VRF has no such route
    receiveAt(red, nulls(100, 6)); // popped by a route that names no VRF: the default one's
    EXPECT_EQ(dropped(), (ReasonCounts{{"No route", 2}}));
}

TEST_F(FrameIntakeTest, AnEntropyLabelLeavesThePacketInTheVrfOfItsPort) {
    handler->decide =
        always(withRewrite(withRewrite(nexthop("", "10.0.6.2"), popInfo()), popInfo()));
    const auto entropy = [&](std::uint16_t vlan) {
        return join({eth(ethVlan), tag(vlan, ethMpls), stack({{7}, {5000}}), packet(0x0a000602)});
    };
    receiveAt(red, entropy(6));
    EXPECT_EQ(summary().forwarded[red6].traffic.frames, 1U);
    receiveAt(west, entropy(7)); // the default VRF has no such route
    EXPECT_EQ(dropped(), (ReasonCounts{{"No route", 1}}));
}

TEST_F(FrameIntakeTest, FramesForOtherStationsAreHandedOn) {
    const auto copy = nexthop("east", "10.0.2.2");
    copy->isReplicaIs(true);
    handler->decide = always(copy);
    for (Port& port : ports.ports()) {
        port.anyMac = false;
    }
    const auto to = [](const Bytes& mac) {
        Bytes frame = tagged({7});
        std::copy(mac.begin(), mac.end(), frame.begin());
        return frame;
    };
    receiveAt(west, to({2, 0, 0, 0, 0, 1}));
    receiveAt(west, to({1, 0, 0x5e, 0x80, 0, 100})); // a group
    receiveAt(west, to(filled(6, 0xff)));
    EXPECT_EQ(out[east].frames.size(), 3U);
    receiveAt(west, to({2, 0, 0, 0, 0, 2}));
    receiveAt(east, tagged({}));
    EXPECT_EQ(out[east].frames.size(), 3U);
    EXPECT_EQ(summary().handedOn.counts(), (ReasonCounts{{"For another station", 2}}));
    ports.ports()[west].anyMac = true;
    receiveAt(west, to({2, 0, 0, 0, 0, 2}));
    EXPECT_EQ(out[east].frames.size(), 3U); // the sub-interface decides
    ports.ports()[west7].anyMac = true;
    receiveAt(west, to({2, 0, 0, 0, 0, 2}));
    EXPECT_EQ(out[east].frames.size(), 4U);
}

} // namespace FrameIntakeTest
