#include "Wire/View.h"

#include "Wire/Transport.h"
#include "WireTesting.h"

namespace ViewTest {

namespace {

TEST(WireView, OfNothingIsEmpty) {
    EXPECT_FALSE(Wire::Udp());
    EXPECT_FALSE(Wire::Udp(Wire::Bytes()));
}

TEST(WireView, BytesAreTheFixedPart) {
    const std::vector<std::uint8_t> bytes(20, 7);
    const Wire::Udp udp(bytes);
    EXPECT_EQ(udp.bytes().data(), bytes.data());
    EXPECT_EQ(udp.bytes().size(), 8U);
}

TEST(WireViewDeathTest, AnEmptyViewHasNoFields) {
    EXPECT_DEATH((void)Wire::Udp().length(), "");
    EXPECT_DEATH((void)Wire::Udp().bytes(), "");
}

} // namespace

} // namespace ViewTest
