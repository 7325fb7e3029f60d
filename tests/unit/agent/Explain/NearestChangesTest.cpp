#include "Explain/NearestChanges.h"

#include <gtest/gtest.h>

#include "ConfigTesting.h"
#include "Explain/FrameWords.h"

namespace NearestChangesTest {

using namespace OvixAgent;

namespace {

const std::string ports = R"(
ports:
  - {name: west, mac: "02:00:00:00:00:01", addresses: [10.0.1.1/24]}
  - {name: east, mac: "02:00:00:00:00:02", addresses: [10.0.2.1/24]}
)";
const std::string neighbours = R"(
neighbours:
  - {address: 10.0.2.2, port: east, mac: "02:00:00:00:02:02"}
)";

Situation situationOf(const std::string& more = "", const std::string& subInterface = "") {
    Situation situation;
    situation.config = Testing::configOf(ports + subInterface + neighbours + more);
    situation.file = "agent.yaml";
    return situation;
}

Explanation explained(const Situation& situation, const std::string& frame) {
    const auto given = readFrame(frame, 0, {situation.config.ports[0].mac});
    EXPECT_TRUE(given);
    const auto explanation = explain(situation, given.value());
    EXPECT_TRUE(explanation) << (explanation ? "" : explanation.refused().what);
    return explanation.value();
}

} // namespace

/// No writer of ours leaves such a route behind, but a damaged adjacency does, and a platform may.
TEST(NearestChanges, AMissingAdjacencyIsAdded) {
    Situation situation = situationOf();
    situation.changes.emplace_back([](Mpls::TablePublisher& tables) -> Tessel::Result<void> {
        tables.hardware().routeIs({Mpls::RouteKey::fromLabel(Lumo::MplsLabel(100)), 7});
        return {};
    });
    const Explanation explanation = explained(situation, "label 100");
    EXPECT_EQ(explanation.verdict,
              "dropped: No labels resolved to via sets, and nexthop not resolved");
    ASSERT_FALSE(explanation.steps.empty());
    EXPECT_EQ(explanation.steps.back().text,
              "label 100 in table hardware: no adjacency, adjacency 7");
    EXPECT_TRUE(explanation.steps.back().isFailure);
    ASSERT_TRUE(explanation.change);
    EXPECT_EQ(explanation.change->commands.front(),
              "# in agent.yaml\nhardware:\n  adjacencies:\n    - {id: 7, vias: [{interface: east, "
              "nexthop: \"10.0.2.2\", action: swap, labels: [100]}]}");
    EXPECT_EQ(verdictText(explanation.change->after), "forwarded by east, 46 bytes");
}

/// The commands are those of the system that the situation is of.
TEST(NearestChanges, ALiveRouterIsRepairedByIp) {
    Situation situation = situationOf(R"(
lfib:
  decap:
    - {label: 100, via: {interface: east, nexthop: 10.0.2.9, action: pop}}
    - {label: 101, via: {interface: east, nexthop: 10.0.2.2, action: pop}}
)");
    situation.isLive = true;
    EXPECT_EQ(explained(situation, "label 100").change->commands.front(),
              "ping -c 1 -I east 10.0.2.9");
    situation.config.ports[1].mtu = 68;
    EXPECT_EQ(explained(situation, "label 101, ip 10.1.1.1 > 10.9.0.1 size 100 df")
                  .change->commands.front(),
              "ip link set dev east mtu 100");
    situation.config.ports[1].isUp = false;
    EXPECT_EQ(explained(situation, "label 101").change->commands.front(),
              "ip link set dev east up");
}

std::string commandFor(const Situation& situation, const std::string& frame) {
    const Explanation explanation = explained(situation, frame);
    return explanation.change ? explanation.change->commands.front() : "none";
}

