#include "Live/ports/FrameSegments.h"

#include <algorithm>

#include "Ip/InternetChecksum.h"
#include "Lumo/NetInt.h"

namespace OvixAgent {

namespace {

using Lumo::NetU16;
using Lumo::NetU32;

} // namespace

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
    // One that has no payload is a frame all the same.
    left_ = std::max<std::size_t>(1, (payload + layout_.segmentSize - 1) / layout_.segmentSize);
    return true;
}

void FrameSegments::cut(Frame& frame) noexcept {
    const std::size_t at = layout_.payload + done_ * layout_.segmentSize;
    const std::size_t size = layout_.payload + std::min(layout_.segmentSize, layout_.end - at);
    std::uint8_t* const start = bytes_ + (at - layout_.payload);
    std::copy_n(headers_.data(), layout_.payload, start);
    finishIp(start + layout_.network, size - layout_.network);
    const std::span<std::uint8_t> segment{start + layout_.transport, size - layout_.transport};
    if (layout_.isTcp) {
        finishTcp(segment.data(), left_ == 1);
    } else {
        constexpr std::size_t lengthAt = 4;
        NetU16(static_cast<std::uint16_t>(segment.size())).store(segment.data() + lengthAt);
    }
    finishChecksum(segment);
    ++done_;
    --left_;
    frame.bytes = {start, size};
    frame.originalLength = static_cast<std::uint32_t>(size);
    frame.time = time_;
}

void FrameSegments::finishIp(std::uint8_t* header, std::size_t length) const noexcept {
    constexpr std::size_t ipv4Identification = 4;
    constexpr std::size_t ipv4Checksum = 10;
    if (!layout_.isIpv4) {
        constexpr std::size_t ipv6Size = 40;
        NetU16(static_cast<std::uint16_t>(length - ipv6Size)).store(header + 4);
        return;
    }
    const std::uint16_t first = NetU16::load(header + ipv4Identification).value();
    NetU16(static_cast<std::uint16_t>(length)).store(header + 2);
    NetU16(static_cast<std::uint16_t>(first + done_)).store(header + ipv4Identification);
    NetU16(0).store(header + ipv4Checksum);
    completeChecksum({header, layout_.transport - layout_.network}, 0, ipv4Checksum);
}

void FrameSegments::finishTcp(std::uint8_t* header, bool isLast) const noexcept {
    constexpr std::size_t sequence = 4;
    constexpr std::size_t flags = 13;
    constexpr unsigned int finAndPush = 0x01 | 0x08;
    constexpr unsigned int congestionWindowReduced = 0x80;
    const std::uint32_t first = NetU32::load(header + sequence).value();
    const auto passed = static_cast<std::uint32_t>(done_ * layout_.segmentSize);
    NetU32(first + passed).store(header + sequence);
    const unsigned int cleared =
        (isLast ? 0 : finAndPush) | (done_ == 0 ? 0 : congestionWindowReduced);
    header[flags] = static_cast<std::uint8_t>(header[flags] & ~cleared);
}

void FrameSegments::finishChecksum(std::span<std::uint8_t> segment) const noexcept {
    const std::size_t at = layout_.isTcp ? 16 : 6;
    const std::size_t pseudoHeader = layout_.pseudoHeader + segment.size();
    NetU16(static_cast<std::uint16_t>((pseudoHeader & 0xffffU) + (pseudoHeader >> 16U)))
        .store(segment.data() + at);
    completeChecksum(segment, 0, at);
}

} // namespace OvixAgent
