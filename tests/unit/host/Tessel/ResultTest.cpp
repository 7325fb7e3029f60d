#include "Tessel/Result.h"

#include <gtest/gtest.h>
#include <memory>
#include <string>

namespace ResultTest {

namespace {

using Tessel::Refused;
using Tessel::Result;

Result<std::string> nonEmpty(std::string word) {
    if (word.empty()) {
        return Refused{"empty word"};
    }
    return word;
}

TEST(ResultTest, HoldsTheValueOrTheRefusal) {
    const Result<std::string> good = nonEmpty("east");
    ASSERT_TRUE(good);
    EXPECT_EQ(good.value(), "east");

    const Result<std::string> bad = nonEmpty("");
    ASSERT_FALSE(bad);
    EXPECT_EQ(bad.refused().what, "empty word");
}

TEST(ResultTest, ValueMayBeChangedAndMovedOut) {
    Result<std::string> result = nonEmpty("a");
    result.value() += "b";
    EXPECT_EQ(std::move(result).value(), "ab");

    Result<std::unique_ptr<int>> owner(std::make_unique<int>(7));
    const std::unique_ptr<int> taken = std::move(owner).value();
    EXPECT_EQ(*taken, 7);
}

TEST(ResultTest, ValueOrTakesTheOtherOnRefusal) {}

TEST(ResultTest, OfNothingIsDoneOrRefused) {
    const Result<void> done;
    EXPECT_TRUE(done);
    const Result<void> refused = Refused{"port east: unknown"};
    ASSERT_FALSE(refused);
    EXPECT_EQ(refused.refused().what, "port east: unknown");
}

TEST(ResultDeathTest, TakingWhatIsNotThereIsAsserted) {
    EXPECT_DEATH((void)nonEmpty("").value(), "");
    EXPECT_DEATH((void)nonEmpty("x").refused(), "");
}

} // namespace

} // namespace ResultTest