TEST(NearestChanges, APortIsUpAgainByWhatHasItDown) {
    Situation situation = situationOf(R"(
  - {address: 10.0.3.2, port: sub, mac: "02:00:00:00:03:02"}
lfib:
  decap:
    - {label: 101, via: {interface: east, nexthop: 10.0.2.2, action: pop}}
    - {label: 102, via: {interface: sub, nexthop: 10.0.3.2, action: pop}}
)",
                                      "  - {name: sub, parent: east, vlan: 5, addresses: "
                                      "[10.0.3.1/24]}\n");
    situation.isLive = true;
    situation.config.ports[1].isUp = false;
    for (const auto& [down, command] :
         {std::pair(PortDown::disabled, "ip link set dev east up"),
          std::pair(PortDown::noCarrier,
                    "# east has no carrier: connect it, or set the other end up"),
          std::pair(PortDown::absent, "# there is no interface east: add it again"),
          std::pair(PortDown::configured, "# in agent.yaml, of port east\nstatus: up")}) {
        situation.problems[1] = Tessel::wordOf(down);
        EXPECT_EQ(commandFor(situation, "label 101"), command);
    }
    situation.config.ports[2].isUp = false;
    situation.problems[1] = Tessel::wordOf(PortDown::disabled);
    situation.problems[2] = Tessel::wordOf(PortDown::parent);
    EXPECT_EQ(commandFor(situation, "label 102"), "ip link set dev east up");
    situation.problems[1] = "ports: east: Operation not permitted";
    EXPECT_EQ(commandFor(situation, "label 101"),
              "# port east waits: ports: east: Operation not permitted");
}

TEST(NearestChanges, KeysThatTheConfigurationHasAreNotRepeated) {
    const std::string entry = "  - {address: \"10.0.2.9\", port: east, mac: \"00:00:5e:00:53:02\"}";
    const std::string label =
        "lfib:\n  decap:\n    - {label: 100, via: {interface: east, nexthop: 10.0.2.9, action: "
        "pop}}\n";
    EXPECT_EQ(commandFor(situationOf(label), "label 100"),
              "# in agent.yaml, below neighbours:\n" + entry);
    EXPECT_EQ(commandFor(situationOf(label), "label 77"),
              "# in agent.yaml, below lfib:\n  transit:\n    - {label: 77, via: {interface: east, "
              "nexthop: \"10.0.2.2\", action: swap, labels: [77]}}");
}

/// A frame to a neighbour that is being asked for is neither forwarded nor dropped yet.
TEST(NearestChanges, AFrameThatWaitsHasAVerdictOfItsOwn) {
    Situation situation = situationOf(R"(
lfib:
  decap:
    - {label: 100, via: {interface: east, nexthop: 10.0.2.9, action: pop}}
)");
    EXPECT_EQ(explained(situation, "label 100").verdict, "dropped: No neighbour for the next hop");
    situation.isLive = situation.waitsForNeighbours = true;
    const Explanation explanation = explained(situation, "label 100");
    EXPECT_TRUE(explanation.walk.isWaiting);
    EXPECT_FALSE(explanation.walk.isForwarded());
    EXPECT_EQ(explanation.walk.fateWord(), "waiting");
    EXPECT_EQ(explanation.verdict,
              "waiting: held for up to 4 s until the MAC address of 10.0.2.9 on east is known; the "
              "kernel is asked for it, and then the frame is forwarded by east, 42 bytes, or the "
              "frame is dropped if nobody answers");
    EXPECT_EQ(explanation.steps.back().text,
              "waits for neighbour 10.0.2.9 on east, 4 s at the most");
    ASSERT_TRUE(explanation.change);
    EXPECT_EQ(explanation.change->commands.front(), "ping -c 1 -I east 10.0.2.9");
    EXPECT_TRUE(explanation.change->after.isForwarded());
}

TEST(NearestChanges, ARouteIsAddedWhereRoutesComeFrom) {
    Situation situation = situationOf(R"(
lfib:
  decap:
    - {label: 100, type: ip-lookup, via: {action: pop, payload: auto, vrf: red}}
)");
    situation.isLive = true;
    const Explanation explanation = explained(situation, "label 100, ip 10.1.1.1 > 10.9.0.1 udp 5");
    ASSERT_TRUE(explanation.change);
    EXPECT_NE(explanation.change->commands.front().find("{vrf: red, prefix: \"10.9.0.1/32\""),
              std::string::npos)
        << "nobody publishes IP routes: " << explanation.change->commands.front();
    EXPECT_NE(explanation.change->notes.front().find(
                  "in VRF default: packets of VRF red would leak into it"),
              std::string::npos)
        << explanation.change->notes.front();
}

