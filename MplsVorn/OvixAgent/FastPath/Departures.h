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

/// Accounts for frames that decisions settle, and collects those that leave one behind the other by
/// the same port. Their bytes are borrowed until flush().
class Departures {
  public:
    /// They must outlive it; `own` is null for the packet thread.
    explicit Departures(FrameAccounts& accounts, OwnPorts* own = nullptr) noexcept
        : accounts_(&accounts), own_(own) {}

    /// The packet leaves behind a link header of its own.
    [[gnu::always_inline]] void send(const PacketWork& work, const EgressLine& line,
                                     std::uint16_t etherType) {
        sendAs(*work.frame, work.port, *line.port, withLinkHeader(work, line, etherType));
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
        append(frame.time, in, port, bytes);
        received_ += frame.size;
    }
    /// The same of a copy, beside the frame itself.
    void sendReplica(const WritableFrame& frame, PortIndex in, Port& port, Wire::Bytes bytes) {
        append(frame.time, in, port, bytes);
        ++replicas_;
        accounts_->addReplicas(1);
    }
    /// `in` is the port that it was for; it is as it came in.
    void drop(const WritableFrame& frame, PortIndex in, const FrameAccounts::FateLog& log) {
        accounts_->passed({1, frame.size});
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

    /// Sends and accounts for what has been collected.
    void flush() {
        if (end_ != frames_.data()) {
            flushFrames();
        }
    }

  private:
    [[gnu::noinline]] void flushFrames() {
        const std::span<const Frame> frames(frames_.data(), std::exchange(end_, frames_.data()));
        accounts_->passed(
            {frames.size() - std::exchange(replicas_, 0), std::exchange(received_, 0)});
        const Traffic left{frames.size(), std::exchange(sent_, 0)};
        if (own_ == nullptr) {
            port_->sent += left;
            port_->out->transmitBurst(frames);
        } else {
            OwnPorts::Own& own = own_->of(*port_);
            own.sent += left;
            own.out->transmitBurst(frames);
        }
    }
    [[gnu::always_inline]] void append(const CaptureTime& time, PortIndex in, Port& port,
                                       Wire::Bytes bytes) {
        if (&port != port_ || end_ == frames_.data() + frames_.size()) [[unlikely]] {
            flush();
            port_ = &port;
        }
        sent_ += bytes.size();
        // Field by field: a whole frame would be built elsewhere and copied.
        Frame& sent = *end_++;
        sent.port = in;
        std::memcpy(&sent.time, &time, sizeof time); // two fields in one
        sent.bytes = bytes;
        sent.originalLength = static_cast<std::uint32_t>(bytes.size());
    }

    FrameAccounts* accounts_;
    OwnPorts* own_;
    std::array<Frame, burstFrames> frames_;
    Frame* end_ = frames_.data();
    std::uint64_t replicas_ = 0; ///< of them, beside those that came
    std::uint64_t received_ = 0; ///< bytes of them as they came
    std::uint64_t sent_ = 0;     ///< and as they leave
    Port* port_ = nullptr;       ///< by which they leave
};

} // namespace OvixAgent
