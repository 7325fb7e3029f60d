#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "State/TransmitPort.h"

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

/// Takes a frame whose bytes are borrowed for the call.
using FrameVisitor = std::function<void(const Frame&)>;

/// A port on a network interface of this host. It survives whatever happens to the interface:
/// nothing but its construction is an error, the rest is counted.
///
/// To be used by a loop that polls `descriptor()` for input. Nothing here blocks.
class LivePort : public TransmitPort {
  public:
    /// The name of the interface.
    virtual const std::string& name() const noexcept = 0;

    /// False when the interface was not there, or is gone. The port then receives nothing and sends
    /// nothing until `reopen()` finds it again.
    virtual bool isOpen() const noexcept = 0;
    /// Closes the port if it is open, and opens it anew; true when it is open then.
    virtual bool reopen() = 0;
    /// Why the port is not open; empty while it is.
    virtual const std::string& problem() const noexcept = 0;

    /// What to poll; -1 while the port is not open. It may change with `reopen()`.
    virtual int descriptor() const noexcept = 0;

    /// Hands out at most `budget` frames that have come in, in their order, and returns how many.
    /// To be called whenever poll reports anything, errors too, and when the interface is reported
    /// deleted, which not every socket reports: it is here that the port sees that it is gone.
    virtual std::size_t receive(const FrameVisitor& visitor, std::size_t budget) = 0;

    /// From now on nothing comes in any more; what has come in already is there to be received.
    virtual void stopIntake() {}

    /// Queues a copy of the frame, to be sent by `flush()` at the latest.
    void transmit(const Frame& frame) override = 0;
    /// Sends what is queued. What the kernel does not take now stays queued.
    virtual void flush() = 0;

    virtual const LiveCounts& counts() = 0;
};

} // namespace OvixAgent
