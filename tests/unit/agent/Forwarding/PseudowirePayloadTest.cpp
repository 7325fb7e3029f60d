#include "Forwarding/PseudowirePayload.h"

#include <gtest/gtest.h>
#include <string>

#include "FrameBytes.h"

namespace PseudowirePayloadTest {

using namespace OvixAgent;
using namespace TestSupport::Raw;

namespace {

const Bytes zeroWord = filled(4, 0);
const Bytes inner = join({eth(ethIpv4), ipv4({}, udp())});
const Bytes headerOnly = eth(ethIpv4);

struct Row {
    const char* what;
    Bytes payload;
    const char* verdict; ///< "forwarded", or a reason
    Bytes left;
};

void check(const std::vector<Row>& rows, bool controlWord) {
    for (const Row& row : rows) {
        Ovix::PacketContext packet(Lumo::globalPktManager()->newPkt(row.payload),
                                   Ovix::PktHdrType::eth);
        Pseudowire pseudowire;
        pseudowire.controlWord = controlWord;
        const Fate fate = removeControlWord(packet, &pseudowire);
        EXPECT_EQ(fate.kind == FateKind::forwarded ? "forwarded" : fate.reason, row.verdict)
            << row.what;
        EXPECT_EQ(fate.kind == FateKind::punted, fate.reason == Reason::associatedChannel);
        if (fate.kind == FateKind::forwarded) {
            const auto data = packet.pkt()->data();
            EXPECT_EQ(Bytes(data.begin(), data.end()), row.left) << row.what;
            EXPECT_EQ(packet.parsedPkt().header(0)->payload().size(), row.left.size() - 14);
        }
    }
}

constexpr const char* cutShort = "Pseudowire payload shorter than an Ethernet header";
constexpr const char* channel = "Pseudowire associated channel";
constexpr const char* noWord =
    "Pseudowire control word missing: the first nibble is neither 0 nor 1";

/// A frame to an address that begins with four zero bytes.
Bytes toZeros(std::uint16_t etherType, const Bytes& payload) {
    return join({{0, 0, 0, 0, 0, 1, 2, 0, 0, 0, 1, 2}, u16(etherType), payload});
}

} // namespace

TEST(PseudowirePayload, WithAControlWordTheFirstNibbleDecides) {
    check(
        {
            {"data", join({zeroWord, inner}), "forwarded", inner},
            {"numbered", join({{0, 0, 0xff, 0xff}, inner}), "forwarded", inner},
            {"reserved bits", join({{0x0f, 0xff, 0, 0}, inner}), "forwarded", inner},
            {"a header alone", join({zeroWord, headerOnly}), "forwarded", headerOnly},
            {"nothing", {}, cutShort, {}},
            {"less than a control word", {0, 0, 0}, cutShort, {}},
            {"a control word alone", zeroWord, cutShort, {}},
            {"one byte short", join({zeroWord, filled(13, 1)}), cutShort, {}},
            {"a channel header alone", {0x10, 0, 0, 7}, channel, {}},
            {"a channel message", join({{0x10, 0, 0, 0x21}, ipv4({}, udp())}), channel, {}},
            {"an IPv4 packet", ipv4({}, udp()), noWord, {}},
            {"an IPv6 packet", ipv6({}, udp()), noWord, {}},
            {"nibble 2", join({{0x20, 0, 0, 0}, inner}), noWord, {}},
            {"nibble 15", join({{0xff, 0, 0, 0}, inner}), noWord, {}},
        },
        true);
}

TEST(PseudowirePayload, WithoutOneTheFrameIsThePayload) {
    const Bytes shortLlc = toZeros(3, join({{0x42, 0x42, 3}, filled(43, 0)}));
    check(
        {
            {"a frame", inner, "forwarded", inner},
            {"a header alone", headerOnly, "forwarded", headerOnly},
            {"nothing", {}, cutShort, {}},
            {"one byte short", filled(13, 1), cutShort, {}},
            {"an address that looks like a channel", join({{0x10}, filled(5, 0), filled(54, 1)}),
             "forwarded", join({{0x10}, filled(5, 0), filled(54, 1)})},
            {"IPv4 to zeros", toZeros(ethIpv4, ipv4({}, udp())), "forwarded",
             toZeros(ethIpv4, ipv4({}, udp()))},
            {"a tagged frame to zeros", toZeros(ethVlan, filled(46, 8)), "forwarded",
             toZeros(ethVlan, filled(46, 8))},
            {"an EtherType nobody knows", toZeros(0x1234, filled(46, 7)), "forwarded",
             toZeros(0x1234, filled(46, 7))},
            {"802.3 to zeros", toZeros(100, filled(100, 8)), "forwarded",
             toZeros(100, filled(100, 8))},
            {"padded 802.3 to zeros", shortLlc, "forwarded", shortLlc},
            {"all zeros", filled(60, 0), "forwarded", filled(60, 0)},
            {"a header of zeros", filled(14, 0), "forwarded", filled(14, 0)},
        },
        false);
}

TEST(PseudowirePayload, WithoutOneNothingIsTakenForIt) {
    const Bytes zeros = join({zeroWord, inner});
    const Bytes numbered = join({{0, 0, 0x12, 0x34}, inner});
    check({{"what looks like a control word", zeros, "forwarded", zeros},
           {"and a numbered one", numbered, "forwarded", numbered}},
          false);
}

TEST(PseudowirePayload, APortWithoutAPseudowireGetsTheFrame) {
    Ovix::PacketContext packet(Lumo::globalPktManager()->newPkt(inner), Ovix::PktHdrType::eth);
    EXPECT_EQ(removeControlWord(packet, nullptr).kind, FateKind::forwarded);
    EXPECT_EQ(packet.pkt()->bytes(), inner.size());
}

TEST(PseudowirePayload, TheFlowLabelIsTheLastOfTheStack) {
    const struct {
        Bytes packet;
        const char* verdict;
        std::size_t left;
    } rows[]{
        {join({stack({{77777}}), inner}), "forwarded", inner.size()},
        {stack({{77777}}), "forwarded", 0},
        {join({stack({{77777}, {5}}), inner}), "Pseudowire flow label missing", 0},
        {{0, 1, 2}, "Pseudowire flow label missing", 0},
    };
    for (const auto& row : rows) {
        Ovix::PacketContext packet(Lumo::globalPktManager()->newPkt(row.packet),
                                   Ovix::PktHdrType::mpls);
        const Fate fate = removeFlowLabel(packet);
        EXPECT_EQ(fate.kind == FateKind::forwarded ? "forwarded" : fate.reason, row.verdict);
        if (fate.kind == FateKind::forwarded) {
            EXPECT_EQ(packet.pkt()->bytes(), row.left);
            EXPECT_EQ(packet.outerType(), Ovix::PktHdrType::eth);
        }
    }
}

} // namespace PseudowirePayloadTest
