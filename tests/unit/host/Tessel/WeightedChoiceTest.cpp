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

TEST(WeightedChoice, FlowsOfMembersThatAreNotUsableAreSharedByWeight) {
    const std::vector<std::uint32_t> weights{2, 4, 0, 1, 3};
    std::vector<std::size_t> of(5);
    std::size_t moved = 0;
    for (std::uint32_t hash = 0; hash < 10000; ++hash) {
        const std::size_t own = choices(weights, 10)[hash % 10];
        const std::size_t now = Tessel::usableChoice(
            hash, 10, 5, [&](std::size_t i) { return weights[i]; },
            [](std::size_t i) { return i != 1; });
        EXPECT_TRUE(own == 1 || now == own);
        ++of[now];
        moved += own != now ? 1 : 0;
    }
    EXPECT_EQ(moved, 4000U);
    EXPECT_EQ(of[1] + of[2], 0U);
    EXPECT_NEAR(static_cast<double>(of[0]), 10000.0 * 2 / 6, 100);
    EXPECT_NEAR(static_cast<double>(of[3]), 10000.0 * 1 / 6, 100);
}

TEST(WeightedChoice, WhenNoMemberIsUsableTheFlowsOwnIsTaken) {
    for (const std::uint32_t hash : {0U, 1U, 2U}) {
        EXPECT_EQ(
            Tessel::usableChoice(
                hash, 3, 3, [](std::size_t) { return 1U; }, [](std::size_t) { return false; }),
            hash);
    }
}

} // namespace

} // namespace WeightedChoiceTest
