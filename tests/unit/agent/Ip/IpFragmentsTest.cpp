// How IPv4 packets are cut, packet by packet; FragmentedRoutingTest has the frames around them.

#include "Ip/IpFragments.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <numeric>

#include "FrameBytes.h"

namespace IpFragmentsTest {

using namespace OvixAgent;
using namespace TestSupport::Raw;

namespace {

constexpr std::uint16_t more = 0x2000;

Bytes counting(std::size_t size) {
    Bytes bytes(size);
    std::iota(bytes.begin(), bytes.end(), std::uint8_t{1});
    return bytes;
}

Bytes packetOf(std::size_t size, std::uint16_t fragment = 0, const Bytes& options = {}) {
    Ipv4 fields;
    fields.ident = 0xbeef;
    fields.tos = 0xb8;
    fields.fragment = fragment;
    fields.options = options;
    return ipv4(fields, counting(size));
}

Bytes copyOf(std::span<const std::uint8_t> bytes) {
    return {bytes.begin(), bytes.end()};
}

/// The packets that one is cut into; none when it is not.
std::vector<Bytes> pieces(const Bytes& packet, std::size_t mtu) {
    std::vector<Bytes> packets;
    if (const auto cut = IpFragments::of(packet, mtu)) {
        for (std::size_t i = 0; i < cut->count(); ++i) {
            const IpFragment fragment = cut->at(i);
            packets.push_back(join({copyOf(fragment.header()), copyOf(fragment.payload)}));
        }
    }
    return packets;
}

/// The pieces as they must be: flags with offset, and how much data each has.
struct Piece {
    std::uint16_t fragment;
    std::size_t size;
};

std::vector<Bytes> expectedPieces(const Bytes& data, const std::vector<Piece>& list,
                                  const Bytes& firstOptions, const Bytes& laterOptions) {
    std::vector<Bytes> packets;
    auto at = data.begin();
    for (const Piece& piece : list) {
        Ipv4 fields;
        fields.ident = 0xbeef;
        fields.tos = 0xb8;
        fields.fragment = piece.fragment;
        fields.options = packets.empty() ? firstOptions : laterOptions;
        const auto end = at + static_cast<std::ptrdiff_t>(piece.size);
        packets.push_back(ipv4(fields, Bytes(at, end)));
        at = end;
    }
    EXPECT_EQ(at, data.end());
    return packets;
}

} // namespace

TEST(IpFragmentsTest, APacketIsCutIntoPiecesThatFit) {
    const struct {
        const char* what;
        std::size_t size;
        std::uint16_t fragment;
        std::size_t mtu;
        std::vector<Piece> pieces;
    } cases[]{
        {"one label too much", 1480, 0, 1496, {{more, 1472}, {184, 8}}},
        {"one byte too much", 101, 0, 120, {{more, 96}, {12, 5}}},
        {"the last one fills the MTU", 196, 0, 120, {{more, 96}, {12, 100}}},
        {"the last one would not fit", 197, 0, 120, {{more, 96}, {more | 12, 96}, {24, 5}}},
        {"so does that of three", 292, 0, 120, {{more, 96}, {more | 12, 96}, {24, 100}}},
        {"room for whole units", 192, 0, 116, {{more, 96}, {12, 96}}},
        {"8 bytes each", 20, 0, 28, {{more, 8}, {more | 1, 8}, {2, 4}}},
        {"15 bytes of room", 20, 0, 35, {{more, 8}, {1, 12}}},
        {"a first fragment", 104, more, 120, {{more, 96}, {more | 12, 8}}},
        {"a fragment between", 104, more | 10, 120, {{more | 10, 96}, {more | 22, 8}}},
        {"a last fragment", 103, 10, 120, {{more | 10, 96}, {22, 7}}},
        {"up to the last offset", 104, 0x1ff3, 120, {{more | 0x1ff3, 96}, {0x1fff, 8}}},
        {"the reserved flag stays", 104, 0x8000, 120, {{0x8000 | more, 96}, {0x8000 | 12, 8}}},
    };
    for (const auto& given : cases) {
        EXPECT_EQ(pieces(packetOf(given.size, given.fragment), given.mtu),
                  expectedPieces(counting(given.size), given.pieces, {}, {}))
            << given.what;
    }
}

TEST(IpFragmentsTest, OnlyOptionsThatSaySoAreInLaterFragments) {
    const Bytes recordRoute{7, 7, 4, 0, 0, 0, 0};
    const Bytes sourceRoute{131, 7, 4, 10, 1, 2, 3};
    const Bytes streamId{136, 4, 1, 2};
    const Bytes longest = join({{130, 40}, filled(38, 9)});
    const struct {
        const char* what;
        Bytes first;
        Bytes later;
    } cases[]{
        {"none of them", join({recordRoute, {0}}), {}},
        {"one, and padding", join({recordRoute, sourceRoute, {1, 1}}), join({sourceRoute, {0}})},
        {"two, from between others", join({streamId, {1}, recordRoute, streamId}),
         join({streamId, streamId})},
        {"all that there is room for", longest, longest},
        {"none behind the end of the list", join({{0}, sourceRoute}), {}},
        {"no operation alone", {1, 1, 1, 1}, {}},
    };
    for (const auto& given : cases) {
        // Both kinds of fragment have room for 104 bytes of data and some of the next 8.
        const std::size_t first = (128 - 20 - given.first.size()) / 8 * 8;
        EXPECT_EQ(pieces(packetOf(first + 60, 0, given.first), 128),
                  expectedPieces(counting(first + 60),
                                 {{more, first}, {static_cast<std::uint16_t>(first / 8), 60}},
                                 given.first, given.later))
            << given.what;
    }
}

TEST(IpFragmentsTest, WhatCannotOrMustNotBeCutIsLeft) {
    const auto withOptions = [](const Bytes& options) {
        Ipv4 fields;
        fields.options = options;
        return ipv4(fields, filled(200, 0));
    };
    Ipv6 sixLikeFour;
    sixLikeFour.trafficClass = 0x50;
    sixLikeFour.flowLabel = 240;
    const auto patched = [](std::size_t at, const Bytes& with) {
        Bytes packet = packetOf(200);
        std::copy(with.begin(), with.end(), packet.begin() + static_cast<std::ptrdiff_t>(at));
        return packet;
    };
    const struct {
        const char* what;
        Bytes packet;
        std::size_t mtu;
    } cases[]{
        {"fits", packetOf(100), 120},
        {"not to be fragmented", packetOf(200, 0x4000), 120},
        {"not to be fragmented, and a fragment", packetOf(200, 0x6000), 120},
        {"7 bytes of room", packetOf(200), 27},
        {"no room", packetOf(200), 0},
        {"7 bytes of room behind options", packetOf(200, 0, filled(40, 1)), 67},
        {"IPv6 that would pass for a header", ipv6(sixLikeFour, counting(200)), 120},
        {"nothing", {}, 120},
        {"less than a header", Bytes(19, 0x45), 120},
        {"header shorter than one", patched(0, {0x44}), 120},
        {"length shorter than the header", patched(2, {0, 19}), 10},
        {"header longer than the bytes",
         [] {
             Bytes packet = packetOf(200, 0, filled(8, 1));
             packet.resize(27);
             return packet;
         }(),
         120},
        {"beyond the last offset", packetOf(105, 0x1ff3), 120},
        {"far beyond the last offset", packetOf(200, 0x1fff), 120},
        {"option of no length", withOptions({131, 0, 0, 0}), 120},
        {"option of length 1", withOptions({7, 1, 0, 0}), 120},
        {"option longer than the header", withOptions({131, 5, 0, 0}), 120},
        {"option cut short before its length", withOptions({1, 1, 1, 131}), 120},
    };
    for (const auto& given : cases) {
        EXPECT_TRUE(pieces(given.packet, given.mtu).empty()) << given.what;
    }
}

TEST(IpFragmentsTest, WhatACaptureLeftOutIsMissingWhereItWouldBe) {
    const Bytes whole = packetOf(250);
    const auto cut = IpFragments::of(std::span(whole).first(20 + 100), 120);
    ASSERT_TRUE(cut);
    ASSERT_EQ(cut->count(), 3U);
    const std::size_t kept[]{96, 4, 0};
    const std::size_t snapped[]{0, 92, 58};
    for (std::size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(cut->at(i).payload.size(), kept[i]);
        EXPECT_EQ(cut->at(i).snapped, snapped[i]);
        EXPECT_EQ(cut->at(i).header()[3], 20 + kept[i] + snapped[i]);
    }
}

TEST(IpFragmentsTest, NoHeaderLeadsAstray) {
    const Bytes good = packetOf(200, 0, join({{131, 7, 4, 10, 1, 2, 3}, {136, 4, 1, 2}, {0}}));
    std::size_t cuts = 0;
    for (std::size_t at = 0; at < 32; ++at) {
        for (unsigned value = 0; value < 256; ++value) {
            Bytes packet = good;
            packet[at] = static_cast<std::uint8_t>(value);
            const auto cut = IpFragments::of(packet, 120);
            std::size_t data = 0;
            for (std::size_t i = 0; cut && i < cut->count(); ++i) {
                const IpFragment fragment = cut->at(i);
                EXPECT_EQ(onesSum(fragment.header()), 0xffff);
                EXPECT_LE(fragment.header().size() + fragment.payload.size() + fragment.snapped,
                          120U);
                data += fragment.payload.size() + fragment.snapped;
            }
            if (cut) {
                ++cuts;
                EXPECT_EQ(data, packet[2] * 256U + packet[3] - (packet[0] & 0x0fU) * 4U);
            }
        }
    }
    EXPECT_GT(cuts, 1000U);
}

} // namespace IpFragmentsTest