TEST(NearestChanges, ViasWithAnMtuFecsTagsAndReversePathsHaveOne) {
    Situation situation = situationOf(R"(
lfib:
  decap:
    - {label: 100, via: {interface: east, nexthop: 10.0.2.2, action: pop, mtu: 68}}
    - {label: 101, type: external-fec, via: {fec: 42, action: swap, labels: [300]}}
fecs:
  - {id: 42, vias: [{interface: east, nexthop: 10.0.2.2}]}
)");
    EXPECT_EQ(commandFor(situation, "label 100, ip 10.1.1.1 > 10.9.0.1 size 100 df"),
              "# in agent.yaml, of the via of label 100 in lfib.decap\nmtu: 100");
    situation.config.fecs.clear();
    EXPECT_EQ(commandFor(situation, "label 101"),
              "# in agent.yaml, below fecs:\n  - {id: 42, vias: [{interface: east, nexthop: "
              "\"10.0.2.2\"}]}");
    situation.config.ports[0].routesIp = true;
    situation.config.ports[0].reversePath = ReversePath::strict;
    EXPECT_EQ(commandFor(situation, "ip 172.16.0.1 > 10.0.2.2"),
              "# in agent.yaml, of port west\nreverse-path: off");
    EXPECT_EQ(commandFor(situation, "ip 10.0.2.9 > 10.0.2.2"),
              "# in agent.yaml, of port west\nreverse-path: loose");
}

/// What forwards by a route of the transit LFIB is the adjacency that was made from it.
TEST(NearestChanges, TransitViasWithAnMtuAndPortsWithASmallerOneHaveBoth) {
    Situation situation = situationOf(R"(
lfib:
  transit:
    - {label: 100, via: {interface: east, nexthop: 10.0.2.2, action: swap, labels: [200], mtu: 90}}
hardware:
  routes: [{label: 101, adjacency: 7}]
  adjacencies:
    - {id: 7, vias: [{interface: east, nexthop: 10.0.2.2, action: swap, labels: [200], mtu: 90}]}
)");
    const std::string behind = ", ip 10.1.1.1 > 10.9.0.1 size 100 df";
    EXPECT_EQ(commandFor(situation, "label 100" + behind),
              "# in agent.yaml, of the via of label 100 in lfib.transit\nmtu: 104");
    EXPECT_EQ(commandFor(situation, "label 101" + behind),
              "# in agent.yaml, of the via of adjacency 7 in hardware\nmtu: 104");
    for (const std::uint32_t portMtu : {80U, 95U}) {
        situation.config.ports[1].mtu = portMtu;
        const Explanation explanation = explained(situation, "label 100" + behind);
        ASSERT_TRUE(explanation.change) << portMtu;
        EXPECT_EQ(explanation.change->commands.size(), 2U);
        EXPECT_TRUE(explanation.change->after.isForwarded());
    }
}

TEST(NearestChanges, AVlanGetsASubInterface) {
    const Situation situation = situationOf(R"(
lfib:
  decap:
    - {label: 100, via: {interface: east, nexthop: 10.0.2.2, action: pop}}
)",
                                            "  - {name: sub, parent: west, vlan: 5, addresses: "
                                            "[10.0.3.1/24]}\n");
    EXPECT_EQ(commandFor(situation, "vlan 7, label 100"),
              "# in agent.yaml, below ports:\n  - {name: west.7, parent: west, vlan: 7}");
}

