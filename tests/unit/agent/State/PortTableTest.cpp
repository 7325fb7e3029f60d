#include "State/PortTable.h"

#include "ConfigTesting.h"

namespace PortTableTest {

using namespace OvixAgent;
using namespace OvixAgent::Testing;

namespace {

enum : PortIndex { plain, trunk, vlan7, vlan7and8, other7 };

const AgentConfig config = configOf(R"(
ports:
  - {name: plain, mac: "02:00:00:00:00:01"}
  - {name: trunk, mac: "02:00:00:00:00:02"}
  - {name: trunk.7, parent: trunk, vlan: 7}
  - {name: trunk.7.8, parent: trunk, vlan: [7, 8]}
  - {name: plain.7, parent: plain, vlan: 7}
)");

using Vlans = std::vector<std::uint16_t>;

/// The port that takes a frame and its own tags; (-1, 0) when nobody has the VLAN.
std::pair<int, std::size_t> takerOf(PortIndex port, const Vlans& vlans) {
    const auto taker = PortTable(config.ports).taker(port, vlans);
    return taker ? std::pair(static_cast<int>(taker->port), taker->ownTags)
                 : std::pair(-1, std::size_t{0});
}

} // namespace

TEST(PortTable, AFrameIsForTheSubInterfaceThatNamesTheMostOfItsTags) {
    const struct {
        PortIndex port;
        Vlans vlans;
        std::pair<int, std::size_t> taker;
    } cases[]{
        {trunk, {}, {trunk, 0}},
        {trunk, {0}, {trunk, 0}}, // a priority tag names no VLAN
        {trunk, {7}, {vlan7, 1}},
        {trunk, {7, 8}, {vlan7and8, 2}},
        {trunk, {7, 9}, {vlan7, 1}},
        {trunk, {7, 8, 9}, {vlan7and8, 2}},
        {trunk, {8}, {-1, 0}},
        {trunk, {8, 7}, {-1, 0}},
        {plain, {7}, {other7, 1}},
        {vlan7, {7}, {vlan7, 1}}, // an answer of the agent to a frame with that tag
        {vlan7, {}, {vlan7, 0}},
    };
    for (const auto& given : cases) {
        EXPECT_EQ(takerOf(given.port, given.vlans), given.taker) << given.port;
    }
}

TEST(PortTable, ASubInterfaceSendsNoMoreThanFitsThroughItsParent) {
    const PortTable table(configOf(R"(
ports:
  - {name: trunk.7, parent: trunk, vlan: 7, mtu: 9000}
  - {name: trunk.8, parent: trunk, vlan: 8, mtu: 1400}
  - {name: trunk, mac: "02:00:00:00:00:02"}
)")
                              .ports);
    EXPECT_EQ(table.ports()[0].mtu, 1500U);
    EXPECT_EQ(table.ports()[1].mtu, 1400U);
}

TEST(PortTable, WithoutSubInterfacesEveryTagIsThePorts) {
    const PortTable table(configOf(twoPorts).ports);
    EXPECT_FALSE(table.hasVlans(0));
    const Vlans vlans{7, 8};
    EXPECT_EQ(table.taker(0, vlans)->port, 0U);
    EXPECT_EQ(table.taker(0, vlans)->ownTags, 0U);
}

} // namespace PortTableTest
