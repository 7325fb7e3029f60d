#include "Live/ports/WireFrames.h"

#include <algorithm>
#include <cassert>

#include "Wire/Checksum.h"
#include "Wire/Ethernet.h"
#include "Wire/Ip.h"
#include "Wire/Transport.h"

namespace OvixAgent {

bool FrameSegments::start(std::span<std::uint8_t> frame, const OffloadedWork& work,
                          CaptureTime time) noexcept {
    left_ = 0;
    const auto layout = readSegmentedFrame(frame, work);
    if (!layout || layout->payload > headers_.size()) {
        return false;
    }
    layout_ = *layout;
    bytes_ = frame.data();
    time_ = time;
    std::copy_n(bytes_, layout_.payload, headers_.data());
    const std::size_t payload = layout_.end - layout_.payload;
    done_ = 0;
    // A frame without payload has one segment.
    left_ = std::max<std::size_t>(1, (payload + layout_.segmentSize - 1) / layout_.segmentSize);
    return true;
}

void FrameSegments::cut(Frame& frame) noexcept {
    assert(left_ > 0);
    const std::size_t at = layout_.payload + done_ * layout_.segmentSize;
    assert(at <= layout_.end);
    const std::size_t size = layout_.payload + std::min(layout_.segmentSize, layout_.end - at);
    std::uint8_t* const start = bytes_ + (at - layout_.payload);
    std::copy_n(headers_.data(), layout_.payload, start);
    finishIp({start + layout_.network, size - layout_.network});
    const Wire::WritableBytes segment{start + layout_.transport, size - layout_.transport};
    if (layout_.isTcp) {
        finishTcp(segment, left_ == 1);
    } else {
        Wire::UdpWriter(segment).lengthIs(segment.size());
    }
    finishChecksum(segment);
    ++done_;
    --left_;
    frame.bytes = {start, size};
    frame.originalLength = static_cast<std::uint32_t>(size);
    frame.time = time_;
}

void FrameSegments::finishIp(Wire::WritableBytes packet) const noexcept {
    if (!layout_.isIpv4) {
        Wire::Ipv6Writer(packet).payloadLengthIs(packet.size() - Wire::Ipv6::size);
        return;
    }
    const Wire::Ipv4Writer header(packet);
    header.totalLengthIs(packet.size());
    header.identificationIs(static_cast<std::uint16_t>(header.identification() + done_));
    header.checksumIs(0);
    Wire::completeChecksum(packet.first(layout_.transport - layout_.network), 0,
                           Wire::Ipv4::checksumAt);
}

void FrameSegments::finishTcp(Wire::WritableBytes segment, bool isLast) const noexcept {
    const Wire::TcpWriter header(segment);
    const auto passed = static_cast<std::uint32_t>(done_ * layout_.segmentSize);
    header.sequenceIs(header.sequence() + passed);
    const unsigned cleared = (isLast ? 0U : Wire::Tcp::finFlag | Wire::Tcp::pushFlag) |
                             (done_ == 0 ? 0U : Wire::Tcp::cwrFlag);
    header.flagsAre(static_cast<std::uint8_t>(header.flags() & ~cleared));
}

void FrameSegments::finishChecksum(Wire::WritableBytes segment) const noexcept {
    const auto length = static_cast<std::uint32_t>(segment.size());
    const std::uint16_t pseudoHeader = Wire::addSums(layout_.pseudoHeader, length);
    if (layout_.isTcp) {
        Wire::TcpWriter(segment).checksumIs(pseudoHeader);
        Wire::completeChecksum(segment, 0, Wire::Tcp::checksumAt);
    } else {
        Wire::UdpWriter(segment).checksumIs(pseudoHeader);
        Wire::completeChecksum(segment, 0, Wire::Udp::checksumAt);
    }
}

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
