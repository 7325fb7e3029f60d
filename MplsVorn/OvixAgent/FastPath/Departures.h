#pragma once

#include <array>
#include <cstddef>
#include <cstring>
#include <span>
#include <utility>
#include <vector>

#include "FastPath/PacketWork.h"
#include "Forwarding/FrameAccounts.h"
#include "State/Frame.h"
#include "State/PortTable.h"
#include "State/Pseudowires.h"

namespace OvixAgent {

/// Where the frames of a thread leave, and what it counts for ports and pseudowires, when it is not
/// the packet thread, which counts in the tables.
class OwnPorts {
  public:
    struct alignas(64) Own {         // no cache line is another thread's, too
        TransmitPort* out = nullptr; ///< not owned
        Traffic sent;
        Traffic intoPseudowire; ///< of the attachment circuit that the port is
        Traffic fromPseudowire;
    };

    explicit OwnPorts(const PortTable& ports) : ports_(&ports), own_(ports.ports().size()) {}

    Own& of(const Port& port) noexcept { return own_[ports_->indexOf(port)]; }
    std::vector<Own>& all() noexcept { return own_; }

  private:
    const PortTable* ports_;
    std::vector<Own> own_; ///< by port
};

/// Collects the frames of decisions that leave one behind the other by the same port, and counts
/// what leaves. Their bytes are borrowed until flush().
class Departures {
  public:
    /// They must outlive it; `own` is null for the packet thread.
    explicit Departures(FrameAccounts& accounts, OwnPorts* own = nullptr) noexcept
        : accounts_(&accounts), own_(own) {}

    /// The packet leaves behind a link header of its own.
    [[gnu::always_inline]] void send(const PacketWork& work, const EgressLine& line,
                                     std::uint16_t etherType) {
        sendAs(*work.frame, work.port, *line.port,
               withLinkHeader(work.packet, work.length, line, etherType));
    }
    /// The same of a packet that was for the port that it came in at, when the line has no tags.
    [[gnu::always_inline]] void send(const WritableFrame& frame, const EgressLine& line,
                                     std::uint8_t* packet, std::uint32_t length,
                                     std::uint16_t etherType) {
        sendAs(frame, frame.port, *line.port, withPlainLinkHeader(packet, length, line, etherType));
    }
    /// The frame leaves as these bytes. `in` is the port that it was for.
    [[gnu::always_inline]] void sendAs(const WritableFrame& frame, PortIndex in, Port& port,
                                       Wire::Bytes bytes) {
        if (!takesNext(port)) [[unlikely]] {
            turnTo(port);
        }
        append(frame.time, in, bytes);
    }
    /// Whether the next frame joins those before it when it leaves by the port.
    [[gnu::always_inline]] bool takesNext(const Port& port) const noexcept {
        return &port == port_ && count_ != frames_.size();
    }
    /// Frames leave by the port from now on; those before them are sent.
    [[gnu::noinline]] void turnTo(Port& port) {
        flush();
        port_ = &port;
        out_ = own_ == nullptr ? &port.out : &own_->of(port).out;
        sent_ = own_ == nullptr ? &port.sent : &own_->of(port).sent;
    }
    /// To be called after takesNext() or turnTo().
    [[gnu::always_inline]] void append(const CaptureTime& time, PortIndex in, Wire::Bytes bytes) {
        sentBytes_ += bytes.size();
        // Field by field: a whole frame would be built elsewhere and copied.
        Frame& sent = frames_[count_++];
        sent.port = in;
        std::memcpy(&sent.time, &time, sizeof time); // two fields in one
        sent.bytes = bytes;
        sent.originalLength = static_cast<std::uint32_t>(bytes.size());
    }
    /// So many of the frames that leave are copies, beside the frame itself.
    void countReplicas(std::size_t copies) noexcept { accounts_->addReplicas(copies); }
    /// Counts the next dropped frame of a flood, of which nothing else is kept. False, and nothing
    /// is counted, of any other.
    [[gnu::always_inline]] bool dropNext(const WritableFrame& frame,
                                         const FrameAccounts::FateLog& log) noexcept {
        if (!accounts_->recorder().passesNext(*log.frames, frame.time.seconds, frame.port)) {
            return false;
        }
        ++log.counter->count;
        return true;
    }
    /// `in` is the port that it was for; it is as it came in.
    void drop(const WritableFrame& frame, PortIndex in, const FrameAccounts::FateLog& log) {
        ++log.counter->count;
        accounts_->recorder().record(*log.frames, frame, in);
    }
    /// A frame of the pseudowire's attachment circuit, which leaves for its other end.
    void countSent(Pseudowire& pseudowire, std::size_t bytes) noexcept {
        Traffic& sent =
            own_ == nullptr ? pseudowire.sent : own_->all()[pseudowire.circuit].intoPseudowire;
        sent.add(bytes);
    }
    /// A frame of the other end.
    void countDelivered(Pseudowire& pseudowire, std::size_t bytes) noexcept {
        Traffic& delivered =
            own_ == nullptr ? pseudowire.delivered : own_->all()[pseudowire.circuit].fromPseudowire;
        delivered.add(bytes);
    }
    /// Of frames dropped for a reason.
    FrameAccounts::FateLog logOf(std::string_view reason) {
        return accounts_->logOf(OvixAgent::drop(reason));
    }

    /// Sends what has been collected.
    [[gnu::always_inline]] void flush() {
        if (const std::size_t count = std::exchange(count_, 0); count > 0) {
            sent_->frames += count;
            sent_->bytes += std::exchange(sentBytes_, 0);
            (*out_)->transmitBurst({frames_.data(), count});
        }
    }

  private:
    FrameAccounts* accounts_;
    OwnPorts* own_;
    std::size_t count_ = 0;
    std::uint64_t sentBytes_ = 0;        ///< of the frames
    const Port* port_ = nullptr;         ///< by which they leave
    TransmitPort* const* out_ = nullptr; ///< what it has now
    Traffic* sent_ = nullptr;            ///< where they are counted
    std::array<Frame, burstFrames> frames_;
};

} // namespace OvixAgent
