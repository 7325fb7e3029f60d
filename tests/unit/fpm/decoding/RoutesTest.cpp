#include "decoding/Routes.h"

#include <gtest/gtest.h>

#include "decoding/RouteText.h"

namespace {

using namespace OvixFpm;
using Lumo::IpGenAddr;
using Lumo::MplsLabel;

const IncomingLabel label(MplsLabel(1000));
const Destination prefix(254, IpGenAddr::fromText("203.0.113.0"), 24);
const NextHops hops({NextHop({MplsLabel(2000)}, Way(IpGenAddr::fromText("192.0.2.2"), 3)),
                     NextHop({}, Way({}, 4), 7)});
const char* const hopsText = "[2000] via 192.0.2.2 interface 3 weight 1, [] interface 4 weight 7";

TEST(LabelRoute, readsAsOneLine) {
    const std::string end = std::string(" protocol 196: ") + hopsText;
    EXPECT_EQ(text(LabelRoute(label, 196, hops)), "label 1000" + end);
    EXPECT_EQ(text(LabelRoute(label, 196, hops, true)), "label 1000 ttl-propagate" + end);
    EXPECT_EQ(text(LabelRoute(label, 196, hops, false)), "label 1000 no ttl-propagate" + end);
    EXPECT_EQ(text(LabelWithdrawal{label}), "label 1000 withdrawn");
}

TEST(LabelRoute, equalsARouteThatSaysTheSame) {
    EXPECT_EQ(LabelRoute(label, 196, hops), LabelRoute(label, 196, hops));
    EXPECT_NE(LabelRoute(label, 196, hops), LabelRoute(label, 196, hops, true));
    EXPECT_NE(LabelRoute(label, 196, hops), LabelRoute(label, 2, hops));
    EXPECT_NE(LabelRoute(label, 196, hops), LabelRoute(label, 196, NextHops({hops.front()})));
}

TEST(PrefixRoute, hasNextHopsOrAnEnd) {
    const PrefixRoute unicast(prefix, 196, hops);
    ASSERT_NE(unicast.nextHops(), nullptr);
    EXPECT_EQ(*unicast.nextHops(), hops);
    EXPECT_FALSE(unicast.end());
    const PrefixRoute ended(prefix, 196, RouteEnd::prohibit);
    EXPECT_EQ(ended.nextHops(), nullptr);
    EXPECT_EQ(ended.end(), RouteEnd::prohibit);
    EXPECT_NE(unicast, ended);
}

std::string endText(RouteEnd end) {
    return text(PrefixRoute(prefix, 2, end));
}

TEST(PrefixRoute, readsAsOneLine) {
    const std::string head = "203.0.113.0/24 table 254 protocol 2: ";
    EXPECT_EQ(text(PrefixRoute(prefix, 2, hops)), head + hopsText);
    EXPECT_EQ(endText(RouteEnd::blackhole), head + "blackhole");
    EXPECT_EQ(endText(RouteEnd::unreachable), head + "unreachable");
    EXPECT_EQ(endText(RouteEnd::prohibit), head + "prohibit");
    EXPECT_EQ(endText(RouteEnd::local), head + "local");
    EXPECT_EQ(text(PrefixWithdrawal{prefix}), "203.0.113.0/24 table 254 withdrawn");
}

} // namespace
