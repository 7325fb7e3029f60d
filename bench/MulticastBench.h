#pragma once

namespace Bench {

/// Replication, per copy, and the input step, per frame that is none of its business.
void registerMulticastBenchmarks();

} // namespace Bench
