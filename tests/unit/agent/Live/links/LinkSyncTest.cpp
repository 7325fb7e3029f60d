#include "Live/links/LinkSync.h"

#include <algorithm>
#include <thread>

#include "ConfigTesting.h"
#include "Live/ports/PacketPort.h"
#include "LiveTesting.h"

namespace LinkSyncTest {

namespace {

using namespace OvixAgent;
using namespace OvixAgent::Testing;
using TestSupport::ip;

/// Port "left", whose interface is one end of a link, and its sub-interface of VLAN 10.
class LinkSyncTest : public TestSupport::OwnNetwork {
  protected:
    void SetUp() override {
        OwnNetwork::SetUp();
        if (IsSkipped()) {
            return;
        }
        config = configOf(R"(
ports:
  - {name: left, kind: packet}
  - {name: vlan, parent: left, vlan: 10}
)",
                          "test.yaml");
        begin();
    }
    void begin() {
        links.reset();
        ports.reset();
        tables.emplace(config);
        ports.emplace(config, tables->ports);
        links.emplace(config, *tables, interfaces, *ports);
        EXPECT_TRUE(soon([&] { return links->isComplete() && isUp(0); }));
    }

    bool isUp(PortIndex port) const {
        const Port& of = tables->ports.ports()[port];
        EXPECT_EQ(interfaces->operUp(of.intfId), of.isUp);
        return of.isUp;
    }
    bool soon(const std::function<bool()>& isSo) {
        return TestSupport::pollUntil([&] { return links->descriptor(); },
                                      [&] { links->receive(); }, isSo);
    }
    /// Whether a frame that the other end sends comes in at port "left".
    bool receives(const LiveTesting::Bytes& sent = LiveTesting::toLeft({0x8847}, 7)) {
        using namespace LiveTesting;
        PacketPort right(9, "right", PacketIntake::labelledAndIp);
        send(right, sent);
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(2);
        bool isThere = false;
        while (!isThere && std::chrono::steady_clock::now() < end) {
            ports->port(0).receive(each([&](const Frame& frame) {
                                       isThere = isThere || Bytes(frame.bytes.begin(),
                                                                  frame.bytes.end()) == sent;
                                   }),
                                   100);
        }
        return isThere;
    }

    AgentConfig config;
    std::optional<ForwardingTables> tables;
    std::optional<LivePorts> ports;
    Ptr<Interface::EthIntfStatusDir> interfaces = Tessel::make<Interface::EthIntfStatusDir>();
    std::optional<LinkSync> links;
};

} // namespace

TEST_F(LinkSyncTest, ARenamedInterfaceIsFollowedByItsIndex) {
    ip("link set left down");
    ASSERT_TRUE(soon([&] { return !isUp(0) && !isUp(1); }));
    ip("link set left name other");
    ip("link set other up");
    ASSERT_TRUE(soon([&] { return isUp(0) && isUp(1); }));
    EXPECT_TRUE(receives());
    EXPECT_TRUE(ports->port(0).reopen());
    EXPECT_TRUE(receives());
    ip("link set other down"); // as for backups to take over
    EXPECT_TRUE(soon([&] { return !isUp(0) && !isUp(1); }));
}

TEST_F(LinkSyncTest, AnotherInterfaceOfTheNameTakesOverWhenTheFirstHasGone) {
    ip("link set left down");
    ip("link set left name other");
    ip("link set other up");
    TestSupport::addLinkPair({"left", "02:00:00:00:00:0a"}, {"far", "02:00:00:00:00:0b"});
    ip("link set left mtu 1400");
    ip("link set other mtu 1450");
    ASSERT_TRUE(soon([&] { return isUp(0) && tables->ports.ports()[0].mtu == 1450; }));
    EXPECT_TRUE(receives());
    ip("link del other");
    ASSERT_TRUE(soon([&] { return tables->ports.ports()[0].mtu == 1400; }));
    EXPECT_TRUE(isUp(0));
    EXPECT_EQ(tables->ports.ports()[0].mac, (Lumo::EthAddr{2, 0, 0, 0, 0, 10}));
}

/// The kernel takes frames for the MAC of the interface, and answers ARP with it.
TEST_F(LinkSyncTest, AnInterfaceHasTheMacOfItsPort) {
    const Lumo::EthAddr configured{2, 0, 0, 0, 0x77, 1};
    config.ports[0].mac = configured;
    begin();
    EXPECT_EQ(macOfInterface("left"), configured);
    EXPECT_EQ(tables->ports.ports()[0].mac, configured);
    ip("link set left address 02:00:00:00:77:02");
    const Lumo::EthAddr other{2, 0, 0, 0, 0x77, 2};
    EXPECT_TRUE(soon([&] { return tables->ports.ports()[0].mac == other; }));
    EXPECT_EQ(macOfInterface("left"), other);
}

