#include "State/Neighbours.h"

#include <gtest/gtest.h>

#include "ConfigTesting.h"
#include "State/PortTable.h"

namespace NeighboursTest {

using namespace OvixAgent;
using namespace OvixAgent::Testing;

namespace {

const AgentConfig config = configOf(R"(
ports:
  - {name: west, mac: "02:00:00:00:00:01", addresses: [10.0.1.1/24, "2001:db8::1/64"]}
  - {name: east, mac: "02:00:00:00:00:02"}
neighbours:
  - {address: 10.0.1.2, port: east, mac: "02:00:00:00:02:02"}
  - {address: 10.0.1.2, port: west, mac: "02:00:00:00:01:02"}
  - {address: "2001:db8::2", port: west, mac: "02:00:00:00:01:02"}
)",
                                    "test.yaml");

Lumo::IpGenAddr address(const std::string& text) {
    return Lumo::IpGenAddr::fromText(text);
}

} // namespace

TEST(Neighbours, TheSameAddressOnTwoPortsIsTwoNeighbours) {
    const Neighbours neighbours(config);
    ASSERT_NE(neighbours.find(address("10.0.1.2"), 0), nullptr);
    EXPECT_EQ(*neighbours.find(address("10.0.1.2"), 0), (Lumo::EthAddr{2, 0, 0, 0, 1, 2}));
    ASSERT_NE(neighbours.find(address("10.0.1.2"), 1), nullptr);
    EXPECT_EQ(*neighbours.find(address("10.0.1.2"), 1), (Lumo::EthAddr{2, 0, 0, 0, 2, 2}));
}

TEST(Neighbours, NobodyIsFoundAtAnUnknownAddressOrPort) {
    const Neighbours neighbours(config);
    EXPECT_EQ(neighbours.find(address("10.0.1.3"), 0), nullptr);
    EXPECT_EQ(neighbours.find(address("2001:db8::2"), 1), nullptr);
    EXPECT_EQ(neighbours.find({}, 0), nullptr);
    // The same leading bytes in the other family.
    EXPECT_EQ(neighbours.find(address("a00:102::"), 0), nullptr);
}

TEST(Neighbours, TheOneDeviceOfALinkIsToldByItsMacAddress) {
    const AgentConfig links = configOf(R"(
ports:
  - {name: one, mac: "02:00:00:00:00:01"}
  - {name: two, mac: "02:00:00:00:00:02"}
  - {name: none, mac: "02:00:00:00:00:03"}
neighbours:
  - {address: 10.0.1.2, port: one, mac: "02:00:00:00:01:02"}
  - {address: "2001:db8::2", port: one, mac: "02:00:00:00:01:02"}
  - {address: 10.0.2.2, port: two, mac: "02:00:00:00:02:02"}
  - {address: 10.0.2.3, port: two, mac: "02:00:00:00:02:03"}
  - {address: 10.0.2.4, port: two, mac: "02:00:00:00:02:02"}
)",
                                       "test.yaml");
    Neighbours neighbours(links);
    neighbours.learn(address("ff02::5"), 0, {0x33, 0x33, 0, 0, 0, 5});
    neighbours.learn(address("224.0.0.5"), 0, {1, 0, 0x5e, 0, 0, 5});
    ASSERT_NE(neighbours.only(0), nullptr);
    EXPECT_EQ(*neighbours.only(0), (Lumo::EthAddr{2, 0, 0, 0, 1, 2}));
    EXPECT_EQ(neighbours.only(1), nullptr);
    EXPECT_EQ(neighbours.only(2), nullptr);
}

TEST(PortTable, PortsAreFoundByTheirInterfaceId) {
    PortTable table(config.ports);
    ASSERT_EQ(table.ports().size(), 2U);
    EXPECT_EQ(table.byIntfId(Lumo::IntfId("west")), &table.ports()[0]);
    EXPECT_EQ(table.byIntfId(Lumo::IntfId("east")), &table.ports()[1]);
    EXPECT_EQ(table.byIntfId(Lumo::IntfId("south")), nullptr);
    EXPECT_EQ(table.byIntfId(Lumo::CpuIntfId::cpuIdToIntfId(0)), nullptr);
}

} // namespace NeighboursTest
