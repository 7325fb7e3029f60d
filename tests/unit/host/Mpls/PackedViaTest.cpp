#include "Mpls/PackedVia.h"

#include <array>

#include "TableTesting.h"

namespace PackedViaTest {

namespace {

using namespace TableTesting;
using Mpls::PackedVia;
using Ovix::OvixMplsVia;
using Bytes = std::vector<std::uint8_t>;

constexpr std::uint16_t bit(unsigned field) {
    return static_cast<std::uint16_t>(1U << field);
}

/// The record whose mask names one field, with these bytes for it.
Bytes recordOf(unsigned field, const Bytes& body) {
    Bytes bytes{static_cast<std::uint8_t>(bit(field)), static_cast<std::uint8_t>(bit(field) >> 8U)};
    for (const std::uint8_t byte : body) {
        bytes.push_back(byte);
    }
    return bytes;
}

bool unpacks(const Bytes& bytes) {
    OvixMplsVia via;
    return PackedVia::unpack(bytes, via);
}

TEST(PackedVia, OfTheDefaultViaIsItsMask) {
    const PackedVia packed{OvixMplsVia()};
    EXPECT_EQ(Bytes(packed.bytes().begin(), packed.bytes().end()), (Bytes{0, 0}));
}

TEST(PackedVia, HoldsTheLongestVia) {
    OvixMplsVia via;
    for (const Field& field : fields()) {
        field.change(via);
    }
    via.labelAction = via.trafficClass = via.payloadType = via.ttlMode = 0xffffffff;
    via.fecIdLow = via.nexthopMtu = 0xffffffff;
    via.nexthopVlan = 0xffff;
    const PackedVia packed(via);
    EXPECT_LE(packed.bytes().size(), PackedVia::maxBytes);
    OvixMplsVia back;
    ASSERT_TRUE(PackedVia::unpack(packed.bytes(), back));
    EXPECT_TRUE(back.isEq(via));
}

TEST(PackedVia, EachFieldAloneComesBackAndNoTruncationIsTakenForIt) {
    for (const Field& field : fields()) {
        OvixMplsVia via;
        field.change(via);
        const PackedVia packed(via);
        OvixMplsVia back;
        ASSERT_TRUE(PackedVia::unpack(packed.bytes(), back)) << field.name;
        EXPECT_TRUE(back.isEq(via)) << field.name;
        for (std::size_t size = 0; size < packed.bytes().size(); ++size) {
            EXPECT_FALSE(PackedVia::unpack(packed.bytes().first(size), back))
                << field.name << " cut to " << size;
        }
    }
}

TEST(PackedVia, EverySetOfFieldsComesBack) {
    for (unsigned mask = 0; mask < 1U << fields().size(); ++mask) {
        OvixMplsVia via;
        for (unsigned i = 0; i < fields().size(); ++i) {
            if ((mask & bit(i)) != 0) {
                fields()[i].change(via);
            }
        }
        OvixMplsVia back;
        ASSERT_TRUE(PackedVia::unpack(PackedVia(via).bytes(), back)) << mask;
        ASSERT_TRUE(back.isEq(via)) << mask;
    }
}

TEST(PackedVia, IntegersComeBackAtEveryWidth) {
    for (unsigned shift = 0; shift < 32; ++shift) {
        for (const std::uint32_t value : {1U << shift, (1U << shift) - 1, ~0U >> shift}) {
            OvixMplsVia via;
            via.fecIdHigh = value;
            OvixMplsVia back;
            ASSERT_TRUE(PackedVia::unpack(PackedVia(via).bytes(), back));
            EXPECT_EQ(back.fecIdHigh, value);
        }
    }
}

TEST(PackedVia, RefusesInvalidFields) {
    constexpr unsigned labelAction = 0;
    constexpr unsigned labels = 6;
    constexpr unsigned pushTtl = 7;
    constexpr unsigned nexthop = 9;
    constexpr unsigned nexthopVlan = 14;
    EXPECT_TRUE(unpacks(recordOf(labelAction, {0xff, 0xff, 0xff, 0xff, 0x0f})));
    EXPECT_FALSE(unpacks(recordOf(labelAction, {0xff, 0xff, 0xff, 0xff, 0x1f}))); // 33 bits
    EXPECT_FALSE(unpacks(recordOf(labelAction, {0x80, 0x80, 0x80, 0x80, 0x80, 0})));
    for (const unsigned small : {pushTtl, nexthopVlan}) {
        EXPECT_TRUE(unpacks(recordOf(small, {0xff, 0xff, 0x03})));
        EXPECT_FALSE(unpacks(recordOf(small, {0x80, 0x80, 0x04}))); // 17 bits
    }
    Bytes text(102, 'x');
    text[0] = 100;
    EXPECT_TRUE(unpacks(recordOf(labels, text)));
    text[0] = 101;
    EXPECT_FALSE(unpacks(recordOf(labels, text)));
    Bytes address(17, 1);
    for (unsigned family = 0; family < 256; ++family) {
        address[0] = static_cast<std::uint8_t>(family);
        EXPECT_EQ(unpacks(recordOf(nexthop, address)), family == 4 || family == 6) << family;
    }
}

TEST(PackedVia, DamagedBytesAreRefusedOrReadAsSomeViaThatPacksAgain) {
    OvixMplsVia whole;
    for (const Field& field : fields()) {
        field.change(whole);
    }
    const PackedVia packed(whole);
    std::mt19937 random(7);
    for (int round = 0; round < 20000; ++round) {
        Bytes bytes(packed.bytes().begin(), packed.bytes().end());
        for (unsigned damage = 0; damage < 1 + random() % 3; ++damage) {
            bytes[random() % bytes.size()] = static_cast<std::uint8_t>(random());
        }
        OvixMplsVia via;
        if (!PackedVia::unpack(bytes, via)) {
            continue;
        }
        OvixMplsVia back;
        ASSERT_TRUE(PackedVia::unpack(PackedVia(via).bytes(), back));
        EXPECT_TRUE(back.isEq(via));
    }
}

} // namespace

} // namespace PackedViaTest
