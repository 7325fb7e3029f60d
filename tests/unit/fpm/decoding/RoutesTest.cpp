#include "decoding/Routes.h"

#include "PublishingTesting.h"

namespace RoutesTest {

namespace {

using namespace OvixFpm;
using namespace PublishingTesting;

const std::vector<NextHop> hops{hop({2000}, "192.0.2.2", 3), hop({}, "", 4, 7)};
const char* const hopsText = "[2000] via 192.0.2.2 interface 3 weight 1, [] interface 4 weight 7";

TEST(NextHop, readsAsOneLine) {
    EXPECT_EQ(text(hop({}, "192.0.2.2", 0)), "[] via 192.0.2.2 weight 1");
    EXPECT_EQ(text(hop({0}, "", 7, 256)), "[0] interface 7 weight 256");
    EXPECT_EQ(text(hop({100, 2}, "2001:db8::2", 3, 2)),
              "[100/2] via 2001:db8::2 interface 3 weight 2");
}

TEST(NextHop, onlyAnInterfaceMeansNeitherGatewayNorLabels) {
    EXPECT_TRUE(hop({}, "", 7).isInterfaceOnly());
    EXPECT_FALSE(hop({}, "192.0.2.2", 7).isInterfaceOnly());
    EXPECT_FALSE(hop({0}, "", 7).isInterfaceOnly());
}

TEST(Destination, readsAsOneLine) {
    EXPECT_EQ(text(Destination(Lumo::MplsLabel(1000))), "label 1000");
    EXPECT_EQ(text(Destination(to("203.0.113.128", 25, 100))), "203.0.113.128/25 table 100");
    EXPECT_EQ(text(Destination(to("2001:db8::1", 128, 0xffffffff))),
              "2001:db8::1/128 table 4294967295");
}

TEST(RouteChange, ofALabelReadsAsOneLine) {
    const std::string end = std::string(" protocol 196: ") + hopsText;
    EXPECT_EQ(text(labelRoute(1000, hops)), "label 1000" + end);
    EXPECT_EQ(text(labelRoute(1000, hops, true)), "label 1000 ttl-propagate" + end);
    EXPECT_EQ(text(labelRoute(1000, hops, false)), "label 1000 no ttl-propagate" + end);
    EXPECT_EQ(text(withdrawn(1000)), "label 1000 withdrawn");
}

TEST(RouteChange, ofAPrefixReadsAsOneLine) {
    const L3::RouteKey prefix = to("203.0.113.0", 24);
    const std::string head = "203.0.113.0/24 table 254 protocol 196: ";
    EXPECT_EQ(text(prefixRoute(prefix, hops)), head + hopsText);
    EXPECT_EQ(text(prefixRoute(prefix, RouteEnd::blackhole)), head + "blackhole");
    EXPECT_EQ(text(prefixRoute(prefix, RouteEnd::unreachable)), head + "unreachable");
    EXPECT_EQ(text(prefixRoute(prefix, RouteEnd::prohibit)), head + "prohibit");
    EXPECT_EQ(text(prefixRoute(prefix, RouteEnd::local)), head + "local");
    EXPECT_EQ(text(withdrawn(prefix)), "203.0.113.0/24 table 254 withdrawn");
}

TEST(RouteChange, equalsOneThatSaysTheSame) {
    EXPECT_EQ(labelRoute(1000, hops), labelRoute(1000, hops));
    EXPECT_NE(labelRoute(1000, hops), labelRoute(1000, hops, true));
    EXPECT_NE(labelRoute(1000, hops), labelRoute(1001, hops));
    EXPECT_NE(labelRoute(1000, hops), labelRoute(1000, {hops.front()}));
    EXPECT_NE(labelRoute(1000, hops), withdrawn(1000));
}

} // namespace

} // namespace RoutesTest
