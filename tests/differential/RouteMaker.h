#pragma once

#include "Network.h"
#include "Random.h"
#include "Script.h"

namespace Differential {

/// A change of the label tables at random: a route comes, changes or goes. The network is kept in
/// step.
Step makeLabelChange(Random& random, Network& network);

} // namespace Differential
