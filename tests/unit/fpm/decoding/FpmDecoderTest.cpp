#include "decoding/FpmDecoder.h"

#include <gtest/gtest.h>

#include "FpmBytes.h"
#include "FpmEvents.h"

namespace FpmDecoderTest {

namespace {

using namespace TestSupport::Fpm;
using OvixFpm::FpmDecoder;
using OvixFpm::MessageCounts;
using TestSupport::Raw::filled;

Bytes lsp(std::uint32_t label, const Bytes& attributes = interface(3)) {
    return newRoute({AF_MPLS, 20}, join({attribute(RTA_DST, labels({label})), attributes}));
}

Bytes goneLsp(std::uint32_t label) {
    return deletedRoute({AF_MPLS, 20}, attribute(RTA_DST, labels({label})));
}

std::string routed(std::uint32_t label) {
    return "label " + std::to_string(label) + " protocol 196: [] interface 3 weight 1";
}

TEST(FpmDecoder, changesComeInTheOrderOfTheMessages) {
    const Bytes bytes = join({frame(join({goneLsp(100), lsp(100)})), frame(lsp(101)),
                              frame(join({lsp(102), lsp(103), goneLsp(102)}))});
    const Lines expected{"label 100 withdrawn", routed(100), routed(101),
                         routed(102),           routed(103), "label 102 withdrawn"};
    for (const std::size_t piece : {std::size_t{1}, std::size_t{7}, bytes.size()}) {
        EXPECT_EQ(linesOf(bytes, piece), expected) << "pieces of " << piece;
    }
}

TEST(FpmDecoder, bytesMayComeBeforeTheFrameInHandHasBeenReadToItsEnd) {
    FpmDecoder decoder;
    decoder.take(frame(join({lsp(100), lsp(101), lsp(102)})));
    Lines lines{line(*decoder.next())};
    for (std::uint32_t label = 200; label < 300; ++label) {
        decoder.take(frame(lsp(label)));
        lines.push_back(line(*decoder.next()));
    }
    EXPECT_EQ(lines[1], routed(101));
    EXPECT_EQ(lines[2], routed(102));
    EXPECT_EQ(lines[3], routed(200));
    EXPECT_EQ(lines.back(), routed(297));
}

TEST(FpmDecoder, aMalformedMessageCostsNoOther) {
    const Bytes good = lsp(100);
    const Bytes bad = lsp(3);
    const std::string reason =
        "label 3 (implicit null) never stands in a frame (RFC 3032 section 2.1)";
    const Bytes bytes = join({frame(join({good, bad, lsp(101)})), frame(lsp(102))});
    EXPECT_EQ(linesOf(bytes),
              (Lines{routed(100), "refused at " + std::to_string(4 + good.size()) + ": " + reason,
                     routed(101), routed(102)}));
}

TEST(FpmDecoder, aRefusalNamesTheBytesOfTheMessage) {
    FpmDecoder decoder;
    const Bytes bad = lsp(3, join({interface(3), attribute(99, filled(60, 1))}));
    decoder.take(frame(bad));
    EXPECT_EQ(decoder.next()->refused().what,
              OvixFpm::skipped(
                  4, bad, "label 3 (implicit null) never stands in a frame (RFC 3032 section 2.1)")
                  .what);
}

TEST(FpmDecoder, aFrameWithAWrongLengthInItCostsTheRestOfThatFrame) {
    const Bytes broken = join({lsp(100), filled(16, 0), lsp(101)});
    const Bytes bytes = join({frame(broken), frame(lsp(102))});
    const std::string offset = std::to_string(4 + lsp(100).size());
    EXPECT_EQ(linesOf(bytes),
              (Lines{routed(100),
                     "refused at " + offset + ": message length 0 is less than its header's 16",
                     routed(102)}));
}

TEST(FpmDecoder, aRouteMessageWithoutAWholeRouteHeaderIsRefused) {
    for (const std::uint16_t type : {RTM_NEWROUTE, RTM_DELROUTE}) {
        EXPECT_EQ(linesOf(frame(message(type, filled(11, 0)))),
                  Lines{"refused at 4: route header needs 12 bytes; there are 11"});
    }
}

TEST(FpmDecoder, aRouteOfAnotherFamilyIsRefused) {
    for (const std::uint8_t family : Bytes{AF_UNSPEC, AF_BRIDGE, 128}) {
        const Lines expected{"refused at 4: route of address family " + std::to_string(family)};
        EXPECT_EQ(linesOf(frame(newRoute({family}, interface(3)))), expected);
        EXPECT_EQ(linesOf(frame(deletedRoute({family}, {}))), expected);
    }
}

TEST(FpmDecoder, otherMessagesAreCountedOnly) {
    FpmDecoder decoder;
    const Bytes messages = join({message(RTM_NEWNEXTHOP, {1, 2, 3}), message(RTM_DELNEXTHOP, {}),
                                 message(RTM_NEWLINK, {}), message(NLMSG_DONE, {}), lsp(100),
                                 lsp(3), goneLsp(100), goneLsp(101)});
    EXPECT_EQ(linesOf(decoder, frame(messages)).size(), 4U);
    EXPECT_EQ(decoder.counts(), (MessageCounts{1, 2, 2, 2, 1}));
}

TEST(FpmDecoder, aLostStreamYieldsNothingMore) {
    FpmDecoder decoder;
    const Lines lines = linesOf(decoder, join({frame(lsp(100)), {9, 1, 0, 8}, frame(lsp(101))}));
    EXPECT_EQ(lines, (Lines{routed(100), "refused at 48: frame of version 9 instead of 1"}));
    EXPECT_TRUE(decoder.lost());
    EXPECT_EQ(linesOf(decoder, frame(lsp(102))), Lines{});
    EXPECT_EQ(decoder.counts(), (MessageCounts{1, 0, 0, 0, 1}));
}

} // namespace

} // namespace FpmDecoderTest
