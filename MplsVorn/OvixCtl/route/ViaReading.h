#pragma once

#include <cstdint>

#include "Mpls/Hardware/Adjacency.h"
#include "Mpls/LfibStatus.h"
#include "route/RouteView.h"

namespace OvixCtl {

/// The route of a label that has one. Throws CorruptionDetected or RangeError for what cannot be
/// right anywhere in it.
LfibRouteView readLfibRoute(const Mpls::LfibStatus& lfib, std::uint32_t label);

/// Throws as readLfibRoute does.
AdjacencyView readAdjacency(const Mpls::Hardware::Adjacency& adjacency);

} // namespace OvixCtl
