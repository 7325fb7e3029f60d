#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "Ip/IpPacket.h"
#include "Lumo/MplsLabel.h"

namespace OvixAgent {

/// The IP packet of a frame, and what stands in front of it. A view of the frame's bytes.
struct LabelledPacket {
    std::span<const std::uint8_t> labels; ///< whole entries, the last one the bottom; may be empty
    IpPacket ip;                          ///< without fault, and without the link's padding
    bool isToGroup = false;               ///< sent to a broadcast or multicast MAC address
    std::span<const std::uint8_t> tags;   ///< whole 802.1Q tags, TPID first; may be empty
};

/// Takes an Ethernet frame apart: VLAN tags, the label stack if there is one, and an IP packet in
/// which nothing is wrong. Empty for any other frame. To be called on the packet thread.
std::optional<LabelledPacket> readLabelledPacket(std::span<const std::uint8_t> frame);

/// The entries of a label stack, the outermost first. `labels` must be whole entries.
std::vector<Lumo::MplsLabelEntry> labelEntries(std::span<const std::uint8_t> labels);

} // namespace OvixAgent
