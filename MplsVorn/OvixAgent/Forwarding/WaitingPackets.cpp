#include "Forwarding/WaitingPackets.h"

#include <algorithm>
#include <cassert>
#include <utility>

namespace OvixAgent {

namespace {

bool isOfPacket(const WaitingPacket& packet) noexcept {
    return packet.egress.namedBy == Solicits::By::packet;
}

} // namespace

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
    } else if (mustMakeRoom(packet)) {
        displaced = take(isOfPacket);
        if (!displaced) {
            displaced = takeAt(0);
        }
    }
    packets_.push_back(std::move(packet));
    return displaced;
}

std::size_t WaitingPackets::neighbours() const noexcept {
    std::size_t count = 0;
    for (auto each = packets_.begin(); each != packets_.end(); ++each) {
        const bool isFirst = std::none_of(packets_.begin(), each, [&](const WaitingPacket& other) {
            return other.egress.port == each->egress.port &&
                   other.egress.unresolved == each->egress.unresolved;
        });
        count += isFirst ? 1 : 0;
    }
    return count;
}

bool WaitingPackets::mustMakeRoom(const WaitingPacket& packet) const {
    return packets_.size() == most ||
           (isOfPacket(packet) && std::count_if(packets_.begin(), packets_.end(), isOfPacket) ==
                                      std::ptrdiff_t{mostOfPackets});
}

WaitingPacket WaitingPackets::takeAt(std::size_t index) {
    assert(index < packets_.size());
    WaitingPacket taken = std::move(packets_[index]);
    packets_.erase(packets_.begin() + static_cast<std::ptrdiff_t>(index));
    return taken;
}

} // namespace OvixAgent
