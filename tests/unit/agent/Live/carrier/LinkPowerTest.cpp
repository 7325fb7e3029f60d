#include "Live/carrier/LinkPower.h"

#include <cerrno>
#include <cstdlib>
#include <gtest/gtest.h>
#include <optional>

#include "Live/ports/InterfaceControl.h"
#include "OwnNetwork.h"

namespace LinkPowerTest {

namespace {

using OvixAgent::LinkPower;
using TestSupport::ip;

class LinkPowerTest : public TestSupport::OwnNetwork {
  protected:
    void SetUp() override {
        OwnNetwork::SetUp();
        if (!IsSkipped()) {
            power.emplace();
            left = OvixAgent::indexOfInterface("left");
        }
    }

    /// What `ip` shows of the link contains the words.
    static bool shows(const std::string& link, const std::string& words) {
        const std::string command =
            "ip -details address show " + link + " | grep -q -e '" + words + "'";
        return std::system(command.c_str()) == 0; // NOLINT(cert-env33-c): the tests' own words
    }

    unsigned int left = 0;
    std::optional<LinkPower> power; // in this network
};

} // namespace

TEST_F(LinkPowerTest, AnInterfaceIsTakenDownAndGivenBack) {
    ASSERT_EQ(power->takeDown(left), 0);
    EXPECT_FALSE(shows("left", "[<,]UP"));
    EXPECT_TRUE(shows("right", "NO-CARRIER"));
    EXPECT_TRUE(shows("left", "altname down-by-ovix-agent-"));
    ASSERT_EQ(power->giveBack(left), 0);
    EXPECT_TRUE(shows("left", "[<,]UP"));
    EXPECT_FALSE(shows("left", "altname"));
}

TEST_F(LinkPowerTest, OneThatWasDownStaysDown) {
    ip("link set left down");
    ASSERT_EQ(power->takeDown(left), 0);
    ASSERT_EQ(power->giveBack(left), 0);
    EXPECT_FALSE(shows("left", "[<,]UP"));
    EXPECT_FALSE(shows("left", "altname"));
}

TEST_F(LinkPowerTest, OneThatIsUpStaysAsItIs) {
    ASSERT_EQ(power->giveBack(left), 0);
    EXPECT_TRUE(shows("left", "[<,]UP"));
    ASSERT_EQ(power->tryOut(left), 0);
    EXPECT_TRUE(shows("left", "[<,]UP"));
}

TEST_F(LinkPowerTest, IsTakenDownTwice) {
    ASSERT_EQ(power->takeDown(left), 0);
    ip("link set left up"); // an operator, in between
    ASSERT_EQ(power->takeDown(left), 0);
    ASSERT_EQ(power->takeDown(left), 0);
    EXPECT_FALSE(shows("left", "[<,]UP"));
    ASSERT_EQ(power->giveBack(left), 0);
    EXPECT_TRUE(shows("left", "[<,]UP"));
    EXPECT_FALSE(shows("left", "altname"));
}

TEST_F(LinkPowerTest, ItsIpv6AddressesStayAndTheSettingIsTheOldOne) {
    ip("address add fd00::1/64 dev left nodad");
    ASSERT_EQ(power->takeDown(left), 0);
    EXPECT_TRUE(shows("left", "fd00::1/64"));
    ASSERT_EQ(power->giveBack(left), 0);
    ip("link set left down");
    EXPECT_FALSE(shows("left", "fd00::1/64"));
}

TEST_F(LinkPowerTest, WhatHasGoneIsRefused) {
    EXPECT_EQ(power->takeDown(12345), ENODEV);
    EXPECT_EQ(power->giveBack(12345), 0);
    EXPECT_EQ(power->tryOut(12345), ENODEV);
}

} // namespace LinkPowerTest
