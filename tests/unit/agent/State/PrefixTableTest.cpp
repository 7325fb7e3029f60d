#include "State/PrefixTable.h"

#include <gtest/gtest.h>
#include <map>
#include <random>

namespace PrefixTableTest {

using namespace OvixAgent;

namespace {

using Model = std::map<std::uint64_t, std::uint32_t>;

/// As one who looks for it in an ordered map would answer.
std::uint32_t valueOf(const Model& model, std::uint64_t key) {
    const auto found = model.find(key);
    return found != model.end() ? found->second : PrefixTable::none;
}

/// Many inserts and erases of few different prefixes: the table stays as full as it gets, so that
/// probe runs are long, and go round its end.
void compareWithModel(std::uint32_t seed, std::uint64_t keys, unsigned length, unsigned steps) {
    std::mt19937 random(seed);
    PrefixTable table(length);
    Model model;
    for (std::uint32_t step = 0; step < steps; ++step) {
        const std::uint64_t key = (random() % keys) << (64 - std::min(length, 64U));
        if (random() % 2 == 0) {
            ASSERT_EQ(table.insert({key, 0}, step), model.emplace(key, step).second);
        } else {
            ASSERT_EQ(table.erase({key, 0}), valueOf(model, key));
            model.erase(key);
        }
        if (keys > 16 && step % 64 != 0) {
            continue;
        }
        for (std::uint64_t any = 0; any < keys; ++any) {
            const std::uint64_t asked = any << (64 - std::min(length, 64U));
            ASSERT_EQ(table.find({asked, 0}), valueOf(model, asked)) << "step " << step;
        }
    }
}

} // namespace

TEST(PrefixTable, AnswersAsAnOrderedMapDoesWhateverComesAndGoes) {
    for (std::uint32_t seed = 0; seed < 40; ++seed) {
        compareWithModel(seed, 6, 24, 2000);
        compareWithModel(seed, 16, 64, 1000);
        compareWithModel(seed, 500, 32, 4000);
    }
}

TEST(PrefixTable, EveryEntryOfARunIsFoundAfterAnyOneOfItHasGone) {
    // Among many triples and quadruples of prefixes in eight slots are all shapes of runs.
    for (std::uint64_t base = 0; base < 2000; ++base) {
        for (std::uint64_t gone = 0; gone < 4; ++gone) {
            PrefixTable table(64);
            for (std::uint64_t i = 0; i < 4; ++i) {
                ASSERT_TRUE(table.insert({base * 7919 + i * 104729, i}, 1));
            }
            ASSERT_EQ(table.erase({base * 7919 + gone * 104729, gone}), 1U);
            for (std::uint64_t i = 0; i < 4; ++i) {
                ASSERT_EQ(table.find({base * 7919 + i * 104729, i}) != PrefixTable::none, i != gone)
                    << base << " without " << gone << ": " << i;
            }
        }
    }
}

TEST(PrefixTable, BitsBehindThePrefixDoNotCount) {
    PrefixTable table(8);
    EXPECT_TRUE(table.insert({0x0a01020300000000, 77}, 1));
    EXPECT_FALSE(table.insert({0x0a00000000000000, 0}, 2));
    EXPECT_EQ(table.find({0x0affffffffffffff, ~0ULL}), 1U);
    EXPECT_EQ(table.erase({0x0aeeeeee00000000, 5}), 1U);
    EXPECT_EQ(table.find({0x0a01020300000000, 77}), PrefixTable::none);
    EXPECT_EQ(table.erase({0x0a01020300000000, 77}), PrefixTable::none);
}

TEST(PrefixTable, WhatComesAndGoesForEverDoesNotFillIt) {
    PrefixTable table(64);
    for (std::uint32_t i = 0; i < 100'000; ++i) {
        ASSERT_TRUE(table.insert({i, 0}, i));
        ASSERT_EQ(table.erase({i, 0}), i);
    }
    EXPECT_EQ(table.find({1, 0}), PrefixTable::none);
}

} // namespace PrefixTableTest
