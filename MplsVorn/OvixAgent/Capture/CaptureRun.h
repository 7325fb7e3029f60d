#pragma once

#include <functional>

#include "Capture/CaptureMerge.h"
#include "Capture/CliProgress.h"
#include "Control/ControlServer.h"
#include "FastPath/FastPath.h"
#include "Published/PublishedTables.h"
#include "State/FrameBurst.h"

namespace OvixAgent {

/// The loop of a run on captures. Nothing is owned.
struct CaptureRun {
    CaptureMerge* input;
    Mpls::PublishedTables* tables;
    FastPath* fastPath;
    ControlServer* control; ///< may be null
    CliProgress* progress;
    std::function<void()> betweenBursts = {}; ///< called once for each, and while none comes

    /// Forwards every frame with the newest tables and serves control requests in between, until
    /// SIGINT or SIGTERM: returns which, or 0 when there were no more frames. Throws CaptureError
    /// when an output cannot be written.
    int forwardAll();

  private:
    bool awaitInput(int milliseconds) const;
    void waitForInput() const;
    void lookAround() const;
    void gather(FrameBurst& burst) const;
    void forward(std::span<WritableFrame> burst) const;
};

} // namespace OvixAgent
