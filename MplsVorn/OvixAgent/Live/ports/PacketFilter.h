#pragma once

#include <cstdint>
#include <linux/filter.h>
#include <vector>

namespace OvixAgent {

/// Which frames a port takes in. A frame that the host's own interface has filtered out as
/// addressed to another station (as on a link in promiscuous mode) is taken by `everything` only.
enum class PacketIntake : std::uint8_t {
    labelled,      ///< MPLS, and whatever has a second 802.1Q or 802.1ad tag
    labelledAndIp, ///< besides, IPv4 and IPv6 addressed to this host's MAC
    everything,    ///< what an attachment circuit takes
};

/// A classic BPF program for a packet socket, which sees a frame from its MAC addresses on and with
/// its outermost tag taken off by the kernel: what is filtered is what the tag stands before.
std::vector<sock_filter> packetFilter(PacketIntake intake);

} // namespace OvixAgent
