#pragma once

#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Tessel/Ptr.h"
#include "Tessel/TypeName.h"

namespace Ovix {

/// Names a counter: category, module, reason. The hash is part of the key, so that a key declared
/// constexpr costs the frame path no hashing.
struct CounterKey {
    constexpr CounterKey(std::string_view categoryText, std::string_view moduleText,
                         std::string_view reasonText) noexcept
        : category(categoryText), module(moduleText), reason(reasonText),
          hash(Tessel::hashText(reasonText,
                                Tessel::hashText(moduleText, Tessel::hashText(categoryText)))) {}

    std::string_view category;
    std::string_view module;
    std::string_view reason;
    std::uint64_t hash;
};

/// How a counter reads to people, who do not see the "%s" that its reason has for each value.
struct EventText {
    std::string category;
    std::string reason;
};
EventText readableEvent(std::string_view category, std::string_view reason);

/// The agent's named counters: one count per (category, module, reason). Counting allocates only
/// when a name is counted for the first time.
class OvixNamedCounters : public Tessel::Counted {
  public:
    struct Counter {
        std::string category;
        std::string module;
        std::string reason;
        std::uint64_t hash = 0;
        std::uint64_t count = 0;
        bool isLookup = false; ///< a label was looked up and not found, which ends no frame
    };

    OvixNamedCounters();

    [[gnu::always_inline]] void count(const CounterKey& key) {
        Counter* counter = find(key);
        if (counter == nullptr) [[unlikely]] {
            counter = &add(key);
        }
        ++counter->count;
        last_ = counter->isLookup ? last_ : counter;
        if (perFrame_) [[likely]] {
            ofFrame_.push_back(counter);
        }
    }
    /// The counter of that name, created if absent; it stays where it is.
    Counter& counter(const CounterKey& key) {
        Counter* const found = find(key);
        return found != nullptr ? *found : add(key);
    }
    void count(std::string_view category, std::string_view module, std::string_view reason) {
        count(CounterKey(category, module, reason));
    }

    /// The most values of one reason that have a counter each.
    static constexpr std::size_t mostValues = 256;
    /// Counts a reason that has a value, which whoever sends the frames may choose: `reason` is
    /// that of `all` with its values in the place of "%s". Values beyond `mostValues` are counted
    /// together, under `all`.
    void countValue(const CounterKey& all, std::string_view reason);

    /// 0 for a name never counted.
    std::uint64_t value(std::string_view category, std::string_view module,
                        std::string_view reason) const;

    /// In order of first count.
    const std::deque<Counter>& counters() const noexcept { return counters_; }

    /// Sets the counts in that order; those of the counters behind them to 0.
    void countsAre(const std::vector<std::uint64_t>& counts) noexcept;

    /// Counts what `other` has counted, which then starts over at 0.
    void absorb(OvixNamedCounters& other);

    /// The counter counted last since `forgetLast`, lookups that missed apart, or null: what
    /// happened to the current frame.
    const Counter* last() const noexcept { return last_; }
    /// To be called before each frame, or never.
    void forgetLast() noexcept {
        last_ = nullptr;
        perFrame_ = true;
        ofFrame_.clear();
    }
    /// What has been counted since `forgetLast`, in order; good until it is called again.
    const std::vector<Counter*>& ofFrame() const noexcept { return ofFrame_; }
    /// What has been counted so far is not what happens to the frame.
    void passLast() noexcept { last_ = nullptr; }
    /// Takes back what has been counted since `forgetLast`: the frame will be routed again.
    void takeBack() noexcept;

  private:
    // Names are distinguished by their 64-bit hash alone: no outsider chooses them.
    [[gnu::always_inline]] Counter* find(const CounterKey& key) const noexcept {
        Counter* const* slots = slots_.data();
        std::size_t at = key.hash & mask_;
        while (slots[at] != nullptr && slots[at]->hash != key.hash) {
            at = (at + 1) & mask_;
        }
        return slots[at];
    }
    Counter& add(const CounterKey& key);
    void insert(Counter& counter) noexcept;

    std::deque<Counter> counters_;
    std::vector<Counter*> slots_; ///< open addressing, a power of two, at most half full
    std::size_t mask_ = 0;        ///< the number of slots, less 1
    /// How many values of a reason have a counter, by the reason's hash.
    std::vector<std::pair<std::uint64_t, std::size_t>> values_;
    const Counter* last_ = nullptr;
    bool perFrame_ = false;         ///< `forgetLast` is called
    std::vector<Counter*> ofFrame_; ///< counted since then
};

} // namespace Ovix
