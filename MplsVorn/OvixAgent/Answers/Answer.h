#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include "Answers/LabelledPacket.h"

namespace OvixAgent {

/// A packet that this device sends in answer to a frame.
struct Answer {
    std::vector<std::uint8_t> packet; ///< a whole IP packet
    /// With labels, the packet is to be handled as if it had come in with them, so that this
    /// router's own operation on the outermost follows; without, it is routed.
    std::vector<Lumo::MplsLabelEntry> labels;
};

/// Whether an address can be reached by IP routing from here.
using IsRoutable = std::function<bool(const Lumo::IpGenAddr& address)>;

/// How an answer gets to the source of the packet that it answers: by IP routing, else along
/// the LSP that the packet was on, since the router at its end knows the way back (RFC 3032 section
/// 2.3.2). There the answer gets the labels of the packet, each with a TTL of 255; router alert
/// labels are left out, as they would only bring it back here. Empty when there is no packet, or
/// neither way.
std::optional<Answer> answerTo(const LabelledPacket& received, std::vector<std::uint8_t> packet,
                               const IsRoutable& isRoutable);

} // namespace OvixAgent
