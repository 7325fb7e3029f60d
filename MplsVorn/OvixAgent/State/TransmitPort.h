#pragma once

#include "State/Frame.h"

namespace OvixAgent {

/// Where frames leave the agent: a capture, or memory.
class TransmitPort {
  public:
    TransmitPort() = default;
    TransmitPort(const TransmitPort&) = delete;
    TransmitPort& operator=(const TransmitPort&) = delete;
    virtual ~TransmitPort() = default;

    /// The frame's bytes are borrowed for the call. Throws CaptureError when it cannot be written.
    virtual void transmit(const Frame& frame) = 0;
};

} // namespace OvixAgent
