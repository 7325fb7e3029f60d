#pragma once

#include <chrono>
#include <optional>
#include <vector>

#include "Ovix/routing/RoutingContext.h"
#include "State/ForwardingTables.h"
#include "State/Frame.h"
#include "State/LinkHeader.h"

namespace OvixAgent {

/// A packet that is ready but for its neighbour's MAC address, and what is needed to send it.
struct WaitingPacket {
    Frame frame;             ///< as received
    Ptr<Lumo::Pkt> received; ///< the bytes of `frame`
    Ptr<Ovix::RoutingContext> context;
    VlanTags tags; ///< of the received frame
    Ptr<const Ovix::RoutingNexthop> nexthop;
    Egress egress; ///< with an unresolved neighbour
    std::chrono::steady_clock::time_point since;
};

/// The first packets to neighbours that are being resolved (RFC 1122 section 2.3.2.2, RFC 4861
/// section 7.2.2): a few for each neighbour, of which the newest are kept, and a limited number for
/// all. Takes nothing from the heap.
class WaitingPackets {
  public:
    static constexpr std::size_t mostPerNeighbour = 4;
    static constexpr std::size_t most = 256;
    /// Of those, for neighbours that packets have named themselves, which whoever sends them can
    /// choose.
    static constexpr std::size_t mostOfPackets = 192;
    /// Three solicits a second apart (RFC 4861 section 10), and time for the last answer.
    static constexpr std::chrono::seconds longest{4};

    WaitingPackets() { packets_.reserve(most); }

    std::size_t size() const noexcept { return packets_.size(); }
    /// The neighbours that they wait for.
    std::size_t neighbours() const noexcept;

    /// Returns the packet that had to make room: the neighbour's oldest, or the oldest of those
    /// whose neighbours packets have named, or of all.
    std::optional<WaitingPacket> add(WaitingPacket packet);

    /// Removes the oldest packet that `isOver` is true of; empty when there is none.
    template <typename IsOver>
    std::optional<WaitingPacket> take(const IsOver& isOver) {
        for (std::size_t i = 0; i < packets_.size(); ++i) {
            if (isOver(packets_[i])) {
                return takeAt(i);
            }
        }
        return std::nullopt;
    }

  private:
    bool mustMakeRoom(const WaitingPacket& packet) const;
    WaitingPacket takeAt(std::size_t index);

    std::vector<WaitingPacket> packets_; ///< the oldest first
};

} // namespace OvixAgent
