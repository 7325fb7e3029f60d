#pragma once

#include "Ip/IpFragments.h"
#include "Ovix/routing/RoutingContext.h"
#include "State/ForwardingTables.h"
#include "State/Frame.h"
#include "State/LinkHeader.h"
#include "Wire/View.h"

namespace OvixAgent {

/// A packet that is being sent.
struct Outgoing {
    const Frame& frame; ///< as received
    const Ptr<Ovix::RoutingContext>& context;
    const VlanTags& tags; ///< of the received frame
    const Ovix::RoutingNexthop& nexthop;
    Egress egress{};

    Ovix::PacketContext& packet() const noexcept { return *context->packetContext(); }
    /// The bytes of the frame that a capture left out.
    std::size_t snapped() const noexcept { return frame.originalLength - frame.bytes.size(); }
    /// The label stack of the packet before it has its link header, as far as entries are whole.
    Wire::Bytes labels() const noexcept;

    // The egress must have a port.

    std::uint32_t mtu() const noexcept;
    /// Puts the link header of the egress in front. False when the packet is too long for it.
    bool pushLinkHeader(Ovix::PacketContext& to) const;
    /// Sends what has its link header; `missing` bytes behind it were left out by a capture.
    void emit(const Ovix::PacketContext& sent, std::size_t missing) const;
};

/// A packet of these labels and a fragment.
Ptr<Lumo::Pkt> packetOf(Wire::Bytes labels, const IpFragment& fragment);

} // namespace OvixAgent
