// Packets that are routed once their labels are popped, and next hops without an interface.

#include "IpTesting.h"

namespace PoppedPacketTest {

using namespace OvixAgent;
using namespace OvixAgent::Testing;

namespace {

using PoppedPacket = IpRouting;

} // namespace

TEST_F(PoppedPacket, APoppedPacketIsRoutedInTheVrfOfTheNextHop) {
    const Bytes packet = packetTo("10.9.0.1");
    for (const char* vrf : {"", "default"}) {
        receivePopped(packet, "10.9.0.1", vrf);
        EXPECT_EQ(onlyFrame(), (std::pair(std::uint32_t{east},
                                          join({eastHeader(ethIpv4), packetTo("10.9.0.1", 63)}))));
    }
    receivePopped(packet, "10.9.0.1", "red");
    EXPECT_EQ(onlyFrame().first, red2);
    receivePopped(packetTo("10.0.1.2"), "10.0.1.2", "red");
    EXPECT_EQ(onlyFrame().first, red1);
    receivePopped(packet, "10.9.0.1", "green");
    receivePopped(packet, "10.9.0.1", "lonely");
    EXPECT_EQ(dropped(), (ReasonCounts{{"VRF not configured", 1}, {"No route", 1}}));
}

TEST_F(PoppedPacket, ANeighbourOutsideAnySubnetIsReachable) {
    receivePopped(packetTo("172.16.0.9"), "172.16.0.9", "red");
    EXPECT_EQ(onlyFrame().first, red2);
    receivePopped(packetTo("172.16.0.9"), "172.16.0.9");
    EXPECT_EQ(dropped(), (ReasonCounts{{"No route", 1}}));
}

TEST_F(PoppedPacket, ARouterDecrementsTheTtlOnce) {
    using enum Mpls::TtlMode;
    receivePopped(packetTo("10.9.0.1", 64), "10.9.0.1", "", pipe, 200);
    EXPECT_EQ(onlyPacket(), packetTo("10.9.0.1", 63));
    receivePopped(packetTo("10.9.0.1", 64), "10.9.0.1", "", uniform, 20);
    EXPECT_EQ(onlyPacket(), packetTo("10.9.0.1", 19));
    receivePopped(packetTo("10.9.0.1", 1), "10.9.0.1", "", uniform, 2);
    EXPECT_EQ(onlyPacket(), packetTo("10.9.0.1", 1));
    receivePopped(packetTo("10.8.0.1", 64), "10.8.0.1", "", uniform, 20);
    EXPECT_EQ(onlyPacket(), join({stack({{300, 0, 19}, {301, 0, 19}}), packetTo("10.8.0.1", 19)}));
    EXPECT_EQ(punted(), ReasonCounts{});
    receivePopped(packetTo("10.9.0.1", 1), "10.9.0.1", "", pipe, 200);
    EXPECT_EQ(punted(), (ReasonCounts{{"TTL expired", 1}}));
    // The control plane sees under which labels the packet expired (RFC 4950).
    EXPECT_EQ(cpu.frames,
              Frames{join({eth(ethMpls), stack({{100, 0, 200}}), packetTo("10.9.0.1", 1)})});
}

TEST_F(PoppedPacket, AnMplsEchoPacketGoesToTheCpuFromWhicheverVrf) {
    for (const char* destination : {"127.0.0.1", "127.255.255.255"}) {
        Bytes echo = packetTo(destination, 1);
        const Bytes port = u16(3503);
        std::copy(port.begin(), port.end(), echo.end() - 6);
        for (const char* vrf : {"", "red", "lonely"}) {
            cpu.frames.clear();
            receivePopped(echo, destination, vrf);
            EXPECT_EQ(cpu.frames, Frames{join({eth(ethMpls), stack({{100}}), echo})}) << vrf;
        }
    }
    EXPECT_EQ(punted(), (ReasonCounts{{"MPLS echo packet", 6}}));
    receivePopped(packetTo("127.0.0.1"), "127.0.0.1");
    EXPECT_EQ(dropped(), (ReasonCounts{{"IP destination never on a wire", 1}}));
}

TEST_F(PoppedPacket, APoppedPacketIsCheckedLikeAnUnlabelledOne) {
    Bytes badSum = packetTo("10.9.0.1");
    badSum[10] = static_cast<std::uint8_t>(badSum[10] ^ 1U);
    receivePopped(badSum, "10.9.0.1");
    Bytes tooLong = packetTo("10.9.0.1");
    tooLong[3] = 29;
    receivePopped(tooLong, "10.9.0.1");
    receivePopped(join({{0x05}, filled(39, 0)}), "10.9.0.1");
    receivePopped(packetTo("10.0.2.1"), "10.0.2.1");
    EXPECT_EQ(dropped(), (ReasonCounts{{"IPv4 header checksum wrong", 1},
                                       {"IPv4 total length wrong", 1},
                                       {"Payload is not of the label's payload type", 1}}));
    EXPECT_EQ(punted(), (ReasonCounts{{"Address of the device", 1}}));
}

TEST_F(PoppedPacket, ANextHopWithoutInterfaceIsRoutedWithoutAnIpHop) {
    // Labelled: the route's labels go on top.
    receive(labelled({{100, 3, 64}}), always(withRewrite(nexthop("", "10.8.0.1"), swapInfo(500))));
    EXPECT_EQ(onlyPacket(), join({stack({{300, 3, 63}, {301, 3, 63}, {500, 3, 63}}), packet()}));
    // Popped toward another address than the packet's own: its TTL is the pop's business.
    receivePopped(packetTo("192.0.2.1", 1), "10.9.0.1");
    EXPECT_EQ(onlyPacket(), packetTo("192.0.2.1", 1));
}

} // namespace PoppedPacketTest
