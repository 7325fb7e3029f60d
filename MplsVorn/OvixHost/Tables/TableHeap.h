#pragma once

#include <cassert>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <vector>

#include "Tables/TableLayout.h"
#include "Tables/TableMemory.h"

namespace Tessel {

/// Allocates the room of a set of tables, in units, for its one writer. What readers may still be
/// reading is allocated again only after a while, and after the horizon has been raised above it.
class TableHeap {
  public:
    using Clock = std::chrono::steady_clock;

    /// How long what is no longer reachable is kept from being used again, so that a reader that
    /// holds a generation that long need not start again; ...
    static constexpr std::chrono::milliseconds keptFor{100};
    /// ... except beyond so many units of it.
    static constexpr std::uint64_t keptUnits = (std::uint64_t{32} << 20U) / TableLayout::unitBytes;

    struct Block {
        std::uint32_t unit;
        std::uint32_t units;
    };

    TableHeap(TableMemory& memory, std::chrono::milliseconds kept)
        : memory_(&memory), kept_(kept) {}

    std::uint32_t end() const noexcept { return end_; }
    std::uint64_t liveUnits() const noexcept { return live_; }

    /// Starts over with what the newest generation reaches; everything else below `end` is room
    /// that generations up to `lastReachedBy` may reach.
    void recover(std::vector<Block> reached, std::uint32_t end, std::uint64_t lastReachedBy);

    /// Throws std::length_error when there is no room.
    std::uint32_t take(std::uint32_t units);
    /// Releases what was taken; at once if it has never been visible, else with the next commit.
    void release(std::uint32_t unit, std::uint32_t units);
    bool isNew(std::uint32_t unit) const noexcept { return unit < new_.size() && new_[unit]; }

    /// What was taken since the last commit is visible from now on, and what was released is not:
    /// `generation` was the last one that reached it.
    void committed(std::uint64_t generation);
    /// What was taken since the last commit is free, and what was released is not.
    void discarded();

  private:
    /// Blocks that went with the same commit.
    struct Retired {
        std::uint64_t lastReachedBy;
        Clock::time_point at;
        std::vector<Block> blocks;
        std::uint64_t units;
    };

    std::uint32_t takeAnywhere(std::uint32_t units);
    bool takeExact(std::uint32_t units, std::uint32_t& unit);
    bool takeFree(std::uint32_t atLeast, std::uint32_t units, std::uint32_t& unit);
    bool takeFromEnd(std::uint32_t units, std::uint32_t& unit);
    void free(Block block) {
        assert(block.units > 0);
        free_[block.units].push_back(block.unit);
        freeUnits_ += block.units;
    }
    void join();
    bool reuse(bool whateverItsAge);

    TableMemory* memory_;
    std::chrono::milliseconds kept_;
    static constexpr std::uint64_t joinBeyondAtLeast = std::uint64_t{1} << 20U;

    std::map<std::uint32_t, std::vector<std::uint32_t>> free_; ///< units by size
    std::uint64_t freeUnits_ = 0;
    std::uint64_t joinBeyond_ = joinBeyondAtLeast; ///< so many free units are worth it
    std::deque<Retired> retired_;                  ///< oldest first
    std::uint64_t retiredUnits_ = 0;
    std::vector<Block> taken_;    ///< since the last commit; what was released is no longer new
    std::vector<Block> released_; ///< since the last commit
    std::vector<bool> new_;       ///< by unit: taken since the last commit
    std::uint32_t end_ = TableLayout::heapUnit;
    std::uint64_t live_ = 0;
};

} // namespace Tessel
