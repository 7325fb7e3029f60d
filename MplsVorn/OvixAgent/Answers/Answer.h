#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <vector>

#include "Ip/IpPacket.h"
#include "Lumo/IpGenAddr.h"
#include "Lumo/MplsLabel.h"

namespace OvixAgent {

/// The IP packet of a frame, its label stack and VLAN tags. A view of the frame's bytes.
struct LabelledPacket {
    std::span<const std::uint8_t> labels; ///< whole entries, the last one the bottom; may be empty
    IpPacket ip;                          ///< valid, and without the link's padding
    bool isToGroup = false;               ///< sent to a broadcast or multicast MAC address
    std::span<const std::uint8_t> tags;   ///< whole 802.1Q tags, TPID first; may be empty
};

/// Parses an Ethernet frame: VLAN tags, the label stack if there is one, and a valid IP packet.
/// Empty for any other frame. To be called on the packet thread.
std::optional<LabelledPacket> readLabelledPacket(std::span<const std::uint8_t> frame);

/// The entries of a label stack, the outermost first. `labels` must be whole entries.
std::vector<Lumo::MplsLabelEntry> labelEntries(std::span<const std::uint8_t> labels);

/// The source addresses of answers, one per family. No answers are sent from an empty one.
struct OwnAddresses {
    Lumo::IpGenAddr ipv4{Lumo::IpFamily::ipv4};
    Lumo::IpGenAddr ipv6{Lumo::IpFamily::ipv6};

    /// The one for answers to an IPv4 or IPv6 packet.
    const Lumo::IpGenAddr& of(Ovix::PktHdrType type) const noexcept {
        return type == Ovix::PktHdrType::ipv4 ? ipv4 : ipv6;
    }
};

/// The IP header of an answer. Its TTL is 255.
struct IpHeaderFields {
    Lumo::IpGenAddr source; ///< its family is the packet's
    Lumo::IpGenAddr destination;
    std::uint8_t protocol = 0;
    std::uint8_t trafficClass = 0; ///< DSCP and ECN
    bool routerAlert = false;      ///< RFC 2113; in IPv6 RFC 2711, with the value of RFC 7506
};

/// An IP packet with this payload, whose zero checksum field at `checksumAt` is completed. Header
/// and payload together are at most 65535 bytes. An IPv4 packet has DF set, so that it needs no
/// identification (RFC 6864).
std::vector<std::uint8_t> ipPacketBytes(const IpHeaderFields& fields,
                                        std::span<const std::uint8_t> payload,
                                        std::size_t checksumAt);

/// A packet that this device sends in answer to a frame.
struct Answer {
    std::vector<std::uint8_t> packet; ///< a whole IP packet
    /// Processed as if the packet had been received with them, so that this router's operation on
    /// the outermost label applies; without labels the packet is routed.
    std::vector<Lumo::MplsLabelEntry> labels;

    /// As a frame sent to the port `station` with these VLAN tags.
    std::vector<std::uint8_t> frame(const Lumo::EthAddr& station,
                                    std::span<const std::uint8_t> tags) const;
};

/// Whether this router has an IP route to an address.
using IsRoutable = std::function<bool(const Lumo::IpGenAddr& address)>;

/// An answer to a packet: routed if the packet's source is routable, else sent along the packet's
/// LSP, since the router at its end can route to the source (RFC 3032 section 2.3.2). There it gets
/// the labels of the packet with a TTL of 255, without router alert labels, which would return it
/// to this router. Empty when `packet` is, or when neither is possible.
std::optional<Answer> answerTo(const LabelledPacket& received, std::vector<std::uint8_t> packet,
                               const IsRoutable& isRoutable);

} // namespace OvixAgent
