#include <gtest/gtest.h>

#include "PacketTesting.h"

namespace PacketParserTest {

using namespace Ovix;
using namespace TestSupport;
using namespace TestSupport::Raw;

namespace {

std::string names(const Bytes& frame) {
    return headerNames(contextOf(frame)->parsedPkt());
}

Bytes labelled(const std::vector<Entry>& entries, const Bytes& payload) {
    return join({eth(ethMpls), stack(entries), payload});
}

const Bytes udpInIpv4 = ipv4({}, udp());

} // namespace

TEST(PacketParser, HeadersFollowEachOtherInTheFrame) {
    const Bytes frame = join({eth(ethServiceVlan), tag(100, ethVlan), tag(200, ethMpls),
                              stack({{100}, {200}}), ipv4({.options = filled(8, 1)}, udp())});
    const auto context = contextOf(frame);
    ParsedPacket& parsed = context->parsedPkt();
    const struct {
        PktHdrType type;
        std::uint32_t offset;
        std::uint32_t length;
    } headers[] = {{PktHdrType::eth, 0, 14},
                   {PktHdrType::vlanTags, 14, 8},
                   {PktHdrType::mpls, 22, 8},
                   {PktHdrType::ipv4, 30, 28},
                   {PktHdrType::udp, 58, 8}};
    std::int32_t position = 0;
    for (const auto& expected : headers) {
        const auto header = parsed.header(position);
        ASSERT_TRUE(header);
        EXPECT_EQ(header->position(), position);
        EXPECT_EQ(header->pktHdrType(), expected.type);
        EXPECT_EQ(header->offset(), expected.offset);
        EXPECT_EQ(header->length(), expected.length);
        EXPECT_EQ(header->bytes().data(), context->pkt()->data().data() + expected.offset);
        EXPECT_EQ(header->payload().size(), frame.size() - expected.offset - expected.length);
        ++position;
    }
    EXPECT_FALSE(parsed.header(position));
}

TEST(PacketParser, EtherTypesTellWhatFollows) {
    const struct {
        std::uint16_t etherType;
        const char* headers;
    } cases[] = {{0x0800, "Eth Ipv4 Udp"}, {0x0806, "Eth"},          {0x86dd, "Eth"},
                 {0x8847, "Eth Mpls"},     {0x8848, "Eth Mpls"},     {0x8100, "Eth VlanTags"},
                 {0x88a8, "Eth VlanTags"}, {0x9100, "Eth VlanTags"}, {0x0000, "Eth"},
                 {0x05dc, "Eth"},          {0x8846, "Eth"},          {0x8849, "Eth"}};
    for (const auto& row : cases) {
        EXPECT_EQ(names(join({eth(row.etherType), udpInIpv4})), row.headers)
            << std::hex << row.etherType;
    }
}

TEST(PacketParser, TagsAndLabelsNest) {
    const Bytes label = stack({{100}});
    const struct {
        Bytes frame;
        const char* headers;
    } cases[] = {
        {join({eth(ethVlan), tag(5, ethMpls), label, udpInIpv4}), "Eth VlanTags Mpls Ipv4 Udp"},
        {join({eth(ethServiceVlan), tag(5, ethVlan), tag(6, ethVlan), tag(7, ethMpls), label}),
         "Eth VlanTags Mpls"},
        {join({eth(ethVlan), tag(1, ethVlan), tag(2, ethVlan), tag(3, ethVlan), tag(4, ethMpls),
               label}),
         "Eth VlanTags"},
        {labelled({{100}}, join({eth(ethIpv4), udpInIpv4})), "Eth Mpls Eth Ipv4 Udp"},
        {filled(13, 0), ""},
    };
    for (const auto& row : cases) {
        EXPECT_EQ(names(row.frame), row.headers);
    }
}

TEST(PacketParser, GoesOnlyAsFarAsAskedAndTakesWhatALabelStackCarriesAlong) {
    const auto context = contextOf(labelled({{100}}, udpInIpv4));
    ParsedPacket& parsed = context->parsedPkt();
    EXPECT_TRUE(parsed.header(1));
    EXPECT_EQ(parsed.headers(), 3);
    EXPECT_FALSE(parsed.firstHeaderOfType(PktHdrType::udp));
    EXPECT_FALSE(parsed.header(9));
    EXPECT_FALSE(parsed.header(-1));
    EXPECT_TRUE(parsed.firstHeaderOfType(PktHdrType::udp));
}

TEST(PacketParser, HoldsAStackOfAnyDepth) {
    std::vector<Entry> entries;
    for (std::uint32_t i = 0; i < 300; ++i) {
        entries.push_back({1000 + i});
    }
    const auto context = contextOf(labelled(entries, {}));
    const MplsHeaderData* labels = mplsHeaderData(*context->parsedPkt().header(1));
    ASSERT_NE(labels, nullptr);
    std::uint32_t expected = 1000;
    for (const Lumo::MplsLabelEntry entry : *labels) {
        EXPECT_EQ(entry.label().value(), expected++);
    }
    EXPECT_EQ(expected, 1300U);
}

TEST(PacketParser, VlanTagsKeepTheirTpidsAndTcis) {
    const auto context = contextOf(join({eth(ethLegacyVlan), tag(0xe001, ethServiceVlan),
                                         tag(0x1002, ethVlan), tag(0x0003, ethIpv4), udpInIpv4}));
    const auto header = context->parsedPkt().header(1);
    ASSERT_TRUE(header);
    ASSERT_TRUE(header->headerData());
    ASSERT_EQ(header->headerData()->type(), PktHdrType::vlanTags);
    const auto tags = static_cast<VlanTagHeaderData*>(header->headerData().get())->vlanTags();
    ASSERT_EQ(tags.size(), 3U);
    EXPECT_EQ(tags[0].tpid.value(), 0x9100);
    EXPECT_EQ(tags[0].tci.value(), 0xe001);
    EXPECT_EQ(tags[1].tpid.value(), 0x88a8);
    EXPECT_EQ(tags[2].tpid.value(), 0x8100);
    EXPECT_EQ(tags[2].tci.value(), 0x0003);
    EXPECT_EQ(headerNames(context->parsedPkt()), "Eth VlanTags Ipv4 Udp");
}

TEST(PacketParser, TheFirstNibbleTellsWhatALabelStackCarries) {
    EXPECT_EQ(names(labelled({{100}}, udpInIpv4)), "Eth Mpls Ipv4 Udp");
    EXPECT_EQ(names(labelled({{100}}, ipv6({}, udp()))), "Eth Mpls Ipv6 Udp");
    for (std::uint8_t nibble = 0; nibble < 16; ++nibble) {
        if (nibble == 4 || nibble == 6) {
            continue;
        }
        const auto first = static_cast<std::uint8_t>(nibble << 4U);
        EXPECT_EQ(names(labelled({{100}}, filled(14, first))), "Eth Mpls Eth") << int{nibble};
        EXPECT_EQ(names(labelled({{100}}, filled(13, first))), "Eth Mpls") << int{nibble};
    }
    EXPECT_EQ(names(labelled({{100}}, {})), "Eth Mpls");
}

TEST(PacketParser, AStackCutShortHoldsItsWholeEntries) {
    const Bytes whole = labelled({{100}, {200}, {300}}, udpInIpv4);
    for (std::size_t length = 14; length < 14 + 12; ++length) {
        const auto context =
            contextOf(Bytes(whole.begin(), whole.begin() + std::ptrdiff_t(length)));
        const auto header = context->parsedPkt().header(1);
        ASSERT_TRUE(header) << length;
        const std::size_t entries = (length - 14) / 4;
        EXPECT_EQ(header->length(), entries * 4);
        if (entries == 0) {
            EXPECT_FALSE(header->headerData());
        } else {
            ASSERT_NE(mplsHeaderData(*header), nullptr);
            EXPECT_EQ(mplsHeaderData(*header)->entries(), entries);
        }
        EXPECT_FALSE(context->parsedPkt().header(2)) << length;
    }
}

TEST(PacketParser, TheHashingFlagIsSetByAnIndicatorWithItsEntropyLabel) {
    const struct {
        std::vector<Entry> entries;
        bool flag;
    } cases[] = {
        {{{100}, {7}, {5000}}, true},
        {{{7}, {5000}, {100}}, true},
        {{{100}, {7}, {5000}, {0}}, true},
        {{{100}, {7}}, false},
        {{{100}}, false},
        {{{7}, {2}}, false},
        {{{7}, {2}, {555}, {100}}, true},
        {{{7}, {7}}, false},
        {{{5000}, {7}}, false},
        {{{7}, {16}}, true},
    };
    for (const auto& row : cases) {
        const auto context = contextOf(labelled(row.entries, udpInIpv4));
        EXPECT_EQ(mplsHeaderData(*context->parsedPkt().header(1))->hashingFlag(), row.flag)
            << row.entries.size() << " entries from " << row.entries[0].label;
    }
}

TEST(PacketParser, AnIpv4HeaderMustBeWholeAndSane) {
    const auto with = [](std::size_t at, std::uint8_t value) {
        Bytes packet = ipv4({}, udp());
        packet[at] = value;
        return join({eth(ethIpv4), packet});
    };
    EXPECT_EQ(names(with(0, 0x55)), "Eth") << "another version";
    EXPECT_EQ(names(with(0, 0x44)), "Eth") << "shorter than the fixed header";
    EXPECT_EQ(names(with(0, 0x40)), "Eth");
    EXPECT_EQ(names(with(0, 0x4f)), "Eth") << "options beyond the frame";
    EXPECT_EQ(names(with(3, 19)), "Eth") << "no room for the header in the total length";
    EXPECT_EQ(names(with(3, 20)), "Eth Ipv4") << "what follows is padding";
    EXPECT_EQ(names(with(3, 27)), "Eth Ipv4");
    EXPECT_EQ(names(with(3, 28)), "Eth Ipv4 Udp");
    EXPECT_EQ(names(with(3, 0)), "Eth Ipv4 Udp") << "to be segmented";
    EXPECT_EQ(names(with(2, 0xff)), "Eth Ipv4 Udp") << "snapped";
    Bytes snapped = join({eth(ethIpv4), ipv4({.options = filled(16, 1)}, udp())});
    snapped.resize(14 + 24);
    EXPECT_EQ(names(snapped), "Eth Ipv4") << "snapped within the options";
    snapped.resize(14 + 19);
    EXPECT_EQ(names(snapped), "Eth") << "snapped within the fixed header";
}

TEST(PacketParser, OnlyAFirstIpv4FragmentShowsItsUpperLayer) {
    const struct {
        std::uint16_t fragment;
        const char* headers;
    } cases[] = {{0x0000, "Eth Ipv4 Udp"}, {0x4000, "Eth Ipv4 Udp"}, {0x2000, "Eth Ipv4 Udp"},
                 {0x0001, "Eth Ipv4"},     {0x2001, "Eth Ipv4"},     {0x1fff, "Eth Ipv4"}};
    for (const auto& row : cases) {
        EXPECT_EQ(names(join({eth(ethIpv4), ipv4({.fragment = row.fragment}, udp())})), row.headers)
            << std::hex << row.fragment;
    }
}

TEST(PacketParser, AnIpv6HeaderCoversItsExtensionHeaders) {
    const std::uint8_t hopByHop = 0, routing = 43, fragment = 44, esp = 50, ah = 51, none = 59,
                       options = 60;
    const auto extension = [&](std::uint8_t next, std::uint8_t length, std::size_t bytes) {
        return join({{next, length}, filled(bytes - 2, 0)});
    };
    const struct {
        std::uint8_t first;
        Bytes extensions;
        const char* headers;
    } cases[] = {
        {17, {}, "Eth Ipv6 Udp"},
        {6, {}, "Eth Ipv6"},
        {none, {}, "Eth Ipv6"},
        {esp, filled(8, 0), "Eth Ipv6"},
        {hopByHop, extension(17, 0, 8), "Eth Ipv6 Udp"},
        {routing, extension(17, 2, 24), "Eth Ipv6 Udp"},
        {options, extension(17, 1, 16), "Eth Ipv6 Udp"},
        {ah, extension(17, 4, 24), "Eth Ipv6 Udp"},
        {fragment, {17, 0, 0, 1, 0, 0, 0, 9}, "Eth Ipv6 Udp"},
        {fragment, {17, 0, 0, 8, 0, 0, 0, 9}, "Eth Ipv6"},
        {fragment, {17, 0, 0x10, 1, 0, 0, 0, 9}, "Eth Ipv6"},
        {hopByHop,
         join({extension(options, 0, 8), extension(routing, 0, 8), extension(fragment, 0, 8),
               extension(ah, 0, 8), extension(options, 4, 24), extension(17, 0, 8)}),
         "Eth Ipv6 Udp"},
    };
    for (const auto& row : cases) {
        const auto context = contextOf(
            join({eth(ethIpv6), ipv6({.nextHeader = row.first}, join({row.extensions, udp()}))}));
        EXPECT_EQ(headerNames(context->parsedPkt()), row.headers) << int{row.first};
        const auto header = context->parsedPkt().header(1);
        EXPECT_EQ(header->bytes()[6], row.first);
        EXPECT_EQ(header->bytes()[39], 2) << "the last byte of the destination";
        if (context->parsedPkt().headers() == 3) {
            EXPECT_EQ(header->length(), 40 + row.extensions.size());
        }
    }
}

TEST(PacketParser, AnExtensionHeaderBeyondTheFrameEndsTheParse) {
    Bytes packet = ipv6({.nextHeader = 0}, join({{17, 0}, filled(6, 0), udp()}));
    packet[41] = 2; // 24 bytes, of which 16 are there
    const auto context = contextOf(join({eth(ethIpv6), packet}));
    EXPECT_EQ(headerNames(context->parsedPkt()), "Eth Ipv6");
    EXPECT_EQ(context->parsedPkt().header(1)->length(), 40U);
}

TEST(PacketParser, TheIpv6PayloadLengthTellsPaddingFromUdp) {
    Bytes packet = ipv6({}, udp());
    packet[5] = 7;
    EXPECT_EQ(names(join({eth(ethIpv6), packet})), "Eth Ipv6");
    packet[5] = 0;
    EXPECT_EQ(names(join({eth(ethIpv6), packet})), "Eth Ipv6 Udp");
    packet[4] = 0xff;
    EXPECT_EQ(names(join({eth(ethIpv6), packet})), "Eth Ipv6 Udp") << "snapped";
}

TEST(PacketParser, StopsAfterSoManyHeaders) {
    Bytes frame;
    for (int i = 0; i < 20; ++i) {
        frame = join({frame, eth(ethMpls), stack({{100}})});
    }
    const auto context = contextOf(frame);
    context->parsedPkt().maybeDoFullParse();
    EXPECT_EQ(context->parsedPkt().headers(), ParsedPacket::maxHeaders);
    EXPECT_FALSE(context->parsedPkt().header(ParsedPacket::maxHeaders));
    EXPECT_TRUE(context->parsedPkt().complete());
}

TEST(PacketParser, AHeaderOutlivesTheContextItCameFrom) {
    auto context = contextOf(labelled({{100}}, udpInIpv4));
    const auto header = context->parsedPkt().header(1);
    context.reset();
    EXPECT_EQ((*mplsHeaderData(*header)->begin()).label().value(), 100U);
    EXPECT_EQ(header->payload().size(), udpInIpv4.size());
}

} // namespace PacketParserTest
