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

    void send(const PacketWork& received, Port& port, const Frame& frame) {
        accounts_->passed(received.frame->size);
        port.sent.add(frame.bytes.size());
        next(port) = frame;
    }
    /// A frame that leaves as long as it came, at the same place.
    void sendInPlace(const WritableFrame& frame, Port& port) {
        accounts_->passed(frame.size);
        port.sent.add(frame.size);
        Frame& sent = next(port);
        sent.port = frame.port;
        sent.time.seconds = frame.time.seconds;
        sent.time.nanoseconds = frame.time.nanoseconds;
        sent.bytes = {frame.bytes, frame.size};
        sent.originalLength = frame.size;
    }
    void drop(const PacketWork& received, Ovix::OvixNamedCounters::Counter& fate) noexcept {
        accounts_->passed(received.frame->size);
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

    FrameAccounts* accounts_;
    std::array<Frame, burstFrames> frames_;
    std::size_t count_ = 0;
    TransmitPort* out_ = nullptr;
};

} // namespace OvixAgent
