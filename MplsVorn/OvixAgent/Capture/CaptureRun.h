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

    /// Forwards every frame with the newest tables and serves control requests in between. Throws
    /// CaptureError when an output cannot be written.
    void forwardAll();

  private:
    void waitForInput();
    void forward(const Frame& frame);
};

} // namespace OvixAgent
