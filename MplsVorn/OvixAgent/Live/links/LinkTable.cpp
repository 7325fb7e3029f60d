#include "Live/links/LinkTable.h"

#include <algorithm>
#include <iterator>

namespace OvixAgent {

template <typename Map, typename Value, typename Event>
void LinkTable::is(Map& known, const typename Map::key_type& key, const Value& value,
                   const Event& event) {
    const auto [entry, isNew] = known.try_emplace(key, Known<Value>{value, round_});
    entry->second.round = round_;
    if (isNew || !(entry->second.value == value)) {
        entry->second.value = value;
        event(value);
    }
}

// The entry is removed before the event, which must not find it.
template <typename Map, typename Event>
void LinkTable::del(Map& known, const typename Map::key_type& key, const Event& event) {
    if (const auto node = known.extract(key)) {
        event(node.mapped().value);
    }
}

template <typename Map, typename Event>
void LinkTable::delUnconfirmed(Map& known, const Event& event) {
    for (auto entry = known.begin(); entry != known.end();) {
        const auto following = std::next(entry);
        if (entry->second.round != round_) {
            const auto node = known.extract(entry);
            event(node.mapped().value);
        }
        entry = following;
    }
}

void LinkTable::linkIs(const LinkState& link) {
    is(links_, link.index, link, events_.linkIs);
}

void LinkTable::linkDel(std::uint32_t index) {
    del(links_, index, events_.linkDel);
}

void LinkTable::carrierDel(std::uint32_t index) {
    if (const LinkState* known = link(index)) {
        LinkState down = *known;
        down.hasCarrier = false;
        linkIs(down);
    }
}

const LinkState* LinkTable::link(std::uint32_t index) const noexcept {
    const auto found = links_.find(index);
    return found != links_.end() ? &found->second.value : nullptr;
}

const LinkState* LinkTable::linkNamed(const std::string& name) const noexcept {
    const auto found = std::find_if(links_.begin(), links_.end(), [&](const auto& entry) {
        return entry.second.value.name == name;
    });
    return found != links_.end() ? &found->second.value : nullptr;
}

void LinkTable::neighbourIs(const NeighbourState& neighbour) {
    is(neighbours_, keyOf(neighbour.link, neighbour.address), neighbour, events_.neighbourIs);
}

void LinkTable::neighbourDel(const NeighbourState& neighbour) {
    del(neighbours_, keyOf(neighbour.link, neighbour.address), events_.neighbourDel);
}

void LinkTable::delUnconfirmed() {
    delUnconfirmed(neighbours_, events_.neighbourDel);
    delUnconfirmed(links_, events_.linkDel);
}

} // namespace OvixAgent
