#include "framing/FpmStream.h"

#include <gtest/gtest.h>

#include "FpmBytes.h"

namespace {

using namespace OvixFpm;
using TestSupport::Fpm::frame;
using TestSupport::Raw::filled;
using TestSupport::Raw::join;
using Payload = std::vector<std::uint8_t>;

/// All frames and refusals of the bytes, taken in pieces of that size.
struct Taken {
    std::vector<FpmFrame> frames;
    std::vector<Refused> refused;
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
            if (auto* refused = std::get_if<Refused>(&*item)) {
                taken.refused.push_back(*refused);
            } else {
                taken.frames.push_back(std::get<FpmFrame>(*item));
            }
        }
    }
    taken.lost = stream.lost();
    return taken;
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
    EXPECT_EQ(taken.refused, std::vector{Refused(5, Payload{1, 2, 0, 6, 0xaa, 0xbb},
                                                 "frame of type 2 is not netlink")});
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
        EXPECT_EQ(taken.refused[0].offset(), 5U);
        EXPECT_EQ(taken.refused[0].reason(), GetParam().reason);
        EXPECT_EQ(Payload(taken.refused[0].bytes().begin(), taken.refused[0].bytes().begin() + 4),
                  bad);
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

} // namespace
