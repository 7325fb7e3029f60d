#pragma once

#include "Random.h"
#include "Script.h"

namespace Differential {

/// Something that plugins hook into changes: a step before routing, the hasher of labels, what
/// rewrites are bound to, whether there is routing at all.
Step makeHookChange(Random& random);

} // namespace Differential
