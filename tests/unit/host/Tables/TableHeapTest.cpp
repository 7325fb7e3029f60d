#include "Tables/TableHeap.h"

#include <set>
#include <stdexcept>

#include "ShmTesting.h"

namespace TableHeapTest {

namespace {

using namespace ShmTesting;
using Tessel::TableHeap;
using Tessel::TableLayout::heapUnit;
using Tessel::TableLayout::sealedHorizon;

class Heap : public testing::Test {
  protected:
    explicit Heap(std::chrono::milliseconds kept = std::chrono::milliseconds(0),
                  std::size_t bytes = enough)
        : memory(Tessel::TableMemory::ofProcess(bytes)), heap(memory, kept) {}

    std::uint64_t horizon() const { return headerOf(memory.bytes()).horizon; }
    /// Takes and makes visible.
    std::uint32_t visible(std::uint32_t units, std::uint64_t generation) {
        const std::uint32_t unit = heap.take(units);
        heap.committed(generation);
        return unit;
    }

    Tessel::TableMemory memory;
    TableHeap heap;
};

class KeepingHeap : public Heap {
  protected:
    KeepingHeap() : Heap(longTime) {}
};

class HugeKeepingHeap : public Heap {
  protected:
    HugeKeepingHeap() : Heap(longTime, std::size_t{1} << 30U) {}
};

class SmallHeap : public Heap {
  protected:
    SmallHeap() : Heap(longTime, (heapUnit + std::size_t{1000}) * 8) {}
};

TEST_F(Heap, StartsBehindTheHeaderAndGrowsWithoutGaps) {
    EXPECT_EQ(heap.end(), heapUnit);
    EXPECT_EQ(heap.take(10), heapUnit);
    EXPECT_EQ(heap.take(20), heapUnit + 10);
    EXPECT_EQ(heap.end(), heapUnit + 30);
    EXPECT_EQ(heap.liveUnits(), 30U);
}

TEST_F(Heap, WhatWasNeverVisibleIsUsedAgainAtOnce) {
    const std::uint32_t unit = heap.take(10);
    EXPECT_TRUE(heap.isNew(unit));
    heap.release(unit, 10);
    EXPECT_FALSE(heap.isNew(unit));
    EXPECT_EQ(heap.liveUnits(), 0U);
    EXPECT_EQ(heap.take(10), unit);
    EXPECT_EQ(horizon(), 0U);
}

TEST_F(Heap, WhatIsVisibleIsUsedAgainOnlyBehindACommitAndWithTheHorizonRaised) {
    const std::uint32_t unit = visible(10, 0);
    EXPECT_FALSE(heap.isNew(unit));
    heap.release(unit, 10);
    const std::uint32_t other = heap.take(10);
    EXPECT_NE(other, unit);
    EXPECT_EQ(horizon(), 0U);
    heap.committed(5);
    EXPECT_EQ(horizon(), 0U); // raised when it must be, not before
    EXPECT_EQ(heap.take(10), unit);
    EXPECT_EQ(horizon(), sealedHorizon(6));
}

TEST_F(Heap, TheHorizonIsNeverLowered) {
    headerOf(memory.bytes()).horizon = sealedHorizon(100);
    const std::uint32_t unit = visible(10, 0);
    heap.release(unit, 10);
    heap.committed(5);
    EXPECT_EQ(heap.take(10), unit);
    EXPECT_EQ(horizon(), sealedHorizon(100));
}

TEST_F(KeepingHeap, WhatIsVisibleIsKeptForItsTime) {
    for (std::uint64_t generation = 1; generation < 100; ++generation) {
        const std::uint32_t unit = visible(10, generation);
        EXPECT_EQ(unit, heapUnit + (generation - 1) * 10);
        heap.release(unit, 10);
    }
    EXPECT_EQ(horizon(), 0U);
}

TEST_F(HugeKeepingHeap, MoreThanThatMuchIsNotKept) {
    constexpr std::uint32_t block = 1U << 16U;
    constexpr auto kept = static_cast<std::uint32_t>(TableHeap::keptUnits / block);
    std::uint32_t unit = visible(block, 0);
    const std::uint32_t first = unit;
    for (std::uint64_t generation = 1; generation <= kept; ++generation) {
        heap.release(unit, block);
        unit = heap.take(block);
        ASSERT_EQ(horizon(), 0U);
        heap.committed(generation);
    }
    heap.release(unit, block);
    heap.committed(kept + 1);
    EXPECT_EQ(heap.take(block), first);
    EXPECT_EQ(horizon(), sealedHorizon(2)); // no further than needed
}

TEST_F(SmallHeap, WhatIsKeptGoesWhenNothingElseIsLeft) {
    const std::uint32_t first = visible(400, 0);
    const std::uint32_t second = visible(400, 1);
    heap.release(first, 400);
    heap.committed(2);
    heap.release(second, 400);
    heap.committed(3);
    EXPECT_EQ(heap.take(200), heapUnit + 800); // what is left
    EXPECT_EQ(horizon(), 0U);
    EXPECT_EQ(heap.take(400), first);
    EXPECT_EQ(horizon(), sealedHorizon(3)); // the oldest alone
    EXPECT_EQ(heap.take(400), second);
    EXPECT_EQ(horizon(), sealedHorizon(4));
    EXPECT_THROW(heap.take(1), std::length_error);
    EXPECT_EQ(heap.liveUnits(), 1000U);
}

TEST_F(SmallHeap, WhatDoesNotFitChangesNothing) {
    const std::uint32_t unit = visible(900, 0);
    EXPECT_THROW(heap.take(101), std::length_error);
    EXPECT_EQ(heap.liveUnits(), 900U);
    EXPECT_EQ(heap.take(100), unit + 900);
}

TEST_F(SmallHeap, LargeRoomIsCutUpForSmall) {
    const std::uint32_t unit = visible(1000, 0);
    heap.release(unit, 1000);
    heap.committed(1);
    std::set<std::uint32_t> units;
    for (int i = 0; i < 100; ++i) {
        units.insert(heap.take(10));
    }
    EXPECT_EQ(units.size(), 100U);
    EXPECT_EQ(*units.begin(), unit);
    EXPECT_EQ(*units.rbegin(), unit + 990);
    EXPECT_THROW(heap.take(1), std::length_error);
}

TEST_F(SmallHeap, PiecesThatLieSideBySideBecomeOneAgain) {
    std::vector<std::uint32_t> units;
    for (int i = 0; i < 100; ++i) {
        units.push_back(heap.take(10));
    }
    heap.committed(1);
    for (const std::uint32_t unit : units) {
        heap.release(unit, 10);
    }
    heap.committed(2);
    EXPECT_EQ(heap.take(1000), heapUnit);
}

TEST_F(Heap, BatchesThatTakeEverMoreStayWithinWhatTheyNeed) {
    constexpr std::uint32_t count = 1000;
    std::vector<std::uint32_t> units(count);
    std::uint32_t size = 10;
    for (std::uint32_t& unit : units) {
        unit = heap.take(size);
    }
    heap.committed(1);
    // In all, the sizes would be ten times what there is room for.
    for (std::uint64_t generation = 2; generation < 300; ++generation) {
        for (std::uint32_t& unit : units) {
            heap.release(unit, size);
            unit = heap.take(size + 2);
        }
        size += 2;
        heap.committed(generation);
        ASSERT_EQ(heap.liveUnits(), std::uint64_t{count} * size);
    }
}

TEST_F(Heap, ADiscardedBatchGivesBackWhatItTookAndKeepsWhatItReleased) {
    const std::uint32_t kept = visible(10, 0);
    const std::uint32_t end = heap.end();
    heap.release(kept, 10);
    const std::uint32_t taken = heap.take(30);
    heap.discarded();
    EXPECT_EQ(heap.liveUnits(), 10U);
    EXPECT_FALSE(heap.isNew(taken));
    EXPECT_EQ(heap.take(30), taken);
    EXPECT_NE(heap.take(10), kept);
    EXPECT_EQ(heap.end(), end + 40);
}

TEST_F(SmallHeap, RoomTakenAgainInPiecesIsDiscardedOnce) {
    const std::uint32_t large = heap.take(1000);
    heap.release(large, 1000);
    EXPECT_EQ(heap.take(100), large); // cut out of it
    heap.discarded();
    EXPECT_EQ(heap.liveUnits(), 0U);
    std::set<std::uint32_t> units;
    for (int i = 0; i < 10; ++i) {
        units.insert(heap.take(100));
    }
    EXPECT_EQ(units.size(), 10U);
    EXPECT_THROW(heap.take(1), std::length_error);
}

TEST_F(Heap, GivesOutAfterARecoveryWhatWasNotReachedAndWarnsFirst) {
    heap.recover({{heapUnit + 50, 10}, {heapUnit + 20, 10}}, heapUnit + 100, 7);
    EXPECT_EQ(heap.end(), heapUnit + 100);
    EXPECT_EQ(heap.liveUnits(), 20U);
    EXPECT_EQ(horizon(), 0U);
    const std::set<std::uint32_t> twenty{heap.take(20), heap.take(20)};
    EXPECT_EQ(horizon(), sealedHorizon(8));
    EXPECT_EQ(twenty, (std::set<std::uint32_t>{heapUnit, heapUnit + 30}));
    EXPECT_EQ(heap.take(40), heapUnit + 60);
    EXPECT_EQ(heap.take(1), heapUnit + 100);
}

} // namespace

} // namespace TableHeapTest
