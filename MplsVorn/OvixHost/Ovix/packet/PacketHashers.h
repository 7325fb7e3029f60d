#pragma once

#include <array>
#include <cstdint>

#include "Ovix/packet/PacketHeader.h"
#include "Tessel/Ptr.h"

namespace Ovix {

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
