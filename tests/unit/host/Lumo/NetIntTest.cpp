#include "Lumo/NetInt.h"

#include <array>
#include <gtest/gtest.h>

namespace NetIntTest {

using namespace Lumo;

TEST(NetInt, StandsOnTheWireMostSignificantByteFirst) {
    std::array<std::uint8_t, 10> bytes;
    bytes.fill(0xa5);
    NetU16(0x1234).store(bytes.data() + 1);
    EXPECT_EQ(bytes, (std::array<std::uint8_t, 10>{0xa5, 0x12, 0x34, 0xa5, 0xa5, 0xa5, 0xa5, 0xa5,
                                                   0xa5, 0xa5}));
    NetU32(0x12345678).store(bytes.data() + 3);
    EXPECT_EQ(bytes, (std::array<std::uint8_t, 10>{0xa5, 0x12, 0x34, 0x12, 0x34, 0x56, 0x78, 0xa5,
                                                   0xa5, 0xa5}));
    NetU64(0x0102030405060708).store(bytes.data() + 1);
    EXPECT_EQ(bytes, (std::array<std::uint8_t, 10>{0xa5, 1, 2, 3, 4, 5, 6, 7, 8, 0xa5}));
}

TEST(NetInt, LoadsFromAnyAlignment) {
    const std::array<std::uint8_t, 12> bytes = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11};
    for (std::size_t at = 0; at < 4; ++at) {
        const auto first = static_cast<std::uint32_t>(at);
        EXPECT_EQ(NetU16::load(bytes.data() + at).value(), (first << 8U) + first + 1);
        EXPECT_EQ(NetU32::load(bytes.data() + at).value(), 0x01010101U * first + 0x00010203U);
        EXPECT_EQ(NetU64::load(bytes.data() + at).value(),
                  0x0101010101010101U * first + 0x0001020304050607U);
    }
}

TEST(NetInt, KeepsTheHostValue) {
    NetU32 number;
    EXPECT_EQ(number.value(), 0U);
    number.valueIs(0xfffefdfc);
    EXPECT_EQ(number.value(), 0xfffefdfc);
    EXPECT_EQ(number, NetU32(0xfffefdfc));
    EXPECT_NE(number, NetU32(0xfcfdfeff));
}

} // namespace NetIntTest
