#include "Live/ports/FrameSegments.h"

#include <algorithm>
#include <cassert>

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

} // namespace OvixAgent
