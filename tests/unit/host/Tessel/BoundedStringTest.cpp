#include "Tessel/BoundedString.h"

#include <array>
#include <cstring>
#include <gtest/gtest.h>
#include <string>

namespace BoundedStringTest {

namespace {

using Tessel::BoundedString;
using Tessel::RangeError;
using Name = BoundedString<100>;

TEST(BoundedString, HoldsUpToItsCapacity) {
    for (std::size_t size = 0; size <= 100; ++size) {
        const std::string text(size, 'x');
        const Name name{std::string_view(text)};
        EXPECT_EQ(name.view(), text);
        EXPECT_EQ(name.size(), size);
        EXPECT_EQ(name.empty(), size == 0);
    }
}

TEST(BoundedString, RefusesOneByteMore) {
    for (const std::size_t size : {101U, 255U, 256U, 356U, 65536U}) {
        const std::string text(size, 'x');
        try {
            const Name name{std::string_view(text)};
            ADD_FAILURE() << size;
        } catch (const RangeError& refused) {
            EXPECT_STREQ(refused.what(), "text of more than 100 bytes");
        }
    }
}

TEST(BoundedString, HoldsAnyBytes) {
    const std::string_view zeroInside("a\0b", 3);
    EXPECT_EQ(Name(zeroInside).view(), zeroInside);
    EXPECT_NE(Name(zeroInside), Name("a"));
    EXPECT_EQ(BoundedString<255>(std::string_view(std::string(255, '\xff'))).size(), 255U);
}

TEST(BoundedString, ComparesTheBytesInUse) {
    Name name(std::string_view(std::string(100, 'x')));
    name = "abc";
    EXPECT_EQ(name, Name("abc"));
    EXPECT_NE(name, Name("abcx"));
    EXPECT_NE(name, Name("abd"));
    EXPECT_EQ(Name(), Name(""));
}

TEST(BoundedString, AssignmentTouchesOnlyTheBytesInUse) {
    Name name(std::string_view(std::string(100, 'x')));
    const Name shorter("abc");
    name = shorter;
    std::array<char, sizeof(Name)> memory{};
    std::memcpy(memory.data(), static_cast<const void*>(&name), memory.size());
    EXPECT_EQ(std::string_view(memory.data() + 1, 3), "abc");
    EXPECT_EQ(std::string_view(memory.data() + 4, 97), std::string(97, 'x'));
}

TEST(BoundedString, SurvivesAssignmentToItself) {
    Name name("abc");
    const Name& itself = name;
    name = itself;
    EXPECT_EQ(name.view(), "abc");
}

} // namespace

} // namespace BoundedStringTest
