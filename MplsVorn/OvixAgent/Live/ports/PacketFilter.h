#pragma once

#include <cstdint>
#include <linux/filter.h>
#include <vector>

namespace OvixAgent {

/// Which frames a port receives. Frames addressed to other stations, which an interface in
/// promiscuous mode passes, are received with `everything` only.
enum class PacketIntake : std::uint8_t {
    labelled,      ///< MPLS, and frames with a tag beyond the outermost
    labelledAndIp, ///< also IPv4 and IPv6 addressed to this host's MAC
    everything,    ///< for attachment circuits
};

/// A classic BPF program for a packet socket. It sees the Ethernet header without the outermost
/// tag, which the kernel has removed.
std::vector<sock_filter> packetFilter(PacketIntake intake);

} // namespace OvixAgent
