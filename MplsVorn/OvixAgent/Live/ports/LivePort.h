#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
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
    forHost,       ///< received by a card for this host's own stack, and given to that
    failed,        ///< not sent for another reason
};

inline constexpr std::array<std::string_view, 14> liveEventNames{
    "received",       "sent",        "ring full",    "truncated",   "unsegmented",
    "queue full",     "would block", "no buffers",   "interrupted", "link down",
    "interface gone", "too long",    "for the host", "failed"};

/// Counts the events of a live port: by one thread, while others may read.
class LiveCounts {
  public:
    void add(LiveEvent event, std::uint64_t times = 1) noexcept { add(counts_[at(event)], times); }
    std::uint64_t of(LiveEvent event) const noexcept {
        return counts_[at(event)].load(std::memory_order_relaxed);
    }

    void addReceived(std::span<const WritableFrame> burst) noexcept {
        add(LiveEvent::received, burst.size());
        std::uint64_t bytes = 0;
        for (const WritableFrame& frame : burst) {
            bytes += frame.originalLength;
        }
        add(receivedBytes_, bytes);
    }
    /// As they were on the wire, without the frame check sequence.
    std::uint64_t receivedBytes() const noexcept {
        return receivedBytes_.load(std::memory_order_relaxed);
    }

  private:
    using Count = std::atomic<std::uint64_t>;

    static std::size_t at(LiveEvent event) noexcept { return static_cast<std::size_t>(event); }
    /// Without a locked instruction, which one writer does not need.
    static void add(Count& count, std::uint64_t more) noexcept {
        count.store(count.load(std::memory_order_relaxed) + more, std::memory_order_relaxed);
    }

    std::array<Count, liveEventNames.size()> counts_{};
    Count receivedBytes_{0};
};

/// Called with at most `burstFrames` frames that have come one after the other, each with a
/// headroom of at least `frameHeadroom` bytes. They and their bytes are lent for the call.
using BurstVisitor = std::function<void(std::span<WritableFrame>)>;

/// A port on a network interface of this host. It survives changes of the interface: errors are
/// counted, and reported by problem() while the port is closed.
///
/// For a loop that polls `descriptor()` for input. Nothing blocks.
///
/// An object belongs to one thread. Where several receive, a port has an object for each of its
/// queues, and one that has the interface and only sends; of a flow all frames come to one queue.
/// What the latter takes over (another intake, the interface's successor) the others find out by
/// their next `receive`, which is to be called now and then, also while they are closed.
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

    /// To be called by the object's thread, since it asks the kernel for some; any thread may read
    /// what it has returned.
    virtual const LiveCounts& counts() = 0;
    /// The object of a queue, for another thread, of a port that was made with queues; null when
    /// it was not. It may outlive this one.
    virtual std::unique_ptr<LivePort> queue(std::uint32_t /*number*/) { return nullptr; }
    /// How many frames the kernel keeps until they are received; 0: the device's own queue.
    virtual std::size_t ringFrames() const noexcept { return 0; }
};

} // namespace OvixAgent
