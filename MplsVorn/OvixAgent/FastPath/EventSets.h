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

    explicit EventSets(Ptr<Ovix::OvixNamedCounters> counters);

    /// Unset when there are too many different sets.
    std::optional<std::uint16_t> setOf(const Ovix::LabelDecision::Events& events);

    /// Counts once; to be seen after settle().
    [[gnu::always_inline]] void count(std::uint16_t set) {
        if (set != counted_) [[unlikely]] {
            change(set);
        }
        ++times_;
    }
    void settle() {
        if (times_ > 0) {
            Set& set = sets_[counted_];
            if (set.only != nullptr) [[likely]] {
                set.only->count += set.times * std::exchange(times_, 0);
            } else {
                settleAll(set);
            }
        }
    }

  private:
    struct Event {
        const Ovix::OvixNamedCounters::Counter* name;
        std::uint64_t times;                                 ///< how often it follows itself
        Ovix::OvixNamedCounters::Counter* counter = nullptr; ///< null until first counted
    };
    struct Set {
        std::vector<Event> events;
        /// Of a set of one event that has been counted: its counter and times; else null.
        Ovix::OvixNamedCounters::Counter* only = nullptr;
        std::uint64_t times = 0;
    };
    static constexpr std::size_t most = 4096;

    [[gnu::noinline]] void change(std::uint16_t set) {
        settle();
        counted_ = set;
    }
    void settleAll(Set& set);

    std::uint16_t counted_ = none; ///< last, and how often since settle()
    std::uint64_t times_ = 0;
    Ptr<Ovix::OvixNamedCounters> counters_;
    std::vector<Set> sets_;
    Tessel::FlatMap<std::uint16_t> byHash_;
};

} // namespace OvixAgent
