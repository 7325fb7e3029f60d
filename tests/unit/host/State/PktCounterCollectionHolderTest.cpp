#include "State/PktCounterCollectionHolder.h"

#include <gtest/gtest.h>

namespace {

using namespace Counter;

Ptr<OvixLfibCounterCollection> named(const char* name) {
    return Tessel::make<OvixLfibCounterCollection>(name);
}

TEST(PktCounterCollectionHolder, HoldsCollectionsInTheOrderTheyCame) {
    PktCounterCollectionHolder holder;
    EXPECT_TRUE(holder.collections().empty());
    const auto first = named("first");
    const auto second = named("second");
    holder.collectionIs(first);
    holder.collectionIs(second);
    EXPECT_EQ(holder.collections(), (std::vector{first, second}));
}

TEST(PktCounterCollectionHolder, ReplacesOneOfTheSameNameInItsPlace) {
    PktCounterCollectionHolder holder;
    const auto old = named("first");
    const auto second = named("second");
    holder.collectionIs(old);
    holder.collectionIs(second);
    const auto renewed = named("first");
    holder.collectionIs(renewed);
    holder.collectionIs(renewed);
    EXPECT_EQ(holder.collections(), (std::vector{renewed, second}));
    EXPECT_EQ(old->references(), 1U);
}

TEST(PktCounterCollectionHolder, IgnoresAnEmptyHandle) {
    PktCounterCollectionHolder holder;
    holder.collectionIs(nullptr);
    EXPECT_TRUE(holder.collections().empty());
}

} // namespace
