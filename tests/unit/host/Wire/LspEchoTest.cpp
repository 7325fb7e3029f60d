#include "Wire/LspEcho.h"

#include "WireTesting.h"

namespace LspEchoTest {

namespace {

using namespace TestSupport;
using Bytes = std::vector<std::uint8_t>;
using Wire::LspEcho;
using Wire::LspEchoTlv;

const Bytes golden{0,    1,    0,    3,    1,    2, 4, 5, //
                   0xde, 0xad, 0xbe, 0xef, 0,    0, 0, 7, //
                   0xe0, 0,    0,    1,    0x80, 0, 0, 0, //
                   1,    2,    3,    4,    5,    6, 7, 8};

TEST(WireLspEcho, ReadsItsFields) {
    const LspEcho header(golden);
    EXPECT_EQ(header.version(), LspEcho::currentVersion);
    EXPECT_EQ(header.flags(), LspEcho::validateFecStack | LspEcho::replyOnlyIfTtlExpired);
    EXPECT_EQ(header.type(), LspEcho::request);
    EXPECT_EQ(header.replyMode(), LspEcho::byUdp);
    EXPECT_EQ(Bytes(header.returned().begin(), header.returned().end()),
              Bytes(golden.begin() + 8, golden.begin() + 24));
    expectEmptyWhenShort<LspEcho>(golden);
}

TEST(WireLspEcho, WritesItsFieldsAndNothingElse) {
    Bytes bytes = untouched(33);
    const Wire::LspEchoWriter header(bytes);
    header.messageIs(Wire::LspEchoWriter::reply, LspEcho::byUdp);
    header.returnCodeIs(4, 5);
    header.timeReceivedIs(0x0102030405060708);
    Bytes expected = golden;
    expected[3] = 0;
    expected[4] = 2;
    std::fill_n(expected.begin() + 8, 16, std::uint8_t{0xa5});
    expected.push_back(0xa5);
    EXPECT_EQ(bytes, expected);
}

TEST(WireLspEchoTlv, IsTakenWithItsPadding) {
    const Bytes bytes{0, 1, 0, 5, 10, 9, 0, 0, 16, 0, 0, 0, 0x80, 3, 0, 0};
    Wire::Bytes rest(bytes);
    LspEchoTlv tlv;
    ASSERT_TRUE(LspEchoTlv::take(rest, tlv));
    EXPECT_EQ(tlv.type, LspEchoTlv::targetFecStack);
    EXPECT_EQ(Bytes(tlv.value.begin(), tlv.value.end()), (Bytes{10, 9, 0, 0, 16}));
    EXPECT_EQ(tlv.whole.size(), 12U);
    ASSERT_TRUE(LspEchoTlv::take(rest, tlv));
    EXPECT_EQ(tlv.type, 0x8003);
    EXPECT_TRUE(tlv.value.empty());
    EXPECT_TRUE(rest.empty());
    EXPECT_FALSE(LspEchoTlv::take(rest, tlv));
}

TEST(WireLspEchoTlv, CutShortIsLeft) {
    const Bytes bytes{0, 1, 0, 5, 10, 9, 0, 0, 16, 0, 0, 0};
    for (std::size_t size = 0; size < bytes.size(); ++size) {
        Wire::Bytes rest = Wire::Bytes(bytes).first(size);
        LspEchoTlv tlv;
        EXPECT_FALSE(LspEchoTlv::take(rest, tlv)) << size;
        EXPECT_EQ(rest.size(), size);
        EXPECT_EQ(tlv.type, 0);
    }
}

TEST(WireLspEchoTlv, IsAppended) {
    Bytes bytes{0xa5};
    LspEchoTlv::add(bytes, LspEchoTlv::erroredTlvs, Bytes{1, 2, 3, 4});
    EXPECT_EQ(bytes, (Bytes{0xa5, 0, 9, 0, 4, 1, 2, 3, 4}));
}

TEST(WireLspEchoDownstream, SubTlvsFollowTheAddressesOfTheType) {
    const std::size_t sizes[] = {8, 8, 32, 20, 0};
    for (std::uint8_t type = 1; type <= 5; ++type) {
        Bytes value(8 + sizes[type - 1] + 4, 0);
        value[2] = type;
        value[value.size() - 5] = 4; // the length of the sub-TLVs
        Wire::Bytes subTlvs;
        EXPECT_TRUE(Wire::LspEchoDownstream::subTlvs(value, subTlvs)) << int{type};
        EXPECT_EQ(subTlvs.data(), value.data() + value.size() - 4);
        for (std::size_t size = 0; size < value.size(); ++size) {
            EXPECT_FALSE(Wire::LspEchoDownstream::subTlvs(Wire::Bytes(value).first(size), subTlvs))
                << int{type} << " " << size;
        }
        for (const std::uint8_t unknown : Bytes{0, 6, 255}) {
            value[2] = unknown;
            EXPECT_FALSE(Wire::LspEchoDownstream::subTlvs(value, subTlvs)) << int{unknown};
        }
    }
}

} // namespace

} // namespace LspEchoTest
