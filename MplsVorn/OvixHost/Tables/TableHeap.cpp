#include "Tables/TableHeap.h"

#include <algorithm>
#include <cassert>
#include <limits>
#include <stdexcept>

namespace Tessel {

using namespace TableLayout;

void TableHeap::recover(std::vector<Block> reached, std::uint32_t end,
                        std::uint64_t lastReachedBy) {
    std::sort(reached.begin(), reached.end(),
              [](const Block& a, const Block& b) { return a.unit < b.unit; });
    assert(end >= heapUnit);
    reached.push_back({end, 0});
    end_ = end;
    live_ = 0;
    Retired gaps{lastReachedBy, Clock::now(), {}, 0};
    std::uint32_t from = heapUnit;
    for (const Block& block : reached) {
        if (block.unit > from) {
            gaps.blocks.push_back({from, block.unit - from});
            gaps.units += block.unit - from;
        }
        from = std::max(from, block.unit + block.units);
        live_ += block.units;
    }
    assert(from == end);
    retiredUnits_ = gaps.units;
    retired_.push_back(std::move(gaps));
}

std::uint32_t TableHeap::take(std::uint32_t units) {
    assert(units > 0);
    const std::uint32_t unit = takeAnywhere(units);
    if (unit >= new_.size()) {
        new_.resize(std::max<std::size_t>(unit + std::size_t{1}, new_.size() * 2));
    }
    new_[unit] = true;
    taken_.push_back({unit, units});
    live_ += units;
    return unit;
}

// Small room is cut up only when nothing else is left, since a page or record of its size will want
// it again.
std::uint32_t TableHeap::takeAnywhere(std::uint32_t units) {
    const std::uint32_t large = std::max<std::uint32_t>(units, directoryUnits) + 1;
    std::uint32_t unit = 0;
    if (takeExact(units, unit) || takeFree(large, units, unit)) {
        return unit;
    }
    if (reuse(false) && (takeExact(units, unit) || takeFree(large, units, unit))) {
        return unit;
    }
    // The heap does not grow for want of joining what is free.
    if (freeUnits_ > joinBeyond_) {
        join();
        joinBeyond_ = std::max(joinBeyondAtLeast, 2 * freeUnits_);
        if (takeExact(units, unit) || takeFree(large, units, unit)) {
            return unit;
        }
    }
    if (takeFromEnd(units, unit) || takeFree(units, units, unit)) {
        return unit;
    }
    do {
        join();
        if (takeFree(units, units, unit)) {
            return unit;
        }
    } while (reuse(true));
    const bool hasAddresses = (std::size_t{end_} + units) * unitBytes <= memory_->bytes().size();
    throw std::length_error(hasAddresses ? "no memory is left for the tables: the file system of "
                                           "shared memory is full"
                                         : "the tables are full");
}

/// Makes one of free blocks that stand side by side.
void TableHeap::join() {
    std::vector<Block> all;
    for (const auto& [units, blocks] : free_) {
        for (const std::uint32_t unit : blocks) {
            all.push_back({unit, units});
        }
    }
    std::sort(all.begin(), all.end(),
              [](const Block& a, const Block& b) { return a.unit < b.unit; });
    free_.clear();
    freeUnits_ = 0;
    for (std::size_t i = 0; i < all.size();) {
        Block joined = all[i++];
        while (i < all.size() && all[i].unit == joined.unit + joined.units) {
            joined.units += all[i++].units;
        }
        free(joined);
    }
}

bool TableHeap::takeExact(std::uint32_t units, std::uint32_t& unit) {
    const auto same = free_.find(units);
    if (same == free_.end() || same->second.empty()) {
        return false;
    }
    unit = same->second.back();
    same->second.pop_back();
    freeUnits_ -= units;
    return true;
}

bool TableHeap::takeFree(std::uint32_t atLeast, std::uint32_t units, std::uint32_t& unit) {
    auto found = free_.lower_bound(atLeast);
    while (found != free_.end() && found->second.empty()) {
        found = free_.erase(found);
    }
    if (found == free_.end()) {
        return false;
    }
    unit = found->second.back();
    found->second.pop_back();
    assert(found->first >= units);
    const std::uint32_t rest = found->first - units;
    freeUnits_ -= found->first;
    if (rest > 0) {
        free({unit + units, rest});
    }
    return true;
}

bool TableHeap::takeFromEnd(std::uint32_t units, std::uint32_t& unit) {
    const std::uint64_t newEnd = std::uint64_t{end_} + units;
    if (newEnd > std::numeric_limits<std::uint32_t>::max() ||
        newEnd * unitBytes > memory_->bytes().size() || !memory_->ensure(newEnd * unitBytes)) {
        return false;
    }
    unit = end_;
    end_ = static_cast<std::uint32_t>(newEnd);
    return true;
}

/// Frees what went longest ago, after the readers that may be reading it have been warned; false
/// when there was nothing to free.
bool TableHeap::reuse(bool whateverItsAge) {
    if (retired_.empty()) {
        return false;
    }
    assert(retiredUnits_ > 0 || retired_.front().units == 0);
    const Clock::time_point now = Clock::now();
    auto* header = reinterpret_cast<TableHeader*>(memory_->bytes().data());
    bool freed = false;
    while (!retired_.empty()) {
        const Retired& oldest = retired_.front();
        const bool due = now - oldest.at >= kept_ || retiredUnits_ > keptUnits;
        if (!due && (!whateverItsAge || freed)) {
            break;
        }
        const std::uint64_t horizon = oldest.lastReachedBy + 1;
        if (horizon > load(header->horizon) >> 16U) {
            store(header->horizon, sealedHorizon(horizon));
        }
        for (const Block& block : oldest.blocks) {
            free(block);
        }
        retiredUnits_ -= oldest.units;
        retired_.pop_front();
        freed = true;
    }
    return freed;
}

void TableHeap::release(std::uint32_t unit, std::uint32_t units) {
    assert(live_ >= units);
    live_ -= units;
    if (isNew(unit)) {
        new_[unit] = false;
        free({unit, units});
    } else {
        released_.push_back({unit, units});
    }
}

void TableHeap::committed(std::uint64_t generation) {
    for (const Block& block : taken_) {
        new_[block.unit] = false;
    }
    taken_.clear();
    if (released_.empty()) {
        return;
    }
    std::uint64_t units = 0;
    for (const Block& block : released_) {
        units += block.units;
    }
    assert(retired_.empty() || retired_.back().lastReachedBy <= generation);
    retired_.push_back({generation, Clock::now(), std::move(released_), units});
    retiredUnits_ += units;
    released_.clear();
}

// The same unit may have been taken, released and taken again as something smaller: the last one
// says how large it is.
void TableHeap::discarded() {
    for (auto block = taken_.rbegin(); block != taken_.rend(); ++block) {
        if (new_[block->unit]) {
            new_[block->unit] = false;
            free(*block);
            live_ -= block->units;
        }
    }
    taken_.clear();
    for (const Block& block : released_) {
        live_ += block.units;
    }
    released_.clear();
}

} // namespace Tessel
