#pragma once

#include "Network.h"
#include "Random.h"
#include "Script.h"

namespace Differential {

/// A change at random of anything but the label tables: IP routes, neighbours, ports, settings,
/// counters, packets that wait.
Step makeOtherChange(Random& random, Network& network, const Script& script);

/// An IP route comes, changes or goes.
Step makeIpRouteChange(Random& random, Network& network);

/// A neighbour is learned, moves, is forgotten or fails.
Step makeNeighbourChange(Random& random, const Network& network);

} // namespace Differential
