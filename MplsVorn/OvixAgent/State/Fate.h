#pragma once

#include <cstdint>
#include <string_view>

#include "Tessel/Words.h"

namespace OvixAgent {

/// What became of a frame, or of one copy of it; each has exactly one.
enum class FateKind : std::uint8_t { forwarded, punted, dropped, handedOn };

struct Fate {
    FateKind kind = FateKind::forwarded;
    std::string_view reason; ///< a literal or a counter's reason; empty when it has left
};

inline constexpr Fate forwarded{};

/// Its fate is decided when its neighbour is known, or does not answer; as good as forwarded until
/// then.
inline constexpr Fate queuedForNeighbour{FateKind::forwarded, "Waits for its neighbour"};

constexpr Fate punt(std::string_view reason) noexcept {
    return {FateKind::punted, reason};
}
constexpr Fate drop(std::string_view reason) noexcept {
    return {FateKind::dropped, reason};
}
constexpr Fate handOn(std::string_view reason) noexcept {
    return {FateKind::handedOn, reason};
}

/// The agent's own reasons. Those of the plugin are what it counted last for the frame.
namespace Reason {
/// The plugin's, of a frame whose top label no table holds.
inline constexpr std::string_view nothingResolved =
    "No labels resolved to via sets, and nexthop not resolved";
inline constexpr std::string_view notMpls = "Not MPLS";
inline constexpr std::string_view unreadTags = "VLAN tags cut short, or more than three";
inline constexpr std::string_view otherStation = "For another station";
inline constexpr std::string_view noVlan = "VLAN without a sub-interface";
inline constexpr std::string_view mplsNotAllowed = "Labelled frame at a port without MPLS";
inline constexpr std::string_view runt = "Shorter than an Ethernet header";
inline constexpr std::string_view noHandler = "No routing handler for MPLS";
inline constexpr std::string_view noNexthop = "No next hop";
/// Labels were popped, and the tables lead the rest of the frame nowhere.
inline constexpr std::string_view noNexthopBeneath = "No next hop beneath a terminated label";
inline constexpr std::string_view noPluginRewrites = "No plugin applies the rewrite";
inline constexpr std::string_view unknownVrf = "VRF not configured";
inline constexpr std::string_view unknownPort = "No port for the egress interface";
inline constexpr std::string_view unknownFec = "No FEC for the egress interface";
inline constexpr std::string_view noAddress = "Next hop has no address";
inline constexpr std::string_view noNeighbour = "No neighbour for the next hop";
inline constexpr std::string_view notOneNeighbour =
    "No next hop for the labels, and not just one neighbour on the link";
inline constexpr std::string_view neighbourLimit = "Too many unknown neighbours asked for";
inline constexpr std::string_view localAddress = "Address of the device";
inline constexpr std::string_view portDown = "Egress port is down";
inline constexpr std::string_view mtuExceeded = "MTU exceeded";
inline constexpr std::string_view tooLong = "Frame too long";
inline constexpr std::string_view mplsRoutingOff = "MPLS routing not enabled";
inline constexpr std::string_view pseudowireCutShort =
    "Pseudowire payload shorter than an Ethernet header";
inline constexpr std::string_view noControlWord =
    "Pseudowire control word missing: the first nibble is neither 0 nor 1";
inline constexpr std::string_view pseudowireDown = "Pseudowire is down by one of its ends";
inline constexpr std::string_view pseudowireNoLabel = "Pseudowire has no label at one of its ends";
inline constexpr std::string_view pseudowireInvalidLabel = "Pseudowire has an impossible label";
inline constexpr std::string_view pseudowireMtus = "Pseudowire has ends with different MTUs";
inline constexpr std::string_view pseudowireUnsupported =
    "Pseudowire is not Ethernet point to point";
inline constexpr std::string_view pseudowireNoDaemon = "Pseudowire is not signalled any more";
inline constexpr std::string_view noTunnel = "No tunnel to the pseudowire's other end";
inline constexpr std::string_view noFlowLabel = "Pseudowire flow label missing";
inline constexpr std::string_view specialFlowLabel =
    "Special-purpose label in place of a pseudowire's flow label";
inline constexpr std::string_view pauseFrame = "MAC control frame at an attachment circuit";
inline constexpr std::string_view labelInPseudowire = "Label beneath the label of a pseudowire";
inline constexpr std::string_view upstreamLabel =
    "Upstream-assigned label at a port without a context";
inline constexpr std::string_view associatedChannel = "Pseudowire associated channel";
inline constexpr std::string_view ipHeaderCutShort = "IP header cut short";
inline constexpr std::string_view ipVersion = "IP version contradicts the packet type";
inline constexpr std::string_view ipv4HeaderLength = "IPv4 header length wrong";
inline constexpr std::string_view ipv4TotalLength = "IPv4 total length wrong";
inline constexpr std::string_view ipv4Checksum = "IPv4 header checksum wrong";
inline constexpr std::string_view ipv6PayloadLength = "IPv6 payload cut short";
inline constexpr std::string_view ttlExpired = "TTL expired";
inline constexpr std::string_view noRoute = "No route";
inline constexpr std::string_view droppingRoute = "Route drops";
inline constexpr std::string_view unreachableRoute = "Route is unreachable";
inline constexpr std::string_view prohibitedRoute = "Route prohibits";
inline constexpr std::string_view linkScope = "Link-local or broadcast destination";
inline constexpr std::string_view mplsEcho = "MPLS echo packet";
inline constexpr std::string_view multicast = "IP multicast not routed";
inline constexpr std::string_view martianDestination = "IP destination never on a wire";
inline constexpr std::string_view martianSource = "IP source never to be forwarded";
inline constexpr std::string_view reversePath = "IP source not reached by the port it came in at";
inline constexpr std::string_view noReverseRoute = "IP source not reached by any route";
inline constexpr std::string_view labelToGroup = "Unicast label in a frame to a group of stations";
inline constexpr std::string_view ipToGroup = "IP unicast in a frame to a group of stations";
inline constexpr std::string_view delivered = "Multicast delivered to the CPU";
/// A worker has left more frames than the packet thread could take.
inline constexpr std::string_view workerQueueFull = "Queue to the packet thread full";
inline constexpr std::string_view trapped = "Trapped to the CPU";
} // namespace Reason

} // namespace OvixAgent

template <>
inline constexpr auto
    Tessel::words<OvixAgent::FateKind> = std::to_array<Tessel::Word<OvixAgent::FateKind>>({
        {"forwarded", OvixAgent::FateKind::forwarded},
        {"punted", OvixAgent::FateKind::punted},
        {"dropped", OvixAgent::FateKind::dropped},
        {"handed on", OvixAgent::FateKind::handedOn},
    });
