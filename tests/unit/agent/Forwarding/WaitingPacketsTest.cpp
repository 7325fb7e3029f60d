#include "Forwarding/WaitingPackets.h"

#include <algorithm>

#include "HeapCount.h"
#include "IpTesting.h"

namespace WaitingPacketsTest {

using namespace OvixAgent;
using namespace OvixAgent::Testing;

namespace {

using namespace std::chrono_literals;
using Clock = Sender::Clock;

constexpr Lumo::EthAddr mac{2, 0, 0, 0, 9, 9};
constexpr std::uint8_t mostPerNeighbour = WaitingPackets::mostPerNeighbour;

/// Keeps the reasons that it is given.
class KeepingListener : public DropListener {
  public:
    void tooBig(const Frame&, std::span<const std::uint8_t>, std::uint32_t) override {}
    void undelivered(const Frame& received, std::string_view reason) override {
        frames.emplace_back(received.bytes.begin(), received.bytes.end());
        reasons.emplace_back(reason);
    }

    Frames frames;
    std::vector<std::string> reasons;
};

/// The neighbours of the east port are solicited.
class WaitingPacketsTest : public IpRouting {
  protected:
    WaitingPacketsTest() {
        tables.neighbours.solicitsIs(true);
        tables.drops = &listener;
    }

    static Lumo::IpGenAddr address(const std::string& text) {
        return Lumo::IpGenAddr::fromText(text);
    }
    void learn(const std::string& neighbour) {
        tables.neighbours.learn(address(neighbour), east, mac);
        forwarder->settleWaiting(Clock::now());
    }
    /// What a packet is when it has left by the east port.
    static Bytes sent(const Bytes& packet) {
        const bool isIpv4 = packet[0] >> 4U == 4;
        return join(
            {{2, 0, 0, 0, 9, 9, 2, 0, 0, 0, 0, 2}, u16(isIpv4 ? ethIpv4 : ethIpv6), packet});
    }

