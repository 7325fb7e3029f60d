#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "Live/ports/LivePort.h"
#include "Live/ports/PacketRing.h"
#include "State/Frame.h"
#include "Wire/View.h"

namespace OvixAgent {

/// Cuts a frame of several TCP or UDP segments into wire frames, as the kernel does for hardware
/// without segmentation offload: each has its own headers, lengths, checksums and TCP sequence
/// number; IPv4 identifications count up. FIN and PSH stay with the last segment, CWR with the
/// first (RFC 3168).
///
/// Each is written to a place of its own.
class FrameSegments {
  public:
    /// Starts with a frame, whose bytes must stay valid until its last segment. False, without
    /// segments, when it cannot be cut.
    bool start(std::span<std::uint8_t> frame, const OffloadedWork& work, CaptureTime time) noexcept;

    /// The size of the next segment; 0 after the last.
    std::size_t nextSize() const noexcept;
    /// Writes the next segment to `to`, which has room for it. Its headroom and port are not set.
    WritableFrame next(std::uint8_t* to) noexcept;

    /// Drops the rest of the frame.
    void drop() noexcept { left_ = 0; }

  private:
    std::size_t payloadAt() const noexcept { return layout_.payload + done_ * layout_.segmentSize; }
    void finishIp(Wire::WritableBytes packet) const noexcept;
    void finishTcp(Wire::WritableBytes segment, bool isLast) const noexcept;
    void finishChecksum(Wire::WritableBytes segment) const noexcept;

    const std::uint8_t* bytes_ = nullptr;
    SegmentedFrame layout_;
    CaptureTime time_;
    std::size_t done_ = 0; ///< segments returned
    std::size_t left_ = 0; ///< segments to return
};

/// Turns a frame in the receive ring into the wire frame, in place: its outermost tag is put back
/// before its EtherType, and a checksum that the sender has left to the hardware is completed. The
/// frame must not hold several segments. The port is not set.
WritableFrame toWireFrame(const RingFrame& received, LiveCounts& counts) noexcept;

/// The same for a frame of several segments, which `segments` returns while the frame is in the
/// ring. When it cannot be cut, the reason is counted and there are no segments.
void toWireFrames(const RingFrame& received, FrameSegments& segments, LiveCounts& counts) noexcept;

} // namespace OvixAgent
