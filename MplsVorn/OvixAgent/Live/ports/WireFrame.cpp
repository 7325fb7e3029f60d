#include "Live/ports/WireFrame.h"

#include <algorithm>
#include <cassert>

#include "Wire/Checksum.h"
#include "Wire/Ethernet.h"

namespace OvixAgent {

namespace {

constexpr std::size_t macsSize = Wire::Ethernet::macsSize;
constexpr std::size_t tagSize = Wire::Tag::size;

bool isCutShort(const RingFrame& received) noexcept {
    return received.bytes.size() < received.header->tp_len;
}

/// Whether the kernel has removed a tag, which can be put back.
bool hasTagRemoved(const RingFrame& received) noexcept {
    return (received.header->tp_status & TP_STATUS_VLAN_VALID) != 0 &&
           received.bytes.size() >= macsSize;
}

CaptureTime timeOf(const tpacket3_hdr& header) noexcept {
    return {header.tp_sec, header.tp_nsec};
}

/// Moves the MAC addresses into the four bytes before the frame, and writes the tag behind them.
std::span<std::uint8_t> putTagBack(const RingFrame& received) noexcept {
    assert(hasTagRemoved(received));
    const tpacket3_hdr& header = *received.header;
    const bool isTypeKnown = (header.tp_status & TP_STATUS_VLAN_TPID_VALID) != 0;
    const std::uint16_t type = isTypeKnown ? header.hv1.tp_vlan_tpid : Wire::EtherType::vlan;
    const auto tci = static_cast<std::uint16_t>(header.hv1.tp_vlan_tci);
    std::uint8_t* const start = received.bytes.data() - tagSize;
    std::copy_n(received.bytes.data(), macsSize, start);
    Wire::Tag{Lumo::NetU16(type), Lumo::NetU16(tci)}.store(start + macsSize);
    return {start, received.bytes.size() + tagSize};
}

} // namespace

void toWireFrame(const RingFrame& received, Frame& frame, LiveCounts& counts) noexcept {
    assert(received.offloaded.segmentation == 0);
    const tpacket3_hdr& header = *received.header;
    if (isCutShort(received)) {
        counts.add(LiveEvent::truncated);
    } else if (received.offloaded.needsChecksum()) {
        Wire::completeChecksum(received.bytes, received.offloaded.checksumStart,
                               received.offloaded.checksumOffset);
    }
    const bool isTagged = hasTagRemoved(received);
    frame.bytes = isTagged ? putTagBack(received) : received.bytes;
    frame.originalLength = header.tp_len + static_cast<std::uint32_t>(isTagged ? tagSize : 0);
    frame.time = timeOf(header);
}

void toWireFrames(const RingFrame& received, FrameSegments& segments, LiveCounts& counts) noexcept {
    assert(received.offloaded.segmentation != 0);
    if (isCutShort(received)) {
        counts.add(LiveEvent::truncated);
        return;
    }
    OffloadedWork work = received.offloaded;
    std::span<std::uint8_t> frame = received.bytes;
    if (hasTagRemoved(received)) {
        frame = putTagBack(received);
        work.checksumStart = static_cast<std::uint16_t>(work.checksumStart + tagSize);
    }
    if (!segments.start(frame, work, timeOf(*received.header))) {
        counts.add(LiveEvent::unsegmented);
    }
}

} // namespace OvixAgent