    KeepingListener listener;
    const ReasonCounts noNeighbour{{"No neighbour for the next hop", 1}};
};

} // namespace

TEST_F(WaitingPacketsTest, APacketWaitsForItsNeighbourAndIsSentOnceItIsKnown) {
    receiveIp(packetTo("10.0.2.77"));
    receiveIp(sixTo("2001:db8:2::77"));
    EXPECT_EQ(summary().waiting, 2U);
    EXPECT_EQ(summary().forwardedTotal().frames, 0U);
    EXPECT_EQ(tables.neighbours.wanted().take().size(), 2U);
    forwarder->settleWaiting(Clock::now());
    EXPECT_EQ(summary().waiting, 2U);
    learn("2001:db8:2::77");
    EXPECT_EQ(out[east].frames, Frames{sent(sixTo("2001:db8:2::77", 63))});
    learn("10.0.2.77");
    EXPECT_EQ(out[east].frames.back(), sent(packetTo("10.0.2.77", 63)));
    EXPECT_EQ(out[east].frames.size(), 2U);
    EXPECT_EQ(summary().waiting, 0U);
    EXPECT_EQ(summary().dropped.total(), 0U);
    EXPECT_TRUE(listener.reasons.empty());
}

TEST_F(WaitingPacketsTest, ALabelledPacketWaitsRewrittenAndWithItsTags) {
    const auto to = withRewrite(nexthop("east", "10.0.2.77"), swapInfo(300));
    handler->decide = always(to);
    receiveAt(west, join({eth(ethVlan), tag(0x2007, ethMpls), stack({{100}}), packet()}));
    receiveIp(packetTo("10.8.0.1")); // pushes labels toward a known neighbour
    EXPECT_EQ(out[east].frames.size(), 1U);
    learn("10.0.2.77");
    EXPECT_EQ(out[east].frames.back(), join({{2, 0, 0, 0, 9, 9, 2, 0, 0, 0, 0, 2},
                                             u16(ethVlan),
                                             tag(0x2007, ethMpls),
                                             stack({{300, 0, 63}}),
                                             packet()}));
}

TEST_F(WaitingPacketsTest, EachNeighbourKeepsItsNewestPacketsInOrder) {
    for (std::uint8_t ttl = 10; ttl <= 10 + mostPerNeighbour; ++ttl) {
        receiveIp(packetTo("10.0.2.77", ttl));
        receiveIp(packetTo("10.0.2.78", ttl));
    }
    EXPECT_EQ(summary().waiting, 2U * mostPerNeighbour);
    EXPECT_EQ(dropped(), (ReasonCounts{{"No neighbour for the next hop", 2}}));
    learn("10.0.2.77");
    Frames expected;
    for (std::uint8_t ttl = 10; ttl < 10 + mostPerNeighbour; ++ttl) {
        expected.push_back(sent(packetTo("10.0.2.77", ttl)));
    }
    EXPECT_EQ(out[east].frames, expected);
    EXPECT_EQ(summary().waiting, std::uint64_t{mostPerNeighbour});
    EXPECT_TRUE(listener.reasons.empty()); // the neighbour has not failed
}

TEST_F(WaitingPacketsTest, AllTogetherAreLimited) {
    for (std::size_t i = 0; i < WaitingPackets::most + 1; ++i) {
        handler->decide = always(
            withRewrite(nexthop("east", "2001:db8:2::7:" + std::to_string(1 + i)), swapInfo(300)));
        receiveAt(west, labelled());
    }
    EXPECT_EQ(summary().waiting, std::uint64_t{WaitingPackets::most});
    EXPECT_EQ(dropped(), noNeighbour);
    learn("2001:db8:2::7:1"); // the oldest, which had to make room
    EXPECT_TRUE(out[east].frames.empty());
    learn("2001:db8:2::7:2");
    EXPECT_EQ(out[east].frames.size(), 1U);
}

TEST_F(WaitingPacketsTest, AFloodToNobodyKeepsNoOtherFromBeingResolved) {
    const auto sendFrom = [&](std::uint32_t source, std::uint32_t destination) {
        Ipv4 fields;
        fields.source = source;
        fields.destination = destination;
        receiveIp(ipv4(fields, udp()));
    };
    std::vector<std::string> real;
    std::vector<Solicits::Neighbour> solicited;
    const auto settle = [&](int milliseconds) {
        const auto taken = tables.neighbours.wanted().take();
        solicited.insert(solicited.end(), taken.begin(), taken.end());
        forwarder->settleWaiting(Clock::time_point(1h) + std::chrono::milliseconds(milliseconds));
    };
    settle(0);
    std::uint32_t nobody = 0x0a040000; // the interface route's prefix
    for (int millisecond = 1; millisecond <= 1000; ++millisecond) {
        for (int i = 0; i < 20; ++i) {
            sendFrom(0xc0000201, nobody++);
        }
        if (millisecond % 50 == 0) { // another sender, and a next hop by label
            const int host = 100 + millisecond / 50;
            sendFrom(0xc6336401, 0x0a000200U + static_cast<std::uint32_t>(host));
            real.push_back("10.0.2." + std::to_string(host));
            real.push_back("10.77.1." + std::to_string(host));
            handler->decide = always(withRewrite(nexthop("east", real.back()), swapInfo(300)));
            receiveAt(west, labelled());
        }
        settle(millisecond);
    }
    const auto isSolicited = [&](const std::string& text) {
        return std::find(solicited.begin(), solicited.end(),
                         Solicits::Neighbour{address(text), east}) != solicited.end();
    };
    for (const std::string& host : real) {
        EXPECT_TRUE(isSolicited(host)) << host;
        tables.neighbours.learn(address(host), east, mac);
    }
    forwarder->settleWaiting(Clock::time_point(1h) + 1s);
    EXPECT_EQ(out[east].frames.size(), real.size());
    const std::size_t ofFlood = solicited.size() - real.size();
    EXPECT_LE(ofFlood, Solicits::perSender.burst + Solicits::perSender.perSecond + 1U);
    EXPECT_GE(ofFlood, std::size_t{Solicits::perSender.burst});
    EXPECT_GT(dropped().at("Too many unknown neighbours asked for"), 19'000U);
}

TEST_F(WaitingPacketsTest, PacketsOfManySendersLeaveRoomForNextHops) {
    handler->decide = always(withRewrite(nexthop("east", "10.0.2.77"), swapInfo(300)));
    receiveAt(west, labelled());
    for (std::uint32_t i = 0; i < 20'000; ++i) {
        Ipv4 fields;
        fields.source = 0x14000000 + (i << 8U);
        fields.destination = 0x0a040000 + i / mostPerNeighbour;
        receiveIp(ipv4(fields, udp()));
        tables.neighbours.wanted().take();
    }
    EXPECT_EQ(summary().waiting, 1U + WaitingPackets::mostOfPackets);
    learn("10.0.2.77");
    EXPECT_EQ(out[east].frames.size(), 1U);
}

TEST_F(WaitingPacketsTest, ANeighbourThatFailsOrIsOverdueIsReported) {
    const Clock::time_point now = Clock::now();
    receiveIp(packetTo("10.0.2.77"));
    receiveIp(packetTo("10.0.2.78"));
    tables.neighbours.fail(address("10.0.2.77"), east);
    forwarder->settleWaiting(now);
    EXPECT_EQ(listener.reasons, std::vector<std::string>{"No neighbour for the next hop"});
    EXPECT_EQ(listener.frames, Frames{ipFrame(packetTo("10.0.2.77"))});
    EXPECT_EQ(dropped(), noNeighbour);
    forwarder->settleWaiting(now + Solicits::ofPacket);
    receiveIp(packetTo("10.0.2.77")); // a new attempt
    EXPECT_EQ(summary().waiting, 2U);
    forwarder->settleWaiting(Clock::now() + WaitingPackets::longest);
    EXPECT_EQ(summary().waiting, 0U);
    EXPECT_EQ(listener.reasons.size(), 3U);
    EXPECT_EQ(dropped().begin()->second, 3U);
}

TEST_F(WaitingPacketsTest, ForAMomentNobodyWaitsForANeighbourThatHasFailed) {
    forwarder->settleWaiting(Clock::now());
    receiveIp(packetTo("10.0.2.77"));
    tables.neighbours.fail(address("10.0.2.77"), east);
    forwarder->settleWaiting(Clock::now());
    receiveIp(packetTo("10.0.2.77"));
    EXPECT_EQ(summary().waiting, 0U);
    EXPECT_EQ(dropped(), (ReasonCounts{{"No neighbour for the next hop", 2}}));
    EXPECT_EQ(listener.reasons.size(), 2U);
    learn("10.0.2.77");
    receiveIp(packetTo("10.0.2.77"));
    EXPECT_EQ(out[east].frames.size(), 1U);
}

TEST_F(WaitingPacketsTest, OnlyPacketsRoutedByTheirDestinationAreReported) {
    handler->decide = always(withRewrite(nexthop("east", "10.0.2.77"), swapInfo(300)));
    receiveAt(west, labelled());
    forwarder->settleWaiting(Clock::time_point::max());
    EXPECT_EQ(dropped(), noNeighbour);
    EXPECT_TRUE(listener.reasons.empty());
    receiveIp(packetTo("192.0.2.1"));
    receivePopped(packetTo("10.9.9.1"), "10.9.9.1");
    receivePopped(packet(), "192.0.2.1"); // not the packet's own destination
    EXPECT_EQ(listener.reasons, (std::vector<std::string>{"No route", "Route drops"}));
}

TEST_F(WaitingPacketsTest, WhereNobodySolicitsNothingWaits) {
    tables.neighbours.solicitsIs(false);
    receiveIp(packetTo("10.0.2.77"));
    EXPECT_EQ(summary().waiting, 0U);
    EXPECT_EQ(dropped(), noNeighbour);
    EXPECT_TRUE(tables.neighbours.wanted().take().empty());
}

TEST_F(WaitingPacketsTest, APortThatIsDownByThenDropsIt) {
    receiveIp(packetTo("10.0.2.77"));
    ports.ports()[east].isUp = false;
    learn("10.0.2.77");
    EXPECT_EQ(dropped(), (ReasonCounts{{"Egress port is down", 1}}));
}

TEST_F(WaitingPacketsTest, ANewConfigurationTakesNothingFromThem) {
    receiveIp(packetTo("10.5.0.1")); // by a route that is removed
    tables.configure(configOf("ports:\n"
                              "  - {name: west, mac: \"02:00:00:00:00:01\"}\n"
                              "  - {name: east, mac: \"02:00:00:00:00:02\"}\n"
                              "  - {name: red1, mac: \"02:00:00:00:00:03\"}\n"
                              "  - {name: red2, mac: \"02:00:00:00:00:04\"}\n"
                              "  - {name: aside, mac: \"02:00:00:00:00:05\"}\n",
                              "test.yaml"));
    learn("10.77.0.1");
    EXPECT_EQ(out[east].frames, Frames{sent(packetTo("10.5.0.1", 63))});
}

TEST_F(WaitingPacketsTest, WaitingTakesNothingFromTheHeap) {
    if (TestSupport::slabsFromHeap) {
        GTEST_SKIP();
    }
    class Nowhere : public TransmitPort {
      public:
        void transmit(const Frame&) override {}
    } nowhere;
    ports.ports()[east].out = &nowhere;
    tables.drops = nullptr;
    const Bytes four = ipFrame(packetTo("10.0.2.77"));
    const Bytes six = ipFrame(sixTo("2001:db8:2::77"));
    Clock::time_point now = Clock::now();
    const auto round = [&] {
        for (int i = 0; i < 2 * mostPerNeighbour; ++i) {
            receiveAt(west, four);
            receiveAt(west, six);
        }
        tables.neighbours.fail(address("10.0.2.77"), east);
        now += WaitingPackets::longest + 1s;
        forwarder->settleWaiting(now);
    };
    round();
    const std::uint64_t warm = TestSupport::heapAllocations;
    round();
    EXPECT_EQ(TestSupport::heapAllocations, warm);
    EXPECT_EQ(summary().waiting, 0U);
}

TEST_F(WaitingPacketsTest, AtAPortThatIsDownNobodyIsAskedFor) {
    ports.upIs(east, false);
    receiveIp(packetTo("10.0.2.77"));
    EXPECT_EQ(dropped(), (ReasonCounts{{"Egress port is down", 1}}));
    EXPECT_TRUE(tables.neighbours.wanted().take().empty());
}

TEST_F(WaitingPacketsTest, APacketWhosePortHasGoneDownMeanwhileIsDroppedForThat) {
    receiveIp(packetTo("10.0.2.77"));
    ports.upIs(east, false);
    forwarder->settleWaiting(Clock::time_point::max());
    EXPECT_EQ(dropped(), (ReasonCounts{{"Egress port is down", 1}}));
}

} // namespace WaitingPacketsTest
