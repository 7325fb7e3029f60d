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
        lines.refresh();
        hops.refresh(false);
        const EgressLine* const line = hop.route(0, asked, work);
        if (line == nullptr) {
            EXPECT_EQ(memory, whole);
            return std::nullopt;
        }
        const Wire::Bytes sent =
            withLinkHeader(work.packet, work.length, *line, etherTypeOf(work.type));
        return std::pair(ports.indexOf(*line->port), Bytes(sent.begin(), sent.end()));
    }
    /// The same for packets that most are like; nothing when it is not one of them.
    std::optional<std::pair<std::uint32_t, Bytes>> routePlain(const Bytes& packet) {
        constexpr std::uint32_t room = 64;
        const Bytes whole = join({filled(room, 0xa5), packet});
        Bytes memory = whole;
        lines.refresh();
        hops.refresh(false);
        const IpHop::Leaving leaving = hop.routePlain(
            0, memory.data() + room, static_cast<std::uint32_t>(packet.size()), room);
        if (leaving.line == nullptr) {
            EXPECT_EQ(memory, whole);
            return std::nullopt;
        }
        const Wire::Bytes sent =
            withPlainLinkHeader(leaving.packet, leaving.length, *leaving.line, leaving.etherType);
        return std::pair(ports.indexOf(*leaving.line->port), Bytes(sent.begin(), sent.end()));
    }
    void expectAsTheForwarder(const Bytes& packet, bool isPlain = false) {
        const auto made = route(packet);
        const auto asPlain = routePlain(packet);
        receiveIp(packet);
        ASSERT_TRUE(made);
        EXPECT_EQ(asPlain.has_value(), isPlain);
        EXPECT_EQ(*made, onlyFrame());
        EXPECT_EQ(asPlain.value_or(*made), *made);
    }

    ReversePath asked = ReversePath::off;
    EgressLines lines{tables};
    RouteHops hops{tables, lines};
    IpHop hop{tables, lines, hops, true};
};

} // namespace

TEST_F(IpHopTest, SendsWhatTheForwarderSends) {
    struct {
        const char* what;
        Bytes packet;
        bool isPlain;
    } const cases[]{
        {"a next hop", packetTo("10.9.0.1"), true},
        {"TTL 2", packetTo("10.9.0.1", 2), true},
        {"a neighbour itself", packetTo("10.0.2.3"), false},
        {"labels in uniform mode", packetTo("10.8.0.1", 40), true},
        {"a label with TTL and class of its own", packetTo("10.7.0.1"), true},
        {"an address next to no subnet", packetTo("10.9.255.255"), true},
        {"IPv6", sixTo("2001:db8:9::1"), false},
        {"an IPv6 neighbour", sixTo("2001:db8:2::2", 7), false},
        {"padding of the link", join({packetTo("10.9.0.1"), filled(10, 0)}), true},
    };
    for (const auto& [what, packet, isPlain] : cases) {
        SCOPED_TRACE(what);
        expectAsTheForwarder(packet, isPlain);
    }
}

TEST_F(IpHopTest, AFlowTakesTheViaThatTheForwarderChooses) {
    for (std::uint16_t port = 1; port < 40; ++port) {
        expectAsTheForwarder(packetTo("10.6.0.1", 64, port), true);
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
        EXPECT_FALSE(routePlain(packet)) << what;
    }
}

TEST_F(IpHopTest, LeavesForgedSources) {
    Ipv4 fields;
    fields.destination = 0x0a090001;
    const auto isRouted = [&](std::uint32_t source) {
        fields.source = source;
        const Bytes packet = ipv4(fields, udp());
        const bool isPlain = routePlain(packet).has_value();
        const bool isAny = route(packet).has_value();
        EXPECT_TRUE(isAny || !isPlain || asked != ReversePath::off);
        return isAny;
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

TEST_F(IpHopTest, FollowsItsRouteAsItChanges) {
    const Lumo::IpGenPrefix prefix{Lumo::IpGenAddr::fromText("10.9.0.0"), 16};
    const Bytes packet = packetTo("10.9.0.1");
    const auto toEast = [&](const char* nexthop) {
        IpRouteVia via;
        via.port = east;
        via.nexthop = Lumo::IpGenAddr::fromText(nexthop);
        return IpRoute::forward({via});
    };
    const auto lastOfMac = [&] { return routePlain(packet)->second[5]; };
    EXPECT_EQ(lastOfMac(), 2);
    tables.vrfs->fibIs("").routeIs(prefix, toEast("10.0.2.3"));
    EXPECT_EQ(lastOfMac(), 3);
    EXPECT_EQ(route(packet)->second[5], 3);
    tables.vrfs->fibIs("").routeIs(prefix, IpRoute::drop());
    EXPECT_FALSE(route(packet));
    tables.vrfs->fibIs("").routeDel(prefix);
    EXPECT_EQ(lastOfMac(), 2);
    tables.neighbours.learn(Lumo::IpGenAddr::fromText("10.77.0.1"), east, {2, 0, 0, 0, 2, 9});
    EXPECT_EQ(routePlain(packetTo("10.5.0.1"))->second[5], 9);
}

TEST_F(IpHopTest, RoutesOfARestartedTableAreDecidedAnew) {
    EXPECT_TRUE(routePlain(packetTo("10.6.0.1")));
    lines.clear();
    hops.restart();
    EXPECT_EQ(routePlain(packetTo("10.9.0.1"))->first, east);
    EXPECT_TRUE(routePlain(packetTo("10.6.0.1")));
}

TEST_F(IpHopTest, FlowsOfAPortThatIsDownLeaveByAnother) {
    std::size_t byWest = 0;
    ports.upIs(east, false);
    for (int i = 1; i < 20; ++i) {
        const Bytes packet = packetTo("10.3.0." + std::to_string(i));
        expectAsTheForwarder(packet, true);
        byWest += route(packet)->first == west ? 1 : 0;
    }
    EXPECT_EQ(byWest, 19U);
    ports.upIs(east, true);
    for (int i = 1; i < 20; ++i) {
        const Bytes packet = packetTo("10.3.0." + std::to_string(i));
        expectAsTheForwarder(packet, true);
        byWest -= route(packet)->first == west ? 1 : 0;
    }
    EXPECT_GT(byWest, 0U);
}

TEST_F(IpHopTest, LeavesWhatDoesNotFit) {
    EXPECT_TRUE(route(packetTo("10.8.0.1"), 16));
    EXPECT_FALSE(route(packetTo("10.8.0.1"), 15)); // two labels and a link header with tags
    ports.mtuIs(east, 36);
    EXPECT_TRUE(route(packetTo("10.8.0.1")));
    ports.mtuIs(east, 35);
    EXPECT_FALSE(route(packetTo("10.8.0.1")));
    EXPECT_TRUE(route(packetTo("10.9.0.1")));
    ports.upIs(east, false);
    EXPECT_FALSE(route(packetTo("10.9.0.1")));
}

} // namespace IpHopTest
