#include "Wire/MplsException.h"

#include "WireTesting.h"

namespace MplsExceptionTest {

namespace {

using Bytes = std::vector<std::uint8_t>;

TEST(WireSpecialPacketHeader, ReadsItsFields) {
    const Bytes golden{0, 0, 0, 7, 9, 9, 9, 9, 9, 9, 9, 9, 2, 0, 0, 0, 0, 0, 0, 100};
    const Wire::SpecialPacketHeader header(golden);
    EXPECT_EQ(header.vrfId(), 7U);
    EXPECT_EQ(header.pmsi(), 0x0200000000000064U);
    EXPECT_EQ(Wire::SpecialPacketHeader::offset, 18U);
    TestSupport::expectEmptyWhenShort<Wire::SpecialPacketHeader>(golden);
}

} // namespace

} // namespace MplsExceptionTest