/// RFC 4385: four zero bits begin a control word, and the addresses of many stations, too.
class ControlWordSignsTest : public ::testing::Test {
  protected:
    explicit ControlWordSignsTest() {
        situation = situationOf(R"(
pseudowires:
  - {name: acme, port: east, label: 500, interface: west, nexthop: 10.0.1.2}
lfib:
  pseudowire:
    - {label: 200, via: {action: pop, payload: ethernet, interface: east}}
)");
    }
    /// What is said of a frame with this label and behind it this payload.
    Explanation of(const std::string& payload) const {
        return explained(situation, "label 200, " + payload);
    }
    std::string remarkOf(const std::string& payload) const {
        const Explanation explanation = of(payload);
        return explanation.remarks.empty() ? "" : explanation.remarks.back();
    }
    bool says(const std::string& payload, const std::string& what) const {
        return remarkOf(payload).find(what) != std::string::npos;
    }
    static constexpr const char* ip = ", ip 10.1.1.1 > 10.9.0.1 udp 5";

    Situation situation;
};

TEST_F(ControlWordSignsTest, OneThatIsThereNeedsNoWord) {
    EXPECT_EQ(remarkOf(std::string("control-word, ethernet 22:00:00:00:00:0a") + ip), "");
    EXPECT_EQ(remarkOf(std::string("control-word, ethernet 02:00:00:00:00:0a") + ip), "");
}

TEST_F(ControlWordSignsTest, OneThatIsMissingInFrontOfAnAddressThatBeginsWith0IsSeen) {
    const std::string payload = std::string("ethernet 02:00:00:00:00:0a") + ip;
    EXPECT_TRUE(of(payload).walk.isForwarded()) << "four bytes short";
    EXPECT_TRUE(says(payload, "without a control word")) << remarkOf(payload);
    EXPECT_EQ(commandFor(situation, std::string("label 200, ethernet 12:00:00:00:00:0a") + ip),
              "# in agent.yaml, of pseudowire acme\ncontrol-word: false");
}

TEST_F(ControlWordSignsTest, WhatCannotBeKnownIsSaid) {
    GivenFrame frame =
        readFrame("label 200, ethernet 02:00:00:00:00:0a", 0, {situation.config.ports[0].mac})
            .value();
    frame.bytes.resize(frame.bytes.size() - 2); // the EtherType
    frame.bytes.insert(frame.bytes.end(), {0x05, 0x00, 0, 0, 0, 0, 0, 0, 0, 0});
    frame.originalLength = static_cast<std::uint32_t>(frame.bytes.size());
    const auto explanation = explain(situation, frame);
    ASSERT_TRUE(explanation);
    ASSERT_FALSE(explanation.value().remarks.empty());
    EXPECT_NE(explanation.value().remarks.back().find("cannot be known"), std::string::npos);
}

TEST_F(ControlWordSignsTest, ACutPayloadIsNotBlamedOnTheControlWord) {
    const Explanation explanation =
        explained(situation, "020000000001 00005e005301 8847 000c8140 00000000 0200000000");
    EXPECT_FALSE(explanation.change);
    EXPECT_NE(explanation.remarks.back().find("cut short"), std::string::npos);
}

TEST_F(ControlWordSignsTest, OneThatIsNotExpectedIsSeen) {
    situation.config.pseudowires.front().value.controlWord = false;
    EXPECT_TRUE(says(std::string("control-word, ethernet 02:00:00:00:00:0a") + ip,
                     "which is not expected"));
    EXPECT_EQ(remarkOf(std::string("ethernet 02:00:00:00:00:0a") + ip), "");
}

/// Nothing that is tried changes the situation, and nothing is left switched on.
TEST(NearestChanges, TrialsLeaveNothingBehind) {
    const Situation situation = situationOf();
    const Explanation first = explained(situation, "label 100");
    EXPECT_FALSE(Ovix::RoadNotes::isOn());
    EXPECT_FALSE(Ovix::TraceSource::anyOn());
    const Explanation second = explained(situation, "label 100");
    EXPECT_EQ(explanationJson(first), explanationJson(second));
}

/// Where no neighbour is known, there is nowhere to lead a label to.
TEST(NearestChanges, NoneIsMadeUp) {
    Situation situation = situationOf();
    situation.config.neighbours.clear();
    const Explanation explanation = explained(situation, "label 100");
    EXPECT_TRUE(explanation.isChangeWanted);
    EXPECT_FALSE(explanation.change);
    EXPECT_NE(explanationText(explanation).find("none was found"), std::string::npos);
}

} // namespace NearestChangesTest
