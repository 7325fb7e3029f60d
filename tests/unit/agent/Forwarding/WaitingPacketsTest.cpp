#include "Forwarding/WaitingPackets.h"

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
    EXPECT_EQ(tables.neighbours.takeWanted().size(), 2U);
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
        receiveIp(sixTo("2001:db8:2::7:" + std::to_string(1 + i)));
    }
    EXPECT_EQ(summary().waiting, std::uint64_t{WaitingPackets::most});
    EXPECT_EQ(dropped(), noNeighbour);
    learn("2001:db8:2::7:1"); // the oldest, which had to make room
    EXPECT_TRUE(out[east].frames.empty());
    learn("2001:db8:2::7:2");
    EXPECT_EQ(out[east].frames.size(), 1U);
}

TEST_F(WaitingPacketsTest, ANeighbourThatFailsOrIsOverdueIsReported) {
    receiveIp(packetTo("10.0.2.77"));
    receiveIp(packetTo("10.0.2.78"));
    tables.neighbours.fail(address("10.0.2.77"), east);
    forwarder->settleWaiting(Clock::now());
    EXPECT_EQ(listener.reasons, std::vector<std::string>{"No neighbour for the next hop"});
    EXPECT_EQ(listener.frames, Frames{ipFrame(packetTo("10.0.2.77"))});
    EXPECT_EQ(dropped(), noNeighbour);
    receiveIp(packetTo("10.0.2.77")); // a new attempt
    forwarder->settleWaiting(Clock::now() + WaitingPackets::longest - 1s);
    EXPECT_EQ(summary().waiting, 2U);
    forwarder->settleWaiting(Clock::now() + WaitingPackets::longest);
    EXPECT_EQ(summary().waiting, 0U);
    EXPECT_EQ(listener.reasons.size(), 3U);
    EXPECT_EQ(dropped().begin()->second, 3U);
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
    EXPECT_TRUE(tables.neighbours.takeWanted().empty());
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
    const auto round = [&] {
        for (int i = 0; i < 2 * mostPerNeighbour; ++i) {
            receiveAt(west, four);
            receiveAt(west, six);
        }
        tables.neighbours.fail(address("10.0.2.77"), east);
        forwarder->settleWaiting(Clock::now() + WaitingPackets::longest);
    };
    round();
    const std::uint64_t warm = TestSupport::heapAllocations;
    round();
    EXPECT_EQ(TestSupport::heapAllocations, warm);
}

} // namespace WaitingPacketsTest
