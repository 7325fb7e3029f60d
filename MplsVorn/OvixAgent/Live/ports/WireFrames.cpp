#include "Live/ports/WireFrames.h"

#include <algorithm>
#include <cassert>

#include "Wire/Checksum.h"
#include "Wire/Ethernet.h"
#include "Wire/Ip.h"
#include "Wire/Transport.h"

namespace OvixAgent {

namespace {

/// Every segment has the headers: no frame makes more bytes than it is worth.
constexpr std::size_t longestHeaders = 256;

} // namespace

bool FrameSegments::start(std::span<std::uint8_t> frame, const OffloadedWork& work,
                          CaptureTime time) noexcept {
    left_ = 0;
    const auto layout = readSegmentedFrame(frame, work);
    if (!layout || layout->payload > longestHeaders) {
        return false;
    }
    layout_ = *layout;
    bytes_ = frame.data();
    time_ = time;
    const std::size_t payload = layout_.end - layout_.payload;
    done_ = 0;
    // A frame without payload has one segment.
    left_ = std::max<std::size_t>(1, (payload + layout_.segmentSize - 1) / layout_.segmentSize);
    return true;
}

std::size_t FrameSegments::nextSize() const noexcept {
    return left_ == 0 ? 0
                      : layout_.payload + std::min(layout_.segmentSize, layout_.end - payloadAt());
}

WritableFrame FrameSegments::next(std::uint8_t* to) noexcept {
    assert(left_ > 0 && payloadAt() <= layout_.end);
    const std::size_t size = nextSize();
    std::copy_n(bytes_, layout_.payload, to);
    std::copy_n(bytes_ + payloadAt(), size - layout_.payload, to + layout_.payload);
    finishIp({to + layout_.network, size - layout_.network});
    const Wire::WritableBytes segment{to + layout_.transport, size - layout_.transport};
    if (layout_.isTcp) {
        finishTcp(segment, left_ == 1);
    } else {
        Wire::UdpWriter(segment).lengthIs(segment.size());
    }
    finishChecksum(segment);
    ++done_;
    --left_;
    const auto length = static_cast<std::uint32_t>(size);
    return {.bytes = to, .size = length, .originalLength = length, .time = time_};
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
    return received.bytes.size() < received.length;
}

/// Whether the kernel has removed a tag, which can be put back.
bool hasTagRemoved(const RingFrame& received) noexcept {
    return received.removedTag && received.bytes.size() >= macsSize;
}

/// Moves the MAC addresses into the four bytes before the frame, and writes the tag behind them.
std::span<std::uint8_t> putTagBack(const RingFrame& received) noexcept {
    assert(hasTagRemoved(received) && received.headroom >= tagSize);
    std::uint8_t* const start = received.bytes.data() - tagSize;
    std::copy_n(received.bytes.data(), macsSize, start);
    received.removedTag->store(start + macsSize);
    return {start, received.bytes.size() + tagSize};
}

} // namespace

WritableFrame toWireFrame(const RingFrame& received, LiveCounts& counts) noexcept {
    assert(received.offloaded.segmentation == 0);
    if (isCutShort(received)) {
        counts.add(LiveEvent::truncated);
    } else if (received.offloaded.needsChecksum()) {
        Wire::completeChecksum(received.bytes, received.offloaded.checksumStart,
                               received.offloaded.checksumOffset);
    }
    const bool isTagged = hasTagRemoved(received);
    const std::span<std::uint8_t> bytes = isTagged ? putTagBack(received) : received.bytes;
    const auto grown = static_cast<std::uint32_t>(isTagged ? tagSize : 0);
    return {.bytes = bytes.data(),
            .size = static_cast<std::uint32_t>(bytes.size()),
            .originalLength = received.length + grown,
            .headroom = received.headroom - grown,
            .time = received.time};
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
    if (!segments.start(frame, work, received.time)) {
        counts.add(LiveEvent::unsegmented);
    }
}

} // namespace OvixAgent
