#include <gtest/gtest.h>

#include "FpmMutation.h"

namespace MutationTest {

// Recorded messages with something wrong in them: nothing is read that is not there, and one
// message that makes no sense costs no other.
namespace {

using namespace TestSupport::Fpm;
using TestSupport::Raw::u16;

class Mutation : public testing::TestWithParam<std::string> {
  protected:
    Bytes bytes = recorded(GetParam());
};

INSTANTIATE_TEST_SUITE_P(Recordings, Mutation, testing::ValuesIn(recordings),
                         [](const auto& tested) { return tested.param; });

/// The lines are those expected but for one more, fewer or other between a head and a tail.
bool differInOneAtMost(const Lines& lines, const Lines& expected) {
    const std::size_t shorter = std::min(lines.size(), expected.size());
    std::size_t head = 0;
    while (head < shorter && lines[head] == expected[head]) {
        ++head;
    }
    std::size_t tail = 0;
    while (tail < shorter - head && *(lines.rbegin() + static_cast<std::ptrdiff_t>(tail)) ==
                                        *(expected.rbegin() + static_cast<std::ptrdiff_t>(tail))) {
        ++tail;
    }
    return std::max(lines.size(), expected.size()) - head - tail <= 1;
}

TEST_P(Mutation, anyByteOfAnyValueIsSurvived) {
    for (std::size_t at = 0; at < bytes.size(); ++at) {
        const std::uint8_t right = bytes[at];
        for (const unsigned other : {1U, 2U, 4U, 8U, 16U, 32U, 64U, 128U, 255U, right ^ 0xffU,
                                     unsigned{right}, (right + 1U) ^ right, (right - 1U) ^ right}) {
            bytes[at] = static_cast<std::uint8_t>(right ^ other);
            EXPECT_EQ(wrongWith(bytes), "") << "byte " << at << " is " << int{bytes[at]};
        }
        bytes[at] = right;
    }
}

TEST_P(Mutation, aByteOfOneMessageChangesNoOther) {
    const Lines expected = linesOf(bytes);
    for (const RecordedMessage& message : messagesOf(GetParam())) {
        // Behind the length of the message.
        for (std::size_t at = message.at + 4; at < message.at + message.bytes.size(); ++at) {
            for (const unsigned other : {1U, 0x40U, 0x80U, 0xffU}) {
                Bytes changed = bytes;
                changed[at] = static_cast<std::uint8_t>(changed[at] ^ other);
                EXPECT_TRUE(differInOneAtMost(linesOf(changed), expected))
                    << "byte " << at << " is " << int{changed[at]};
            }
        }
    }
}

TEST_P(Mutation, aStreamThatEndsAnywhereYieldsWhatIsWhole) {
    const Lines expected = linesOf(bytes);
    std::size_t most = 0;
    for (std::size_t size = 0; size <= bytes.size(); ++size) {
        const Lines lines = linesOf(Bytes(bytes.begin(), bytes.begin() + static_cast<long>(size)));
        ASSERT_LE(lines.size(), expected.size());
        EXPECT_TRUE(std::equal(lines.begin(), lines.end(), expected.begin())) << size;
        EXPECT_GE(lines.size(), most);
        most = lines.size();
    }
    EXPECT_EQ(most, expected.size());
}

TEST_P(Mutation, aMessageCutAnywhereIsSurvived) {
    for (const RecordedMessage& whole : messagesOf(GetParam())) {
        for (std::size_t size = 16; size < whole.bytes.size(); ++size) {
            const Bytes body(whole.bytes.begin() + 16,
                             whole.bytes.begin() + static_cast<std::ptrdiff_t>(size));
            std::uint16_t type = 0;
            std::memcpy(&type, whole.bytes.data() + 4, sizeof type);
            EXPECT_EQ(wrongWith(frame(message(type, body))), "") << whole.at << " cut at " << size;
        }
    }
}

TEST_P(Mutation, aMessageLongerOrShorterThanItSaysIsSurvived) {
    for (const RecordedMessage& whole : messagesOf(GetParam())) {
        const auto size = static_cast<std::uint32_t>(whole.bytes.size());
        for (const std::uint32_t length :
             {0U,       1U,          4U,          15U,         16U,         17U,        27U,
              28U,      31U,         size - 4,    size - 1,    size + 1,    size + 4,   0xffffU,
              0x10000U, 0x7fffffffU, 0x80000000U, 0xfffffff0U, 0xfffffffcU, 0xffffffffU}) {
            Bytes changed = bytes;
            std::memcpy(changed.data() + whole.at, &length, sizeof length);
            EXPECT_EQ(wrongWith(changed), "") << whole.at << " of length " << length;
        }
    }
}

TEST_P(Mutation, anyFrameLengthIsSurvived) {
    for (const RecordedMessage& first : messagesOf(GetParam())) {
        if (first.at != first.frameAt + 4) {
            continue;
        }
        for (std::uint32_t length = 0; length < 0x10000; length += length < 300 ? 1 : 1021) {
            Bytes changed = bytes;
            const Bytes field = u16(length);
            std::copy(field.begin(), field.end(),
                      changed.begin() + static_cast<std::ptrdiff_t>(first.frameAt + 2));
            EXPECT_EQ(wrongWith(changed), "") << first.frameAt << " of length " << length;
        }
    }
}

TEST_P(Mutation, hostileLengthsOfAttributesAndNextHopsAreSurvived) {
    for (const RecordedMessage& message : messagesOf(GetParam())) {
        // Every length of an attribute, nested ones too, and of a next hop is at an even place.
        for (std::size_t at = message.at + 16; at + 2 <= message.at + message.bytes.size();
             at += 2) {
            for (const std::uint16_t length : std::vector<std::uint16_t>{
                     0, 1, 2, 3, 4, 5, 7, 8, 9, 12, 16, 20, 60, 255, 256, 0x7fff, 0x8000, 0xffff}) {
                Bytes changed = bytes;
                std::memcpy(changed.data() + at, &length, sizeof length);
                EXPECT_EQ(wrongWith(changed), "") << at << " is " << length;
            }
        }
    }
}

TEST_P(Mutation, severalWrongBytesAreSurvivedInAnyPieces) {
    std::uint32_t state = 12345; // Numerical Recipes' generator: the same bytes in every run
    const auto next = [&state] { return (state = state * 1664525U + 1013904223U) >> 8U; };
    for (int round = 0; round < 2000; ++round) {
        Bytes changed = bytes;
        for (unsigned left = 1 + next() % 8; left > 0; --left) {
            changed[next() % changed.size()] = static_cast<std::uint8_t>(next());
        }
        EXPECT_EQ(wrongWith(changed, 1 + next() % 200), "") << "round " << round;
    }
}

} // namespace

} // namespace MutationTest