TEST_F(LinkSyncTest, ASubInterfaceSendsNoMoreThanFitsThroughItsInterface) {
    const auto mtu = [this](PortIndex port) { return tables->ports.ports()[port].mtu; };
    config = configOf(R"(
ports:
  - {name: left, kind: packet}
  - {name: vlan, parent: left, vlan: 10, mtu: 1500}
)");
    begin();
    ip("link set left mtu 1400");
    EXPECT_TRUE(soon([&] { return mtu(0) == 1400 && mtu(1) == 1400; }));
    ip("link set left mtu 1600");
    EXPECT_TRUE(soon([&] { return mtu(0) == 1600 && mtu(1) == 1500; }));
}

/// Any interface of the name will do for its VLAN device.
TEST_F(LinkSyncTest, FramesForAVlanDevicesOwnMacComeInAtItsParent) {
    using namespace LiveTesting;
    constexpr std::uint8_t station = 0x77;
    const Bytes labelled = frameOf(rightStation, station, {0x8100, 10, 0x8847}, 1);
    const Bytes ofIp = frameOf(rightStation, station, {0x8100, 10, 0x0800}, 2);
    EXPECT_FALSE(receives(labelled));
    EXPECT_TRUE(tables->ports.ports()[0].anyMac);
    TestSupport::addLinkPair({"vlan", "02:00:00:00:00:77"}, {"far", "02:00:00:00:00:0b"});
    ASSERT_TRUE(soon([&] { return tables->ports.ports()[1].mac[5] == station; }));
    EXPECT_TRUE(receives(labelled));
    EXPECT_TRUE(receives(ofIp));
    EXPECT_TRUE(receives());
    EXPECT_FALSE(receives(frameOf(rightStation, station, {0x8847}, 3)));
    EXPECT_FALSE(tables->ports.ports()[0].anyMac); // others' tagged frames are told by it
    ip("link del vlan");
    ASSERT_TRUE(soon([&] { return tables->ports.ports()[1].mac[5] == leftStation; }));
    EXPECT_FALSE(receives(labelled));
    EXPECT_TRUE(tables->ports.ports()[0].anyMac);
}

TEST_F(LinkSyncTest, AMacThatTheKernelRefusesIsNotThatOfThePort) {
    const Lumo::EthAddr before = macOfInterface("left");
    config.ports[0].mac = {1, 0, 0, 0, 0, 1}; // of a group
    begin();
    EXPECT_EQ(tables->ports.ports()[0].mac, before);
    const std::vector<std::string> news = ports->news();
    EXPECT_TRUE(std::any_of(news.begin(), news.end(), [](const std::string& line) {
        return line.starts_with("left: setting the interface's MAC: ");
    }));
}

TEST_F(LinkSyncTest, ALinkThatIsDownIsNoticedBeforeTheKernelReportsIt) {
    using namespace std::chrono_literals;
    const LinkSync::Clock::time_point now{1h};
    links->checkCarriers(now);
    EXPECT_TRUE(isUp(0));
    ip("link set right down");
    // Not operational any more, but nothing is received of that.
    const auto end = std::chrono::steady_clock::now() + 10s;
    for (auto later = now; isUp(0) && std::chrono::steady_clock::now() < end; later += 1ms) {
        links->checkCarriers(later);
    }
    EXPECT_FALSE(isUp(0));
    EXPECT_FALSE(isUp(1));
    ip("link set right up");
    EXPECT_TRUE(soon([&] { return isUp(0) && isUp(1); }));
}

TEST_F(LinkSyncTest, FlagsAreReadTenThousandTimesASecondAtMost) {
    using namespace std::chrono_literals;
    const LinkSync::Clock::time_point now{1h};
    links->checkCarriers(now);
    ip("link set left down");
    EXPECT_FALSE(links->checkCarriers(now + 99us));
    EXPECT_TRUE(isUp(0));
    EXPECT_TRUE(links->checkCarriers(now + 100us));
    EXPECT_FALSE(isUp(0));
}

TEST_F(LinkSyncTest, WhatAnotherThreadNoticesIsTakenOverAtOnce) {
    using namespace std::chrono_literals;
    const auto hasFallen = links->watch();
    EXPECT_FALSE(hasFallen());
    const LinkSync::Clock::time_point now{1h};
    links->checkCarriers(now);
    ip("link set left down");
    std::this_thread::sleep_for(links->lookEvery());
    EXPECT_TRUE(hasFallen());
    EXPECT_TRUE(isUp(0));
    EXPECT_TRUE(links->checkCarriers(now));
    EXPECT_FALSE(isUp(0));
    EXPECT_FALSE(links->checkCarriers(now));
    std::this_thread::sleep_for(links->lookEvery());
    EXPECT_FALSE(hasFallen());
}

TEST_F(LinkSyncTest, AnInterfaceThatIsRemovedAndMadeAgainComesBack) {
    ip("link del left");
    ASSERT_TRUE(soon([&] { return !isUp(0) && !isUp(1); }));
    addLinks();
    EXPECT_TRUE(soon([&] { return isUp(0) && isUp(1); }));
    EXPECT_TRUE(receives());
}

} // namespace LinkSyncTest
