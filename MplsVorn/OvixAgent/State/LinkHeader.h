#pragma once

#include <array>
#include <cstdint>

#include "Lumo/IpGenAddr.h"
#include "Lumo/Pkt.h"
#include "Ovix/packet/PacketContext.h"
#include "State/PortTable.h"
#include "Wire/Ethernet.h"

namespace OvixAgent {

/// The 802.1Q tags of a frame, outermost first.
struct VlanTags {
    std::array<Ovix::VlanTagHeaderData::Tag, Ovix::VlanTagHeaderData::maxTags> tags;
    std::size_t count = 0;
};

/// A frame's link header as it came in: where the routed header starts, and the tags.
struct ReceivedLink {
    Ptr<Ovix::PacketHeader> routed; ///< empty when nothing routed follows the link header
    /// Where the link header ends, and what its EtherType says to come then, sound or not.
    std::uint32_t size = 0;
    Ovix::PktHdrType announced = Ovix::PktHdrType::none;
    bool isUpstreamAssigned = false; ///< the top label, by the EtherType (RFC 5332 section 4)
    bool hasUnreadTag = false;       ///< another tag is to come then, or what is left of one
    VlanTags tags;
};

/// The frame must have an Ethernet header.
ReceivedLink readLink(Ovix::ParsedPacket& parsed);

/// The EtherType that announces a label stack or an IP header.
inline std::uint16_t etherTypeOf(Ovix::PktHdrType type) noexcept {
    switch (type) {
    case Ovix::PktHdrType::ipv4:
        return Wire::EtherType::ipv4;
    case Ovix::PktHdrType::ipv6:
        return Wire::EtherType::ipv6;
    default:
        return Wire::EtherType::mpls;
    }
}

/// Whether a frame at a port belongs to another VLAN: it has tags, and more than one with the VLAN
/// id of the port's tagging, or with the id 0, which gives a priority and no VLAN (IEEE 802.1Q).
bool hasForeignVlan(Wire::Bytes frame, const Tagging& tagging) noexcept;

/// The tags to send with: a sub-interface's own; else the next hop's VLAN when it names one, else
/// as the port says.
VlanTags tagsToSend(const VlanTags& received, const Tagging& tagging, std::uint16_t nexthopVlan);

/// Puts tags behind the MAC addresses of a frame. False when it is too long for them.
bool insertTags(Lumo::Pkt& frame, const VlanTags& tags);

/// How much of a packet that starts with Ethernet is its header and tags, which no MTU counts; 0
/// for a packet whose Ethernet header is yet to come.
std::size_t linkHeaderSize(Ovix::PacketContext& packet);

/// Puts an Ethernet header in front of a packet; its EtherType follows what the packet starts with.
/// False when the packet is too long for it. A packet that starts with Ethernet is left as it is.
bool pushLink(Ovix::PacketContext& packet, const Lumo::EthAddr& source,
              const Lumo::EthAddr& destination, const VlanTags& tags);

} // namespace OvixAgent
