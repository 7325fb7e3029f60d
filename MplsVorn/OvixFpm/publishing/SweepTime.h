#pragma once

#include <chrono>

namespace OvixFpm {

/// How long zebra has to be quiet until what it has not confirmed goes, from 0 to 3600 seconds.
/// Throws std::invalid_argument for any other number, and for what is none.
std::chrono::milliseconds sweepTime(double seconds);

} // namespace OvixFpm
