#pragma once

#include <cassert>
#include <span>
#include <vector>

#include "Config/Config.h"
#include "Lumo/IntfId.h"
#include "Lumo/IpGenAddr.h"
#include "State/PortTable.h"
#include "Tessel/FlatMap.h"

namespace OvixAgent {

/// The FECs by hierarchical interface: the next hops of each, among which flows are shared by
/// weight.
class FecTable {
  public:
    /// The ids of the FECs must differ.
    explicit FecTable(const std::vector<FecConfig>& fecs);

    std::size_t size() const noexcept { return ids_.size(); }
    /// Of the FEC of that place in the configuration.
    std::uint64_t idAt(std::size_t place) const noexcept {
        assert(place < ids_.size());
        return ids_[place];
    }
    std::span<const WeightedNextHop> nextHopsAt(std::size_t place) const noexcept;

    /// The next hops of a FEC, whose weights add up to at least 1; empty when the interface is not
    /// a FEC's.
    std::span<const WeightedNextHop> nextHops(Lumo::IntfId intf) const noexcept;
    /// The next hop that owns the flow's residue, or if its port is down, another one; null when
    /// the interface is not a FEC's.
    const WeightedNextHop* choose(Lumo::IntfId intf, std::uint32_t flowHash,
                                  const std::vector<Port>& ports) const noexcept;

  private:
    /// A part of nextHops_.
    struct Members {
        std::uint32_t first = 0;
        std::uint32_t count = 0;
        std::uint32_t totalWeight = 0; ///< at least 1
    };

    Tessel::FlatMap<Members> fecs_;
    std::vector<WeightedNextHop> nextHops_;
    std::vector<std::uint64_t> ids_;
};

} // namespace OvixAgent
