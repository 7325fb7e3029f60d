#include "Tessel/WeightedChoice.h"

#include <gtest/gtest.h>
#include <vector>

namespace WeightedChoiceTest {

namespace {

std::vector<std::size_t> choices(const std::vector<std::uint32_t>& weights,
                                 std::uint64_t residues) {
    std::vector<std::size_t> chosen;
    for (std::uint64_t residue = 0; residue < residues; ++residue) {
        chosen.push_back(Tessel::weightedChoice(residue, weights.size(),
                                                [&](std::size_t i) { return weights[i]; }));
    }
    return chosen;
}

TEST(WeightedChoice, EachMemberOwnsItsWeightOfResidues) {
    EXPECT_EQ(choices({1}, 1), (std::vector<std::size_t>{0}));
    EXPECT_EQ(choices({2, 0, 1, 3}, 6), (std::vector<std::size_t>{0, 0, 2, 3, 3, 3}));
}

TEST(WeightedChoice, AResidueThatNoMemberOwnsIsTheFirstOnes) {
    EXPECT_EQ(choices({0, 0}, 2), (std::vector<std::size_t>{0, 0}));
    EXPECT_EQ(choices({0, 1}, 3), (std::vector<std::size_t>{1, 0, 0}));
    EXPECT_EQ(choices({}, 1), (std::vector<std::size_t>{0}));
}

TEST(WeightedChoice, WeightsMayAddUpToMoreThan32Bits) {
    const std::vector<std::uint32_t> weights(4, 0xffffffff);
    const auto weight = [&](std::size_t i) { return weights[i]; };
    EXPECT_EQ(Tessel::weightedChoice(0x2fffffffcU, 4, weight), 2U);
    EXPECT_EQ(Tessel::weightedChoice(0x2fffffffdU, 4, weight), 3U);
}

} // namespace

} // namespace WeightedChoiceTest
