#include "Live/AdaptivePoll.h"

namespace OvixAgent {

void AdaptivePoll::wait(std::span<pollfd> descriptors, int milliseconds) {
    const Clock::time_point awakeUntil = now_() + longestAwake;
    while (staysAwake_ && milliseconds > 0 && now_() < awakeUntil) {
        if (isReady(descriptors, 0)) {
            return;
        }
    }
    const bool isReadyInTime = isReady(descriptors, milliseconds);
    if (milliseconds > 0) {
        staysAwake_ = isReadyInTime && now_() < awakeUntil;
    }
}

} // namespace OvixAgent
