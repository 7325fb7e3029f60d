#pragma once

#include <cstdint>
#include <cstring>

#include "FastPath/EgressLines.h"
#include "Ovix/packet/PacketHeader.h"
#include "State/Frame.h"
#include "State/LinkHeader.h"
#include "Wire/Ethernet.h"

namespace OvixAgent {

/// A frame on its way: the packet without its link header, where it lies.
struct PacketWork {
    WritableFrame* frame = nullptr;
    std::uint8_t* packet = nullptr; ///< labels or an IP header
    std::uint32_t length = 0;
    PortIndex port = 0;         ///< that it is for: a sub-interface, or the one it came in at
    std::uint32_t tagBytes = 0; ///< of the sub-interface's own tags
    bool ended = false;         ///< labels above the packet have ended here
    bool isHashed = false;      ///< `hash` is the flow's, of the frame as it came in
    std::uint32_t hash = 0;
    Ovix::PktHdrType type = Ovix::PktHdrType::mpls; ///< that the packet starts with

    /// Whether a packet that starts so far before this one has room, its link header included.
    bool hasRoom(std::size_t before) const noexcept {
        constexpr std::size_t longestLink = Wire::Ethernet::size + 2 * Wire::Tag::size;
        const auto front = static_cast<std::size_t>(packet - frame->bytes) + frame->headroom;
        return before + longestLink <= front;
    }
    bool isToGroup() const noexcept { return (frame->bytes[0] & 1U) != 0; }
    /// The frame's length without those tags, as labels count it.
    std::uint32_t counted() const noexcept { return frame->size - tagBytes; }
    /// The packet as it came in.
    Wire::Bytes received() const noexcept {
        const std::size_t link = Wire::Ethernet::size + tagBytes;
        return {frame->bytes + link, frame->size - link};
    }
    Wire::WritableBytes bytes() const noexcept { return {packet, length}; }
};

/// Puts the link header in front and returns the frame to be sent.
[[gnu::always_inline]] inline Wire::Bytes withLinkHeader(std::uint8_t* packet, std::uint32_t length,
                                                         const EgressLine& line,
                                                         std::uint16_t etherType) noexcept {
    const std::uint32_t size = Wire::Ethernet::size + line.tagBytes;
    std::uint8_t* const link = packet - size;
    std::memcpy(link, line.macs.data(), line.macs.size());
    if (line.tagBytes > 0) [[unlikely]] {
        std::memcpy(link + Wire::Ethernet::macsSize, line.tags.data(), line.tagBytes);
    }
    Lumo::NetU16(etherType).store(packet - Wire::Ethernet::etherTypeSize);
    return {link, size + length};
}

/// The same of a packet whose line has no tags.
[[gnu::always_inline]] inline Wire::Bytes withPlainLinkHeader(std::uint8_t* packet,
                                                              std::uint32_t length,
                                                              const EgressLine& line,
                                                              std::uint16_t etherType) noexcept {
    std::uint8_t* const link = packet - Wire::Ethernet::size;
    std::memcpy(link, line.macs.data(), line.macs.size());
    Lumo::NetU16(etherType).store(link + Wire::Ethernet::etherTypeAt);
    return {link, Wire::Ethernet::size + length};
}

} // namespace OvixAgent
