#include "State/ForwardingTables.h"

#include <gtest/gtest.h>

#include "ConfigTesting.h"

namespace ForwardingTablesTest {

using namespace OvixAgent;
using namespace OvixAgent::Testing;

namespace {

const std::string base = R"(
ports:
  - {name: west, mac: "02:00:00:00:00:01", addresses: [10.0.1.1/24]}
  - {name: east, mac: "02:00:00:00:00:02", addresses: [10.0.2.1/24]}
)";

class ForwardingTablesTest : public testing::Test {
  protected:
    static AgentConfig config(const std::string& more) {
        return configOf(base + more, "test.yaml");
    }
    const IpRoute* route(const std::string& destination, const std::string& vrf = "") const {
        const Fib* fib = tables.vrfs->fib(vrf);
        return fib != nullptr ? fib->find(address(destination)) : nullptr;
    }
    static Lumo::IpGenAddr address(const std::string& text) {
        return Lumo::IpGenAddr::fromText(text);
    }

    ForwardingTables tables{config(R"(
neighbours:
  - {address: 10.0.2.2, port: east, mac: "02:00:00:00:02:02"}
routes:
  - {prefix: 10.9.0.0/16, via: {nexthop: 10.0.2.2}}
  - {vrf: red, prefix: 10.8.0.0/16, drop: true}
)")};
};

} // namespace

TEST_F(ForwardingTablesTest, AnotherConfigurationTakesThePlaceOfTheFormer) {
    ASSERT_NE(route("10.9.0.1"), nullptr);
    EXPECT_NE(route("10.9.0.1")->vias().front().mac, nullptr);
    EXPECT_NE(route("10.8.0.1", "red"), nullptr);
    tables.configure(config(R"(
neighbours:
  - {address: 10.0.1.2, port: west, mac: "02:00:00:00:01:02"}
routes:
  - {prefix: 10.7.0.0/16, via: {nexthop: 10.0.1.2}}
)"));
    EXPECT_EQ(route("10.9.0.1"), nullptr);
    EXPECT_EQ(tables.vrfs->fib("red"), nullptr);
    ASSERT_NE(route("10.7.0.1"), nullptr);
    const Lumo::EthAddr* mac = route("10.7.0.1")->vias().front().mac;
    ASSERT_NE(mac, nullptr);
    EXPECT_EQ(*mac, (Lumo::EthAddr{2, 0, 0, 0, 1, 2}));
    EXPECT_EQ(tables.neighbours.find(address("10.0.2.2"), 1), nullptr);
    EXPECT_TRUE(route("10.0.1.1")->isLocal());
}

TEST_F(ForwardingTablesTest, WhatWasLearntOnTheLinkIsKept) {
    tables.neighbours.learn(address("10.0.1.9"), 0, {2, 0, 0, 0, 9, 9});
    tables.configure(config(""));
    EXPECT_NE(tables.neighbours.find(address("10.0.1.9"), 0), nullptr);
}

TEST_F(ForwardingTablesTest, ARouteByALearntNeighbourDoesNotOutliveIt) {
    const Lumo::IpGenAddr learnt = address("10.0.2.9");
    tables.neighbours.learn(learnt, 1, {2, 0, 0, 0, 9, 9});
    tables.configure(config("routes:\n  - {prefix: 10.9.0.0/16, via: {nexthop: 10.0.2.9}}\n"));
    tables.neighbours.forget(learnt, 1);
    EXPECT_EQ(route("10.9.0.1")->vias().front().mac, nullptr);
}

TEST_F(ForwardingTablesTest, ThePortsStayTheSameOnes) {
    const Port* const west = tables.ports.byIntfId(Lumo::IntfId("west"));
    tables.configure(config(""));
    EXPECT_EQ(tables.ports.byIntfId(Lumo::IntfId("west")), west);
}

} // namespace ForwardingTablesTest
