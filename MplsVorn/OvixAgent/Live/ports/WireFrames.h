#pragma once

#include <array>
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
/// The payload is not copied: the headers of a segment are written in front of it, over the
/// previous segment.
class FrameSegments {
  public:
    /// Starts with a frame, whose bytes must stay valid until its last segment. False, without
    /// segments, when it cannot be cut.
    bool start(std::span<std::uint8_t> frame, const OffloadedWork& work, CaptureTime time) noexcept;

    /// The next segment, valid until the following call; `frame.port` is not changed. False after
    /// the last.
    bool next(Frame& frame) noexcept {
        if (left_ == 0) {
            return false;
        }
        cut(frame);
        return true;
    }

    /// Drops the rest of the frame.
    void drop() noexcept { left_ = 0; }

  private:
    void cut(Frame& frame) noexcept;
    void finishIp(Wire::WritableBytes packet) const noexcept;
    void finishTcp(Wire::WritableBytes segment, bool isLast) const noexcept;
    void finishChecksum(Wire::WritableBytes segment) const noexcept;

    std::uint8_t* bytes_ = nullptr;
    SegmentedFrame layout_;
    CaptureTime time_;
    std::array<std::uint8_t, 256> headers_{}; ///< of the frame, as received
    std::size_t done_ = 0;                    ///< segments returned
    std::size_t left_ = 0;                    ///< segments to return
};

/// Turns a frame in the receive ring into the wire frame, in place: its outermost tag is put back
/// before its EtherType, and a checksum that the sender has left to the hardware is completed. The
/// frame must not hold several segments.
void toWireFrame(const RingFrame& received, Frame& frame, LiveCounts& counts) noexcept;

/// The same for a frame of several segments, which `segments` returns while the frame is in the
/// ring. When it cannot be cut, the reason is counted and there are no segments.
void toWireFrames(const RingFrame& received, FrameSegments& segments, LiveCounts& counts) noexcept;

} // namespace OvixAgent
