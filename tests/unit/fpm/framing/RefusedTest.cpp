#include "framing/Refused.h"

#include <gtest/gtest.h>

namespace {

using OvixFpm::Refused;
using Payload = std::vector<std::uint8_t>;

TEST(Refused, keepsTheFirst64Bytes) {
    Payload bytes(65, 1);
    bytes[63] = 2;
    bytes[64] = 3;
    const Refused refused(7, bytes, "why");
    ASSERT_EQ(refused.bytes().size(), 64U);
    EXPECT_EQ(refused.bytes().back(), 2);
    EXPECT_EQ(Refused(7, Payload{}, "why").bytes().size(), 0U);
}

TEST(Refused, readsAsOneLine) {
    EXPECT_EQ(Refused(1204, Payload{0x3c, 0, 0xf1}, "route without a next hop").text(),
              "at byte 1204: route without a next hop: 3c 00 f1");
}

} // namespace
