#pragma once

#include <cstdint>

namespace Bench {

/// A lookup as the plugin does it, taken out of the frame, among so many routes.
void registerLookupBenchmarks(std::int64_t routes);

/// Lookups of random destinations among so many IP routes, with prefixes of the Internet's lengths.
void registerFibBenchmarks(std::int64_t routes);

/// Tables that another process publishes: how fast they are written, read while they are written,
/// and forwarded by.
void registerSharedTableBenchmarks();

} // namespace Bench
