#pragma once

#include <cstdint>
#include <cstring>

#include "FastPath/EgressLines.h"
#include "Ovix/packet/PacketHeader.h"
#include "State/Frame.h"
#include "Wire/Ethernet.h"

namespace OvixAgent {

/// A frame on its way: the packet without its link header, where it lies.
struct PacketWork {
    WritableFrame* frame = nullptr;
    std::uint8_t* packet = nullptr; ///< labels or an IP header
    std::uint32_t length = 0;
    PortIndex port = 0;         ///< that it is for: a sub-interface, or the one it came in at
    std::uint32_t tagBytes = 0; ///< of the sub-interface's own tags
    Ovix::PktHdrType type = Ovix::PktHdrType::mpls; ///< that the packet starts with

    /// Whether a packet that starts so far before this one has room, its link header included.
    bool hasRoom(std::size_t before) const noexcept {
        constexpr std::size_t longestLink = Wire::Ethernet::size + 2 * Wire::Tag::size;
        const auto front = static_cast<std::size_t>(packet - frame->bytes) + frame->headroom;
        return before + longestLink <= front;
    }
    /// The frame's length without those tags, as labels count it.
    std::uint32_t counted() const noexcept { return frame->size - tagBytes; }
    Wire::WritableBytes bytes() const noexcept { return {packet, length}; }
};

/// Puts the link header in front and returns the frame to be sent.
inline Frame withLinkHeader(const PacketWork& work, const EgressLine& line) noexcept {
    std::uint16_t etherType = Wire::EtherType::mpls;
    if (work.type != Ovix::PktHdrType::mpls) {
        etherType =
            work.type == Ovix::PktHdrType::ipv4 ? Wire::EtherType::ipv4 : Wire::EtherType::ipv6;
    }
    const std::uint32_t size = Wire::Ethernet::size + line.tagBytes;
    std::uint8_t* const link = work.packet - size;
    std::memcpy(link, line.mac.data(), Wire::Ethernet::macSize);
    std::memcpy(link + Wire::Ethernet::macSize, line.port->mac.data(), Wire::Ethernet::macSize);
    if (line.tagBytes > 0) [[unlikely]] {
        std::memcpy(link + Wire::Ethernet::macsSize, line.tags.data(), line.tagBytes);
    }
    Lumo::NetU16(etherType).store(work.packet - Wire::Ethernet::etherTypeSize);
    const std::uint32_t length = size + work.length;
    return {work.port, work.frame->time, {link, length}, length};
}

} // namespace OvixAgent
