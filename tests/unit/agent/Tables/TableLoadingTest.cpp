#include <gtest/gtest.h>

#include "ConfigTesting.h"
#include "LocalTables.h"
#include "Tables/AgentState.h"

namespace TableLoadingTest {

using namespace OvixAgent;
using namespace OvixAgent::Testing;

namespace {

AgentConfig config(const std::string& more) {
    return configOf(R"(
ports:
  - {name: west, mac: "02:00:00:00:00:01"}
)" + more,
                    "test.yaml");
}

std::string label(std::uint32_t number) {
    return "lfib: {decap: [{label: " + std::to_string(number) +
           ", type: ip-lookup, via: {vrf: red, payload: ipv4}}]}";
}

/// With an adjacency that the tables refuse once its labels have been loaded.
AgentConfig refusedInMidLoading(std::uint32_t number) {
    AgentConfig made = config(label(number) + R"(
hardware:
  adjacencies:
    - {id: 7, vias: [{interface: west, nexthop: 10.0.0.1, action: pop}]}
)");
    made.hardware.adjacencies.front().value.id = 1U << 20U;
    return made;
}

bool configure(AgentState& state, const AgentConfig& config) {
    const bool isPrepared{state.prepareTables(config, "test.yaml")};
    state.commitTables();
    return isPrepared;
}

bool hasLabel(const Mpls::PublishedTables& tables, std::uint32_t number) {
    const auto key = Mpls::RouteKey::fromLabel(Lumo::MplsLabel(number));
    return tables.lfib(Mpls::TableId::decapLfib)->route(key).viaSetKey.value != 0;
}

} // namespace

TEST(ConfigureTables, AnotherConfigurationsLabelsTakeThePlaceOfTheFormerAllAtOnce) {
    const auto made = AgentState::ofConfig(config(label(100)), "test.yaml", "configure-changed");
    AgentState& state = *made.value();
    ASSERT_TRUE(hasLabel(state.tables(), 100));
    const std::uint64_t before = state.tables().tables().generation();
    ASSERT_TRUE(configure(state, config(label(200))));
    EXPECT_TRUE(hasLabel(state.tables(), 100)); // until the readers go over
    TestSupport::refreshWholly(state.tables());
    EXPECT_EQ(state.tables().tables().generation(), before + 1);
    EXPECT_FALSE(hasLabel(state.tables(), 100));
    EXPECT_TRUE(hasLabel(state.tables(), 200));
    ASSERT_TRUE(configure(state, config("")));
    TestSupport::refreshWholly(state.tables());
    EXPECT_FALSE(hasLabel(state.tables(), 200));
}

TEST(ConfigureTables, WhatIsRefusedChangesNothing) {
    const auto made = AgentState::ofConfig(config(label(100)), "test.yaml", "configure-refused");
    AgentState& state = *made.value();
    const std::uint64_t before = state.tables().tables().generation();
    const auto refused = state.prepareTables(refusedInMidLoading(200), "test.yaml");
    ASSERT_FALSE(refused);
    EXPECT_EQ(refused.refused().what.substr(0, 35), "test.yaml:7: hardware: adjacency 10");
    TestSupport::refreshWholly(state.tables());
    EXPECT_EQ(state.tables().tables().generation(), before);
    EXPECT_TRUE(hasLabel(state.tables(), 100));
    ASSERT_TRUE(configure(state, config(label(300))));
    TestSupport::refreshWholly(state.tables());
    EXPECT_FALSE(hasLabel(state.tables(), 100));
    EXPECT_FALSE(hasLabel(state.tables(), 200));
    EXPECT_TRUE(hasLabel(state.tables(), 300));
}

TEST(ConfigureTables, TablesThatSomebodyElsePublishesStay) {
    TestSupport::LocalTables others;
    AgentState state(config(""), others.reader, "configure-others");
    ASSERT_TRUE(configure(state, config(label(200))));
    TestSupport::refreshWholly(state.tables());
    EXPECT_FALSE(hasLabel(state.tables(), 200));
}

} // namespace TableLoadingTest
