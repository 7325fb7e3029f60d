#include "Config/ConfigText.h"

#include <array>
#include <gtest/gtest.h>

namespace ConfigTextTest {

using namespace OvixAgent;

namespace {

constexpr std::array<std::string_view, 3> names{"interface", "nexthop", "weight"};

} // namespace

TEST(ConfigText, QuotesOnOneLine) {
    EXPECT_EQ(inQuotes("a"), "\"a\"");
    EXPECT_EQ(inQuotes("a\"\\\n\x7f"), "\"a\\\"\\\\\\x0a\\x7f\"");
    EXPECT_EQ(inQuotes(std::string(60, 'x')), "\"" + std::string(60, 'x') + "\"");
    EXPECT_EQ(inQuotes(std::string(61, 'x')), "\"" + std::string(60, 'x') + "...\"");
}

TEST(ConfigText, FindsTheNearestName) {
    EXPECT_EQ(nearestName("wieght", names), "weight");
    EXPECT_EQ(nearestName("nexthops", names), "nexthop");
    EXPECT_EQ(nearestName("iface", names), "");
    EXPECT_EQ(nearestName("", names), "");
    EXPECT_EQ(nearestName(std::string(1000, 'x'), names), "");
}

TEST(ConfigText, SuggestsOrListsWhatIsKnown) {
    EXPECT_EQ(suggestion("wieght", names), "; did you mean \"weight\"?");
    EXPECT_EQ(suggestion("colour", names), "; known: interface, nexthop, weight");
    EXPECT_EQ(suggestion("colour", {}), "");
}

TEST(ConfigText, ListsNoMoreThanSixteenNames) {
    const std::vector<std::string_view> many(17, "abcdefgh");
    std::string expected = "; known: ";
    for (int i = 0; i < 16; ++i) {
        expected += "abcdefgh, ";
    }
    EXPECT_EQ(suggestion("colour", many), expected + "...");
}

} // namespace ConfigTextTest
