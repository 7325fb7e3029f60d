#pragma once

#include <cstdint>
#include <span>

#include "Lumo/EthAddr.h"
#include "Lumo/IntfId.h"
#include "Lumo/NetInt.h"
#include "State/VrfIdMap.h"

namespace Ovix {

/// A special packet: an MPLS packet of a multicast VPN, tagged, behind the exception header that
/// says which VRF and which provider-multicast (PMSI) interface it belongs to.
///
///     0          12        14    16        18       22         30          38
///     +----------+---------+-----+---------+--------+----------+-----------+--------------+
///     | MACs     | 0x8100  | TCI | 0x8139  | VRF id | reserved | PMSI intf | labels, data |
///     +----------+---------+-----+---------+--------+----------+-----------+--------------+
///
/// A view of received bytes; what a frame is too short for reads as 0.
class SpecialPacket {
  public:
    static constexpr std::size_t macsSize = 12;
    static constexpr std::size_t etherTypeSize = 2;
    static constexpr std::size_t taggedHeaderSize = 18; ///< MACs, tag and EtherType
    static constexpr std::size_t mplsOffset = 38;

    explicit SpecialPacket(std::span<const std::uint8_t> frame) noexcept : frame_(frame) {}

    bool isTagged() const noexcept {
        return frame_.size() >= macsSize + etherTypeSize && u16(macsSize) == Lumo::EtherType::vlan;
    }
    std::uint16_t vlanId() const noexcept { return u16(tciOffset) & 0x0fffU; }
    /// The frame must be tagged.
    bool isSpecial() const noexcept {
        return u16(etherTypeOffset) == Lumo::EtherType::mplsException;
    }
    /// The exception header is there to its end; the MPLS packet behind it may be empty.
    bool isWhole() const noexcept { return frame_.size() >= mplsOffset; }

    // Of a whole packet alone.

    Vrf::VrfIdMap::VrfId vrfId() const noexcept {
        return {Lumo::NetU32::load(frame_.data() + vrfIdOffset).value()};
    }
    Lumo::IntfId pmsi() const noexcept {
        return Lumo::IntfId::fromValue(Lumo::NetU64::load(frame_.data() + pmsiOffset).value());
    }
    std::span<const std::uint8_t> macs() const noexcept { return frame_.first(macsSize); }
    std::span<const std::uint8_t> mpls() const noexcept { return frame_.subspan(mplsOffset); }

  private:
    static constexpr std::size_t tciOffset = 14;
    static constexpr std::size_t etherTypeOffset = 16;
    static constexpr std::size_t vrfIdOffset = 18;
    static constexpr std::size_t pmsiOffset = 30;

    std::uint16_t u16(std::size_t at) const noexcept {
        return frame_.size() >= at + sizeof(std::uint16_t)
                   ? Lumo::NetU16::load(frame_.data() + at).value()
                   : std::uint16_t{0};
    }

    std::span<const std::uint8_t> frame_;
};

} // namespace Ovix
