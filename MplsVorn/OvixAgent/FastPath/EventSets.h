#pragma once

#include <cassert>
#include <cstdint>
#include <optional>
#include <string>
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
    void count(std::uint16_t set) {
        if (set != counted_) {
            settle();
            counted_ = set;
        }
        ++times_;
    }
    void settle();

  private:
    /// One event, how often it follows itself. Its counter comes into being with the first count.
    struct Event {
        const Ovix::OvixNamedCounters::Counter* name;
        std::uint64_t times;
        Ovix::OvixNamedCounters::Counter* counter;

        Ovix::CounterKey key() const noexcept {
            return {name->category, name->module, name->reason};
        }
    };
    static constexpr std::size_t most = 4096;

    std::uint16_t counted_ = none; ///< last, and how often since settle()
    std::uint64_t times_ = 0;

    Ptr<Ovix::OvixNamedCounters> counters_;
    std::vector<std::vector<Event>> sets_;
    Tessel::FlatMap<std::uint16_t> byHash_;
};

} // namespace OvixAgent
