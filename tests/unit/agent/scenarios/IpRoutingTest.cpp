// IP packets from the frame that they came in to the frame that they leave in.

#include "IpTesting.h"

namespace IpRoutingTest {

using namespace OvixAgent;
using namespace OvixAgent::Testing;

TEST_F(IpRouting, AnIpv4PacketLeavesByItsRouteWithItsTtlOneLess) {
    // RFC 791 header: TTL 64 becomes 63, checksum 0x66c5 becomes 0x67c5 (RFC 1624).
    const Bytes header{0x45, 0, 0, 0x1c, 0, 1, 0, 0, 64, 17, 0x66, 0xc5, 10, 1, 0, 1, 10, 9, 0, 1};
    ASSERT_EQ(onesSum(header), 0xffff);
    receiveIp(join({header, udp()}));
    Bytes expected = header;
    expected[8] = 63;
    expected[10] = 0x67;
    EXPECT_EQ(onlyFrame(),
              (std::pair(std::uint32_t{east}, join({eastHeader(ethIpv4), expected, udp()}))));
}

TEST_F(IpRouting, AnIpv6PacketLeavesByItsRouteWithItsHopLimitOneLess) {
    receiveIp(sixTo("2001:db8:9::1"));
    EXPECT_EQ(onlyFrame(), (std::pair(std::uint32_t{east},
                                      join({eastHeader(ethIpv6), sixTo("2001:db8:9::1", 63)}))));
}

TEST_F(IpRouting, EveryTtlIsDecrementedAndTheChecksumStaysRight) {
    for (unsigned ttl = 2; ttl < 256; ++ttl) {
        receiveIp(packetTo("10.9.0.1", static_cast<std::uint8_t>(ttl)));
        EXPECT_EQ(onlyPacket(), packetTo("10.9.0.1", static_cast<std::uint8_t>(ttl - 1)));
    }
}

namespace {

/// An echo request that has been sent with an IP TTL of 1 and without labels of its own.
Bytes echoTo(const std::string& destination) {
    const bool isIpv4 = destination.find(':') == std::string::npos;
    Bytes packet = isIpv4 ? packetTo(destination, 1) : sixTo(destination, 1);
    const Bytes port = u16(3503);
    std::copy(port.begin(), port.end(), packet.end() - 6);
    return packet;
}

} // namespace

TEST_F(IpRouting, EachPlaceOfTheVerdictIsReached) {
    const struct {
        const char* what;
        Bytes packet;
        FateKind kind;
        const char* reason;
    } cases[]{
        {"no route", packetTo("192.0.2.1"), FateKind::dropped, "No route"},
        {"a route that drops", packetTo("10.9.9.1"), FateKind::dropped, "Route drops"},
        {"a route that prohibits", packetTo("10.3.1.1"), FateKind::dropped, "Route prohibits"},
        {"an unreachable route", packetTo("10.3.2.1"), FateKind::dropped, "Route is unreachable"},
        {"an unknown next hop", packetTo("10.5.0.1"), FateKind::dropped,
         "No neighbour for the next hop"},
        {"nobody on the link", packetTo("10.0.2.77"), FateKind::dropped,
         "No neighbour for the next hop"},
        {"nobody on the link of an interface route", packetTo("10.4.0.1"), FateKind::dropped,
         "No neighbour for the next hop"},
        {"the device", packetTo("10.0.2.1"), FateKind::punted, "Address of the device"},
        {"the device, TTL 1", packetTo("10.0.1.1", 1), FateKind::punted, "Address of the device"},
        {"the device, IPv6", sixTo("2001:db8:2::ff", 1), FateKind::punted, "Address of the device"},
        {"a subnet's broadcast", packetTo("10.0.2.255"), FateKind::punted, "Address of the device"},
        {"TTL 1", packetTo("10.9.0.1", 1), FateKind::punted, "TTL expired"},
        {"TTL 0", packetTo("10.9.0.1", 0), FateKind::punted, "TTL expired"},
        {"hop limit 1", sixTo("2001:db8:9::1", 1), FateKind::punted, "TTL expired"},
        {"routing protocols", packetTo("224.0.0.5", 1), FateKind::punted,
         "Link-local or broadcast destination"},
        {"limited broadcast", packetTo("255.255.255.255"), FateKind::punted,
         "Link-local or broadcast destination"},
        {"link-local", sixTo("fe80::1"), FateKind::punted, "Link-local or broadcast destination"},
        {"multicast", packetTo("239.1.1.1"), FateKind::dropped, "IP multicast not routed"},
        {"multicast, IPv6", sixTo("ff0e::1"), FateKind::dropped, "IP multicast not routed"},
        {"loopback", packetTo("127.0.0.1"), FateKind::dropped, "IP destination never on a wire"},
        {"mapped loopback", sixTo("::ffff:127.0.0.1"), FateKind::dropped,
         "IP destination never on a wire"},
        {"mapped IPv4", sixTo("::ffff:10.9.0.1"), FateKind::dropped,
         "IP destination never on a wire"},
        {"MPLS echo", echoTo("127.3.4.5"), FateKind::punted, "MPLS echo packet"},
        {"MPLS echo, IPv6", echoTo("::ffff:127.3.4.5"), FateKind::punted, "MPLS echo packet"},
        {"MPLS echo to a host", echoTo("192.0.2.1"), FateKind::punted, "TTL expired"},
        {"its port of ::1", echoTo("::1"), FateKind::dropped, "IP destination never on a wire"},
    };
    const auto endAs = [&](const std::string& prefix, L3::Route::Kind kind) {
        L3::Route route;
        route.kind = kind;
        tables.vrfs->fibIs("").routeIs({Lumo::IpGenAddr::fromText(prefix), 24},
                                       resolve(route, ports, nullptr));
    };
    endAs("10.3.1.0", L3::Route::Kind::prohibit);
    endAs("10.3.2.0", L3::Route::Kind::unreachable);
    for (const auto& given : cases) {
        cpu.frames.clear();
        const Summary before = summary();
        receiveIp(given.packet);
        const bool isPunt = given.kind == FateKind::punted;
        EXPECT_EQ(cpu.frames, isPunt ? Frames{ipFrame(given.packet)} : Frames{}) << given.what;
        const Summary after = summary();
        EXPECT_EQ((isPunt ? after.punted : after.dropped).counts().at(given.reason), 1 + [&] {
            const auto& counts = (isPunt ? before.punted : before.dropped).counts();
            const auto found = counts.find(given.reason);
            return found != counts.end() ? found->second : 0;
        }()) << given.what;
    }
}

TEST_F(IpRouting, SourcesThatMustNotBePassedOnAreDropped) {
    for (const std::uint32_t source : {0x7f000001U, 0xe0000001U, 0xffffffffU, 0xa9fe0001U, 0U}) {
        Ipv4 fields;
        fields.source = source;
        fields.destination = 0x0a090001;
        receiveIp(ipv4(fields, udp()));
    }
    EXPECT_EQ(dropped(), (ReasonCounts{{"IP source never to be forwarded", 5}}));
}

TEST_F(IpRouting, ADamagedHeaderIsDroppedForWhatIsWrongWithIt) {
    Bytes badSum = packetTo("10.9.0.1");
    badSum[10] = static_cast<std::uint8_t>(badSum[10] ^ 1U);
    Bytes badLength = packetTo("10.9.0.1");
    badLength[0] = 0x44;
    Bytes sixCut = sixTo("2001:db8:9::1");
    sixCut.pop_back();
    receiveIp(badSum);
    receiveIp(badLength);
    receiveIp(sixCut);
    receiveAt(west, join({eth(ethIpv4), sixTo("2001:db8:9::1")}));
    receiveAt(west, join({eth(ethVlan), tag(5, ethIpv4), {0x45}}));
    receiveAt(west, eth(ethIpv6));
    EXPECT_EQ(dropped(), (ReasonCounts{{"IPv4 header checksum wrong", 1},
                                       {"IPv4 header length wrong", 1},
                                       {"IPv6 payload cut short", 1},
                                       {"IP version contradicts the packet type", 1},
                                       {"IP header cut short", 2}}));
}

TEST_F(IpRouting, TheLinksPaddingStaysBehind) {
    receiveIp(join({packetTo("10.9.0.1"), filled(18, 0)}));
    EXPECT_EQ(onlyPacket(), packetTo("10.9.0.1", 63));
    receiveIp(join({packetTo("10.8.0.1"), filled(18, 0)}));
    EXPECT_EQ(onlyPacket(), join({stack({{300, 0, 63}, {301, 0, 63}}), packetTo("10.8.0.1", 63)}));
}

TEST_F(IpRouting, AFrameThatTheCaptureCutIsRoutedWithItsWholeLength) {
    Ipv4 fields;
    fields.destination = 0x0a090001;
    const Bytes whole = ipv4(fields, udp(1024, 9, filled(60, 7)));
    const Bytes kept(whole.begin(), whole.begin() + 40);
    receiveAt(west, ipFrame(kept), whole.size() - kept.size());
    ASSERT_EQ(out[east].frames.size(), 1U);
    EXPECT_EQ(out[east].frames[0].size(), 14 + kept.size());
    EXPECT_EQ(out[east].originalLengths[0], 14 + whole.size());
}

TEST_F(IpRouting, ALabelledRoutePushesItsStack) {
    Ipv4 fields;
    fields.destination = 0x0a080001;
    fields.tos = 0xb8; // expedited forwarding, precedence 5
    receiveIp(ipv4(fields, udp()));
    fields.ttl = 63;
    EXPECT_EQ(onlyFrame().second, join({eastHeader(ethMpls), stack({{300, 5, 63}, {301, 5, 63}}),
                                        ipv4(fields, udp())}));
    fields.ttl = 64;
    fields.destination = 0x0a070001;
    receiveIp(ipv4(fields, udp()));
    fields.ttl = 63;
    EXPECT_EQ(onlyPacket(), join({stack({{300, 2, 9}}), ipv4(fields, udp())}));
}

TEST_F(IpRouting, FlowsAreSharedByWeight) {
    for (std::uint16_t flow = 0; flow < 400; ++flow) {
        receiveIp(packetTo("10.6.0.1", 64, static_cast<std::uint16_t>(2000 + flow)));
    }
    std::size_t second = 0;
    for (const Bytes& frame : out[east].frames) {
        second += frame[5] == 3 ? 1U : 0U;
    }
    EXPECT_EQ(out[east].frames.size(), 400U);
    EXPECT_GT(second, 260U);
    EXPECT_LT(second, 340U);
}

TEST_F(IpRouting, TheVrfOfThePortRoutesItsFrames) {
    const Bytes frame = ipFrame(packetTo("10.9.0.1"));
    receiveAt(west, frame);
    EXPECT_EQ(onlyFrame().first, east);
    receiveAt(red1, frame);
    EXPECT_EQ(onlyFrame().first, red2);
    receiveAt(aside, frame);
    EXPECT_EQ(dropped(), (ReasonCounts{{"No route", 1}}));
    receiveAt(red1, ipFrame(packetTo("10.0.2.1"))); // the other VRF's address
    EXPECT_EQ(punted(), ReasonCounts{});
}

TEST_F(IpRouting, OnlyPortsThatTakePartRouteIp) {
    const AgentConfig plainConfig = configOf(R"(
ports:
  - {name: a, mac: "02:00:00:00:00:01", addresses: [10.0.1.1/24]}
  - {name: b, mac: "02:00:00:00:00:02", vrf: blue}
  - {name: c, mac: "02:00:00:00:00:03", vrf: default}
)",
                                             "test.yaml");
    ForwardingTables plainTables(plainConfig);
    Forwarder plainForwarder(manager, plainTables, cpu);
    const Bytes good = ipFrame(packetTo("10.9.0.1"));
    const Bytes bad = join({eth(ethIpv4), {0x45}});
    for (std::uint32_t port = 0; port < 3; ++port) {
        for (const Bytes& frame : {good, bad}) {
            plainForwarder.receive({port, {}, frame, static_cast<std::uint32_t>(frame.size())});
        }
    }
    Summary counted;
    plainForwarder.addTo(counted);
    EXPECT_EQ(counted.handedOn.counts(), (ReasonCounts{{"Not MPLS", 2}}));
    EXPECT_EQ(counted.dropped.counts(),
              (ReasonCounts{{"No route", 2}, {"IP header cut short", 2}}));
    receiveAt(west, join({eth(0x0806), filled(28, 0)}));
    EXPECT_EQ(summary().handedOn.counts(), (ReasonCounts{{"Not MPLS", 1}}));
}

} // namespace IpRoutingTest
