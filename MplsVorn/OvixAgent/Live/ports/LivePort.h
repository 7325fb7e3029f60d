#pragma once

#include <cstddef>
#include <functional>
#include <string>

#include "Live/ports/LiveCounts.h"
#include "State/TransmitPort.h"

namespace OvixAgent {

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
