#include <arpa/inet.h>
#include <fstream>
#include <gtest/gtest.h>
#include <optional>
#include <vector>

#include "Live/links/LinkMonitor.h"
#include "LiveTesting.h"
#include "SeenLinks.h"

namespace NeighbourMonitorTest {

namespace {

using Lumo::EthAddr;
using OvixAgent::LinkEvents;
using OvixAgent::LinkMonitor;
using OvixAgent::NeighbourState;
using Reach = OvixAgent::NeighbourState::Reach;
using TestSupport::ip;
using TestSupport::Namespace;

Lumo::IpGenAddr addressOf(const char* text) {
    return Lumo::IpGenAddr::fromText(text);
}

constexpr EthAddr rightMac{2, 0, 0, 0, 0, 2};

/// The right end of the link is that of another host, which answers for itself.
class NeighbourMonitorTest : public TestSupport::OwnNetwork {
  protected:
    void SetUp() override {
        OwnNetwork::SetUp();
        if (IsSkipped()) {
            return;
        }
        here.emplace();
        ASSERT_EQ(TestSupport::leaveNetwork(), "");
        there.emplace();
        here->enter();
        ip("link set right netns " + there->path());
        addAddresses("left", "1");
        there->enter();
        addAddresses("right", "2");
        here->enter();
        monitor = std::make_unique<LinkMonitor>(events());
        ASSERT_TRUE(until([this] { return monitor->isComplete(); }));
        left = seen.link("left")->index;
    }

    static void addAddresses(const std::string& link, const std::string& host) {
        ip("address add 192.0.2." + host + "/24 dev " + link);
        ip("address add 2001:db8::" + host + "/64 dev " + link + " nodad");
        ip("address add fe80::" + host + "/64 dev " + link + " nodad"); // what queries come from
        ip("link set " + link + " up");
    }

    LinkEvents events() {
        LinkEvents all = seen.events();
        all.neighbourDel = [this, see = all.neighbourDel](const NeighbourState& neighbour) {
            see(neighbour);
            deleted.push_back(neighbour);
        };
        return all;
    }

    bool until(const std::function<bool()>& isDone) {
        return TestSupport::pollUntil([this] { return monitor->descriptor(); },
                                      [this] { monitor->receive(); }, isDone);
    }

    NeighbourState neighbour(const char* address) {
        const NeighbourState* found = seen.neighbour(left, addressOf(address));
        return found != nullptr ? *found : NeighbourState{};
    }

    bool isDeleted(const char* address) {
        for (const NeighbourState& each : deleted) {
            if (each.address == addressOf(address)) {
                return true;
            }
        }
        return false;
    }

    std::optional<Namespace> here;
    std::optional<Namespace> there;
    LiveTesting::SeenLinks seen;
    std::unique_ptr<LinkMonitor> monitor;
    std::uint32_t left = 0;
    std::vector<NeighbourState> deleted;
};

} // namespace

TEST_F(NeighbourMonitorTest, ReportsASolicitedNeighbour) {
    for (const char* address : {"192.0.2.2", "2001:db8::2"}) {
        EXPECT_TRUE(monitor->solicit(left, addressOf(address)));
        EXPECT_TRUE(until([&] { return neighbour(address).mac == rightMac; })) << address;
        EXPECT_EQ(neighbour(address).reach, Reach::confirmed) << address;
    }
    EXPECT_EQ(monitor->refusedSolicits(), 0U);
}

TEST_F(NeighbourMonitorTest, ANeighbourFailsUntilItAnswers) {
    std::ofstream("/proc/sys/net/ipv4/neigh/left/retrans_time_ms") << 20;
    monitor->solicit(left, addressOf("192.0.2.3"));
    EXPECT_TRUE(until([this] { return neighbour("192.0.2.3").reach == Reach::failed; }));
    EXPECT_FALSE(neighbour("192.0.2.3").mac.has_value());
    there->enter();
    ip("address add 192.0.2.3/24 dev right");
    here->enter();
    monitor->solicit(left, addressOf("192.0.2.3"));
    EXPECT_TRUE(until([this] { return neighbour("192.0.2.3").mac == rightMac; }));
}

TEST_F(NeighbourMonitorTest, ReportsANewMacOfANeighbour) {
    monitor->solicit(left, addressOf("192.0.2.2"));
    EXPECT_TRUE(until([this] { return neighbour("192.0.2.2").mac == rightMac; }));
    ip("neigh replace 192.0.2.2 lladdr 02:00:00:00:00:22 dev left nud stale");
    const EthAddr other{2, 0, 0, 0, 0, 0x22};
    EXPECT_TRUE(until([&] { return neighbour("192.0.2.2").mac == other; }));
    EXPECT_EQ(neighbour("192.0.2.2").reach, Reach::stale);
}

TEST_F(NeighbourMonitorTest, DeletesTheNeighboursOfALinkThatGoesDown) {
    ip("neigh add 192.0.2.9 lladdr 02:00:00:00:00:09 dev left nud reachable");
    EXPECT_TRUE(until([this] { return neighbour("192.0.2.9").mac.has_value(); }));
    ip("link set left down");
    EXPECT_TRUE(until([this] { return isDeleted("192.0.2.9"); }));
    EXPECT_EQ(seen.neighbour(left, addressOf("192.0.2.9")), nullptr);
}

TEST_F(NeighbourMonitorTest, ReportsTheExistingNeighbours) {
    ip("neigh add 192.0.2.8 lladdr 02:00:00:00:00:08 dev left nud permanent");
    ip("neigh add 2001:db8::8 lladdr 02:00:00:00:00:08 dev left nud stale");
    monitor = std::make_unique<LinkMonitor>(events());
    EXPECT_TRUE(until([this] { return monitor->isComplete(); }));
    EXPECT_EQ(neighbour("192.0.2.8").reach, Reach::confirmed);
    EXPECT_EQ(neighbour("2001:db8::8").reach, Reach::stale);
    EXPECT_EQ(neighbour("2001:db8::8").mac, (EthAddr{2, 0, 0, 0, 0, 8}));
}

TEST_F(NeighbourMonitorTest, CountsARefusedSolicitOnADeletedInterface) {
    EXPECT_TRUE(monitor->solicit(9999, addressOf("192.0.2.2")));
    EXPECT_TRUE(until([this] { return monitor->refusedSolicits() == 1; }));
    EXPECT_TRUE(monitor->solicit(left, addressOf("192.0.2.2")));
    EXPECT_TRUE(until([this] { return neighbour("192.0.2.2").mac == rightMac; }));
}

TEST_F(NeighbourMonitorTest, TheSameAddressOnSeveralLinksIsKeptApart) {
    ip("link add name other type veth peer name another && ip link set other up");
    ip("neigh add 192.0.2.7 lladdr 02:00:00:00:00:07 dev left nud permanent");
    ip("neigh add 192.0.2.7 lladdr 02:00:00:00:00:08 dev other nud permanent");
    const auto onOther = [this] {
        const OvixAgent::LinkState* link = seen.link("other");
        return link != nullptr ? seen.neighbour(link->index, addressOf("192.0.2.7")) : nullptr;
    };
    ASSERT_TRUE(until([&] { return onOther() != nullptr; }));
    EXPECT_EQ(onOther()->mac, (EthAddr{2, 0, 0, 0, 0, 8}));
    EXPECT_EQ(neighbour("192.0.2.7").mac, (EthAddr{2, 0, 0, 0, 0, 7}));
}

} // namespace NeighbourMonitorTest
