#include "FastPath/EventSets.h"

#include <utility>

namespace OvixAgent {

EventSets::EventSets(Ptr<Ovix::OvixNamedCounters> counters)
    : counters_(std::move(counters)), sets_(1) {}

// A counter comes into being with the first count.
void EventSets::settleAll(Set& set) {
    for (Event& event : set.events) {
        if (event.counter == nullptr) {
            event.counter =
                &counters_->counter({event.name->category, event.name->module, event.name->reason});
        }
        event.counter->count += event.times * times_;
    }
    times_ = 0;
    if (set.events.size() == 1) {
        set.only = set.events.front().counter;
        set.times = set.events.front().times;
    }
}

std::optional<std::uint16_t> EventSets::setOf(const Ovix::LabelDecision::Events& events) {
    if (events.empty()) {
        return none;
    }
    std::uint64_t hash = 0;
    for (const Ovix::OvixNamedCounters::Counter* event : events) {
        hash = (hash ^ event->hash) * 0x9e3779b97f4a7c15 + 1;
    }
    if (const std::uint16_t* known = byHash_.find(hash)) {
        return *known;
    }
    if (sets_.size() == most) {
        return std::nullopt;
    }
    std::vector<Event>& set = sets_.emplace_back().events;
    for (const Ovix::OvixNamedCounters::Counter* event : events) {
        if (!set.empty() && set.back().name->hash == event->hash) {
            ++set.back().times;
        } else {
            set.push_back({event, 1});
        }
    }
    return byHash_[hash] = static_cast<std::uint16_t>(sets_.size() - 1);
}

} // namespace OvixAgent
