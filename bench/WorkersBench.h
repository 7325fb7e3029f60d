#pragma once

#include <cstdint>

namespace Bench {

/// Prints how many frames one worker and two forward, of so many labels that are swapped, by the
/// clock and by the processor's time.
void printWorkers(std::uint32_t labels);

} // namespace Bench
