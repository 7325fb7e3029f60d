#pragma once

#include <cstdint>

namespace OvixAgent {

/// Which frames a port receives. Those addressed to other stations only where an attachment circuit
/// may have them, with the last two, for which the interface is promiscuous.
enum class PacketIntake : std::uint8_t {
    labelled,      ///< MPLS, and frames with a tag beyond the outermost
    labelledAndIp, ///< also IPv4 and IPv6 addressed to this host's MAC
    toVlans,       ///< also those with a tag to a MAC that a VLAN device has of its own
    taggedToAny,   ///< also whatever has a tag: VLAN sub-interfaces are attachment circuits
    everything,    ///< the port is an attachment circuit
};

/// Whether frames addressed to other stations are received.
constexpr bool isPromiscuous(PacketIntake intake) noexcept {
    return intake >= PacketIntake::taggedToAny;
}

// Of a packet socket; they throw std::system_error, whose text names the step that failed.

/// Attaches a filter that accepts the frames of the intake, in place of the last one. What this
/// host sends passes if the socket gets it, unless it is to be dropped.
void acceptFrames(int socket, PacketIntake intake, bool dropsOutgoing = false);
/// From then on the socket receives what comes in at the interface and passes the filter.
void bindToInterface(int socket, unsigned int interfaceIndex);
/// Makes the interface receive frames to any station, as long as the socket is open.
void makePromiscuous(int socket, unsigned int interfaceIndex);

/// Replaces the filter by one that accepts nothing.
void acceptNothing(int socket) noexcept;

} // namespace OvixAgent
