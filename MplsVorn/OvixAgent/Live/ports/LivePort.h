#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <string_view>

#include "Live/ports/PacketIntake.h"
#include "State/Frame.h"

namespace OvixAgent {

/// Events of a live port.
enum class LiveEvent : std::uint8_t {
    received,
    sent,
    ringFull,      ///< not received: the port had no room
    truncated,     ///< longer than the port allows; cut short, or dropped if segmented
    unsegmented,   ///< not received: several segments in one frame that could not be cut
    queueFull,     ///< not sent: the transmit queue had no room
    wouldBlock,    ///< the socket accepts no more for now; the frames stay queued
    noBuffers,     ///< not sent: the kernel's queue is full
    interrupted,   ///< a call interrupted by a signal, and repeated
    linkDown,      ///< not sent, or the socket failed: the link is down
    interfaceGone, ///< not sent, or the port closed: the interface was removed
    tooLong,       ///< not sent: longer than the interface's MTU
    failed,        ///< not sent for another reason
};

inline constexpr std::array<std::string_view, 13> liveEventNames{
    "received",       "sent",        "ring full",  "truncated",   "unsegmented",
    "queue full",     "would block", "no buffers", "interrupted", "link down",
    "interface gone", "too long",    "failed"};

/// Counts the events of a live port.
class LiveCounts {
  public:
    void add(LiveEvent event, std::uint64_t times = 1) noexcept { counts_[at(event)] += times; }
    std::uint64_t of(LiveEvent event) const noexcept { return counts_[at(event)]; }

    void addReceived(std::span<const WritableFrame> burst) noexcept {
        add(LiveEvent::received, burst.size());
        for (const WritableFrame& frame : burst) {
            receivedBytes_ += frame.originalLength;
        }
    }
    /// As they were on the wire, without the frame check sequence.
    std::uint64_t receivedBytes() const noexcept { return receivedBytes_; }

  private:
    static std::size_t at(LiveEvent event) noexcept { return static_cast<std::size_t>(event); }

    std::array<std::uint64_t, liveEventNames.size()> counts_{};
    std::uint64_t receivedBytes_ = 0;
};

/// Called with at most `burstFrames` frames that have come one after the other, each with a
/// headroom of at least `frameHeadroom` bytes. They and their bytes are lent for the call.
using BurstVisitor = std::function<void(std::span<WritableFrame>)>;

/// A port on a network interface of this host. It survives changes of the interface: errors are
/// counted, and reported by problem() while the port is closed.
///
/// For a loop that polls `descriptor()` for input. Nothing blocks.
class LivePort : public TransmitPort {
  public:
    /// The name of the interface.
    virtual const std::string& name() const noexcept = 0;

    /// False while the interface cannot be used. The port then neither receives nor sends until
    /// `reopen()` succeeds.
    virtual bool isOpen() const noexcept = 0;
    /// Closes the port if it is open, and opens it again; returns isOpen().
    virtual bool reopen() = 0;
    /// Why the port is not open; empty while it is.
    virtual const std::string& problem() const noexcept = 0;

    /// The interface whose link goes down for the neighbours when it is taken down; 0: there is
    /// none, or it loses its carrier with the port.
    virtual unsigned int linkIndex() const noexcept { return 0; }

    /// What is wrong although the port is open; empty when nothing is.
    virtual std::string warning() const { return {}; }

    /// What to poll; -1 while the port is not open. It may change with `reopen()`.
    virtual int descriptor() const noexcept = 0;

    /// Whether `receive` is to be called even though poll reports nothing: the port is a card's.
    virtual bool isPolled() const noexcept { return false; }

    /// Calls `visitor` with at most `budget` received frames, in order, and returns their number.
    /// No frame waits for others to come.
    /// To be called whenever poll reports anything, errors included, and when the interface is
    /// reported as deleted, which not every socket reports: this call notices it.
    virtual std::size_t receive(const BurstVisitor& visitor, std::size_t budget) = 0;

    /// Which frames are received from now on; a closed port remembers it. Nothing to a TAP device,
    /// which passes every frame.
    virtual void intakeIs(PacketIntake) {}
    /// Stops receiving new frames; frames received so far remain to be fetched.
    virtual void stopIntake() {}

    /// Queues a copy of the frame, which is sent by `flush()` at the latest.
    void transmit(const Frame& frame) override = 0;
    /// Sends the queued frames. Those that the kernel does not accept now stay queued.
    virtual void flush() = 0;

    virtual const LiveCounts& counts() = 0;
    /// How many frames the kernel keeps until they are received; 0: the device's own queue.
    virtual std::size_t ringFrames() const noexcept { return 0; }
};

} // namespace OvixAgent
