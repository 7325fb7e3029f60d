#include "Lumo/MplsLabel.h"

#include <array>
#include <gtest/gtest.h>

namespace MplsLabelTest {

using namespace Lumo;

TEST(MplsLabel, HoldsTwentyBits) {
    EXPECT_EQ(MplsLabel().value(), 0U);
    EXPECT_EQ(MplsLabel(1048575).value(), 1048575U);
    try {
        MplsLabel(1048576);
        FAIL() << "21 bits were taken";
    } catch (const Tessel::RangeError& error) {
        EXPECT_STREQ(error.what(), "Lumo::MplsLabel::value > 1048575 not allowed");
    }
}

TEST(MplsLabel, OnlyZeroAndTwoAreExplicitNulls) {
    for (std::uint32_t value = 0; value <= 20; ++value) {
        EXPECT_EQ(MplsLabel(value).isExplicitNull(), value == 0 || value == 2) << value;
    }
}

TEST(MplsLabel, TheFirstSixteenAreSpecialPurpose) {
    EXPECT_TRUE(MplsLabel(0).isSpecialPurpose());
    EXPECT_TRUE(MplsLabel(15).isSpecialPurpose());
    EXPECT_FALSE(MplsLabel(16).isSpecialPurpose());
    EXPECT_FALSE(MplsLabel(MplsLabel::max).isSpecialPurpose());
}

TEST(MplsLabel, PrintsInDecimalAndCompares) {
    EXPECT_EQ(MplsLabel(1048575).prettyString(), "1048575");
    EXPECT_EQ(MplsLabel(7).prettyString(), "7");
    EXPECT_LT(MplsLabel(7), MplsLabel(8));
    EXPECT_EQ(MplsLabel(7), entropyLabelIndicator);
}

TEST(MplsLabelEntry, ReadsTheFieldsOfTheWord) {
    const struct {
        std::uint32_t word;
        std::uint32_t label;
        std::uint8_t tc;
        bool bos;
        std::uint8_t ttl;
    } cases[] = {
        {0x00001140, 1, 0, true, 64},        {0x00000000, 0, 0, false, 0},
        {0xffffffff, 1048575, 7, true, 255}, {0xfffff000, 1048575, 0, false, 0},
        {0x00000e00, 0, 7, false, 0},        {0x00000100, 0, 0, true, 0},
        {0x000000ff, 0, 0, false, 255},      {0x3e8e4a05, 0x3e8e4, 5, false, 5},
    };
    for (const auto& expected : cases) {
        const MplsLabelEntry entry{NetU32(expected.word)};
        EXPECT_EQ(entry.label().value(), expected.label) << std::hex << expected.word;
        EXPECT_EQ(entry.tc(), expected.tc) << std::hex << expected.word;
        EXPECT_EQ(entry.bos(), expected.bos) << std::hex << expected.word;
        EXPECT_EQ(entry.ttl(), expected.ttl) << std::hex << expected.word;
        EXPECT_EQ(
            MplsLabelEntry(MplsLabel(expected.label), expected.tc, expected.bos, expected.ttl),
            entry)
            << std::hex << expected.word;
    }
}

TEST(MplsLabelEntry, StoresFourBytesAndNothingBesides) {
    std::array<std::uint8_t, 6> bytes;
    bytes.fill(0xa5);
    MplsLabelEntry(MplsLabel(100), 5, true, 63).store(bytes.data() + 1);
    EXPECT_EQ(bytes, (std::array<std::uint8_t, 6>{0xa5, 0x00, 0x06, 0x4b, 0x3f, 0xa5}));
    EXPECT_EQ(MplsLabelEntry::load(bytes.data() + 1).word(), NetU32(0x00064b3f));
}

TEST(MplsLabelEntry, AnotherTtlLeavesTheRestAlone) {
    EXPECT_EQ(MplsLabelEntry(NetU32(0xfffffeff)).withTtl(1).word(), NetU32(0xfffffe01));
    EXPECT_EQ(MplsLabelEntry(NetU32(0x00000000)).withTtl(255).word(), NetU32(0x000000ff));
}

namespace {

constexpr const char* outOfRange =
    "Lumo::MplsStackEntryIndex::value < Lumo::MplsStackEntryIndex::min or > "
    "Lumo::MplsStackEntryIndex::nullValue not allowed";

} // namespace

TEST(MplsStackEntryIndex, ThirteenIsTheLastValueAndMeansNoPosition) {
    for (std::uint32_t value = 0; value <= 13; ++value) {
        EXPECT_EQ(MplsStackEntryIndex(value).value(), value);
    }
    EXPECT_EQ(MplsStackEntryIndex(), MplsStackEntryIndex(MplsStackEntryIndex::nullValue));
    EXPECT_EQ(MplsStackEntryIndex::min, 0);
}

TEST(MplsStackEntryIndex, FourteenAndMoreAreOutOfRange) {
    for (const std::uint32_t value : {14U, 255U, 256U, 269U, 0xffffffffU}) {
        try {
            MplsStackEntryIndex index(value);
            FAIL() << value << " was taken";
        } catch (const Tessel::RangeError& error) {
            EXPECT_STREQ(error.what(), outOfRange);
        }
    }
}

TEST(MplsStackEntryIndex, IncrementsToThirteenAndNoFurther) {
    MplsStackEntryIndex index(0);
    for (std::uint32_t expected = 1; expected <= 13; ++expected) {
        EXPECT_EQ((++index).value(), expected);
    }
    try {
        ++index;
        FAIL() << "incremented past 13";
    } catch (const Tessel::RangeError& error) {
        EXPECT_STREQ(error.what(), outOfRange);
    }
    EXPECT_EQ(index.value(), 13);
}

} // namespace MplsLabelTest
