#pragma once

#include "Random.h"
#include "Script.h"

namespace Differential {

/// Something that plugins offer the agent, or it them, changes: the hasher of labels, or whether
/// there is routing at all.
Step makeHookChange(Random& random);

} // namespace Differential
