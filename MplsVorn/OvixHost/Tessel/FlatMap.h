#pragma once

#include <cstdint>
#include <utility>
#include <vector>

#include "Tessel/Exceptions.h"

namespace Tessel {

/// A hash map from 64-bit keys to small values in one array (linear probing, at most four fifths
/// full), so that a lookup costs one cache line. The all-ones key is reserved: inserting it throws
/// RangeError. References to values are good until the next insertion or removal.
template <typename Value>
class FlatMap {
  public:
    static constexpr std::uint64_t reservedKey = ~std::uint64_t{0};

    explicit FlatMap(std::uint64_t seed = 0x9e3779b97f4a7c15) noexcept : seed_(seed | 1U) {}
    FlatMap(const FlatMap&) = default;
    /// A map moved from is empty and as good as new.
    FlatMap(FlatMap&& other) noexcept : FlatMap() { swap(other); }
    FlatMap& operator=(FlatMap other) noexcept {
        swap(other);
        return *this;
    }
    ~FlatMap() = default;

    void swap(FlatMap& other) noexcept {
        std::swap(seed_, other.seed_);
        std::swap(size_, other.size_);
        slots_.swap(other.slots_);
    }

    std::size_t size() const noexcept { return size_; }
    bool empty() const noexcept { return size_ == 0; }
    std::size_t memoryBytes() const noexcept { return slots_.capacity() * sizeof(Slot); }

    /// Makes room for that many entries in all without growing again.
    void reserve(std::size_t entries) {
        const std::size_t needed = entries + entries / 4 + 1;
        if (needed > slots_.size()) {
            rehash(needed);
        }
    }

    const Value* find(std::uint64_t key) const noexcept {
        if (size_ == 0) {
            return nullptr;
        }
        const Slot& slot = slots_[slotFor(key)];
        return slot.key == key && key != reservedKey ? &slot.value : nullptr;
    }
    Value* find(std::uint64_t key) noexcept {
        return const_cast<Value*>(std::as_const(*this).find(key));
    }

    /// The value of the key, created if absent.
    Value& operator[](std::uint64_t key) {
        if (key == reservedKey) {
            throw RangeError("the all-ones key is reserved");
        }
        if (Value* found = find(key); found != nullptr) {
            return *found;
        }
        if ((size_ + 1) * 5 > slots_.size() * 4) {
            rehash(slots_.size() + slots_.size() / 2 + minimumSlots);
        }
        Slot& slot = slots_[slotFor(key)];
        slot.key = key;
        ++size_;
        return slot.value;
    }

    /// False when there was nothing to remove. Later entries of the probe run move up.
    bool erase(std::uint64_t key) noexcept {
        if (find(key) == nullptr) {
            return false;
        }
        std::size_t hole = slotFor(key);
        for (std::size_t at = next(hole); slots_[at].key != reservedKey; at = next(at)) {
            if (mayMove(home(slots_[at].key), hole, at)) {
                slots_[hole] = std::move(slots_[at]);
                hole = at;
            }
        }
        slots_[hole] = Slot();
        --size_;
        return true;
    }

    template <typename Visitor>
    void forEach(Visitor&& visitor) const {
        for (const Slot& slot : slots_) {
            if (slot.key != reservedKey) {
                visitor(slot.key, slot.value);
            }
        }
    }

  private:
    struct Slot {
        std::uint64_t key = reservedKey;
        Value value{};
    };
    static constexpr std::size_t minimumSlots = 16;

    // A multiplication spreads dense keys over the whole word; its upper part, scaled to the
    // number of slots, needs neither a division nor a power of two.
    std::size_t home(std::uint64_t key) const noexcept {
        const std::uint64_t hash = (key ^ (key >> 32U)) * seed_;
        __extension__ using Wide = unsigned __int128;
        return static_cast<std::size_t>((Wide{hash} * slots_.size()) >> 64U);
    }
    std::size_t next(std::size_t at) const noexcept { return at + 1 == slots_.size() ? 0 : at + 1; }

    /// The slot that holds the key, or the free one where it belongs.
    std::size_t slotFor(std::uint64_t key) const noexcept {
        std::size_t at = home(key);
        while (slots_[at].key != key && slots_[at].key != reservedKey) {
            at = next(at);
        }
        return at;
    }

    /// Whether an entry at `at` may fill the hole without leaving its probe run.
    static bool mayMove(std::size_t home, std::size_t hole, std::size_t at) noexcept {
        return hole <= at ? home <= hole || home > at : home <= hole && home > at;
    }

    void rehash(std::size_t slots) {
        std::vector<Slot> old(slots);
        old.swap(slots_);
        for (Slot& slot : old) {
            if (slot.key != reservedKey) {
                slots_[slotFor(slot.key)] = std::move(slot);
            }
        }
    }

    std::uint64_t seed_;
    std::size_t size_ = 0;
    std::vector<Slot> slots_;
};

} // namespace Tessel
