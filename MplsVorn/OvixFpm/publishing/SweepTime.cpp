#include "publishing/SweepTime.h"

#include <stdexcept>

namespace OvixFpm {

std::chrono::milliseconds sweepTime(double seconds) {
    constexpr double longest = 3600;
    const bool isInRange = seconds >= 0 && seconds <= longest; // which NaN never is
    if (!isInRange) {
        throw std::invalid_argument("the time is to be from 0 to 3600 seconds");
    }
    return std::chrono::milliseconds(static_cast<long>(seconds * 1000));
}

} // namespace OvixFpm
