#include "AnswersTesting.h"
#include "Ip/IpPacket.h"

using namespace OvixAgent;
using namespace OvixAgent::Testing;
using namespace TestSupport::Raw;

namespace {

std::optional<IpUpperLayer> ofIpv6(std::uint8_t nextHeader, const Bytes& payload, Bytes& packet) {
    Ipv6 fields;
    fields.nextHeader = nextHeader;
    packet = ipv6(fields, payload);
    return upperLayer({Ovix::PktHdrType::ipv6, packet});
}

} // namespace

TEST(IpUpperLayer, FollowsAnIpv4HeaderWithItsOptions) {
    Ipv4 fields;
    fields.options = filled(8, 1);
    const Bytes packet = join({ipv4(fields, udp()), filled(9, 0xee)});
    const auto upper = upperLayer({Ovix::PktHdrType::ipv4, packet});
    ASSERT_TRUE(upper);
    EXPECT_EQ(upper->protocol, protocolUdp);
    EXPECT_TRUE(upper->isFirstFragment);
    EXPECT_EQ(hex(upper->bytes), hex(udp()));
}

TEST(IpUpperLayer, IsMissingFromLaterFragments) {
    Ipv4 fields;
    fields.fragment = 1;
    const Bytes packet = ipv4(fields, udp());
    EXPECT_FALSE(upperLayer({Ovix::PktHdrType::ipv4, packet})->isFirstFragment);
    Bytes v6;
    const auto later = ofIpv6(44, join({{17, 0, 0, 8, 0, 0, 0, 1}, udp()}), v6);
    EXPECT_FALSE(later->isFirstFragment);
    EXPECT_TRUE(later->bytes.empty());
}

TEST(IpUpperLayer, FollowsIpv6ExtensionHeaders) {
    const Bytes options = join({{60, 1}, filled(14, 0)});
    const Bytes routing = join({{44, 0}, filled(6, 0)});
    const Bytes firstFragment{51, 0, 0, 1, 0, 0, 0, 1};
    const Bytes authentication = join({{17, 1}, filled(10, 0)});
    const Bytes destination = join({{43, 0}, filled(6, 0)});
    Bytes packet;
    const auto upper = ofIpv6(
        0, join({options, destination, routing, firstFragment, authentication, udp()}), packet);
    ASSERT_TRUE(upper);
    EXPECT_EQ(upper->protocol, protocolUdp);
    EXPECT_TRUE(upper->isFirstFragment);
    EXPECT_EQ(hex(upper->bytes), hex(udp()));
}

TEST(IpUpperLayer, ExtensionHeadersEndWithinThePacket) {
    const Bytes options = join({{17, 1}, filled(14, 0)});
    Bytes packet;
    for (std::size_t size = 1; size < options.size(); ++size) {
        EXPECT_FALSE(ofIpv6(0, cut(options, size), packet)) << size;
    }
    const auto upper = ofIpv6(0, options, packet);
    ASSERT_TRUE(upper);
    EXPECT_TRUE(upper->bytes.empty());
}
