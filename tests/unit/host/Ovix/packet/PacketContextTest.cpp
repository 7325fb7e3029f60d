#include <gtest/gtest.h>

#include "PacketTesting.h"

namespace PacketContextTest {

using namespace Ovix;
using namespace TestSupport;
using namespace TestSupport::Raw;

namespace {

const Bytes labelledIpv4 = join({stack({{100, 5}, {200}}), ipv4({}, udp())});

} // namespace

TEST(PacketContext, ParsesAgainWhatARewriteLeaves) {
    const auto context = contextOf(join({eth(ethMpls), labelledIpv4}));
    EXPECT_EQ(headerNames(context->parsedPkt()), "Eth Mpls Ipv4 Udp");
    context->pkt()->popFront(14);
    context->outerTypeIs(PktHdrType::mpls);
    EXPECT_EQ(headerNames(context->parsedPkt()), "Mpls Ipv4 Udp");
    context->pkt()->popFront(8);
    context->outerTypeIs(PktHdrType::ipv4);
    EXPECT_EQ(headerNames(context->parsedPkt()), "Ipv4 Udp");
    EXPECT_EQ(context->outerType(), PktHdrType::ipv4);
}

TEST(PacketContext, ParsesAReplacedPacketOnlyWhenAsked) {
    const auto context = contextOf(labelledIpv4, PktHdrType::mpls);
    EXPECT_EQ(headerNames(context->parsedPkt()), "Mpls Ipv4 Udp");
    const auto other = packetAtBufferEnd(join({stack({{9}}), ipv6({}, {})}));
    context->replacePacket(other, PktCtxParse::keep);
    EXPECT_EQ(context->pkt(), other);
    EXPECT_EQ(context->getPkt(), other);
    EXPECT_EQ(headerNames(context->parsedPkt()), "Mpls Ipv4 Udp");
    context->replacePacket(other, PktCtxParse::reparse);
    EXPECT_EQ(headerNames(context->parsedPkt()), "Mpls Ipv6");
}

TEST(PacketContext, InitializingParsesAsEthernet) {
    const auto context = contextOf(join({eth(ethMpls), labelledIpv4}), PktHdrType::mpls);
    context->initializeParsedPkt(Tessel::make<PacketParser>());
    EXPECT_EQ(headerNames(context->parsedPkt()), "Eth Mpls Ipv4 Udp");
}

TEST(PacketContext, TheHashStaysThatOfTheReceivedFrame) {
    const auto context = contextOf(join({eth(ethMpls), labelledIpv4}));
    const std::uint32_t received = context->hash();
    context->pkt()->popFront(18);
    context->outerTypeIs(PktHdrType::mpls);
    EXPECT_EQ(context->hash(), received);
}

TEST(PacketContext, TheDecrementIsOpenAtFirst) {
    const auto context = contextOf(labelledIpv4, PktHdrType::mpls);
    EXPECT_FALSE(context->ttlDecremented());
    context->ttlDecrementedIs(true);
    EXPECT_TRUE(context->ttlDecremented());
}

TEST(PacketContext, ClassificationTakesTheOutermostClassThereIs) {
    const Bytes udp4 = ipv4({.tos = 0xb8}, udp());
    const Bytes udp6 = ipv6({.trafficClass = 0x6c}, udp());
    const struct {
        const char* what;
        Bytes frame;
        std::uint8_t input;
    } cases[] = {
        {"802.1p priority", join({eth(ethVlan), tag(0xc064, ethIpv4), udp4}), 6},
        {"the outer tag's priority",
         join({eth(ethServiceVlan), tag(0x2001, ethVlan), tag(0xe002, ethIpv4), udp4}), 1},
        {"priority before TC", join({eth(ethVlan), tag(0x4001, ethMpls), labelledIpv4}), 2},
        {"priority 0 counts", join({eth(ethVlan), tag(5, ethIpv4), udp4}), 0},
        {"TC of the top label", join({eth(ethMpls), labelledIpv4}), 5},
        {"TC before DSCP", join({eth(ethMpls), stack({{100, 0}}), udp4}), 0},
        {"DSCP of IPv4", join({eth(ethIpv4), udp4}), 5},
        {"DSCP of IPv6", join({eth(ethIpv6), udp6}), 3},
        {"a stack without an entry", join({eth(ethMpls), {0, 6}}), 0},
        {"neither", join({eth(0x0806), filled(28, 0xff)}), 0},
        {"a runt", filled(9, 0xff), 0},
    };
    for (const auto& row : cases) {
        const auto context = contextOf(row.frame);
        EXPECT_EQ(context->classificationInput(), row.input) << row.what;
        EXPECT_EQ(context->trafficClassifier().trafficClass(context->classificationInput()),
                  row.input);
    }
}

} // namespace PacketContextTest
