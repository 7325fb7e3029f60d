#include "Mpls/LabelStacks.h"

#include <algorithm>
#include <cstdlib>

#include "TableTesting.h"

namespace {

using Mpls::LabelStacks;
using Bytes = std::vector<std::uint8_t>;

Bytes stackOf(std::size_t depth, std::uint32_t first) {
    Bytes packed;
    for (std::size_t i = 0; i < depth; ++i) {
        const auto label = static_cast<std::uint32_t>(first + i);
        packed.insert(packed.end(),
                      {static_cast<std::uint8_t>(label >> 16U),
                       static_cast<std::uint8_t>(label >> 8U), static_cast<std::uint8_t>(label)});
    }
    return packed;
}

TEST(LabelStacks, KeepsEachStackOnce) {
    const std::uint32_t first = LabelStacks::intern(stackOf(34, 16));
    const std::uint32_t other = LabelStacks::intern(stackOf(300, 16));
    EXPECT_NE(first, 0U);
    EXPECT_NE(first, other);
    EXPECT_EQ(LabelStacks::intern(stackOf(34, 16)), first);
    EXPECT_NE(LabelStacks::intern(stackOf(34, 17)), first);
    for (const auto& [number, stack] :
         {std::pair(first, stackOf(34, 16)), std::pair(other, stackOf(300, 16))}) {
        const auto found = LabelStacks::find(number);
        EXPECT_TRUE(std::equal(found.begin(), found.end(), stack.begin(), stack.end()));
    }
}

TEST(LabelStacks, AStackStaysWhereItIsWhenMoreAreAdded) {
    const std::uint32_t number = LabelStacks::intern(stackOf(34, 5000));
    const std::uint8_t* at = LabelStacks::find(number).data();
    for (std::uint32_t i = 0; i < 1000; ++i) {
        LabelStacks::intern(stackOf(34, 6000 + i));
    }
    EXPECT_EQ(LabelStacks::find(number).data(), at);
}

TEST(LabelStacks, ANumberNeverGivenOutNamesNothing) {
    EXPECT_TRUE(LabelStacks::find(0).empty());
    EXPECT_TRUE(LabelStacks::find(LabelStacks::max).empty());
    EXPECT_TRUE(LabelStacks::find(0xffffffff).empty());
}

// Run in a process of its own, because nothing is ever taken out of the store again.
[[noreturn]] void fillAndAskForMore() {
    std::uint32_t label = 0;
    std::uint32_t last = 1;
    while (last != 0 && label <= LabelStacks::max) {
        last = LabelStacks::intern(stackOf(34, 10000 + label));
        ++label;
    }
    Ovix::OvixMplsVia via;
    const bool refused = !via.labelsIs(stackOf(35, 100));
    const bool keepsOld = LabelStacks::intern(stackOf(34, 10000)) != 0;
    const bool noLabels = via.labels.empty() && !via.labelsInterned && !via;
    std::_Exit(last == 0 && refused && keepsOld && noLabels ? 0 : 1);
}

TEST(LabelStacksDeathTest, AFullStoreRefusesNewStacksAndKeepsTheOld) {
    EXPECT_EXIT(fillAndAskForMore(), testing::ExitedWithCode(0), "");
}

} // namespace
