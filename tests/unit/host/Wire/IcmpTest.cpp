#include "Wire/Icmp.h"

#include "WireTesting.h"

namespace IcmpTest {

namespace {

using namespace TestSupport;
using Bytes = std::vector<std::uint8_t>;

const Bytes golden{3, 4, 0xbe, 0xef, 0x00, 0x00, 0x05, 0xdc};

TEST(WireIcmp, ReadsItsFields) {
    const Wire::Icmp header(golden);
    EXPECT_EQ(header.type(), Wire::IcmpType::unreachable);
    EXPECT_EQ(header.code(), Wire::IcmpCode::fragmentationNeeded);
    EXPECT_EQ(header.checksum(), 0xbeef);
    EXPECT_EQ(header.value(), 1500U);
    expectEmptyWhenShort<Wire::Icmp>(golden);
}

TEST(WireIcmp, WritesItsFieldsAndNothingElse) {
    Bytes bytes = untouched(9);
    const Wire::IcmpWriter header(bytes);
    header.typeIs(3, 4);
    header.checksumIs(0xbeef);
    header.valueIs(1500);
    Bytes expected = golden;
    expected.push_back(0xa5);
    EXPECT_EQ(bytes, expected);
}

TEST(WireIcmp, LengthOfTheQuoteHasAPlaceAndUnitPerFamily) {
    Bytes bytes(8, 0);
    Wire::IcmpWriter(bytes).quoteLengthIs(128);
    EXPECT_EQ(bytes, (Bytes{0, 0, 0, 0, 0, 32, 0, 0}));
    bytes.assign(8, 0);
    Wire::IcmpWriter(bytes).quoteLengthInIcmpv6Is(128);
    EXPECT_EQ(bytes, (Bytes{0, 0, 0, 0, 16, 0, 0, 0}));
}

TEST(WireIcmp, ErrorsDifferFromTheRest) {
    for (std::uint32_t type = 0; type < 256; ++type) {
        const bool isError = type == 3 || type == 4 || type == 5 || type == 11 || type == 12;
        EXPECT_EQ(Wire::IcmpType::isError(static_cast<std::uint8_t>(type)), isError) << type;
        EXPECT_EQ(Wire::Icmpv6Type::isError(static_cast<std::uint8_t>(type)),
                  type < 128 || type == 137)
            << type;
    }
}

TEST(WireIcmpExtension, HeadsALabelStack) { // RFC 4950 section 5
    Bytes bytes = untouched(9);
    Wire::IcmpExtensionWriter(bytes).labelStackIs(12);
    EXPECT_EQ(bytes, (Bytes{0x20, 0, 0, 0, 0, 16, 1, 1, 0xa5}));
    expectEmptyWhenShort<Wire::IcmpExtensionWriter>(bytes);
}

} // namespace

} // namespace IcmpTest
