#pragma once

#include <array>
#include <cstdint>

#include "Ovix/packet/PacketContext.h"
#include "Ovix/packet/PacketHeader.h"
#include "Tessel/Ptr.h"

namespace Ovix {

/// Mixes what distinguishes flows into 32 bits, of which every residue is usable.
class FlowHasher {
  public:
    void add(std::uint32_t word) noexcept {
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
