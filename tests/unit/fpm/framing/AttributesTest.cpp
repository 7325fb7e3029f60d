#include "framing/Attributes.h"

#include <gtest/gtest.h>

#include "FpmBytes.h"

namespace AttributesTest {

namespace {

using namespace OvixFpm;
using TestSupport::Fpm::attribute;
using TestSupport::Fpm::host16;
using TestSupport::Fpm::host32;
using TestSupport::Raw::join;
using Payload = std::vector<std::uint8_t>;

constexpr Field four{4, "FOUR"};
constexpr Field five{5, "FIVE"};

std::string refusal(const Payload& bytes) {
    try {
        Attributes{bytes};
    } catch (const Malformed& error) {
        return error.what();
    }
    return "";
}

TEST(Attributes, areFoundByType) {
    const Payload bytes = join({attribute(5, {1, 2, 3}), attribute(4, host32(70000))});
    const Attributes attributes(bytes);
    const auto value = attributes.find(five);
    ASSERT_TRUE(value);
    EXPECT_EQ(Payload(value->begin(), value->end()), (Payload{1, 2, 3}));
    EXPECT_EQ(attributes.u32(four), 70000U);
    EXPECT_FALSE(attributes.find({6, "SIX"}));
    EXPECT_EQ(attributes.u32({6, "SIX"}), std::nullopt);
}

TEST(Attributes, flagBitsOfTheTypeAreIgnored) {
    for (const unsigned flags : {0x4000U, 0x8000U, 0xc000U}) {
        const Payload bytes = attribute(static_cast<std::uint16_t>(4 | flags), {7});
        EXPECT_EQ(Attributes(bytes).u8(four), 7);
    }
}

TEST(Attributes, unknownTypesAreSkippedHoweverOften) {
    const Payload bytes =
        join({attribute(31, {1}), attribute(0x3fff, {}), attribute(31, {2}), attribute(4, {9})});
    EXPECT_EQ(Attributes(bytes).u8(four), 9);
    EXPECT_FALSE(Attributes(bytes).find({31, "BEYOND"}));
}

TEST(Attributes, anEmptyValueIsAValue) {
    const Payload bytes = attribute(4, {});
    EXPECT_TRUE(Attributes(bytes).find(four));
    EXPECT_TRUE(Attributes(bytes).find(four)->empty());
}

TEST(Attributes, theLastMayHaveNoPadding) {
    Payload bytes = attribute(4, {7});
    bytes.resize(5);
    EXPECT_EQ(Attributes(bytes).u8(four), 7);
}

TEST(Attributes, anInvalidLengthIsRefused) {
    for (const unsigned length : {0U, 1U, 3U, 9U, 0xffffU}) {
        const Payload bytes = join({attribute(5, {1}),
                                    host16(static_cast<std::uint16_t>(length)),
                                    host16(4),
                                    {1, 2, 3, 4}});
        EXPECT_EQ(refusal(bytes), "attribute at byte 8 of its list is " + std::to_string(length) +
                                      " bytes long, of 8 that are left");
    }
}

TEST(Attributes, bytesTooFewForAHeaderAreRefused) {
    for (std::size_t rest = 1; rest < 4; ++rest) {
        Payload bytes = attribute(4, {1});
        bytes.resize(bytes.size() + rest);
        EXPECT_EQ(refusal(bytes),
                  "attribute header needs 4 bytes; there are " + std::to_string(rest));
    }
}

TEST(Attributes, aTypeTwiceIsRefused) {
    EXPECT_EQ(refusal(join({attribute(4, {1}), attribute(0x8004, {2})})),
              "attribute at byte 8 of its list is the second of type 4");
}

TEST(Attributes, aNumberOfAnotherSizeIsRefused) {
    const Payload bytes = attribute(4, {1, 2, 3});
    const Attributes attributes(bytes);
    const auto reasonOf = [&](auto read) -> std::string {
        try {
            read();
        } catch (const Malformed& error) {
            return error.what();
        }
        return "";
    };
    EXPECT_EQ(reasonOf([&] { attributes.u8(four); }), "FOUR has 3 bytes instead of 1");
    EXPECT_EQ(reasonOf([&] { attributes.u16(four); }), "FOUR has 3 bytes instead of 2");
    EXPECT_EQ(reasonOf([&] { attributes.u32(four); }), "FOUR has 3 bytes instead of 4");
}

} // namespace

} // namespace AttributesTest
