#include "FastPath/EventSets.h"

#include <utility>

namespace OvixAgent {

void EventCounts::turnTo(std::uint16_t set) {
    settle();
    counted_ = set;
    if (set >= of_.size()) {
        of_.resize(set + std::size_t{1});
    }
    findOnly();
}

void EventCounts::findOnly() noexcept {
    const std::vector<Counter*>& counters = of_[counted_];
    only_ = counters.size() == 1 ? counters.front() : nullptr;
    onlyTimes_ = only_ != nullptr ? (*sets_)[counted_].front().times : 0;
}

// A counter comes into being with the first count.
void EventCounts::settleAll() {
    const std::vector<EventSets::Event>& events = (*sets_)[counted_];
    std::vector<Counter*>& counters = of_[counted_];
    for (std::size_t i = 0; i < events.size(); ++i) {
        if (i == counters.size()) {
            const Counter& name = *events[i].name;
            counters.push_back(&counters_->counter({name.category, name.module, name.reason}));
        }
        counters[i]->count += events[i].times * times_;
    }
    times_ = 0;
    findOnly();
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
    std::vector<Event>& set = sets_.emplace_back();
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
