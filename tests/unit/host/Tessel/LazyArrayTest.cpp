#include "Tessel/LazyArray.h"

#include <cstdint>
#include <fstream>
#include <gtest/gtest.h>
#include <limits>

namespace LazyArrayTest {

using namespace Tessel;

namespace {

std::size_t residentPages() {
    std::ifstream statm("/proc/self/statm");
    std::size_t all = 0;
    std::size_t resident = 0;
    statm >> all >> resident;
    return resident;
}

} // namespace

TEST(LazyArrayTest, IsZeroUntilItIsWrittenTo) {
    LazyArray<std::uint32_t> array(1U << 20U);
    EXPECT_EQ(array[0], 0U);
    EXPECT_EQ(array[(1U << 20U) - 1], 0U);
    array[77] = 5;
    EXPECT_EQ(array[77], 5U);
    EXPECT_EQ(*array.at(77), 5U);
    EXPECT_EQ(array[76] + array[78], 0U);
}

TEST(LazyArrayTest, TakesMemoryWhereItIsUsedOnly) {
    const std::size_t before = residentPages();
    LazyArray<std::uint64_t> array(std::size_t{1} << 27U); // 1 GiB
    array[0] = 1;
    array[std::size_t{1} << 26U] = 1;
    EXPECT_LT(residentPages() - before, 4096U); // two huge pages are 1,024 small ones
}

TEST(LazyArrayTest, MoreThanThereCanBeIsRefused) {
    EXPECT_THROW(LazyArray<std::uint64_t>(std::numeric_limits<std::size_t>::max() / 16),
                 std::bad_alloc);
}

} // namespace LazyArrayTest
