#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "Lumo/MplsLabel.h"
#include "Mpls/LfibStatus.h"
#include "Mpls/RouteOwner.h"
#include "Mpls/TableDirectory.h"
#include "Mpls/Via.h"
#include "Tessel/Result.h"

namespace Mpls {

/// The route of a label in an LFIB, independent of the tables' memory. The weights of its vias add
/// up to 1..2^32 - 1, except that those of a route with a tail have no meaning.
struct LabelRoute {
    Lumo::MplsLabel label;
    TableId table = TableId::transitLfib; ///< one of the LFIBs
    LfibViaType viaType = LfibViaType::ip;
    LfibViaSetType setType = LfibViaSetType::unicast;
    std::vector<WeightedVia> vias; ///< 1 to 599; beside a tail 0 to 598
    /// Where a multicast LSP ends at this device: a copy of its packets goes to the CPU.
    std::optional<LfibMulticastIpLookupVia> tail;
    RouteOwner owner = RouteOwner::byHand; ///< opaque to forwarding
    std::uint8_t preference = 0;           ///< among owners, the least first; 0: usualPreference()
    std::uint8_t flags = 0;                ///< reserved

    RouteKey key() const noexcept { return RouteKey::fromLabel(label); }
    bool isMulticast() const noexcept { return setType == LfibViaSetType::multicast; }
    /// Pops and looks up in a VRF.
    bool isLookUp() const noexcept { return vias.size() == 1 && vias.front().via.isLookUp(); }

    friend bool operator==(const LabelRoute&, const LabelRoute&) noexcept = default;
};

/// The via type that vias ask for, which are of one kind; or the tail, if there is one.
LfibViaType impliedType(std::span<const WeightedVia> vias, bool hasTail) noexcept;
/// Refuses a type that contradicts the vias, or the tail. What a type without a word has is not
/// known, so anything goes with it.
Tessel::Result<void> checkType(LfibViaType type, std::span<const WeightedVia> vias, bool hasTail);
/// Refuses a route that ends at this device (a lookup in a VRF, a tail) in the transit LFIB.
Tessel::Result<void> checkTable(const LabelRoute& route);
/// Whether a route may have the label. Refused for the special-purpose labels 0 to 15: implicit
/// null never stands in a frame, and the others have a meaning of their own (RFC 3032 section 2.1,
/// RFC 7274).
Tessel::Result<void> checkRouteLabel(Lumo::MplsLabel label);

/// The route of a label that has one, `lfib` being the LFIB `table`. Refused, saying what is
/// damaged, when anything in it cannot be read or is not legal.
Tessel::Result<LabelRoute> readLabelRoute(const LfibStatus& lfib, TableId table,
                                          Lumo::MplsLabel label);

} // namespace Mpls
