#include "framing/FpmStream.h"

#include <gtest/gtest.h>

#include "FpmBytes.h"

namespace FpmStreamTest {

namespace {

using namespace OvixFpm;
using TestSupport::Fpm::frame;
using TestSupport::Fpm::host32;
using TestSupport::Fpm::message;
using TestSupport::Raw::filled;
using TestSupport::Raw::join;
using Payload = std::vector<std::uint8_t>;

/// All frames and refusals of the bytes, taken in pieces of that size.
struct Taken {
    std::vector<FpmFrame> frames;
    std::vector<std::string> refused;
    bool lost = false;
};

Taken takenFrom(Bytes bytes, std::size_t piece) {
    FpmStream stream;
    Taken taken;
    while (!bytes.empty()) {
        const Bytes now = bytes.first(std::min(piece, bytes.size()));
        bytes = bytes.subspan(now.size());
        stream.take(now);
        while (auto item = stream.next()) {
            if (*item) {
                taken.frames.push_back(item->value());
            } else {
                taken.refused.push_back(item->refused().what);
            }
        }
    }
    taken.lost = stream.lost();
    return taken;
}

TEST(Skipped, bytesReadAsOneLineOfAtMost64Bytes) {
    EXPECT_EQ(skipped(1204, Payload{0x3c, 0, 0xf1}, "route without a next hop").what,
              "at byte 1204: route without a next hop: 3c 00 f1");
    Payload bytes = filled(65, 1);
    bytes[63] = 2;
    const std::string line = skipped(7, bytes, "why").what;
    EXPECT_EQ(line.size(), std::string("at byte 7: why:").size() + 64 * 3);
    EXPECT_EQ(line.substr(line.size() - 6), " 01 02");
    EXPECT_EQ(skipped(7, {}, "why").what, "at byte 7: why:");
}

TEST(FpmStream, framesComeOutWholeHoweverTheBytesArrive) {
    const Payload bytes =
        join({frame({1, 2, 3}), frame({}), frame({4}), frame(filled(1000, 7)), frame({5, 6})});
    for (std::size_t piece = 1; piece <= bytes.size(); ++piece) {
        const Taken taken = takenFrom(bytes, piece);
        ASSERT_EQ(taken.frames.size(), 5U) << "pieces of " << piece;
        EXPECT_TRUE(taken.refused.empty());
        EXPECT_EQ(taken.frames[0].payload, (Payload{1, 2, 3}));
        EXPECT_EQ(taken.frames[0].offset, 4U);
        EXPECT_EQ(taken.frames[1].payload, Payload{});
        EXPECT_EQ(taken.frames[1].offset, 11U);
        EXPECT_EQ(taken.frames[2].payload, (Payload{4}));
        EXPECT_EQ(taken.frames[2].offset, 15U);
        EXPECT_EQ(taken.frames[3].payload, filled(1000, 7));
        EXPECT_EQ(taken.frames[3].offset, 20U);
        EXPECT_EQ(taken.frames[4].payload, (Payload{5, 6}));
        EXPECT_EQ(taken.frames[4].offset, 1024U);
    }
}

TEST(FpmStream, aFrameThatIsNotWholeIsWaitedFor) {
    const Payload bytes = frame({1, 2, 3});
    for (std::size_t arrived = 0; arrived < bytes.size(); ++arrived) {
        const Taken taken = takenFrom(Bytes(bytes).first(arrived), 65536);
        EXPECT_TRUE(taken.frames.empty()) << arrived;
        EXPECT_TRUE(taken.refused.empty()) << arrived;
        EXPECT_FALSE(taken.lost) << arrived;
    }
}

TEST(FpmStream, theLongestFrameIsTaken) {
    const Payload payload = filled(65535 - 4, 9);
    const Taken taken = takenFrom(join({frame(payload), frame({1})}), 4096);
    ASSERT_EQ(taken.frames.size(), 2U);
    EXPECT_EQ(taken.frames[0].payload, payload);
    EXPECT_EQ(taken.frames[1].offset, 65539U);
}

TEST(FpmStream, aFrameOfAnotherTypeIsSkippedAndReported) {
    const Taken taken = takenFrom(join({frame({1}), frame({0xaa, 0xbb}, 1, 2), frame({2})}), 1);
    ASSERT_EQ(taken.frames.size(), 2U);
    EXPECT_EQ(taken.frames[1].payload, Payload{2});
    EXPECT_EQ(taken.refused, std::vector<std::string>{
                                 "at byte 5: frame of type 2 is not netlink: 01 02 00 06 aa bb"});
    EXPECT_FALSE(taken.lost);
}

struct Bad {
    Payload header;
    const char* reason;
};

class FpmStreamLost : public testing::TestWithParam<Bad> {};

TEST_P(FpmStreamLost, theHeaderIsReportedOnceAndNothingFollows) {
    const Payload bad = GetParam().header;
    const Payload bytes = join({frame({1}), bad, frame({2}), frame({3})});
    for (const std::size_t piece : {std::size_t{1}, std::size_t{3}, bytes.size()}) {
        const Taken taken = takenFrom(bytes, piece);
        ASSERT_EQ(taken.frames.size(), 1U);
        ASSERT_EQ(taken.refused.size(), 1U);
        EXPECT_EQ(taken.refused[0].rfind(skipped(5, bad, GetParam().reason).what, 0), 0U)
            << taken.refused[0];
        EXPECT_TRUE(taken.lost);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Headers, FpmStreamLost,
    testing::Values(Bad{{1, 1, 0, 0}, "frame length 0 is less than its header's 4"},
                    Bad{{1, 1, 0, 3}, "frame length 3 is less than its header's 4"},
                    Bad{{1, 2, 0, 1}, "frame length 1 is less than its header's 4"},
                    Bad{{0, 1, 0, 8}, "frame of version 0 instead of 1"},
                    Bad{{2, 1, 0, 8}, "frame of version 2 instead of 1"},
                    Bad{{255, 255, 255, 255}, "frame of version 255 instead of 1"}));

constexpr std::uint64_t frameOffset = 1000;

/// A message as text: "OFFSET type TYPE: BODY SIZE"; a refusal as "OFFSET: REASON".
std::vector<std::string> walk(const Payload& payload) {
    NetlinkMessages messages(FpmFrame{frameOffset, payload});
    std::vector<std::string> lines;
    while (auto item = messages.next()) {
        if (!*item) {
            const std::string& what = item->refused().what; // "at byte OFFSET: REASON: BYTES"
            lines.push_back(what.substr(8, what.rfind(':') - 8));
            continue;
        }
        const NetlinkMessage& found = item->value();
        EXPECT_EQ(found.bytes.size(), found.body.size() + 16);
        lines.push_back(std::to_string(found.offset) + " type " + std::to_string(found.type) +
                        ": " + std::to_string(found.body.size()));
    }
    EXPECT_FALSE(messages.next());
    return lines;
}

using Lines = std::vector<std::string>;

TEST(NetlinkMessages, anEmptyFrameHasNone) {
    EXPECT_EQ(walk({}), Lines{});
}

TEST(NetlinkMessages, eachStartsAtAMultipleOfFour) {
    EXPECT_EQ(walk(join({message(24, filled(5, 1)), message(25, {}), message(104, filled(8, 2))})),
              (Lines{"1000 type 24: 5", "1024 type 25: 0", "1040 type 104: 8"}));
}

TEST(NetlinkMessages, theLastMayHaveNoPadding) {
    Payload bytes = message(24, filled(5, 1));
    bytes.resize(21);
    EXPECT_EQ(walk(bytes), Lines{"1000 type 24: 5"});
}

TEST(NetlinkMessages, theBodyIsWhatFollowsTheHeader) {
    NetlinkMessages messages(FpmFrame{0, message(24, {9, 8, 7})});
    const auto item = messages.next();
    const Bytes body = item->value().body;
    EXPECT_EQ(Payload(body.begin(), body.end()), (Payload{9, 8, 7}));
}

struct Wrong {
    std::uint32_t length;
    const char* reason;
};

class NetlinkLength : public testing::TestWithParam<Wrong> {};

TEST_P(NetlinkLength, theRestOfTheFrameIsRefusedAsOne) {
    const Payload bad = join({host32(GetParam().length), filled(16, 0)});
    EXPECT_EQ(walk(join({message(24, filled(4, 1)), bad, message(25, {})})),
              (Lines{"1000 type 24: 4", std::string("1020: ") + GetParam().reason}));
}

INSTANTIATE_TEST_SUITE_P(
    Lengths, NetlinkLength,
    testing::Values(
        Wrong{0, "message length 0 is less than its header's 16"},
        Wrong{15, "message length 15 is less than its header's 16"},
        Wrong{37, "message length 37 is more than the 36 bytes left of the frame"},
        Wrong{0x7fffffff, "message length 2147483647 is more than the 36 bytes left of the frame"},
        Wrong{0xffffffff, "message length 4294967295 is more than the 36 bytes left of the "
                          "frame"}));

TEST(NetlinkMessages, aRestShorterThanAHeaderIsRefused) {
    for (std::size_t rest = 1; rest < 16; ++rest) {
        EXPECT_EQ(walk(join({message(24, {}), filled(rest, 0)})),
                  (Lines{"1000 type 24: 0",
                         "1016: " + std::to_string(rest) +
                             " bytes are left of the frame, fewer than a message header's 16"}));
    }
}

} // namespace

} // namespace FpmStreamTest
