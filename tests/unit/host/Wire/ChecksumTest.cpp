#include "Wire/Checksum.h"

#include "WireTesting.h"

namespace ChecksumTest {

namespace {

using Bytes = std::vector<std::uint8_t>;

TEST(WireChecksum, SumsAsTheExampleOfItsRfc) { // RFC 1071 section 3
    EXPECT_EQ(Wire::onesSum(Bytes{0x00, 0x01, 0xf2, 0x03, 0xf4, 0xf5, 0xf6, 0xf7}), 0xddf2);
    EXPECT_EQ(Wire::onesSum({}), 0);
}

TEST(WireChecksum, AnOddByteIsTheUpperHalfOfAWord) {
    EXPECT_EQ(Wire::onesSum(Bytes{0x12}), 0x1200);
    EXPECT_EQ(Wire::onesSum(Bytes{0x12, 0x34}), 0x1234);
    EXPECT_EQ(Wire::onesSum(Bytes{0x12, 0x34, 0x56}), 0x1234 + 0x5600);
    EXPECT_EQ(Wire::onesSum(Bytes{0, 0, 0, 0, 0x12, 0x34, 0x56}), 0x1234 + 0x5600);
}

TEST(WireChecksum, SumsCarryAround) {
    EXPECT_EQ(Wire::addSums(0xffff, 0x0001), 0x0001);
    EXPECT_EQ(Wire::addSums(0xffff, 0xffff), 0xffff);
    EXPECT_EQ(Wire::addSums(0, 0), 0);
    EXPECT_EQ(Wire::onesSum(Bytes(65536, 0xff)), 0xffff);
}

TEST(WireChecksum, CompletesAnIpv4Header) {
    Bytes header{0x45, 0x00, 0x00, 0x73, 0x00, 0x00, 0x40, 0x00, 0x40, 0x11,
                 0x00, 0x00, 0xc0, 0xa8, 0x00, 0x01, 0xc0, 0xa8, 0x00, 0xc7};
    EXPECT_TRUE(Wire::completeChecksum(header, 0, 10));
    EXPECT_EQ(header[10], 0xb8);
    EXPECT_EQ(header[11], 0x61);
    EXPECT_EQ(Wire::onesSum(header), 0xffff);
}

TEST(WireChecksum, IsNeverZero) {
    Bytes bytes{0xff, 0xff, 0, 0};
    EXPECT_TRUE(Wire::completeChecksum(bytes, 0, 2));
    EXPECT_EQ(bytes, (Bytes{0xff, 0xff, 0xff, 0xff}));
}

TEST(WireChecksum, ReachesToTheEndOrIsNotWritten) {
    for (std::size_t size = 0; size < 12; ++size) {
        Bytes bytes(size, 0xa5);
        const Bytes before = bytes;
        EXPECT_EQ(Wire::completeChecksum(bytes, 4, 6), size >= 12) << size;
        EXPECT_EQ(bytes, before);
    }
    Bytes whole(12, 0);
    EXPECT_TRUE(Wire::completeChecksum(whole, 4, 6));
}

TEST(WireChecksum, PseudoHeaderOfEitherFamily) {
    const auto sum = [](const char* source, const char* destination) {
        return Wire::pseudoHeaderSum(Lumo::IpGenAddr::fromText(source),
                                     Lumo::IpGenAddr::fromText(destination), 17, 0x100);
    };
    EXPECT_EQ(sum("10.1.0.1", "192.0.2.1"),
              Wire::onesSum(Bytes{10, 1, 0, 1, 192, 0, 2, 1, 0, 17, 1, 0}));
    EXPECT_EQ(sum("2001:db8::1", "2001:db8::2"), 2 * (0x2001 + 0x0db8) + 3 + 17 + 0x100);
}

TEST(WireChecksum, AnUpdateIsWhatSummingAgainGives) {
    for (std::uint32_t ttl = 0; ttl < 256; ++ttl) {
        for (const std::uint16_t rest : std::vector<std::uint16_t>{0, 1, 0x1234, 0xbeef, 0xfffe}) {
            const auto before = static_cast<std::uint16_t>(0x4011U + rest % 7U);
            const auto after = static_cast<std::uint16_t>(ttl << 8U | 0x11U);
            const auto checksum = static_cast<std::uint16_t>(~Wire::addSums(before, rest));
            const std::uint16_t updated = Wire::updatedChecksum(checksum, before, after);
            const std::uint32_t sum = Wire::addSums(Wire::addSums(after, rest), updated);
            EXPECT_EQ(sum, 0xffffU) << ttl << " " << rest;
        }
    }
}

TEST(WireChecksum, UpdateOfTheExampleOfItsRfc) { // RFC 1624 section 4
    EXPECT_EQ(Wire::updatedChecksum(0xdd2f, 0x5555, 0x3285), 0x0000);
}

TEST(WireChecksum, CompletesFromTheStartGivenOrWritesNothing) {
    const struct {
        Bytes frame;
        std::size_t start;
        std::size_t offset;
        bool isDone;
        Bytes expected;
    } cases[]{
        {{9, 9, 0, 0, 0x12, 0x34}, 2, 0, true, {9, 9, 0xed, 0xcb, 0x12, 0x34}},
        {{0, 0, 0x12}, 0, 0, true, {0xed, 0xff, 0x12}},
        {{0xff, 0xff, 0, 0}, 0, 2, true, {0xff, 0xff, 0xff, 0xff}},
        {{0xff, 0xff, 0xff, 0xfe}, 0, 0, true, {0x00, 0x01, 0xff, 0xfe}},
        {{1, 2, 3}, 0, 2, false, {1, 2, 3}},
        {{1, 2, 3}, 4, 0, false, {1, 2, 3}},
        {{1, 2, 3}, 3, 0, false, {1, 2, 3}},
        {{}, 0, 0, false, {}},
    };
    for (const auto& given : cases) {
        Bytes frame = given.frame;
        EXPECT_EQ(Wire::completeChecksum(frame, given.start, given.offset), given.isDone);
        EXPECT_EQ(frame, given.expected);
    }
}

} // namespace

} // namespace ChecksumTest
