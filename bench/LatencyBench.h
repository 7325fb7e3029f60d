#pragma once

#include "LiveNetwork.h"

namespace Bench {

/// How long single frames take from the sender to the sink while nothing else is on its way.
void registerLatencyBenchmarks(LiveNetwork& network);

} // namespace Bench
