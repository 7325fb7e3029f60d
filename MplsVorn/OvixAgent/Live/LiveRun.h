#pragma once

#include <cstdint>
#include <functional>
#include <poll.h>
#include <string>
#include <vector>

#include "Answers/CpuAnswers.h"
#include "Control/ControlServer.h"
#include "Forwarding/Forwarder.h"
#include "Ip/SharedIpRoutes.h"
#include "Live/links/LinkSync.h"
#include "Live/ports/LivePorts.h"
#include "Posix/FileDescriptor.h"
#include "Published/PublishedTables.h"

namespace OvixAgent {

/// The loop of a run on live ports: frames, link changes, requests and signals, whichever comes.
class LiveRun {
  public:
    /// Everything must outlive it; `ipRoutes` and `control` may be null.
    struct Parts {
        Mpls::PublishedTables* tables;
        Forwarder* forwarder;
        LivePorts* ports;
        LinkSync* links;
        CpuAnswers* answers;
        SharedIpRoutes* ipRoutes;
        ControlServer* control;
    };

    /// From here on SIGINT, SIGTERM and SIGHUP are dealt with by `run`. Throws std::system_error.
    explicit LiveRun(const Parts& parts);

    /// Forwards until SIGINT or SIGTERM; then what had come in has been forwarded, too. SIGHUP
    /// calls `reload`; `tell` hears of ports that cannot be opened, and are open again.
    void run(const std::function<void()>& reload,
             const std::function<void(const std::string&)>& tell);

  private:
    void wait();
    bool takeSignals(const std::function<void()>& reload);
    std::size_t takeFrames();
    void drain();
    void forward(const Frame& frame);
    void refresh();
    void everySecond(const std::function<void(const std::string&)>& tell);

    Parts parts_;
    Posix::FileDescriptor signals_;
    bool hasMore_ = false; ///< frames or changes that need no waiting for
    LinkSync::Clock::time_point lookedAt_;
    std::vector<pollfd> waiting_;
};

} // namespace OvixAgent
