#include "Forwarding/WaitingPackets.h"

#include <algorithm>
#include <cassert>
#include <utility>

namespace OvixAgent {

std::optional<WaitingPacket> WaitingPackets::add(WaitingPacket packet) {
    assert(packet.egress.port != nullptr && !packet.egress.isResolved());
    const auto isForSame = [&](const WaitingPacket& other) {
        return other.egress.port == packet.egress.port &&
               other.egress.unresolved == packet.egress.unresolved;
    };
    std::optional<WaitingPacket> displaced;
    const auto same = std::count_if(packets_.begin(), packets_.end(), isForSame);
    if (same == mostPerNeighbour) {
        displaced = take(isForSame);
    } else if (packets_.size() == most) {
        displaced = takeAt(0);
    }
    packets_.push_back(std::move(packet));
    return displaced;
}

WaitingPacket WaitingPackets::takeAt(std::size_t index) {
    assert(index < packets_.size());
    WaitingPacket taken = std::move(packets_[index]);
    packets_.erase(packets_.begin() + static_cast<std::ptrdiff_t>(index));
    return taken;
}

} // namespace OvixAgent
