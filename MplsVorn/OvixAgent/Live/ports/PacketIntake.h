#pragma once

#include <cstdint>

namespace OvixAgent {

/// Which frames a port receives. Frames addressed to other stations, which an interface in
/// promiscuous mode passes, are received with `everything` only.
enum class PacketIntake : std::uint8_t {
    labelled,      ///< MPLS, and frames with a tag beyond the outermost
    labelledAndIp, ///< also IPv4 and IPv6 addressed to this host's MAC
    everything,    ///< for attachment circuits
};

// Of a packet socket that is not bound yet; they throw std::system_error, whose text names the step
// that failed.

/// Attaches a filter that accepts the frames of the intake.
void acceptFrames(int socket, PacketIntake intake);
/// From then on the socket receives what comes in at the interface and passes the filter.
void bindToInterface(int socket, unsigned int interfaceIndex, PacketIntake intake);

/// Replaces the filter by one that accepts nothing.
void acceptNothing(int socket) noexcept;

} // namespace OvixAgent
