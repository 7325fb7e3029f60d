#pragma once

#include "Script.h"

namespace Differential {

/// The script of that number: a configuration, tables, and bursts of frames with changes between
/// them.
Script makeScript(std::uint64_t seed);

} // namespace Differential
