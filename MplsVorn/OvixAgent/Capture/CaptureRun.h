#pragma once

#include "Capture/CaptureMerge.h"
#include "Capture/CapturedLoopback.h"
#include "Capture/CliProgress.h"
#include "Control/ControlServer.h"
#include "Forwarding/Forwarder.h"
#include "Published/PublishedTables.h"

namespace OvixAgent {

/// The loop of a run on captures. Nothing is owned.
struct CaptureRun {
    CaptureMerge* input;
    Mpls::PublishedTables* tables;
    Forwarder* forwarder;
    CapturedLoopback* loopback;
    ControlServer* control; ///< may be null
    CliProgress* progress;

    /// Forwards every frame with the newest tables and serves control requests in between, until
    /// SIGINT or SIGTERM: returns which, or 0 when there were no more frames. Throws CaptureError
    /// when an output cannot be written.
    int forwardAll();

  private:
    void waitForInput() const;
    void forward(const Frame& frame);
};

} // namespace OvixAgent
