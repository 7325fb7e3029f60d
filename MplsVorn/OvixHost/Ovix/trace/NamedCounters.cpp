#include "Ovix/trace/NamedCounters.h"

#include <algorithm>
#include <cassert>
#include <iterator>

namespace Ovix {

namespace {

constexpr std::size_t initialSlots = 64;
constexpr std::string_view lookup = "Lookup";

/// The reasons that stand for values, as sentences. Most frames miss in the first tables: that is
/// no drop, whatever category it is counted in.
struct Reading {
    std::string_view reason;
    std::string_view text;
    std::string_view category; ///< empty: the counter's own
};
constexpr Reading readings[]{
    {"No via set in lfib %s for %s", "label not in this table (looked up in the next)", lookup},
    {"No via keys in lfib %s for %s", "label's route in this table has no via", lookup},
    {"More than 1 via key in lfib %s for %s", "label's route in this table has several via keys",
     lookup},
    {"No adjacency for label %s", "label's hardware route has no adjacency", lookup},
    {"No valid vias adjacency for label %s", "adjacency of the label's hardware route has no via",
     lookup},
    {"Via type %s handler not found", "No handler for the via's type", {}},
    {"Handler for multicast via %s returned inconsistent processing result",
     "Handlers of a multicast route's vias disagree",
     {}},
    {"Using first nexthop, but %s nexthops found",
     "Several next hops found (one is used, by a multicast tree all)",
     {}},
    {"no rewrite", "No rewrite for the via and the packet", {}},
    {"Lumo::MplsStackEntryIndex::value < Lumo::MplsStackEntryIndex::min or > "
     "Lumo::MplsStackEntryIndex::nullValue not allowed",
     "More known labels than are looked up (13)",
     {}},
    {"ttl for label %s is <= 1, trapping", "ttl for further labels is <= 1, trapping", {}},
    {"MvpnIntfStatus entry not found for vrf ID %s",
     "VRF without a provider-multicast interface",
     {}},
};

const Reading* readingOf(std::string_view reason) noexcept {
    const auto* found = std::find_if(std::begin(readings), std::end(readings),
                                     [&](const Reading& one) { return one.reason == reason; });
    return found != std::end(readings) ? found : nullptr;
}

} // namespace

EventText readableEvent(std::string_view category, std::string_view reason) {
    if (const Reading* reading = readingOf(reason)) {
        return {std::string(reading->category.empty() ? category : reading->category),
                std::string(reading->text)};
    }
    std::string text(reason);
    constexpr std::string_view value = "%s";
    for (auto at = text.find(value); at != std::string::npos; at = text.find(value)) {
        text.replace(at, value.size(), "...");
    }
    return {std::string(category), text};
}

OvixNamedCounters::OvixNamedCounters() : slots_(initialSlots, nullptr), mask_(initialSlots - 1) {}

std::uint64_t OvixNamedCounters::value(std::string_view category, std::string_view module,
                                       std::string_view reason) const {
    const Counter* counter = find(CounterKey(category, module, reason));
    return counter != nullptr ? counter->count : 0;
}

void OvixNamedCounters::countValue(const CounterKey& all, std::string_view reason) {
    const CounterKey one(all.category, all.module, reason);
    if (find(one) == nullptr) {
        auto known = std::find_if(values_.begin(), values_.end(),
                                  [&](const auto& entry) { return entry.first == all.hash; });
        if (known == values_.end()) {
            known = values_.insert(values_.end(), {all.hash, 0});
        }
        if (known->second == mostValues) {
            count(all);
            return;
        }
        ++known->second;
    }
    count(one);
}

void OvixNamedCounters::takeBack() noexcept {
    for (Counter* counter : ofFrame_) {
        assert(counter->count > 0);
        --counter->count;
    }
    forgetLast();
}

void OvixNamedCounters::countsAre(const std::vector<std::uint64_t>& counts) noexcept {
    assert(counts.size() <= counters_.size());
    for (std::size_t i = 0; i < counters_.size(); ++i) {
        counters_[i].count = i < counts.size() ? counts[i] : 0;
    }
}

OvixNamedCounters::Counter& OvixNamedCounters::add(const CounterKey& key) {
    assert(find(key) == nullptr);
    if ((counters_.size() + 1) * 2 > slots_.size()) {
        slots_.assign(slots_.size() * 2, nullptr);
        mask_ = slots_.size() - 1;
        std::for_each(counters_.begin(), counters_.end(), [this](Counter& old) { insert(old); });
    }
    const Reading* const reading = readingOf(key.reason);
    Counter& added = counters_.emplace_back(
        Counter{std::string(key.category), std::string(key.module), std::string(key.reason),
                key.hash, 0, reading != nullptr && reading->category == lookup});
    insert(added);
    return added;
}

void OvixNamedCounters::insert(Counter& counter) noexcept {
    assert(counters_.size() * 2 <= slots_.size());
    std::size_t at = counter.hash & mask_;
    while (slots_[at] != nullptr) {
        at = (at + 1) & mask_;
    }
    slots_[at] = &counter;
}

void OvixNamedCounters::absorb(OvixNamedCounters& other) {
    for (Counter& theirs : other.counters_) {
        if (theirs.count > 0) {
            counter({theirs.category, theirs.module, theirs.reason}).count +=
                std::exchange(theirs.count, 0);
        }
    }
}

} // namespace Ovix
