#include <gtest/gtest.h>

#include "HeapCount.h"
#include "Tessel/FlatMap.h"
#include "Tessel/PtrList.h"
#include "Tessel/Slab.h"

namespace {

using namespace Tessel;
using TestSupport::heapAllocations;

struct Item : Counted, Slabbed<Item> {
    std::uint64_t content = 0;
};

/// What `step` allocates from the heap when it has run once before.
template <typename Step>
std::uint64_t allocationsOnceWarm(Step step) {
    step();
    const std::uint64_t before = heapAllocations;
    step();
    return heapAllocations - before;
}

TEST(RuntimeAllocation, WarmObjectsAndListsOfThemTakeNothingFromTheHeap) {
    if (TestSupport::slabsFromHeap) {
        GTEST_SKIP();
    }
    EXPECT_EQ(allocationsOnceWarm([] {
                  for (std::size_t length = 0; length <= 100; ++length) {
                      PtrList<Item, 4> list;
                      for (std::size_t i = 0; i < length; ++i) {
                          list.push(make<Item>());
                      }
                  }
              }),
              0U);
}

TEST(RuntimeAllocation, AMapThatHasHadItsEntriesTakesThemBackWithoutTheHeap) {
    FlatMap<std::uint64_t> map;
    EXPECT_EQ(allocationsOnceWarm([&map] {
                  for (std::uint64_t key = 0; key < 1000; ++key) {
                      map[key] = key;
                  }
                  for (std::uint64_t key = 0; key < 1000; ++key) {
                      map.erase(key);
                  }
              }),
              0U);
}

} // namespace
