#include "Live/ports/AdaptivePoll.h"

namespace OvixAgent {

// The clock is read once in a few calls of poll.
bool AdaptivePoll::wait(std::span<pollfd> descriptors, int milliseconds) {
    constexpr int pollsPerLook = 4;
    const Clock::time_point awakeUntil = now_() + longestAwake;
    while (staysAwake_ && milliseconds > 0 && now_() < awakeUntil) {
        for (int i = 0; i < pollsPerLook; ++i) {
            if (isReady(descriptors, 0)) {
                return true;
            }
        }
    }
    const bool isReadyInTime = isReady(descriptors, milliseconds);
    if (milliseconds > 0) {
        staysAwake_ = isReadyInTime && now_() < awakeUntil;
    }
    return isReadyInTime;
}

} // namespace OvixAgent
