#pragma once

#include <cstdint>

namespace Bench {

/// How often `operator new` has been called in this process.
std::uint64_t allocations() noexcept;

} // namespace Bench
