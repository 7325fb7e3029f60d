#pragma once

#include <vector>

#include "Config/ConfigTypes.h"
#include "Lumo/IntfId.h"
#include "Lumo/IpGenAddr.h"
#include "Tessel/FlatMap.h"

namespace OvixAgent {

/// What the hierarchical interfaces stand for: each for the next hops of one FEC, among which flows
/// are shared by weight.
class FecTable {
  public:
    struct Nexthop {
        PortIndex port = 0;
        Lumo::IpGenAddr address;
        std::uint32_t weight = 0;
    };

    /// The ids of the FECs must differ.
    explicit FecTable(const std::vector<FecConfig>& fecs);

    /// The next hop that owns the flow's residue; null when the interface stands for no FEC.
    const Nexthop* choose(Lumo::IntfId intf, std::uint32_t flowHash) const noexcept;

  private:
    /// A stretch of nexthops_.
    struct Members {
        std::uint32_t first = 0;
        std::uint32_t totalWeight = 0; ///< of them all; at least 1
    };

    Tessel::FlatMap<Members> fecs_;
    std::vector<Nexthop> nexthops_;
};

} // namespace OvixAgent
