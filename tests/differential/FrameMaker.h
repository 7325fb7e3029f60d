#pragma once

#include "Network.h"
#include "Random.h"
#include "Script.h"

namespace Differential {

/// A frame at random: mostly one that a router with the network's tables forwards, the others
/// varied near every limit.
ScriptFrame makeFrame(Random& random, const Network& network, std::uint64_t time);

} // namespace Differential
