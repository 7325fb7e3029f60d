#include "Tessel/TypeName.h"

#include <gtest/gtest.h>
#include <string>

namespace TypeNameTest {

namespace {

using Tessel::hashText;
using Tessel::TypeName;

constexpr TypeName fixed("MplsSwap");
static_assert(fixed.hash() != 0, "the hash is a compile-time constant");

TEST(TypeName, OfATextMadeAtRunTimeEqualsTheFixedOne) {
    const std::string text = std::string("Mpls") + "Swap";
    EXPECT_EQ(TypeName(text), fixed);
    EXPECT_EQ(TypeName(text).hash(), fixed.hash());
    EXPECT_EQ(TypeName(text).text(), "MplsSwap");
    EXPECT_FALSE(TypeName("MplsPop") == fixed);
}

TEST(HashText, TellsWhereOneTextEndsAndTheNextBegins) {
    EXPECT_NE(hashText("c", hashText("ab")), hashText("bc", hashText("a")));
    EXPECT_NE(hashText("", hashText("a")), hashText("a"));
    EXPECT_NE(hashText("a", hashText("")), hashText("a"));
    // FNV-1a of the byte 'a' and the ending zero byte.
    EXPECT_EQ(hashText("a"), 0xaf63dc4c8601ec8cU * 0x100000001b3U);
}

} // namespace

} // namespace TypeNameTest
