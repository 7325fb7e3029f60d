#pragma once

#include <cstdint>
#include <string_view>

namespace OvixAgent {

/// What became of a frame, or of one copy of it; each has exactly one.
enum class FateKind : std::uint8_t { forwarded, punted, dropped, handedOn };

struct Fate {
    FateKind kind = FateKind::forwarded;
    std::string_view reason; ///< a literal or a counter's reason; empty when forwarded
};

/// The agent's own reasons. Those of the plugin are what it counted last for the frame.
namespace Reason {
inline constexpr std::string_view notMpls = "Not MPLS";
inline constexpr std::string_view runt = "Shorter than an Ethernet header";
inline constexpr std::string_view noHandler = "No routing handler for MPLS";
inline constexpr std::string_view noNexthop = "No next hop";
inline constexpr std::string_view unknownRewrite = "Rewrite not implemented";
inline constexpr std::string_view unknownVrf = "VRF not configured";
inline constexpr std::string_view unknownPort = "No port for the egress interface";
inline constexpr std::string_view noAddress = "Next hop has no address";
inline constexpr std::string_view noNeighbour = "No neighbour for the next hop";
inline constexpr std::string_view localAddress = "Address of the device";
inline constexpr std::string_view portDown = "Egress port is down";
inline constexpr std::string_view mtuExceeded = "MTU exceeded";
inline constexpr std::string_view tooLong = "Frame too long";
inline constexpr std::string_view trapped = "Trapped to the CPU";
} // namespace Reason

} // namespace OvixAgent
