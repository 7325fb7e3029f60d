#pragma once

#include "LiveNetwork.h"

namespace Bench {

/// What is lost of frames of 10,000 labels while the agent leads them another way. The network must
/// outlive the benchmarks.
void registerRerouteBenchmarks(LiveNetwork& network);

} // namespace Bench
