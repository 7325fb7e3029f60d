#include "State/FecTable.h"

#include <cassert>

#include "Tessel/Fib/FecId.h"
#include "Tessel/WeightedChoice.h"

namespace OvixAgent {

using Tessel::Fib::FecId;

FecTable::FecTable(const std::vector<FecConfig>& fecs) {
    for (const FecConfig& fec : fecs) {
        ids_.push_back(fec.id);
        Members& members = fecs_[FecId::fecIdToHierarchicalIntfId(FecId(fec.id)).value()];
        assert(members.totalWeight == 0);
        members.first = static_cast<std::uint32_t>(nextHops_.size());
        members.count = static_cast<std::uint32_t>(fec.nextHops.size());
        nextHops_.insert(nextHops_.end(), fec.nextHops.begin(), fec.nextHops.end());
        for (const WeightedNextHop& nextHop : fec.nextHops) {
            members.totalWeight += nextHop.weight;
        }
        assert(members.totalWeight > 0);
    }
}

std::span<const WeightedNextHop> FecTable::nextHopsAt(std::size_t place) const noexcept {
    return nextHops(FecId::fecIdToHierarchicalIntfId(FecId(idAt(place))));
}

std::span<const WeightedNextHop> FecTable::nextHops(Lumo::IntfId intf) const noexcept {
    const Members* members = fecs_.find(intf.value());
    return members != nullptr ? std::span(nextHops_).subspan(members->first, members->count)
                              : std::span<const WeightedNextHop>();
}

const WeightedNextHop* FecTable::choose(Lumo::IntfId intf, std::uint32_t flowHash,
                                        const std::vector<Port>& ports) const noexcept {
    const Members* members = fecs_.find(intf.value());
    if (members == nullptr) {
        return nullptr;
    }
    const WeightedNextHop* first = &nextHops_[members->first];
    return first + Tessel::usableChoice(
                       flowHash, members->totalWeight, members->count,
                       [&](std::size_t i) { return first[i].weight; },
                       [&](std::size_t i) { return ports[first[i].port].isUp; });
}

} // namespace OvixAgent
