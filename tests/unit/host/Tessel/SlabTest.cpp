#include "Tessel/Slab.h"

#include <cstdint>
#include <gtest/gtest.h>
#include <memory>
#include <set>
#include <thread>
#include <vector>

#include "HeapCount.h"
#include "Tessel/Ptr.h"

namespace SlabTest {

namespace {

using namespace Tessel;

class SlabTest : public ::testing::Test {
  protected:
    void SetUp() override {
        if (TestSupport::slabsFromHeap) {
            GTEST_SKIP() << "objects come from the heap under the address sanitizer";
        }
    }
};

// Each test has a type, hence a slab, of its own.

TEST_F(SlabTest, UsesAReturnedBlockNext) {
    struct Block : Slabbed<Block> {
        std::uint64_t content = 1;
    };
    auto first = std::make_unique<Block>();
    const void* at = first.get();
    first.reset();
    const auto second = std::make_unique<Block>();
    EXPECT_EQ(second.get(), at);
}

TEST_F(SlabTest, TracksWhatIsInUseAndWhatTheHeapGave) {
    struct Block : Slabbed<Block> {
        std::uint64_t content[8] = {};
    };
    const auto tracker = [] { return Block::memAllocationTracker(); };
    EXPECT_EQ(tracker().objectsInUse, 0);
    EXPECT_EQ(tracker().chunksFromHeap, 0U);
    std::vector<std::unique_ptr<Block>> blocks;
    for (int i = 0; i < 1000; ++i) {
        blocks.push_back(std::make_unique<Block>());
        EXPECT_EQ(tracker().objectsInUse, i + 1);
    }
    const std::uint64_t chunks = tracker().chunksFromHeap;
    EXPECT_GT(chunks, 1U);
    EXPECT_LT(chunks, 10U);
    blocks.clear();
    EXPECT_EQ(tracker().objectsInUse, 0);
    for (int i = 0; i < 1000; ++i) {
        blocks.push_back(std::make_unique<Block>());
    }
    EXPECT_EQ(tracker().chunksFromHeap, chunks);
}

template <typename Block>
void expectBlocksApart() {
    std::vector<std::unique_ptr<Block>> blocks;
    std::set<std::uintptr_t> addresses;
    for (int i = 0; i < 3000; ++i) {
        blocks.push_back(std::make_unique<Block>());
        const auto at = reinterpret_cast<std::uintptr_t>(blocks.back().get());
        EXPECT_EQ(at % alignof(Block), 0U);
        addresses.insert(at);
    }
    std::uintptr_t end = 0;
    for (const std::uintptr_t at : addresses) {
        EXPECT_GE(at, end);
        end = at + sizeof(Block);
    }
    EXPECT_EQ(addresses.size(), blocks.size());
}

TEST_F(SlabTest, HandsOutAlignedBlocksThatDoNotOverlap) {
    struct Tiny : Slabbed<Tiny> {
        char content;
    };
    struct Odd : Slabbed<Odd> {
        char content[37];
    };
    struct alignas(64) Line : Slabbed<Line> {
        char content[65];
    };
    expectBlocksApart<Tiny>();
    expectBlocksApart<Odd>();
    expectBlocksApart<Line>();
}

TEST_F(SlabTest, HoldsTypesLargerThanAChunk) {
    struct Huge : Slabbed<Huge> {
        char content[100000];
    };
    auto first = std::make_unique<Huge>();
    auto second = std::make_unique<Huge>();
    first->content[99999] = 'a';
    second->content[0] = 'b';
    EXPECT_EQ(first->content[99999], 'a');
    EXPECT_EQ(Huge::memAllocationTracker().chunksFromHeap, 2U);
}

TEST_F(SlabTest, LeavesALargerDescendantToTheHeap) {
    struct Base : Counted, Slabbed<Base> {};
    struct Larger : Base {
        char content[100] = {};
    };
    {
        const Ptr<Base> object = make<Larger>();
        EXPECT_EQ(Base::memAllocationTracker().objectsInUse, 0);
        const Ptr<Base> own = make<Base>();
        EXPECT_EQ(Base::memAllocationTracker().objectsInUse, 1);
    }
    EXPECT_EQ(Base::memAllocationTracker().objectsInUse, 0);
}

TEST_F(SlabTest, TakesTheBlockBackWhenAConstructorThrows) {
    struct Refusing : Slabbed<Refusing> {
        Refusing() { throw 1; }
        std::uint64_t content = 0;
    };
    EXPECT_THROW(std::make_unique<Refusing>(), int);
    EXPECT_EQ(Refusing::memAllocationTracker().objectsInUse, 0);
}

TEST_F(SlabTest, ABlockReturnedByAnotherThreadJoinsThatThreadsList) {
    struct Block : Slabbed<Block> {
        std::uint64_t content = 1;
    };
    auto handedOver = std::make_unique<Block>();
    const void* at = handedOver.get();
    std::int64_t thereAfter = 0;
    const void* nextThere = nullptr;
    std::thread other([&] {
        handedOver.reset();
        thereAfter = Block::memAllocationTracker().objectsInUse;
        nextThere = std::make_unique<Block>().get();
    });
    other.join();
    EXPECT_EQ(nextThere, at);
    const std::int64_t here = Block::memAllocationTracker().objectsInUse;
    EXPECT_EQ(here, 1);
    EXPECT_EQ(here + thereAfter, 0);
    const auto next = std::make_unique<Block>();
    EXPECT_NE(next.get(), at);
}

TEST_F(SlabTest, ThreadsTakeAndReturnAtTheSameTime) {
    struct Block : Counted, Slabbed<Block> {
        std::uint64_t content = 0;
    };
    const auto churn = [](std::uint64_t mark) {
        std::vector<std::unique_ptr<Block>> blocks;
        for (std::uint64_t i = 0; i < 20000; ++i) {
            blocks.push_back(std::make_unique<Block>());
            blocks.back()->content = mark;
            if (blocks.size() == 100) {
                for (const auto& block : blocks) {
                    ASSERT_EQ(block->content, mark);
                }
                blocks.clear();
            }
        }
    };
    std::thread other(churn, 1);
    churn(2);
    other.join();
    EXPECT_EQ(Block::memAllocationTracker().objectsInUse, 0);
}

} // namespace

} // namespace SlabTest
