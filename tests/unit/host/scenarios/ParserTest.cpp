#include <algorithm>
#include <array>
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <vector>

#include "Ovix/packet/FlowHash.h"
#include "Ovix/packet/PacketContext.h"

namespace {

using namespace Ovix;
using Bytes = std::vector<std::uint8_t>;

Bytes operator+(Bytes a, const Bytes& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

Bytes eth(std::uint16_t type) {
    return {2,
            0,
            0,
            0,
            0,
            1,
            2,
            0,
            0,
            0,
            0,
            2,
            static_cast<std::uint8_t>(type >> 8U),
            static_cast<std::uint8_t>(type)};
}
Bytes tag(std::uint16_t vlan, std::uint16_t next) {
    return {static_cast<std::uint8_t>(vlan >> 8U), static_cast<std::uint8_t>(vlan),
            static_cast<std::uint8_t>(next >> 8U), static_cast<std::uint8_t>(next)};
}
Bytes label(std::uint32_t value, bool bos, std::uint8_t ttl = 64) {
    const std::uint32_t word = (value << 12U) | (bos ? 0x100U : 0U) | ttl;
    return {static_cast<std::uint8_t>(word >> 24U), static_cast<std::uint8_t>(word >> 16U),
            static_cast<std::uint8_t>(word >> 8U), static_cast<std::uint8_t>(word)};
}
Bytes ipv4(std::uint8_t protocol, std::uint8_t words = 5, std::uint16_t fragment = 0,
           std::uint8_t host = 1) {
    Bytes header(std::max(words, std::uint8_t{5}) * std::size_t{4});
    header[0] = static_cast<std::uint8_t>(0x40U | words);
    header[3] = static_cast<std::uint8_t>(header.size() + 8); // a UDP header follows
    header[6] = static_cast<std::uint8_t>(fragment >> 8U);
    header[7] = static_cast<std::uint8_t>(fragment);
    header[9] = protocol;
    header[12] = 10;
    header[15] = host;
    header[16] = 127;
    header[19] = 1;
    return header;
}
Bytes ipv6(std::uint8_t next) {
    Bytes header(40);
    header[0] = 0x60;
    header[6] = next;
    header[39] = 1;
    return header;
}
Bytes udp(std::uint16_t port) {
    return {4, 0, static_cast<std::uint8_t>(port >> 8U), static_cast<std::uint8_t>(port), 0, 8,
            0, 0};
}

Ptr<PacketContext> parsed(const Bytes& bytes) {
    return Tessel::make<PacketContext>(Lumo::globalPktManager()->newPkt(bytes));
}
std::string names(const Bytes& bytes) {
    const auto packet = parsed(bytes);
    packet->parsedPkt().maybeDoFullParse();
    std::string all;
    for (std::int32_t i = 0; i < packet->parsedPkt().headers(); ++i) {
        all += (i == 0 ? "" : " ");
        all += pktHdrName(packet->parsedPkt().header(i)->pktHdrType());
    }
    return all;
}

TEST(Parser, NamesTheHeadersOfAFrame) {
    const Bytes inner = ipv4(17) + udp(3503);
    const std::array<std::pair<Bytes, std::string>, 17> cases = {{
        {eth(0x0800) + inner, "Eth Ipv4 Udp"},
        {eth(0x8847) + label(100, true) + inner, "Eth Mpls Ipv4 Udp"},
        {eth(0x8848) + label(100, true) + inner, "Eth Mpls Ipv4 Udp"},
        {eth(0x8847) + label(100, false) + label(0, true) + ipv6(17) + udp(1), "Eth Mpls Ipv6 Udp"},
        {eth(0x8100) + tag(5, 0x8847) + label(100, true) + inner, "Eth VlanTags Mpls Ipv4 Udp"},
        {eth(0x88a8) + tag(5, 0x8100) + tag(6, 0x8100) + tag(7, 0x8847) + label(100, true),
         "Eth VlanTags Mpls"},
        {eth(0x8100) + tag(1, 0x8100) + tag(2, 0x8100) + tag(3, 0x8100) + tag(4, 0x8847) +
             label(100, true),
         "Eth VlanTags"},
        {eth(0x8847) + label(100, true) + eth(0x0800) + inner, "Eth Mpls Eth Ipv4 Udp"},
        {eth(0x8847) + label(100, true) + Bytes{1, 2, 3}, "Eth Mpls"},
        {eth(0x8847) + label(100, false) + label(200, false), "Eth Mpls"},
        {eth(0x8847) + Bytes{0, 1}, "Eth Mpls"},
        {eth(0x0800) + ipv4(17, 15) + udp(1), "Eth Ipv4 Udp"},
        {eth(0x0800) + ipv4(17, 4) + udp(1), "Eth"},
        {eth(0x0800) + ipv4(17, 5, 0x0001) + udp(1), "Eth Ipv4"},
        {eth(0x0800) + ipv4(17, 5, 0x2000) + udp(1), "Eth Ipv4 Udp"},
        {eth(0x86dd) + ipv6(0) + Bytes{44, 0, 0, 0, 0, 0, 0, 0} + Bytes{17, 0, 0, 1, 0, 0, 0, 0} +
             udp(1),
         "Eth Ipv6 Udp"},
        {eth(0x86dd) + ipv6(44) + Bytes{17, 0, 0, 8, 0, 0, 0, 0} + udp(1), "Eth Ipv6"},
    }};
    for (const auto& [frame, expected] : cases) {
        EXPECT_EQ(names(frame), expected);
    }
    EXPECT_EQ(names(Bytes(13)), "");
}

TEST(Parser, GoesOnlyAsFarAsAskedAndTakesWhatALabelStackCarriesAlong) {
    const auto packet = parsed(eth(0x8847) + label(100, true) + ipv4(17) + udp(1));
    ParsedPacket& headers = packet->parsedPkt();
    EXPECT_TRUE(headers.header(1));
    EXPECT_EQ(headers.headers(), 3);
    EXPECT_FALSE(headers.firstHeaderOfType(PktHdrType::udp));
    EXPECT_FALSE(headers.header(9));
    EXPECT_FALSE(headers.header(-1));
    EXPECT_TRUE(headers.firstHeaderOfType(PktHdrType::udp));
}

TEST(Parser, HoldsAStackOfAnyDepthAndTellsWhenThereIsNone) {
    Bytes frame = eth(0x8847);
    for (std::uint32_t i = 0; i < 300; ++i) {
        frame = frame + label(1000 + i, i == 299);
    }
    const auto packet = parsed(frame);
    const MplsHeaderData* stack = mplsHeaderData(*packet->parsedPkt().header(1));
    ASSERT_NE(stack, nullptr);
    std::uint32_t expected = 1000;
    for (const Lumo::MplsLabelEntry entry : *stack) {
        EXPECT_EQ(entry.label().value(), expected++);
    }
    EXPECT_EQ(expected, 1300U);
    EXPECT_EQ(mplsHeaderData(*parsed(eth(0x8847) + Bytes{0, 1})->parsedPkt().header(1)), nullptr);
}

TEST(Parser, ReadsNothingBeyondAFrameThatIsCutAnywhere) {
    const Bytes whole = eth(0x88a8) + tag(5, 0x8100) + tag(6, 0x8847) + label(100, false) +
                        label(7, false) + label(9, true) + ipv6(0) +
                        Bytes{60, 0, 0, 0, 0, 0, 0, 0} + Bytes{17, 0, 0, 0, 0, 0, 0, 0} + udp(1);
    const std::string all = names(whole);
    for (std::size_t length = 0; length <= whole.size(); ++length) {
        const Bytes cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length));
        EXPECT_EQ(all.rfind(names(cut), 0), 0U) << length;
        parsed(cut)->hash();
    }
}

