#pragma once

#include "Network.h"
#include "Script.h"

namespace Differential {

/// The script of that number: a configuration, tables, and bursts of frames with changes between
/// them.
Script makeScript(std::uint64_t seed);

/// A script that ends with its tables filled, and the network that they lead into, for which
/// changes and frames can be made.
struct Start {
    Script script;
    Network network;
};
Start makeStart(std::uint64_t seed);

} // namespace Differential
