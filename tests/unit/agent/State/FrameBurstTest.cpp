#include "State/FrameBurst.h"

#include <algorithm>
#include <gtest/gtest.h>

namespace FrameBurstTest {

using namespace OvixAgent;

namespace {

constexpr std::size_t longest = 2000;

/// Adds a frame of that size, filled with `value`; false when the burst has no room for it.
bool addFilled(FrameBurst& burst, std::uint32_t size, std::uint8_t value) {
    std::uint8_t* const room = burst.room(longest);
    if (room == nullptr) {
        return false;
    }
    std::fill_n(room, size, value);
    burst.addWritten({.size = size, .originalLength = size, .port = 3, .time = {1, value}});
    return true;
}

} // namespace

TEST(FrameBurst, FramesAndTheirHeadroomsDoNotTouchEachOther) {
    FrameBurst burst(std::size_t{40} * longest);
    for (std::uint8_t i = 0; i < burstFrames; ++i) {
        ASSERT_TRUE(addFilled(burst, i * 10U, i));
    }
    EXPECT_TRUE(burst.isFull());
    EXPECT_EQ(burst.room(0), nullptr);
    for (const WritableFrame& frame : burst.frames()) {
        ASSERT_EQ(frame.headroom, frameHeadroom);
        std::fill_n(frame.bytes - frame.headroom, frame.headroom, std::uint8_t{0xff});
    }
    std::uint8_t value = 0;
    for (const WritableFrame& frame : burst.frames()) {
        EXPECT_EQ(frame.size, value * 10U);
        EXPECT_EQ(frame.port, 3U);
        EXPECT_EQ(frame.time.nanoseconds, value);
        EXPECT_TRUE(std::all_of(frame.bytes, frame.bytes + frame.size,
                                [value](std::uint8_t each) { return each == value; }));
        ++value;
    }
}

TEST(FrameBurst, EndsWhereTheLongestFrameHasNoRoomAndStartsOver) {
    FrameBurst burst(FrameBurst::memoryFor(longest));
    for (int round = 0; round < 3; ++round) {
        burst.clear();
        EXPECT_TRUE(burst.isEmpty());
        EXPECT_TRUE(addFilled(burst, longest, 1));
        EXPECT_FALSE(addFilled(burst, longest, 2));
        EXPECT_EQ(burst.frames().size(), 1U);
    }
    burst.clear();
    std::size_t added = 0;
    for (; addFilled(burst, 60, 3); ++added) {
    }
    EXPECT_GE(added, longest / (frameHeadroom + 64));
    EXPECT_LE(burst.frames().back().bytes + longest,
              burst.frames().front().bytes + FrameBurst::memoryFor(longest) - frameHeadroom);
}

} // namespace FrameBurstTest
