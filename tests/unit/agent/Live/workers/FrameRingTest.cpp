#include "Live/workers/FrameRing.h"

#include <array>
#include <gtest/gtest.h>
#include <optional>
#include <thread>
#include <vector>

namespace FrameRingTest {

using namespace OvixAgent;

namespace {

constexpr std::size_t size = 4096;

struct Given {
    explicit Given(std::uint8_t value, std::uint32_t bytes = 100) : memory(bytes, value) {
        frame.bytes = memory.data();
        frame.size = bytes;
        frame.originalLength = bytes + 1;
        frame.port = 3;
        frame.time = {7, value};
    }
    std::vector<std::uint8_t> memory;
    WritableFrame frame;
};

class FrameRingTest : public ::testing::Test {
  protected:
    FrameRing ring{size};

    /// The first byte of the frame that comes next, which is checked; unset: none.
    std::optional<std::uint8_t> take() {
        WritableFrame frame;
        if (!ring.front(frame)) {
            return std::nullopt;
        }
        const std::uint8_t value = frame.bytes[0];
        EXPECT_EQ(frame.originalLength, frame.size + 1);
        EXPECT_EQ(frame.port, 3U);
        EXPECT_EQ(frame.time, (CaptureTime{7, value}));
        EXPECT_EQ(frame.headroom, frameHeadroom);
        EXPECT_EQ(std::vector<std::uint8_t>(frame.bytes, frame.bytes + frame.size),
                  std::vector<std::uint8_t>(frame.size, value));
        std::fill_n(frame.bytes - frame.headroom, frame.headroom, 0xee); // which is free
        ring.pop();
        return value;
    }
};

} // namespace

TEST_F(FrameRingTest, FramesComeOutAsTheyWentIn) {
    EXPECT_EQ(take(), std::nullopt);
    EXPECT_EQ(ring.push(Given(1).frame), FrameRing::Push::first);
    EXPECT_EQ(ring.push(Given(2, 60).frame), FrameRing::Push::another);
    EXPECT_EQ(take(), 1);
    EXPECT_EQ(take(), 2);
    EXPECT_EQ(take(), std::nullopt);
}

TEST_F(FrameRingTest, AFrameMayBeEmpty) {
    WritableFrame empty = Given(1).frame;
    empty.size = 0;
    ring.push(empty);
    WritableFrame frame;
    ASSERT_TRUE(ring.front(frame));
    EXPECT_EQ(frame.size, 0U);
    ring.pop();
    EXPECT_FALSE(ring.front(frame));
}

TEST_F(FrameRingTest, WhoTakesIsWokenOnlyWhenAllBeforeWasTaken) {
    ring.push(Given(1).frame);
    take();
    EXPECT_EQ(ring.push(Given(2).frame), FrameRing::Push::first);
    EXPECT_EQ(ring.push(Given(3).frame), FrameRing::Push::another);
    take();
    EXPECT_EQ(ring.push(Given(4).frame), FrameRing::Push::another);
}

TEST_F(FrameRingTest, AFullRingRefusesAndGoesOnWhenThereIsRoom) {
    std::uint8_t pushed = 0;
    while (ring.push(Given(pushed).frame) != FrameRing::Push::refused) {
        ++pushed;
    }
    EXPECT_GT(pushed, 10);
    EXPECT_EQ(ring.push(Given(99).frame), FrameRing::Push::refused);
    EXPECT_EQ(take(), 0);
    EXPECT_NE(ring.push(Given(pushed).frame), FrameRing::Push::refused);
    for (std::uint8_t i = 1; i <= pushed; ++i) {
        EXPECT_EQ(take(), i);
    }
    EXPECT_EQ(take(), std::nullopt);
}

TEST_F(FrameRingTest, FramesOfAllSizesPassTheEndOfTheMemory) {
    for (std::uint32_t i = 0; i < 2000; ++i) {
        const auto value = static_cast<std::uint8_t>(i);
        ASSERT_NE(ring.push(Given(value, 1 + i * 7 % 1500).frame), FrameRing::Push::refused) << i;
        ASSERT_EQ(take(), value) << i;
    }
}

TEST_F(FrameRingTest, OneThreadTakesWhatAnotherPushes) {
    constexpr int frames = 20'000;
    std::thread pushing([this] {
        for (int i = 0; i < frames; ++i) {
            Given given(static_cast<std::uint8_t>(i), 60 + static_cast<std::uint32_t>(i % 300));
            while (ring.push(given.frame) == FrameRing::Push::refused) {
                std::this_thread::yield();
            }
        }
    });
    for (int i = 0; i < frames; ++i) {
        std::optional<std::uint8_t> taken;
        while (!(taken = take())) {
            std::this_thread::yield();
        }
        ASSERT_EQ(*taken, static_cast<std::uint8_t>(i));
    }
    pushing.join();
}

TEST_F(FrameRingTest, UrgentFramesComeBeforeOthers) {
    FrameRing urgent{size};
    ring.push(Given(1).frame);
    urgent.push(Given(2).frame);
    urgent.push(Given(3).frame);
    std::vector<int> taken;
    EXPECT_EQ(takeFrames(
                  std::array{&urgent}, std::array{&ring},
                  [&](const WritableFrame& frame) {
                      taken.push_back(frame.bytes[0]);
                      return true;
                  },
                  16),
              3U);
    EXPECT_EQ(taken, (std::vector<int>{2, 3, 1}));
}

TEST_F(FrameRingTest, UrgentFramesWithoutEndHoldUpNobody) {
    FrameRing urgent{size};
    ring.push(Given(1).frame);
    urgent.push(Given(2).frame);
    bool isOtherTaken = false;
    int times = 0;
    const auto visitor = [&](const WritableFrame& frame) {
        isOtherTaken = isOtherTaken || frame.bytes[0] == 1;
        if (frame.bytes[0] == 2 && ++times < 100) { // in place of each one comes another
            urgent.push(Given(2).frame);
        }
        return true;
    };
    constexpr std::size_t budget = 16;
    EXPECT_LE(takeFrames(std::array{&urgent}, std::array{&ring}, visitor, budget), 2 * budget);
    EXPECT_TRUE(isOtherTaken);
    EXPECT_LT(times, 100);
}

} // namespace FrameRingTest
