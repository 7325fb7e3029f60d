#include "Live/ports/LivePorts.h"

#include <thread>

#include "ConfigTesting.h"
#include "Live/ports/PacketPort.h"
#include "LiveTesting.h"
#include "Refusal.h"
#include "ShmTesting.h"
#include "State/ForwardingTables.h"

namespace LivePortsTest {

namespace {

using namespace OvixAgent;
using namespace OvixAgent::Testing;
using TestSupport::ip;
using Lines = std::vector<std::string>;

class LivePortsTest : public TestSupport::OwnNetwork {
  protected:
    void open(const std::string& text) {
        config = configOf(text, "test.yaml");
        tables.emplace(config);
        ports.emplace(config, tables->ports);
    }

    AgentConfig config;
    std::optional<ForwardingTables> tables;
    std::optional<LivePorts> ports;
};

TEST_F(LivePortsTest, AMissingPortIsReportedOnceAndAgainWhenOpen) {
    open("ports: [{name: left, kind: packet}, {name: later, kind: packet}]");
    ports->requireUsable();
    const Lines missing{"later: finding the interface: No such device"};
    EXPECT_EQ(ports->problems(), missing);
    EXPECT_EQ(ports->news(), Lines{missing.front() + "; waiting for the interface"});
    EXPECT_EQ(ports->news(), Lines());
    ip("link add later type veth peer name other");
    ports->reopen();
    EXPECT_EQ(ports->news(), Lines{"later: open"});
    EXPECT_EQ(ports->problems(), Lines());
}

TEST_F(LivePortsTest, OnlyWhereACircuitIsAStationsAddressIsCheckedByTheAgent) {
    open(R"({ports: [{name: left, kind: packet}, {name: left.5, parent: left, vlan: 5},
                     {name: left.6, parent: left, vlan: 6}, {name: right, kind: packet}],
              pseudowires: [{name: gold, port: left.5, label: 500, interface: right,
                             nexthop: 10.0.0.1}]})");
    const auto anyMac = [&] {
        std::vector<bool> all;
        for (const Port& port : tables->ports.ports()) {
            all.push_back(port.anyMac);
        }
        return all;
    };
    ports->intakesAre(tables->pseudowires, tables->ports);
    EXPECT_EQ(anyMac(), (std::vector<bool>{false, false, false, true}));
    config.pseudowires.clear();
    ports->intakesAre(Pseudowires(config), tables->ports);
    EXPECT_EQ(anyMac(), (std::vector<bool>{true, true, true, true}));
}

TEST_F(LivePortsTest, ARunMayWaitForItsOnlyInterface) {
    open("ports: [{name: later, kind: packet}]");
    EXPECT_EQ(TestSupport::refusal([&] { ports->requireUsable(); }), "");
}

TEST_F(LivePortsTest, ARunWithoutAUsablePortIsRefused) {
    ip("link set left mtu 9000");
    open("ports: [{name: left, kind: xdp}]");
    const std::string said = TestSupport::refusal([&] { ports->requireUsable(); });
    EXPECT_EQ(said.find("no port can be used: left: an MTU of 9000 is more than "), 0U) << said;
}

TEST_F(LivePortsTest, AnInterfaceOfAnotherAgentIsRefusedUntilThatEnds) {
    const ShmTesting::Signal isOpen;
    ShmTesting::Child other([&] {
        const PacketPort left(0, "left", PacketIntake::labelled);
        isOpen.give();
        pause();
    });
    isOpen.await();
    const std::string expected = "another agent, process " + std::to_string(other.process()) +
                                 ", forwards on this interface: Device or resource busy";
    const auto begin = [this] {
        return TestSupport::refusal([this] { open("ports: [{name: left, kind: packet}]"); });
    };
    EXPECT_EQ(begin(), "left: " + expected);
    EXPECT_EQ(TestSupport::refusal([this] { open("ports: [{name: left, kind: xdp}]"); }),
              "left: " + expected);
    PacketPort late(0, "left", PacketIntake::labelled); // of a run that goes on
    EXPECT_EQ(late.problem(), "left: " + expected);
    EXPECT_EQ(TestSupport::refusal([this] { open("ports: [{name: right, kind: packet}]"); }), "");
    other.kill();
    EXPECT_TRUE(late.reopen());
    EXPECT_EQ(begin(), "");
}

TEST_F(LivePortsTest, AnInvalidCpuTapIsAProblem) {
    open("{ports: [{name: left, kind: packet}], cpu: {tap: right}}");
    ASSERT_EQ(ports->problems().size(), 1U);
    EXPECT_EQ(ports->problems()[0].find("right: "), 0U) << ports->problems()[0];
    EXPECT_EQ(ports->news(), ports->problems());
}

TEST_F(LivePortsTest, FramesReceivedBeforeTheStopAreDelivered) {
    using namespace LiveTesting;
    open("ports: [{name: left, kind: packet}, {name: right, kind: packet}]");
    LivePort& left = ports->port(0);
    LivePort& right = ports->port(1);
    const Bytes before = toRight({0x8847}, 1);
    send(left, before);
    right.stopIntake();
    send(left, toRight({0x8847}, 2));
    EXPECT_EQ(receiveUpTo(right, before), std::vector<Bytes>{before});
    std::this_thread::sleep_for(std::chrono::milliseconds(10)); // longer than a block is kept back
    EXPECT_EQ(right.receive(each([](const Frame&) {}), 10), 0U);
}

} // namespace

} // namespace LivePortsTest
