#include "State/FecTable.h"

#include "State/Neighbours.h"
#include "Tessel/Fib/FecId.h"

namespace OvixAgent {

using Tessel::Fib::FecId;
static_assert(maxFecId == FecId::maxOfInterface);

FecTable::FecTable(const std::vector<FecConfig>& fecs) {
    for (const FecConfig& fec : fecs) {
        Members& members = fecs_[FecId::fecIdToHierarchicalIntfId(FecId(fec.id)).value()];
        members.first = static_cast<std::uint32_t>(nexthops_.size());
        for (const FecViaConfig& via : fec.vias) {
            nexthops_.push_back({via.port, toIpGenAddr(via.nexthop), via.weight});
            members.totalWeight += via.weight;
        }
    }
}

const FecTable::Nexthop* FecTable::choose(Lumo::IntfId intf,
                                          std::uint32_t flowHash) const noexcept {
    const Members* members = fecs_.find(intf.value());
    if (members == nullptr) {
        return nullptr;
    }
    std::uint32_t rest = flowHash % members->totalWeight;
    const Nexthop* nexthop = &nexthops_[members->first];
    for (; rest >= nexthop->weight; ++nexthop) {
        rest -= nexthop->weight;
    }
    return nexthop;
}

} // namespace OvixAgent
