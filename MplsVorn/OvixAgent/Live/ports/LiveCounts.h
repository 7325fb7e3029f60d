#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace OvixAgent {

/// What may happen to the frames of a live port.
enum class LiveEvent : std::uint8_t {
    received,
    sent,
    ringFull,      ///< the kernel had no room for it in the receive ring
    truncated,     ///< longer than the receive ring holds; its beginning was handed out, if at all
    unsegmented,   ///< several segments in one that could not be cut up; not handed out
    queueFull,     ///< no room for it in the transmit queue; not sent
    wouldBlock,    ///< the socket took no more for now; the frames wait in the queue
    noBuffers,     ///< refused by the kernel's queue; not sent
    interrupted,   ///< a call that a signal interrupted; made again
    linkDown,      ///< not sent, or nothing to be received: the link is down
    interfaceGone, ///< not sent, or the port shut: there is no such interface any more
    tooLong,       ///< longer than the interface's MTU; not sent
    failed,        ///< refused for another reason; not sent
};

inline constexpr std::array<std::string_view, 13> liveEventNames{
    "received",       "sent",        "ring full",  "truncated",   "unsegmented",
    "queue full",     "would block", "no buffers", "interrupted", "link down",
    "interface gone", "too long",    "failed"};

/// How often each thing has happened to the frames of a live port.
class LiveCounts {
  public:
    void add(LiveEvent event, std::uint64_t times = 1) noexcept { counts_[at(event)] += times; }
    std::uint64_t of(LiveEvent event) const noexcept { return counts_[at(event)]; }

  private:
    static std::size_t at(LiveEvent event) noexcept { return static_cast<std::size_t>(event); }

    std::array<std::uint64_t, liveEventNames.size()> counts_{};
};

} // namespace OvixAgent
