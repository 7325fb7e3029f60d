#pragma once

#include <cstdint>

namespace Bench {

/// Prints what the fast path takes for a frame, of so many labels that are swapped, while nothing
/// changes, and while the ways of 1,000 random labels change 100 times in a second of its time.
void printTableChurn(std::uint32_t labels);

/// The same of a worker, with a thread beside it that follows the tables: the changes are 100 in a
/// second of the clock.
void printWorkerChurn(std::uint32_t labels);

} // namespace Bench
