#include "Live/ports/PortRates.h"

#include <gtest/gtest.h>
#include <optional>

#include "ConfigTesting.h"
#include "Live/ports/PacketPort.h"
#include "LiveTesting.h"
#include "State/ForwardingTables.h"

namespace PortRatesTest {

namespace {

using namespace LiveTesting;
using namespace OvixAgent;
using std::chrono::seconds;

class PortRatesTest : public TestSupport::OwnNetwork {
  protected:
    void SetUp() override {
        OwnNetwork::SetUp();
        if (!IsSkipped()) {
            config = Testing::configOf("ports: [{name: left, kind: packet}]", "test.yaml");
            tables.emplace(config);
            ports.emplace(config, tables->ports);
            right.emplace(1, "right", PacketIntake::everything);
            rates.emplace(*ports, 1, start);
        }
    }
    void receive(std::size_t frames) {
        for (std::size_t i = 0; i < frames; ++i) {
            const Bytes last = toLeft({TestSupport::Raw::ethMpls}, ++sent);
            send(*right, last);
            ASSERT_FALSE(receiveUpTo(ports->port(0), last).empty());
        }
    }

    const PortRates::Clock::time_point start{seconds(100)};
    AgentConfig config;
    std::optional<ForwardingTables> tables;
    std::optional<LivePorts> ports;
    std::optional<PacketPort> right;
    std::optional<PortRates> rates;
    std::uint32_t sent = 0;
};

} // namespace

TEST_F(PortRatesTest, AreThoseOfTheLastOneToTwoSeconds) {
    receive(6);
    EXPECT_DOUBLE_EQ(rates->ofPort(0, start + seconds(2)), 3);
    rates->tick(start + seconds(2));
    EXPECT_DOUBLE_EQ(rates->ofPort(0, start + seconds(3)), 2) << "since the start still";
    rates->tick(start + seconds(3));
    EXPECT_DOUBLE_EQ(rates->ofPort(0, start + seconds(4)), 0);
    receive(2);
    EXPECT_DOUBLE_EQ(rates->ofPort(0, start + seconds(4)), 1);
}

TEST_F(PortRatesTest, AreNotedOnceASecond) {
    EXPECT_FALSE(rates->isDue(start + std::chrono::milliseconds(999)));
    EXPECT_TRUE(rates->isDue(start + seconds(1)));
    rates->tick(start + seconds(1));
    EXPECT_FALSE(rates->isDue(start + seconds(1)));
}

} // namespace PortRatesTest
