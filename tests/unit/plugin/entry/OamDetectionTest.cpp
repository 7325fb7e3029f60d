#include <ostream>

#include "FrameBytes.h"
#include "PluginFixture.h"

namespace OamDetectionTest {

namespace {

using namespace Ovix;
using TestSupport::Bytes;
using TestSupport::Entry;
using TestSupport::mplsFrame;
namespace Raw = TestSupport::Raw;

const Bytes lspPing = Raw::udp(1024, 3503);

Bytes ipv4To(std::uint32_t destination, const Bytes& payload = lspPing) {
    return Raw::ipv4({.destination = destination}, payload);
}

/// An IPv6 packet to the address of these 16 bytes.
Bytes ipv6To(const Bytes& destination, const Bytes& payload = lspPing) {
    Bytes packet = Raw::ipv6({}, payload);
    std::copy(destination.begin(), destination.end(), packet.begin() + 24);
    return packet;
}

Bytes ipv4Mapped(std::uint32_t address) {
    return Raw::join({Raw::filled(10, 0), Raw::filled(2, 0xff), Raw::u32(address)});
}

Bytes ipv6Ending(std::uint8_t last) {
    return Raw::join({Raw::filled(15, 0), {last}});
}

struct OamCase {
    const char* name;
    std::vector<Entry> stack;
    Bytes payload;
    bool oam;
};

void PrintTo(const OamCase& one, std::ostream* out) {
    *out << one.name;
}

class OamDetection : public TestSupport::PluginFixture,
                     public ::testing::WithParamInterface<OamCase> {
  protected:
    bool isOam(const Bytes& frame) {
        const auto context = contextOf(frame);
        const auto header = context->packetContext()->parsedPkt().header(1);
        return plugin->checkForOam(context, header, Ptr<MplsHeaderData>(mplsHeaderData(*header)));
    }
};

TEST_P(OamDetection, TellsOamFromOtherFrames) {
    const Bytes frame = mplsFrame(GetParam().stack, GetParam().payload);
    EXPECT_EQ(isOam(frame), GetParam().oam);
    EXPECT_TRUE(counters->counters().empty());
    EXPECT_TRUE(trace.empty());
}

const Bytes toHost = ipv4To(0x0a000001);
const Bytes toLoopback = ipv4To(0x7f000001);

INSTANTIATE_TEST_SUITE_P(Labels, OamDetection,
                         ::testing::ValuesIn(std::vector<OamCase>{
                             {"RouterAlertOnTop", {{1}, {100}}, toHost, true},
                             {"RouterAlertUnderEntropyIndicator", {{7}, {1}, {100}}, toHost, false},
                             {"RouterAlertAlone", {{1}}, {}, true},
                             {"RouterAlertUnderIpv4Null", {{0}, {1}, {100}}, toHost, true},
                             {"RouterAlertUnderBothNulls", {{0}, {2}, {1}, {100}}, toHost, true},
                             {"RouterAlertWithSpentTtl", {{1, 0}, {100}}, toHost, true},
                             {"RouterAlertUnderALabel", {{100}, {1}}, toHost, false},
                             {"RouterAlertUnderNullAndLabel", {{0}, {100}, {1}}, toHost, false},
                             {"OrdinaryLabelOverPing", {{100}}, toLoopback, false},
                             {"NullAndOrdinaryLabelOverPing", {{0}, {100}}, toLoopback, false},
                             {"EntropyIndicatorOverPing", {{7}, {5000}}, toLoopback, false},
                             {"ImplicitNullOverPing", {{3}}, toLoopback, false},
                             {"LabelOfWhichTheLowBitsAreNull", {{0x80000}}, toLoopback, false},
                         }),
                         [](const auto& one) { return one.param.name; });

INSTANTIATE_TEST_SUITE_P(
    Ipv4Payload, OamDetection,
    ::testing::ValuesIn(std::vector<OamCase>{
        {"Loopback", {{0}}, toLoopback, true},
        {"LoopbackUnderTwoNulls", {{0}, {2}}, toLoopback, true},
        {"LoopbackUnderIpv6Null", {{2}}, toLoopback, true},
        {"FirstLoopback", {{0}}, ipv4To(0x7f000000), true},
        {"LastLoopback", {{0}}, ipv4To(0x7fffffff), true},
        {"BelowLoopback", {{0}}, ipv4To(0x7effffff), false},
        {"AboveLoopback", {{0}}, ipv4To(0x80000000), false},
        {"Host", {{0}}, toHost, false},
        {"SourceIsLoopback",
         {{0}},
         Raw::ipv4({.source = 0x7f000001, .destination = 0x0a000001}, lspPing),
         false},
        {"Tcp",
         {{0}},
         Raw::ipv4({.destination = 0x7f000001, .protocol = Raw::protocolTcp},
                   Raw::join({lspPing, Raw::filled(20, 0)})),
         false},
        {"PortBelow", {{0}}, ipv4To(0x7f000001, Raw::udp(1024, 3502)), false},
        {"PortAbove", {{0}}, ipv4To(0x7f000001, Raw::udp(1024, 3504)), false},
        {"PortWithBytesExchanged", {{0}}, ipv4To(0x7f000001, Raw::udp(1024, 0xaf0d)), false},
        {"OnlyTheSourcePort", {{0}}, ipv4To(0x7f000001, Raw::udp(3503, 1024)), false},
        {"SpentTtlAndOptions",
         {{0, 0}},
         Raw::ipv4({.destination = 0x7f000001, .ttl = 0, .options = {0x94, 4, 0, 0}}, lspPing),
         true},
        {"UdpHeaderCutShort", {{0}}, ipv4To(0x7f000001, {4, 0, 0x0d, 0xaf}), false},
        {"NothingUnderTheStack", {{0}}, {}, false},
    }),
    [](const auto& one) { return one.param.name; });

INSTANTIATE_TEST_SUITE_P(
    Ipv6Payload, OamDetection,
    ::testing::ValuesIn(std::vector<OamCase>{
        {"MappedLoopback", {{2}}, ipv6To(ipv4Mapped(0x7f000001)), true},
        {"LastMappedLoopback", {{2}}, ipv6To(ipv4Mapped(0x7fffffff)), true},
        {"MappedAboveLoopback", {{2}}, ipv6To(ipv4Mapped(0x80000000)), false},
        {"MappedBelowLoopback", {{2}}, ipv6To(ipv4Mapped(0x7effffff)), false},
        {"Loopback", {{2}}, ipv6To(ipv6Ending(1)), true},
        {"LoopbackUnderIpv4Null", {{0}}, ipv6To(ipv6Ending(1)), true},
        {"NeighbourOfLoopback", {{2}}, ipv6To(ipv6Ending(2)), false},
        {"Unspecified", {{2}}, ipv6To(ipv6Ending(0)), false},
        {"CompatibleLoopback",
         {{2}},
         ipv6To(Raw::join({Raw::filled(12, 0), Raw::u32(0x7f000001)})),
         false},
        {"OtherPort", {{2}}, ipv6To(ipv6Ending(1), Raw::udp(1024, 9)), false},
        {"Tcp",
         {{2}},
         [] {
             Bytes packet = ipv6To(ipv6Ending(1), Raw::join({lspPing, Raw::filled(20, 0)}));
             packet[6] = Raw::protocolTcp;
             return packet;
         }(),
         false},
        {"HopLimitSpent",
         {{2}},
         [] {
             Bytes packet = ipv6To(ipv6Ending(1));
             packet[7] = 0;
             return packet;
         }(),
         true},
    }),
    [](const auto& one) { return one.param.name; });

using OamDetectionOfOne = OamDetection;

TEST_F(OamDetectionOfOne, APayloadThatIsNotIpIsTraced) {
    const Bytes ethernet = Raw::join({Raw::eth(Raw::ethIpv4), toLoopback});
    EXPECT_FALSE(isOam(mplsFrame({{0}}, ethernet)));
    EXPECT_EQ(trace, std::vector<std::string>{"Pkt 7: Next header is not v4 or v6"});
    EXPECT_TRUE(counters->counters().empty());
}

TEST_F(OamDetectionOfOne, WithoutAHeaderUnderTheStackNothingIsTraced) {
    EXPECT_FALSE(plugin->checkForOamMaybeUdpHdr(contextOf(mplsFrame({{0}}, {})), nullptr));
    EXPECT_TRUE(trace.empty());
}

TEST_F(OamDetectionOfOne, AnEmptyStackLeavesThePayloadToDecide) {
    for (const auto& [payload, oam] : {std::pair{toLoopback, true}, std::pair{toHost, false}}) {
        const auto context = contextOf(mplsFrame({{100}}, payload));
        const auto none =
            Tessel::make<MplsHeaderData>(context->packetContext()->pkt(), 14U, 0U, false);
        const auto header = context->packetContext()->parsedPkt().header(1);
        EXPECT_EQ(plugin->checkForOam(context, header, none), oam);
    }
}

TEST_F(OamDetectionOfOne, TheFrameStaysAsItWas) {
    const Bytes frame = mplsFrame({{0}, {2}}, toLoopback);
    const auto context = contextOf(frame);
    const auto header = context->packetContext()->parsedPkt().header(1);
    EXPECT_TRUE(plugin->checkForOam(context, header, Ptr<MplsHeaderData>(mplsHeaderData(*header))));
    const auto bytes = context->packetContext()->pkt()->data();
    EXPECT_EQ(Bytes(bytes.begin(), bytes.end()), frame);
}

} // namespace

} // namespace OamDetectionTest
