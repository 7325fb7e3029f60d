#include <algorithm>
#include <map>

#include "ShmTesting.h"

namespace TableHeapModelTest {

namespace {

using namespace ShmTesting;
using Tessel::TableHeap;
using Tessel::TableLayout::heapUnit;

/// Batches at random, checked against a book of what is in use and of what somebody may still be
/// reading.
class HeapBook {
  public:
    void step() {
        const std::uint32_t what = random_.below(100);
        if (what < 50) {
            take(random_.below(20) == 0 ? 1024 : 5 + random_.below(30));
        } else if (what < 95) {
            releaseOne();
        } else if (what < 99) {
            commit();
        } else {
            discard();
        }
        std::uint64_t live = 0;
        for (const auto& [unit, use] : used_) {
            live += use.units;
        }
        ASSERT_EQ(heap_.liveUnits(), live);
        mostUsed_ = std::max(mostUsed_, live);
    }

    std::uint64_t mostUsed() const { return mostUsed_; }
    std::uint64_t end() const { return heap_.end() - heapUnit; }

  private:
    struct Use {
        std::uint32_t units;
        std::uint64_t generation; ///< that it came or went with; 0: not yet visible
    };
    using Book = std::map<std::uint32_t, Use>; ///< by unit

    static bool overlaps(const Book& book, std::uint32_t unit, std::uint32_t units) {
        const auto next = book.upper_bound(unit);
        if (next != book.end() && next->first < unit + units) {
            return true;
        }
        return next != book.begin() &&
               std::prev(next)->first + std::prev(next)->second.units > unit;
    }

    void take(std::uint32_t units) {
        const std::uint32_t unit = heap_.take(units);
        ASSERT_FALSE(overlaps(used_, unit, units));
        ASSERT_FALSE(overlaps(releasing_, unit, units));
        const std::uint64_t horizon = headerOf(memory_.bytes()).horizon >> 16U;
        for (auto old = gone_.begin(); old != gone_.end();) {
            const bool taken = old->first < unit + units && unit < old->first + old->second.units;
            if (taken) {
                ASSERT_GT(horizon, old->second.generation);
            }
            old = taken ? gone_.erase(old) : std::next(old);
        }
        used_[unit] = {units, 0};
    }
    void releaseOne() {
        if (used_.empty()) {
            return;
        }
        auto chosen = used_.lower_bound(heapUnit + random_.below(heap_.end() - heapUnit));
        chosen = chosen == used_.end() ? used_.begin() : chosen;
        heap_.release(chosen->first, chosen->second.units);
        if (chosen->second.generation != 0) {
            releasing_.insert(*chosen);
        }
        used_.erase(chosen);
    }
    void commit() {
        heap_.committed(generation_);
        for (const auto& [unit, use] : releasing_) {
            gone_[unit] = {use.units, generation_};
        }
        ++generation_;
        for (auto& [unit, use] : used_) {
            use.generation = generation_;
        }
        releasing_.clear();
    }
    void discard() {
        heap_.discarded();
        used_.merge(releasing_);
        releasing_.clear();
        std::erase_if(used_, [](const auto& use) { return use.second.generation == 0; });
    }

    Random random_;
    Tessel::TableMemory memory_ = Tessel::TableMemory::ofProcess(enough);
    TableHeap heap_{memory_, std::chrono::milliseconds(0)};
    std::uint64_t generation_ = 1;
    std::uint64_t mostUsed_ = 0;
    Book used_;
    Book releasing_; ///< in the batch being made
    Book gone_;      ///< by generation that last reached it
};

TEST(HeapModel, NeverGivesOutWhatSomebodyMayBeReadingAndStaysSmall) {
    HeapBook book;
    for (int i = 0; i < 40000 && !testing::Test::HasFatalFailure(); ++i) {
        book.step();
    }
    EXPECT_LT(book.end(), 4 * book.mostUsed());
}

} // namespace

} // namespace TableHeapModelTest
