#include "decoding/NextHop.h"

#include <gtest/gtest.h>
#include <string>

#include "Refusal.h"
#include "Tessel/Exceptions.h"
#include "decoding/RouteText.h"

namespace {

using namespace OvixFpm;
using Lumo::IpGenAddr;
using Lumo::MplsLabel;
using TestSupport::refusal;
using Labels = std::vector<MplsLabel>;

const IpGenAddr neighbour = IpGenAddr::fromText("192.0.2.2");

TEST(Way, leadsToAGatewayOrOutOfAnInterface) {
    EXPECT_EQ(Way(neighbour, 0).gateway(), neighbour);
    EXPECT_TRUE(Way(neighbour, 3).hasGateway());
    EXPECT_FALSE(Way({}, 3).hasGateway());
    EXPECT_EQ(Way({}, Way::maxInterface).interface(), 0x7fffffffU);
    EXPECT_EQ(refusal<Tessel::RangeError>([] { Way({}, 0); }),
              "next hop has neither gateway nor interface");
    EXPECT_EQ(refusal<Tessel::RangeError>([] { Way({}, 0x80000000U); }),
              "interface index 2147483648 is more than 2147483647");
    EXPECT_EQ(refusal<Tessel::RangeError>([] { Way(IpGenAddr::fromText("0.0.0.0"), 3); }),
              "gateway is the unspecified address");
    EXPECT_EQ(refusal<Tessel::RangeError>([] { Way(IpGenAddr::fromText("::"), 3); }),
              "gateway is the unspecified address");
}

TEST(NextHop, readsAsOneLine) {
    EXPECT_EQ(text(NextHop({}, Way(neighbour, 0))), "[] via 192.0.2.2 weight 1");
    EXPECT_EQ(text(NextHop(Labels{MplsLabel(0)}, Way({}, 7), 256)), "[0] interface 7 weight 256");
    EXPECT_EQ(text(NextHop(Labels{MplsLabel(100), MplsLabel(2)},
                           Way(IpGenAddr::fromText("2001:db8::2"), 3), 2)),
              "[100/2] via 2001:db8::2 interface 3 weight 2");
}

TEST(NextHop, implicitNullStandsInNoStack) {
    EXPECT_EQ(refusal<Tessel::RangeError>([] {
                  NextHop(Labels{MplsLabel(16), MplsLabel(3)}, Way({}, 7));
              }),
              "implicit null in a label stack");
}

TEST(NextHop, weighsOneTo256) {
    EXPECT_EQ(refusal<Tessel::RangeError>([] { NextHop({}, Way({}, 7), 0); }),
              "weight 0 is not 1 to 256");
    EXPECT_EQ(refusal<Tessel::RangeError>([] { NextHop({}, Way({}, 7), 257); }),
              "weight 257 is not 1 to 256");
    EXPECT_EQ(NextHop({}, Way({}, 7), 256).weight(), 256);
}

TEST(NextHop, onlyAnInterfaceMeansNeitherGatewayNorLabels) {
    EXPECT_TRUE(NextHop({}, Way({}, 7)).isInterfaceOnly());
    EXPECT_FALSE(NextHop({}, Way(neighbour, 7)).isInterfaceOnly());
    EXPECT_FALSE(NextHop(Labels{MplsLabel(0)}, Way({}, 7)).isInterfaceOnly());
}

TEST(NextHops, areAtLeastOne) {
    EXPECT_EQ(refusal<Tessel::RangeError>([] { NextHops({}); }), "route without a next hop");
    EXPECT_EQ(NextHops({NextHop({}, Way({}, 7))}).size(), 1U);
}

} // namespace