TEST(Parser, SurvivesRandomDamage) {
    const Bytes whole =
        eth(0x8100) + tag(6, 0x8847) + label(100, false) + label(9, true) + ipv4(17, 6) + udp(1);
    std::mt19937 random(1);
    for (int i = 0; i < 20000; ++i) {
        Bytes damaged = whole;
        for (int j = 0; j < 3; ++j) {
            damaged[random() % damaged.size()] = static_cast<std::uint8_t>(random());
        }
        damaged.resize(random() % (damaged.size() + 1));
        const auto packet = parsed(damaged);
        packet->hash();
        packet->classificationInput();
    }
}

std::uint32_t hashOf(const Bytes& beneathEth) {
    return parsed(eth(0x8847) + beneathEth)->hash();
}

TEST(FlowHash, LooksAtFlowsAndNothingElse) {
    const Bytes one = ipv4(17) + udp(1);
    const std::uint32_t base = hashOf(label(100, true) + one);
    Bytes otherTtlAndTc = label(100, true, 9);
    otherTtlAndTc[2] = static_cast<std::uint8_t>(otherTtlAndTc[2] | 0x0e);
    EXPECT_EQ(hashOf(otherTtlAndTc + one), base);
    EXPECT_NE(hashOf(label(101, true) + one), base);
    EXPECT_NE(hashOf(label(100, true) + ipv4(17) + udp(2)), base);
    EXPECT_NE(hashOf(label(100, true) + ipv4(17, 5, 0, 2) + udp(1)), base);
    EXPECT_EQ(hashOf(label(0, false) + label(100, true) + one), base); // special-purpose
    EXPECT_EQ(hashOf(label(100, true) + ipv4(17, 5, 0x2000) + udp(1)),
              hashOf(label(100, true) + ipv4(17, 5, 0x2000) + udp(2))); // fragments
    const Bytes entropy = label(100, false) + label(7, false) + label(5000, true, 0);
    EXPECT_EQ(hashOf(entropy + one), hashOf(entropy + ipv4(6)));
    EXPECT_NE(hashOf(entropy + one),
              hashOf(label(100, false) + label(7, false) + label(5001, true, 0) + one));
}

TEST(FlowHash, SpreadsSequentialFlowsEvenly) {
    std::array<int, 16> byPort{};
    std::array<int, 16> byLabel{};
    for (std::uint32_t i = 0; i < 16000; ++i) {
        ++byPort[hashOf(label(100, true) + ipv4(17) + udp(static_cast<std::uint16_t>(i))) % 16];
        ++byLabel[hashOf(label(100 + i, true) + ipv4(17)) % 16];
    }
    for (int way = 0; way < 16; ++way) {
        EXPECT_NEAR(byPort[static_cast<std::size_t>(way)], 1000, 150);
        EXPECT_NEAR(byLabel[static_cast<std::size_t>(way)], 1000, 150);
    }
}

} // namespace
