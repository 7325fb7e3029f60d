#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <span>
#include <stdexcept>

namespace OvixAgent {

/// A point in time, counted from 1970-01-01 00:00 UTC; 0 <= nanoseconds < 1,000,000,000.
struct CaptureTime {
    std::int64_t seconds = 0;
    std::uint32_t nanoseconds = 0;

    friend auto operator<=>(const CaptureTime&, const CaptureTime&) = default;
};

inline CaptureTime timeNow() noexcept {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return {now.tv_sec, static_cast<std::uint32_t>(now.tv_nsec)};
}

/// A frame as a capture holds it. The bytes are borrowed.
struct Frame {
    std::uint32_t port = 0; ///< index of the port that it came in at
    CaptureTime time;
    std::span<const std::uint8_t> bytes; ///< what was captured of it, Ethernet header first
    std::uint32_t originalLength = 0;    ///< its length on the wire, at least bytes.size()
    bool isOwn = false;                  ///< made by this router, which trusts it
    bool alertsRouters = false;          ///< leaves under a router alert label if it has labels
};

/// A received frame that may be changed where it lies: nobody needs its bytes afterwards, and the
/// `headroom` bytes in front of them are free. The memory is borrowed.
struct WritableFrame {
    std::uint8_t* bytes = nullptr;    ///< Ethernet header first
    std::uint32_t size = 0;           ///< what was captured of it
    std::uint32_t originalLength = 0; ///< its length on the wire, at least `size`
    std::uint32_t headroom = 0;
    std::uint32_t port = 0; ///< index of the port that it came in at
    CaptureTime time;

    Frame frame() const noexcept { return {port, time, {bytes, size}, originalLength}; }
};

/// The most frames of a burst.
inline constexpr std::size_t burstFrames = 64;
/// The headroom that ports give to frames: room for a link header with tags and a label stack.
inline constexpr std::size_t frameHeadroom = 128;

struct Traffic {
    std::uint64_t frames = 0;
    std::uint64_t bytes = 0;

    void add(std::size_t frameBytes) noexcept {
        ++frames;
        bytes += frameBytes;
    }

    Traffic& operator+=(const Traffic& more) noexcept {
        frames += more.frames;
        bytes += more.bytes;
        return *this;
    }

    friend bool operator==(const Traffic&, const Traffic&) = default;
};

/// A capture that cannot be read or written; `what()` begins with the file's name.
class CaptureError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/// Where frames leave the agent: a capture, an interface, or memory.
class TransmitPort {
  public:
    TransmitPort() = default;
    TransmitPort(const TransmitPort&) = delete;
    TransmitPort& operator=(const TransmitPort&) = delete;
    virtual ~TransmitPort() = default;

    /// The frame's bytes are borrowed for the call. Throws CaptureError when it cannot be written.
    virtual void transmit(const Frame& frame) = 0;
    /// Several frames in order, whose bytes nobody needs afterwards.
    virtual void transmitBurst(std::span<const Frame> frames);
};

} // namespace OvixAgent
