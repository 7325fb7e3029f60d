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
};

struct Traffic {
    std::uint64_t frames = 0;
    std::uint64_t bytes = 0;

    void add(std::size_t frameBytes) noexcept {
        ++frames;
        bytes += frameBytes;
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
};

} // namespace OvixAgent
