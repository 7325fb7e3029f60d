#include "FastPath/Pool.h"

#include <gtest/gtest.h>
#include <memory>
#include <string>

namespace PoolTest {

using namespace OvixAgent;

TEST(PoolTest, ObjectsAreFoundByTheirNumbers) {
    Pool<std::string> pool;
    const std::uint32_t first = pool.add("first");
    const std::uint32_t second = pool.add("second");
    EXPECT_NE(first, second);
    EXPECT_EQ(pool[first], "first");
    pool[second] += " changed";
    EXPECT_EQ(std::as_const(pool)[second], "second changed");
    EXPECT_EQ(pool.size(), 2U);
}

TEST(PoolTest, ANumberThatIsReleasedIsUsedAgain) {
    Pool<std::string> pool;
    const std::uint32_t first = pool.add("first");
    const std::uint32_t second = pool.add("second");
    pool.release(first);
    EXPECT_EQ(pool.size(), 1U);
    EXPECT_EQ(pool.add("third"), first);
    EXPECT_EQ(pool[first], "third");
    EXPECT_EQ(pool[second], "second");
    EXPECT_EQ(pool.size(), 2U);
}

TEST(PoolTest, WhatAReleasedObjectHoldsIsReleasedWithIt) {
    Pool<std::shared_ptr<int>> pool;
    const auto held = std::make_shared<int>(1);
    const std::uint32_t number = pool.add(held);
    EXPECT_EQ(held.use_count(), 2);
    pool.release(number);
    EXPECT_EQ(held.use_count(), 1);
}

} // namespace PoolTest
