#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "Ip/IpPacket.h"
#include "Lumo/MplsLabel.h"

namespace OvixAgent {

/// The IP packet of a frame, its label stack and VLAN tags. A view of the frame's bytes.
struct LabelledPacket {
    std::span<const std::uint8_t> labels; ///< whole entries, the last one the bottom; may be empty
    IpPacket ip;                          ///< valid, and without the link's padding
    bool isToGroup = false;               ///< sent to a broadcast or multicast MAC address
    std::span<const std::uint8_t> tags;   ///< whole 802.1Q tags, TPID first; may be empty
};

/// Parses an Ethernet frame: VLAN tags, the label stack if there is one, and a valid IP packet.
/// Empty for any other frame. To be called on the packet thread.
std::optional<LabelledPacket> readLabelledPacket(std::span<const std::uint8_t> frame);

/// The entries of a label stack, the outermost first. `labels` must be whole entries.
std::vector<Lumo::MplsLabelEntry> labelEntries(std::span<const std::uint8_t> labels);

} // namespace OvixAgent
