#include "Summary/Summary.h"

namespace OvixAgent {

std::uint64_t Reasons::total() const {
    std::uint64_t frames = 0;
    for (const auto& [reason, count] : counts_) {
        frames += count;
    }
    return frames;
}

Traffic Summary::forwardedTotal() const {
    Traffic total;
    for (const PortTraffic& port : forwarded) {
        total.frames += port.traffic.frames;
        total.bytes += port.traffic.bytes;
    }
    return total;
}

std::uint64_t Summary::accountedFor() const {
    return forwardedTotal().frames + punted.total() + dropped.total() + handedOn.total();
}

} // namespace OvixAgent
