#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace OvixAgent {

/// What the sender of a frame has left to the network hardware: the header that the kernel puts
/// before the frame, in the format of virtio network devices (virtio 1.2 section 5.1.6) in host
/// byte order.
struct OffloadedWork {
    std::uint8_t flags = 0;
    std::uint8_t segmentation = 0; ///< 0: none, this is a wire frame
    std::uint16_t headerLength = 0;
    std::uint16_t segmentSize = 0;
    std::uint16_t checksumStart = 0;
    std::uint16_t checksumOffset = 0;

    bool needsChecksum() const noexcept { return (flags & 1U) != 0; }
};
static_assert(sizeof(OffloadedWork) == 10);

/// The layout of an Ethernet frame that holds several TCP or UDP segments: one set of headers, and
/// the payloads of all segments. Offsets count from the start of the frame.
struct SegmentedFrame {
    bool isIpv4 = false;
    bool isTcp = false;
    std::size_t network = 0;        ///< of the IP header, behind tags and labels
    std::size_t transport = 0;      ///< of the TCP or UDP header
    std::size_t payload = 0;        ///< also the size of all headers
    std::size_t end = 0;            ///< padding of the link may follow
    std::size_t segmentSize = 0;    ///< payload of each segment but the last; not 0
    std::uint16_t pseudoHeader = 0; ///< sum (RFC 1071) of the pseudo header without the length
};

/// Reads the headers: tags, labels, and TCP over IPv4, TCP over IPv6 or UDP over either, as `work`
/// says. Empty when they are not whole or differ from that. Also empty for fragments, IPv6
/// extension headers, which may change what the checksum covers, and jumbograms (RFC 2675).
std::optional<SegmentedFrame> readSegmentedFrame(std::span<const std::uint8_t> frame,
                                                 const OffloadedWork& work) noexcept;

} // namespace OvixAgent
