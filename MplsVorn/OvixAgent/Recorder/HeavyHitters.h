#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace OvixAgent {

/// The keys that were counted most of late, of however many there are. They lie in sets of eight,
/// by their hash; in a set that is full, the key counted least makes room for another and leaves it
/// its weight ("space-saving", Metwally, Agrawal and El Abbadi 2005). A flood of keys that come
/// once displaces none that comes often. Takes nothing from the heap.
template <typename Key, typename Hash>
class HeavyHitters {
  public:
    struct Entry {
        Key key{};
        std::uint64_t count = 0;    ///< since the key is kept; 0: the entry is free
        std::uint32_t current = 0;  ///< of them in the present second,
        std::uint32_t previous = 0; ///< and in the one before
        std::uint32_t weight = 0;   ///< halves with each second
    };

    /// `second` does not decrease.
    void add(const Key& key, std::uint32_t times, std::int64_t second) noexcept {
        if (second > second_) [[unlikely]] {
            age(second);
        }
        Set& set = sets_[Hash()(key) % sets_.size()];
        Entry* least = &set.front();
        for (Entry& entry : set) {
            if (entry.count > 0 && entry.key == key) {
                count(entry, times);
                return;
            }
            if (isLess(entry, *least)) {
                least = &entry;
            }
        }
        *least = {key, 0, 0, 0, least->weight};
        count(*least, times);
    }

    /// Takes back so many of those of the key, if it is kept.
    void remove(const Key& key, std::uint32_t times) noexcept {
        for (Entry& entry : sets_[Hash()(key) % sets_.size()]) {
            if (entry.count > 0 && entry.key == key) {
                entry.count -= std::min<std::uint64_t>(entry.count, times);
                entry.current -= std::min(entry.current, times);
                entry.weight -= std::min(entry.weight, times);
            }
        }
    }

    /// What came most often of late first; their seconds are those at `second`.
    std::vector<Entry> top(std::size_t most, std::int64_t second) const {
        HeavyHitters aged = *this;
        aged.age(std::max(second, second_));
        std::vector<Entry> all;
        for (const Set& set : aged.sets_) {
            std::copy_if(set.begin(), set.end(), std::back_inserter(all),
                         [](const Entry& entry) { return entry.count > 0; });
        }
        std::stable_sort(all.begin(), all.end(), [](const Entry& a, const Entry& b) {
            const std::uint64_t recentA = std::uint64_t{a.current} + a.previous;
            const std::uint64_t recentB = std::uint64_t{b.current} + b.previous;
            return recentA != recentB ? recentA > recentB : a.count > b.count;
        });
        all.resize(std::min(all.size(), most));
        return all;
    }

  private:
    using Set = std::array<Entry, 8>;
    static constexpr std::size_t sets = 64;

    static void count(Entry& entry, std::uint32_t times) noexcept {
        entry.count += times;
        entry.current += times;
        entry.weight += times;
    }
    static bool isLess(const Entry& a, const Entry& b) noexcept {
        return std::pair(a.weight, a.count) < std::pair(b.weight, b.count);
    }
    void age(std::int64_t second) noexcept {
        const auto passed = static_cast<std::uint64_t>(second - second_);
        second_ = second;
        if (passed == 0) {
            return;
        }
        for (Set& set : sets_) {
            for (Entry& entry : set) {
                entry.previous = passed == 1 ? entry.current : 0;
                entry.current = 0;
                entry.weight = passed < 32 ? entry.weight >> passed : 0;
            }
        }
    }

    std::array<Set, sets> sets_{};
    std::int64_t second_ = 0;
};

} // namespace OvixAgent
