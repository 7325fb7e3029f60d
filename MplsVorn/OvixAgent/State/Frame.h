#pragma once

#include <compare>
#include <cstdint>
#include <ctime>
#include <span>

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

} // namespace OvixAgent
