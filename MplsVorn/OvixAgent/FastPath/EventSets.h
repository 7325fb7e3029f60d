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
        if (set != counted_) [[unlikely]] {
            change(set);
        }
        ++times_;
    }
    void settle() {
        if (times_ > 0) {
            settleSome();
        }
    }

  private:
    using Counter = Ovix::OvixNamedCounters::Counter;
    struct Counted {
        std::vector<Counter*> counters; ///< of the events; empty until first counted
        /// Of a set of one event that has been counted: its counter and times; else null.
        Counter* only = nullptr;
        std::uint64_t times = 0;
    };

    [[gnu::noinline]] void change(std::uint16_t set);
    void settleSome() {
        Counted& set = counted(counted_);
        if (set.only != nullptr) [[likely]] {
            set.only->count += set.times * std::exchange(times_, 0);
        } else {
            settleAll(set);
        }
    }
    Counted& counted(std::uint16_t set) noexcept { return of_[set]; }
    void settleAll(Counted& set);

    const EventSets* sets_;
    std::uint16_t counted_ = EventSets::none; ///< last, and how often since settle()
    std::uint64_t times_ = 0;
    Ptr<Ovix::OvixNamedCounters> counters_;
    std::vector<Counted> of_{1}; ///< by set, up to the highest that was counted
};

} // namespace OvixAgent
