#include "FastPath/Decision.h"

#include <gtest/gtest.h>
#include <random>

#include "Tessel/WeightedChoice.h"

namespace DecisionTest {

namespace {

using OvixAgent::DecidedChoice;
using OvixAgent::Decision;
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
    DecidedChoice choice;
    for (const std::uint32_t weight : weights) {
        Decision member;
        member.value = static_cast<std::uint32_t>(shares.ends.size());
        choice.add(weight, member);
        shares.add(weight);
    }
    EXPECT_EQ(choice.members().size(), weights.size());
    const auto expectMember = [&](std::uint32_t hash) {
        EXPECT_EQ(shares.chosen(hash), byDefinition(weights, hash)) << "hash " << hash;
        EXPECT_EQ(choice.member(hash).value, byDefinition(weights, hash)) << "hash " << hash;
    };
    for (int flow = 0; flow < 200; ++flow) {
        expectMember(static_cast<std::uint32_t>(chance()));
    }
    expectMember(0);
    expectMember(0xffffffff);
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

TEST(Shares, AreExactForAnySumOf32Bits) {
    std::mt19937 chance(3);
    for (int turn = 0; turn < 1000; ++turn) {
        const auto sum = static_cast<std::uint32_t>(chance() >> chance() % 32);
        expectAsDefined({sum / 3, sum / 3, sum - 2 * (sum / 3) + (sum == 0 ? 1 : 0)}, chance);
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
