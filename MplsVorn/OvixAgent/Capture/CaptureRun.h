#pragma once

#include "Capture/CaptureMerge.h"
#include "Capture/CapturedLoopback.h"
#include "Capture/CliProgress.h"
#include "Control/ControlServer.h"
#include "Forwarding/Forwarder.h"
#include "Published/PublishedTables.h"

namespace OvixAgent {

/// What a run on captures works with; nothing is owned.
struct CaptureRun {
    CaptureMerge* input;
    Mpls::PublishedTables* tables;
    Forwarder* forwarder;
    CapturedLoopback* loopback;
    ControlServer* control; ///< may be null
    CliProgress* progress;

    /// Forwards every frame, each by the newest tables, and answers requests in between. Throws
    /// CaptureError when an output cannot be written.
    void forwardAll();

  private:
    void waitForInput();
    void forward(const Frame& frame);
};

} // namespace OvixAgent
