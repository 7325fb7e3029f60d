#pragma once

#include <array>
#include <cstdint>

namespace Lumo {

/// An Ethernet MAC address, first byte on the wire first.
using EthAddr = std::array<std::uint8_t, 6>;

/// EtherTypes that the agent and the plugin read or write.
namespace EtherType {
inline constexpr std::uint16_t ipv4 = 0x0800;
inline constexpr std::uint16_t vlan = 0x8100;
/// The plugin's own: an MPLS frame handed to the control plane as an exception.
inline constexpr std::uint16_t mplsException = 0x8139;
inline constexpr std::uint16_t ipv6 = 0x86dd;
inline constexpr std::uint16_t mpls = 0x8847;
/// Upstream-assigned labels (RFC 5332).
inline constexpr std::uint16_t mplsUpstream = 0x8848;
inline constexpr std::uint16_t serviceVlan = 0x88a8;
} // namespace EtherType

} // namespace Lumo
