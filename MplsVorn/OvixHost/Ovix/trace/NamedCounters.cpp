#include "Ovix/trace/NamedCounters.h"

#include <algorithm>
#include <cassert>

namespace Ovix {

namespace {

constexpr std::size_t initialSlots = 64;

} // namespace

OvixNamedCounters::OvixNamedCounters() : slots_(initialSlots, nullptr), mask_(initialSlots - 1) {}

std::uint64_t OvixNamedCounters::value(std::string_view category, std::string_view module,
                                       std::string_view reason) const {
    const Counter* counter = find(CounterKey(category, module, reason));
    return counter != nullptr ? counter->count : 0;
}

OvixNamedCounters::Counter& OvixNamedCounters::add(const CounterKey& key) {
    if ((counters_.size() + 1) * 2 > slots_.size()) {
        slots_.assign(slots_.size() * 2, nullptr);
        mask_ = slots_.size() - 1;
        std::for_each(counters_.begin(), counters_.end(), [this](Counter& old) { insert(old); });
    }
    Counter& added = counters_.emplace_back(Counter{
        std::string(key.category), std::string(key.module), std::string(key.reason), key.hash, 0});
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

} // namespace Ovix
