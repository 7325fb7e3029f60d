#pragma once

#include <array>
#include <cstdint>

#include "Ovix/packet/PacketContext.h"
#include "Ovix/packet/PacketHeader.h"
#include "Tessel/Ptr.h"
#include "Wire/Ip.h"

namespace Ovix {

/// Mixes what distinguishes flows into 32 bits, of which every residue is usable.
class FlowHasher {
  public:
    void add(std::uint64_t word) noexcept {
        state_ = (state_ ^ word) * 0x9e3779b97f4a7c15;
        state_ ^= state_ >> 32U;
    }
    std::uint32_t finish() const noexcept {
        std::uint64_t mixed = state_ * 0xff51afd7ed558ccd;
        mixed ^= mixed >> 33U;
        mixed *= 0xc4ceb9fe1a85ec53;
        return static_cast<std::uint32_t>(mixed >> 32U);
    }

  private:
    std::uint64_t state_ = 0x2545f4914f6cdd1d;
};

/// Adds the labels that are not special-purpose (RFC 7274, extended ones included), down to the
/// entropy label when there is one (RFC 6790), else all. Never TC, S or TTL.
void addLabels(FlowHasher& hasher, const MplsHeaderData& labels) noexcept;

/// The flow hash of a frame: its label stack, and unless an entropy label ends it, the addresses,
/// the protocol and, where there are, the ports of an IP header (RFC 7325 section 2.4.5).
std::uint32_t flowHash(ParsedPacket& parsed);
/// The same of a packet that starts with Ethernet, labels or an IP header, read where it lies.
std::uint32_t flowHash(PktHdrType first, Wire::Bytes packet) noexcept;

/// Whether the upper layer's header starts with two ports.
constexpr bool hasPorts(std::uint8_t protocol) noexcept {
    return protocol == Wire::IpProtocol::tcp || protocol == Wire::IpProtocol::udp ||
           protocol == Wire::IpProtocol::sctp;
}

/// The ports of a packet of that protocol, which start its header, or 0.
inline std::uint32_t portsOf(std::uint8_t protocol, Wire::Bytes upperLayer) noexcept {
    return hasPorts(protocol) && upperLayer.size() >= 4
               ? Lumo::NetU32::load(upperLayer.data()).value()
               : 0;
}

/// Fragments are hashed without ports, so that all of a packet's fragments take one path.
inline void addIpv4(FlowHasher& hasher, Wire::Bytes header, Wire::Bytes payload) noexcept {
    static_assert(Wire::Ipv4::destinationAt == Wire::Ipv4::sourceAt + 4);
    const Wire::Ipv4 ip(header);
    const std::uint32_t ports = ip.isFragment() ? 0 : portsOf(ip.protocol(), payload);
    hasher.add(Lumo::NetU64::load(header.data() + Wire::Ipv4::sourceAt).value());
    hasher.add(std::uint64_t{ip.protocol()} << 32U | ports);
}

/// Whether a packet is one of those that plainFlowHash() takes: IPv4 without options that could
/// have ports, which most packets are.
inline bool isPlainFlow(Wire::Bytes packet) noexcept {
    constexpr std::uint8_t withoutOptions = 0x45;
    constexpr std::size_t ports = 4;
    return packet.size() >= Wire::Ipv4::size + ports && packet[0] == withoutOptions &&
           Wire::ipv4HeaderLength(packet) != 0;
}

/// The same as flowHash() of such a packet under its only label, which is not special-purpose.
[[gnu::always_inline]] inline std::uint32_t plainFlowHash(std::uint32_t label,
                                                          Wire::Bytes packet) noexcept {
    FlowHasher hasher;
    hasher.add(label);
    addIpv4(hasher, packet.first(Wire::Ipv4::size), packet.subspan(Wire::Ipv4::size));
    return hasher.finish();
}

/// Hashes the flow that a parsed header of one type belongs to.
class PacketHasherOfType : public Tessel::Counted {
  public:
    virtual std::uint32_t hash(const PacketHeader& header) const = 0;
};

/// The agent's hashers by header type.
class PacketHashers : public Tessel::Counted {
  public:
    void hasherIs(PktHdrType type, Ptr<PacketHasherOfType> hasher) {
        hashers_[static_cast<std::size_t>(type)] = std::move(hasher);
    }
    const Ptr<PacketHasherOfType>& hasher(PktHdrType type) const noexcept {
        return hashers_[static_cast<std::size_t>(type)];
    }

  private:
    std::array<Ptr<PacketHasherOfType>, pktHdrTypes> hashers_;
};

/// The hasher for "Mpls": all labels that are not special-purpose, and nothing below an entropy
/// label (RFC 6790).
class MplsHasher : public PacketHasherOfType {
  public:
    std::uint32_t hash(const PacketHeader& header) const override;
};

} // namespace Ovix
