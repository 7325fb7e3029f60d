#pragma once

#include <cassert>
#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

#include "Ovix/routing/LabelDecision.h"
#include "Ovix/trace/NamedCounters.h"
#include "Tessel/FlatMap.h"

namespace OvixAgent {

/// Events that are counted together, each set once and by number.
class EventSets {
  public:
    static constexpr std::uint16_t none = 0; ///< the set of no events

    struct Event {
        const Ovix::OvixNamedCounters::Counter* name;
        std::uint64_t times; ///< how often it follows itself
    };

    /// Unset when there are too many different sets.
    std::optional<std::uint16_t> setOf(const Ovix::LabelDecision::Events& events);
    const std::vector<Event>& operator[](std::uint16_t set) const noexcept { return sets_[set]; }

  private:
    static constexpr std::size_t most = 4096;

    std::vector<std::vector<Event>> sets_{1};
    Tessel::FlatMap<std::uint16_t> byHash_;
};

/// Counts sets of events, for one thread.
class EventCounts {
  public:
    /// The sets must outlive it.
    EventCounts(const EventSets& sets, Ptr<Ovix::OvixNamedCounters> counters)
        : sets_(&sets), counters_(std::move(counters)) {}

    /// Counts once; to be seen after settle().
    [[gnu::always_inline]] void count(std::uint16_t set) {
        if (!takesNext(set)) [[unlikely]] {
            turnTo(set);
        }
        countNext();
    }
    /// Whether the set is that which was counted last.
    [[gnu::always_inline]] bool takesNext(std::uint16_t set) const noexcept {
        return set == counted_;
    }
    /// Counts the set once that was counted last.
    [[gnu::always_inline]] void countNext() noexcept { ++times_; }
    [[gnu::noinline]] void turnTo(std::uint16_t set);

    [[gnu::always_inline]] void settle() {
        if (times_ == 0) {
            return;
        }
        if (only_ != nullptr) [[likely]] {
            only_->count += times_ * onlyTimes_;
            times_ = 0;
        } else {
            settleAll();
        }
    }

  private:
    using Counter = Ovix::OvixNamedCounters::Counter;

    [[gnu::noinline]] void settleAll();
    void findOnly() noexcept;

    const EventSets* sets_;
    std::uint16_t counted_ = EventSets::none; ///< last, and how often since settle()
    std::uint64_t times_ = 0;
    /// Of that set if it is of one event and has been counted before: its counter and times.
    Counter* only_ = nullptr;
    std::uint64_t onlyTimes_ = 0;
    Ptr<Ovix::OvixNamedCounters> counters_;
    /// Of each set's events; none until the set is first counted.
    std::vector<std::vector<Counter*>> of_{1};
};

} // namespace OvixAgent
