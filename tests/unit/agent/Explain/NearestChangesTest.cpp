#include "Explain/NearestChanges.h"

#include <gtest/gtest.h>

#include "ConfigTesting.h"
#include "Explain/FrameWords.h"

namespace NearestChangesTest {

using namespace OvixAgent;

namespace {

const std::string config = R"(
ports:
  - {name: west, mac: "02:00:00:00:00:01", addresses: [10.0.1.1/24]}
  - {name: east, mac: "02:00:00:00:00:02", addresses: [10.0.2.1/24]}
neighbours:
  - {address: 10.0.2.2, port: east, mac: "02:00:00:00:02:02"}
)";

Situation situationOf(const std::string& more = "") {
    Situation situation;
    situation.config = Testing::configOf(config + more);
    situation.file = "agent.yaml";
    return situation;
}

Explanation explained(const Situation& situation, const std::string& frame) {
    const auto given = readFrame(frame, 0, {situation.config.ports[0].mac});
    EXPECT_TRUE(given);
    const auto told = explain(situation, given.value());
    EXPECT_TRUE(told) << (told ? "" : told.refused().what);
    return told.value();
}

} // namespace

/// No writer of ours leaves such a route behind, but a platform's may.
TEST(NearestChanges, AMissingAdjacencyIsAdded) {
    Situation situation = situationOf();
    situation.changes.emplace_back([](Mpls::TablePublisher& tables) -> Tessel::Result<void> {
        tables.hardware().routeIs({Mpls::RouteKey::fromLabel(Lumo::MplsLabel(100)), 7});
        return {};
    });
    const Explanation told = explained(situation, "label 100");
    EXPECT_EQ(told.verdict, "dropped: No labels resolved to via sets, and nexthop not resolved");
    ASSERT_FALSE(told.steps.empty());
    EXPECT_EQ(told.steps.back().text, "label 100 in table hardware: no adjacency, adjacency 7");
    EXPECT_TRUE(told.steps.back().isFailure);
    ASSERT_TRUE(told.change);
    EXPECT_EQ(told.change->commands.front(),
              "# in agent.yaml\nhardware:\n  adjacencies:\n    - {id: 7, vias: [{interface: east, "
              "nexthop: \"10.0.2.2\", action: swap, labels: [100]}]}");
    EXPECT_EQ(verdictText(told.change->after), "forwarded by east, 46 bytes");
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
    const Explanation told = explained(situation, "label 100");
    EXPECT_TRUE(told.isChangeWanted);
    EXPECT_FALSE(told.change);
    EXPECT_NE(explanationText(told).find("none was found"), std::string::npos);
}

} // namespace NearestChangesTest
