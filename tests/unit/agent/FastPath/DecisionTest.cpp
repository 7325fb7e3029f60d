#include "FastPath/Decision.h"

#include <gtest/gtest.h>
#include <random>

#include "Tessel/WeightedChoice.h"

namespace DecisionTest {

namespace {

using OvixAgent::Shares;

std::size_t byDefinition(const std::vector<std::uint32_t>& weights, std::uint32_t hash) {
    std::uint64_t total = 0;
    for (const std::uint32_t weight : weights) {
        total += weight;
    }
    return Tessel::weightedChoice(hash % total, weights.size(),
                                  [&](std::size_t i) { return weights[i]; });
}

void expectAsDefined(const std::vector<std::uint32_t>& weights, std::mt19937& chance) {
    Shares shares;
    for (const std::uint32_t weight : weights) {
        shares.add(weight);
    }
    for (int flow = 0; flow < 200; ++flow) {
        const auto hash = static_cast<std::uint32_t>(chance());
        EXPECT_EQ(shares.chosen(hash), byDefinition(weights, hash)) << "hash " << hash;
    }
    EXPECT_EQ(shares.chosen(0), byDefinition(weights, 0));
    EXPECT_EQ(shares.chosen(0xffffffff), byDefinition(weights, 0xffffffff));
}

TEST(Shares, OfFewWeightsAreThoseOfTheDefinition) {
    std::mt19937 chance(1);
    for (int turn = 0; turn < 100; ++turn) {
        std::vector<std::uint32_t> weights(1 + chance() % 16);
        for (std::uint32_t& weight : weights) {
            weight = static_cast<std::uint32_t>(chance() % 5);
        }
        weights[chance() % weights.size()] += 1;
        expectAsDefined(weights, chance);
    }
}

TEST(Shares, WhoseSumExceeds32BitsAreThoseOfTheDefinition) {
    std::mt19937 chance(2);
    expectAsDefined({0x7fffffff, 0x80000000}, chance);
    expectAsDefined({0xffffffff}, chance);
    expectAsDefined({0x80000000, 0x80000000}, chance);
    expectAsDefined({0xffffffff, 0, 0xffffffff, 1}, chance);
}

} // namespace

} // namespace DecisionTest
