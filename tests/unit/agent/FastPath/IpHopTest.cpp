#include "FastPath/IpHop.h"

#include "IpTesting.h"

namespace IpHopTest {

using namespace OvixAgent;
using namespace OvixAgent::Testing;

namespace {

class IpHopTest : public IpRouting {
  protected:
    /// Routes the packet; what leaves with its port, or nothing when it is for the forwarder.
    std::optional<std::pair<std::uint32_t, Bytes>> route(const Bytes& packet,
                                                         std::uint32_t headroom = frameHeadroom) {
        const Bytes whole = join({filled(headroom, 0xa5), ipFrame(packet)});
        Bytes memory = whole;
        const auto size = static_cast<std::uint32_t>(whole.size() - headroom);
        WritableFrame frame{memory.data() + headroom, size, size, headroom, west, {}};
        PacketWork work;
        work.frame = &frame;
        work.packet = frame.bytes + 14;
        work.length = size - 14;
        work.type = packet[0] >> 4U == 4 ? Ovix::PktHdrType::ipv4 : Ovix::PktHdrType::ipv6;
        EgressLine line;
        if (!hop.route(tables.vrfs->fibAt(0), asked, work, line)) {
            EXPECT_EQ(memory, whole);
            return std::nullopt;
        }
        const Wire::Bytes sent = withLinkHeader(work, line, etherTypeOf(work.type));
        return std::pair(ports.indexOf(*line.port), Bytes(sent.begin(), sent.end()));
    }
    void expectAsTheForwarder(const Bytes& packet) {
        const auto made = route(packet);
        receiveIp(packet);
        ASSERT_TRUE(made);
        EXPECT_EQ(*made, onlyFrame());
    }

    ReversePath asked = ReversePath::off;
    IpHop hop{tables};
};

} // namespace

TEST_F(IpHopTest, SendsWhatTheForwarderSends) {
    const std::pair<const char*, Bytes> cases[]{
        {"a next hop", packetTo("10.9.0.1")},
        {"TTL 2", packetTo("10.9.0.1", 2)},
        {"a neighbour itself", packetTo("10.0.2.3")},
        {"labels in uniform mode", packetTo("10.8.0.1", 40)},
        {"a label with TTL and class of its own", packetTo("10.7.0.1")},
        {"an address next to no subnet", packetTo("10.9.255.255")},
        {"IPv6", sixTo("2001:db8:9::1")},
        {"an IPv6 neighbour", sixTo("2001:db8:2::2", 7)},
        {"padding of the link", join({packetTo("10.9.0.1"), filled(10, 0)})},
    };
    for (const auto& [what, packet] : cases) {
        SCOPED_TRACE(what);
        expectAsTheForwarder(packet);
    }
}

TEST_F(IpHopTest, AFlowTakesTheViaThatTheForwarderChooses) {
    for (std::uint16_t port = 1; port < 40; ++port) {
        expectAsTheForwarder(packetTo("10.6.0.1", 64, port));
    }
}

TEST_F(IpHopTest, LeavesAllElseAsItIs) {
    Bytes broken = packetTo("10.9.0.1");
    broken[10] ^= 1U;
    const std::pair<const char*, Bytes> cases[]{
        {"TTL 1", packetTo("10.9.0.1", 1)},
        {"hop limit 1", sixTo("2001:db8:9::1", 1)},
        {"a wrong checksum", broken},
        {"no route", packetTo("10.1.0.1")},
        {"a route that drops", packetTo("10.9.9.1")},
        {"the device itself", packetTo("10.0.2.1")},
        {"a broadcast", packetTo("10.0.2.255")},
        {"multicast", packetTo("224.0.0.5")},
        {"loopback", packetTo("127.0.0.1")},
        {"an unknown neighbour", packetTo("10.0.2.77")},
        {"a next hop that nobody knows", packetTo("10.5.0.1")},
        {"link-local", sixTo("fe80::1")},
        {"cut short", Bytes(24, 0x45)},
    };
    for (const auto& [what, packet] : cases) {
        EXPECT_FALSE(route(packet)) << what;
    }
}

TEST_F(IpHopTest, LeavesForgedSources) {
    Ipv4 fields;
    fields.destination = 0x0a090001;
    const auto isRouted = [&](std::uint32_t source) {
        fields.source = source;
        return route(ipv4(fields, udp())).has_value();
    };
    for (const std::uint32_t source : {0x0a000101U, 0x0a0001ffU, 0x7f000001U, 0xe0000001U}) {
        EXPECT_FALSE(isRouted(source)) << std::hex << source;
    }
    EXPECT_TRUE(isRouted(0xc0000209));
    asked = ReversePath::loose;
    EXPECT_FALSE(isRouted(0xc0000209));
    EXPECT_TRUE(isRouted(0x0a080001));
    asked = ReversePath::strict;
    EXPECT_FALSE(isRouted(0x0a080001));
    EXPECT_TRUE(isRouted(0x0a000109));
}

TEST_F(IpHopTest, LeavesWhatDoesNotFit) {
    EXPECT_TRUE(route(packetTo("10.8.0.1"), 16));
    EXPECT_FALSE(route(packetTo("10.8.0.1"), 15)); // two labels and a link header with tags
    Port& port = ports.ports()[east];
    port.mtu = 36;
    EXPECT_TRUE(route(packetTo("10.8.0.1")));
    port.mtu = 35;
    EXPECT_FALSE(route(packetTo("10.8.0.1")));
    EXPECT_TRUE(route(packetTo("10.9.0.1")));
    port.isUp = false;
    EXPECT_FALSE(route(packetTo("10.9.0.1")));
}

} // namespace IpHopTest
