#pragma once

#include <array>
#include <cstddef>
#include <utility>

#include "FastPath/PacketWork.h"
#include "Forwarding/FrameAccounts.h"
#include "State/Frame.h"
#include "State/PortTable.h"

namespace OvixAgent {

/// Accounts for frames that decisions settle, and collects those that leave one behind the other by
/// the same port. Their bytes are borrowed until flush().
class Departures {
  public:
    /// The accounts must outlive it.
    explicit Departures(FrameAccounts& accounts) noexcept : accounts_(&accounts) {}

    /// The packet leaves behind a link header of its own.
    [[gnu::always_inline]] void send(const PacketWork& work, const EgressLine& line,
                                     std::uint16_t etherType) {
        sendWhole(work, *line.port, withLinkHeader(work, line, etherType));
    }
    /// The packet leaves as the whole frame that these bytes are.
    [[gnu::always_inline]] void sendWhole(const PacketWork& work, Port& port, Wire::Bytes frame) {
        accounts_->passed(work.frame->size);
        port.sent.add(frame.size());
        fill(next(port), work.port, work.frame->time, frame);
    }
    /// The frame leaves as these bytes.
    [[gnu::always_inline]] void sendInPlace(const WritableFrame& frame, Port& port,
                                            Wire::Bytes bytes) {
        accounts_->passed(frame.size);
        port.sent.add(bytes.size());
        fill(next(port), frame.port, frame.time, bytes);
    }
    void drop(const WritableFrame& frame, Ovix::OvixNamedCounters::Counter& fate) noexcept {
        accounts_->passed(frame.size);
        ++fate.count;
    }
    /// The counter of a frame dropped for a reason.
    Ovix::OvixNamedCounters::Counter& fateOf(std::string_view reason) {
        return accounts_->counterOf(OvixAgent::drop(reason));
    }

    void flush() {
        if (count_ > 0) {
            out_->transmitBurst({frames_.data(), std::exchange(count_, 0)});
        }
        out_ = nullptr;
    }

  private:
    Frame& next(const Port& port) {
        if (port.out != out_ || count_ == frames_.size()) [[unlikely]] {
            flush();
            out_ = port.out;
        }
        return frames_[count_++];
    }

    // Field by field: a whole frame would be built elsewhere and copied.
    static void fill(Frame& sent, PortIndex port, const CaptureTime& time, Wire::Bytes bytes) {
        sent.port = port;
        sent.time.seconds = time.seconds;
        sent.time.nanoseconds = time.nanoseconds;
        sent.bytes = bytes;
        sent.originalLength = static_cast<std::uint32_t>(bytes.size());
    }

    FrameAccounts* accounts_;
    std::array<Frame, burstFrames> frames_;
    std::size_t count_ = 0;
    TransmitPort* out_ = nullptr;
};

} // namespace OvixAgent
