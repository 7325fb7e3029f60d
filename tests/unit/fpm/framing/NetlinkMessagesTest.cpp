#include "framing/NetlinkMessages.h"

#include <gtest/gtest.h>

#include "FpmBytes.h"

namespace {

using namespace OvixFpm;
using TestSupport::Fpm::host32;
using TestSupport::Fpm::message;
using TestSupport::Raw::filled;
using TestSupport::Raw::join;
using Payload = std::vector<std::uint8_t>;

constexpr std::uint64_t frameOffset = 1000;

/// A message as text: "OFFSET type TYPE: BODY SIZE"; a refusal as "OFFSET: REASON".
std::vector<std::string> walk(const Payload& payload) {
    NetlinkMessages messages(FpmFrame{frameOffset, payload});
    std::vector<std::string> lines;
    while (auto item = messages.next()) {
        if (const auto* refused = std::get_if<Refused>(&*item)) {
            lines.push_back(std::to_string(refused->offset()) + ": " + refused->reason());
            continue;
        }
        const auto& found = std::get<NetlinkMessage>(*item);
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
    const Bytes body = std::get<NetlinkMessage>(*item).body;
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
