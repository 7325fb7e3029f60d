#include "Wire/Transport.h"

#include "WireTesting.h"

namespace TransportTest {

namespace {

using namespace TestSupport;
using Bytes = std::vector<std::uint8_t>;

const Bytes goldenUdp{0x04, 0x00, 0x0d, 0xaf, 0x00, 0x0a, 0xbe, 0xef};
const Bytes goldenTcp{0x13, 0x88, 0x13, 0x89, 0xde, 0xad, 0xbe, 0xef, 1,    2,
                      3,    4,    0x60, 0x89, 0x20, 0x00, 0xca, 0xfe, 0x00, 0x00};

TEST(WireUdp, ReadsItsFields) {
    const Wire::Udp header(goldenUdp);
    EXPECT_EQ(header.sourcePort(), 1024);
    EXPECT_EQ(header.destinationPort(), 3503);
    EXPECT_EQ(header.length(), 10);
    EXPECT_EQ(header.checksum(), 0xbeef);
    expectEmptyWhenShort<Wire::Udp>(goldenUdp);
}

TEST(WireUdp, WritesItsFieldsAndNothingElse) {
    Bytes bytes = untouched(9);
    const Wire::UdpWriter header(bytes);
    header.portsAre(1024, 3503);
    header.lengthIs(10);
    header.checksumIs(0xbeef);
    Bytes expected = goldenUdp;
    expected.push_back(0xa5);
    EXPECT_EQ(bytes, expected);
}

TEST(WireTcp, ReadsItsFields) {
    const Wire::Tcp header(goldenTcp);
    EXPECT_EQ(header.sequence(), 0xdeadbeef);
    EXPECT_EQ(header.headerSize(), 24U);
    EXPECT_EQ(header.flags(), Wire::Tcp::finFlag | Wire::Tcp::pushFlag | Wire::Tcp::cwrFlag);
    EXPECT_EQ(header.checksum(), 0xcafe);
    expectEmptyWhenShort<Wire::Tcp>(goldenTcp);
}

TEST(WireTcp, WritesItsFieldsAndNothingElse) {
    Bytes bytes = untouched(20);
    const Wire::TcpWriter header(bytes);
    header.sequenceIs(0xdeadbeef);
    header.flagsAre(0x89);
    header.checksumIs(0xcafe);
    Bytes expected = untouched(20);
    std::copy_n(goldenTcp.begin() + 4, 4, expected.begin() + 4);
    expected[13] = 0x89;
    std::copy_n(goldenTcp.begin() + 16, 2, expected.begin() + 16);
    EXPECT_EQ(bytes, expected);
}

} // namespace

} // namespace TransportTest
