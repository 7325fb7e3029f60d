#include "Live/links/LinkMonitor.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <vector>

#include "LiveTesting.h"
#include "SeenLinks.h"

namespace LinkMonitorTest {

namespace {

using Lumo::EthAddr;
using OvixAgent::LinkEvents;
using OvixAgent::LinkMonitor;
using OvixAgent::LinkState;
using OvixAgent::NeighbourState;
using TestSupport::ip;

class LinkMonitorTest : public TestSupport::OwnNetwork {
  protected:
    void SetUp() override {
        OwnNetwork::SetUp();
        if (!IsSkipped()) {
            LinkEvents events = seen.events();
            events.linkIs = [this, see = events.linkIs](const LinkState& link) {
                see(link);
                reported.push_back(link);
            };
            events.linkDel = [this, see = events.linkDel](const LinkState& link) {
                see(link);
                deleted.push_back(link);
            };
            monitor = std::make_unique<LinkMonitor>(events);
            ASSERT_TRUE(until([this] { return monitor->isComplete(); }));
        }
    }

    bool until(const std::function<bool()>& isDone) {
        return TestSupport::pollUntil([this] { return monitor->descriptor(); },
                                      [this] { monitor->receive(); }, isDone);
    }

    const LinkState& link(const std::string& name) {
        static const LinkState none;
        const LinkState* found = seen.link(name);
        return found != nullptr ? *found : none;
    }

    LiveTesting::SeenLinks seen;
    std::unique_ptr<LinkMonitor> monitor;
    std::vector<LinkState> reported;
    std::vector<LinkState> deleted;
};

} // namespace

TEST_F(LinkMonitorTest, ReportsTheExistingLinks) {
    EXPECT_TRUE(link("left").isUp());
    EXPECT_EQ(link("left").mac, (EthAddr{2, 0, 0, 0, 0, 1}));
    EXPECT_EQ(link("right").mac, (EthAddr{2, 0, 0, 0, 0, 2}));
    EXPECT_EQ(link("right").mtu, 1500U);
    EXPECT_EQ(link("lo").mtu, 65536U);
    EXPECT_EQ(seen.link(link("left").index)->name, "left");
    EXPECT_EQ(seen.link("middle"), nullptr);
    EXPECT_EQ(reported.size(), 3U);
    EXPECT_TRUE(deleted.empty());
}

TEST_F(LinkMonitorTest, ALinkTakenDownRemovesTheCarrierOfItsPeer) {
    ip("link set left down");
    EXPECT_TRUE(until([this] { return !link("left").isEnabled && !link("right").hasCarrier; }));
    EXPECT_FALSE(link("left").isUp());
    EXPECT_FALSE(link("right").isUp());
    EXPECT_TRUE(link("right").isEnabled);
    ip("link set left up");
    EXPECT_TRUE(until([this] { return link("left").isUp() && link("right").isUp(); }));
}

TEST_F(LinkMonitorTest, ReportsANewMtuMacAndName) {
    ip("link set left mtu 1400");
    EXPECT_TRUE(until([this] { return link("left").mtu == 1400; }));
    ip("link set left address 02:00:00:00:00:77");
    EXPECT_TRUE(until([this] { return link("left").mac == EthAddr{2, 0, 0, 0, 0, 0x77}; }));
    const std::uint32_t index = link("left").index;
    ip("link set left down && ip link set left name west");
    EXPECT_TRUE(until([this] { return link("west").index != 0; }));
    EXPECT_EQ(link("west").index, index);
    EXPECT_EQ(seen.link("left"), nullptr);
    EXPECT_TRUE(deleted.empty());
}

TEST_F(LinkMonitorTest, DoesNotReportWhatDoesNotChange) {
    const std::size_t before = reported.size();
    ip("link set left mtu 1500 && ip link set left alias again && ip link set left mtu 1400");
    EXPECT_TRUE(until([this] { return link("left").mtu == 1400; }));
    EXPECT_EQ(reported.size(), before + 1);
}

TEST_F(LinkMonitorTest, ALinkCreatedAgainHasAnotherIndex) {
    const std::uint32_t index = link("left").index;
    ip("link del left");
    EXPECT_TRUE(until([this] { return deleted.size() == 2; }));
    EXPECT_EQ(seen.link(index), nullptr);
    addLinks();
    EXPECT_TRUE(until([this] { return link("left").isUp(); }));
    EXPECT_NE(link("left").index, index);
}

TEST_F(LinkMonitorTest, ALinkRemovedFromABridgeExists) {
    ip("link add name bridge type bridge");
    ip("link set left master bridge");
    ip("link set left nomaster");
    ip("link set left mtu 1400");
    EXPECT_TRUE(until([this] { return link("left").mtu == 1400; }));
    EXPECT_TRUE(deleted.empty());
}

TEST_F(LinkMonitorTest, RecoversChangesLostInAnOverrun) {
    const int smallest = 1;
    setsockopt(monitor->descriptor(), SOL_SOCKET, SO_RCVBUF, &smallest, sizeof smallest);
    for (int mtu = 1300; mtu < 1320; ++mtu) {
        ip("link set lo mtu " + std::to_string(mtu));
    }
    ip("link del left");
    ip("link add name new type veth peer name newer");
    EXPECT_TRUE(until([this] { return monitor->overruns() > 0 && monitor->isComplete(); }));
    EXPECT_EQ(deleted.size(), 2U);
    EXPECT_EQ(seen.link("left"), nullptr);
    EXPECT_EQ(link("new").mtu, 1500U);
    EXPECT_EQ(link("lo").mtu, 1319U);
}

} // namespace LinkMonitorTest
