#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "Live/ports/SegmentedFrame.h"
#include "State/Frame.h"

namespace OvixAgent {

/// Cuts a frame of several TCP or UDP segments into the frames that the wire would have carried, as
/// the kernel does ahead of hardware that cannot: each has all headers, lengths and checksums of
/// its own, and its place in the TCP stream; IPv4 identifications count up. FIN and PSH stay with
/// the last segment, CWR with the first (RFC 3168).
///
/// The payload is not copied: the headers of a segment are written in front of it, over the segment
/// that has been handed out before.
class FrameSegments {
  public:
    /// Takes up a frame, which has to stay until its last segment has been handed out. False when
    /// it is not to be cut; there are no segments then.
    bool start(std::span<std::uint8_t> frame, const OffloadedWork& work, CaptureTime time) noexcept;

    /// The next segment, its bytes good until the following call; `frame.port` is left as it is.
    /// False when there is none.
    bool next(Frame& frame) noexcept {
        if (left_ == 0) {
            return false;
        }
        cut(frame);
        return true;
    }

    /// Forgets the rest of the frame.
    void drop() noexcept { left_ = 0; }

  private:
    void cut(Frame& frame) noexcept;
    void finishIp(std::uint8_t* header, std::size_t length) const noexcept;
    void finishTcp(std::uint8_t* header, bool isLast) const noexcept;
    void finishChecksum(std::span<std::uint8_t> segment) const noexcept;

    std::uint8_t* bytes_ = nullptr;
    SegmentedFrame layout_;
    CaptureTime time_;
    std::array<std::uint8_t, 256> headers_{}; ///< of the frame, as they came
    std::size_t done_ = 0;                    ///< segments handed out
    std::size_t left_ = 0;                    ///< segments to be handed out
};

} // namespace OvixAgent
