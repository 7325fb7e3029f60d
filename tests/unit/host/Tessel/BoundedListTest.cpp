#include "Tessel/BoundedList.h"

#include <array>
#include <cstring>
#include <gtest/gtest.h>
#include <limits>
#include <numeric>
#include <string>
#include <vector>

namespace BoundedListTest {

namespace {

using Tessel::BoundedList;
using Tessel::RangeError;
using List = BoundedList<std::uint32_t, 599>;

std::vector<std::uint32_t> upTo(std::size_t count) {
    std::vector<std::uint32_t> numbers(count);
    std::iota(numbers.begin(), numbers.end(), 1U);
    return numbers;
}

std::vector<std::uint32_t> content(const List& list) {
    return {list.view().begin(), list.view().end()};
}

TEST(BoundedList, TakesEntriesOneByOneUpToItsCapacity) {
    List list;
    EXPECT_TRUE(list.empty());
    EXPECT_TRUE(list.view().empty());
    for (std::uint32_t i = 0; i < List::max(); ++i) {
        list.push(i + 1);
        EXPECT_EQ(list.size(), i + 1);
        EXPECT_EQ(list[i], i + 1);
    }
    EXPECT_EQ(content(list), upTo(599));
    EXPECT_THROW(list.push(600), RangeError);
    EXPECT_EQ(content(list), upTo(599));
}

TEST(BoundedList, TakesAWholeContentUpToItsCapacity) {
    List list;
    list.assign(upTo(599).data(), 599);
    EXPECT_EQ(content(list), upTo(599));
    list.assign(upTo(2).data(), 2);
    EXPECT_EQ(content(list), upTo(2));
    list.assign(upTo(1).data(), 0);
    EXPECT_TRUE(list.empty());
}

TEST(BoundedList, ReadsNothingOfAContentTooLong) {
    List list;
    list.push(7);
    const std::vector<std::uint32_t> one{1};
    for (const std::size_t count :
         {std::size_t{600}, std::size_t{1} << 32U, (std::size_t{1} << 62U) + 1,
          std::numeric_limits<std::size_t>::max()}) {
        try {
            list.assign(one.data(), count);
            ADD_FAILURE() << count;
        } catch (const RangeError& refused) {
            EXPECT_EQ(refused.what(), "list of " + std::to_string(count) + " entries exceeds 599");
        }
    }
    EXPECT_EQ(content(list), std::vector<std::uint32_t>{7});
}

TEST(BoundedList, ReadsEntriesFromMemoryOfAnyAlignment) {
    std::array<unsigned char, 9> memory{};
    const std::array<std::uint32_t, 2> entries{0x01020304, 0xfffefdfc};
    std::memcpy(memory.data() + 1, entries.data(), sizeof entries);
    List list;
    list.assign(memory.data() + 1, 2);
    EXPECT_EQ(list[0], entries[0]);
    EXPECT_EQ(list[1], entries[1]);
}

TEST(BoundedList, CopiesTheEntriesInUseAndNoMore) {
    List list;
    list.assign(upTo(599).data(), 599);
    List shorter;
    shorter.push(100);
    list = shorter;
    EXPECT_EQ(content(list), std::vector<std::uint32_t>{100});
    const List copy(list);
    EXPECT_EQ(copy, shorter);
    // What lies behind the copied entry is what was there before.
    std::array<std::uint32_t, sizeof(List) / sizeof(std::uint32_t)> memory{};
    std::memcpy(memory.data(), static_cast<const void*>(&list), sizeof(List));
    EXPECT_EQ(memory[1], 100U);
    EXPECT_EQ(memory[2], 2U);
    EXPECT_EQ(memory[599], 599U);
}

TEST(BoundedList, ComparesTheEntriesInUse) {
    List a;
    List b;
    EXPECT_EQ(a, b);
    a.assign(upTo(3).data(), 3);
    EXPECT_NE(a, b);
    b.assign(upTo(599).data(), 599);
    b.assign(upTo(3).data(), 3);
    EXPECT_EQ(a, b);
    b.push(1);
    EXPECT_NE(a, b);
}

TEST(BoundedList, SurvivesAssignmentToItself) {
    List list;
    list.assign(upTo(5).data(), 5);
    const List& itself = list;
    list = itself;
    EXPECT_EQ(content(list), upTo(5));
}

} // namespace

} // namespace BoundedListTest
