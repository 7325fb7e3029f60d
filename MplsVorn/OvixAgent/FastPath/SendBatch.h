#pragma once

#include <array>
#include <cstddef>

#include "State/Frame.h"
#include "State/PortTable.h"

namespace OvixAgent {

/// Collects frames that leave one behind the other by the same port. Their bytes are borrowed until
/// flush().
class SendBatch {
  public:
    void add(Port& port, const Frame& frame) {
        if (port.out != out_ || count_ == frames_.size()) [[unlikely]] {
            flush();
            out_ = port.out;
        }
        port.sent.add(frame.bytes.size());
        frames_[count_++] = frame;
    }
    void flush() {
        if (count_ > 0) {
            out_->transmitBurst({frames_.data(), std::exchange(count_, 0)});
        }
        out_ = nullptr;
    }

  private:
    std::array<Frame, burstFrames> frames_;
    std::size_t count_ = 0;
    TransmitPort* out_ = nullptr;
};

} // namespace OvixAgent
