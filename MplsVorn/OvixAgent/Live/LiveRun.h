#pragma once

#include <cstdint>
#include <functional>
#include <poll.h>
#include <span>
#include <string>
#include <vector>

#include "Answers/CpuAnswers.h"
#include "Control/ControlServer.h"
#include "FastPath/FastPath.h"
#include "Forwarding/Forwarder.h"
#include "Ip/SharedIpRoutes.h"
#include "Live/SharedPseudowires.h"
#include "Live/carrier/Carrier.h"
#include "Live/links/LinkSync.h"
#include "Live/ports/AdaptivePoll.h"
#include "Live/ports/LivePorts.h"
#include "Live/workers/Workers.h"
#include "Posix/FileDescriptor.h"
#include "Program/ServiceManager.h"
#include "Published/PublishedTables.h"

namespace OvixAgent {

/// Takes over another configuration while frames are forwarded.
class Reloading {
  public:
    Reloading() = default;
    Reloading(const Reloading&) = delete;
    Reloading& operator=(const Reloading&) = delete;
    virtual ~Reloading() = default;

    /// To be polled for input of `finish`.
    virtual int descriptor() const noexcept = 0;
    /// Begins to prepare it; returns at once.
    virtual void start() = 0;
    /// Takes over what is ready, between two frames.
    virtual void finish() = 0;
    /// Whether another is being prepared.
    virtual bool isUnderWay() const noexcept = 0;
};

/// The loop of a live run: frames, link changes, control requests and signals.
class LiveRun {
  public:
    /// Everything must outlive it; `ipRoutes`, `pseudowires`, `control`, `carrier` and `workers`
    /// may be null.
    struct Parts {
        Mpls::PublishedTables* tables;
        Forwarder* forwarder;
        FastPath* fastPath;
        LivePorts* ports;
        LinkSync* links;
        CpuAnswers* answers;
        SharedIpRoutes* ipRoutes;
        SharedPseudowires* pseudowires;
        ControlServer* control;
        Reloading* reloading;
        Carrier* carrier;
        Workers* workers;
        ForwardingGate* gate;
        std::function<void()> betweenBursts;
        OvixLog::ServiceManager* service;
        std::function<std::string()> status; ///< a line for the service manager
    };

    /// Blocks SIGINT, SIGTERM and SIGHUP, which `run` handles. Throws std::system_error.
    explicit LiveRun(const Parts& parts);
    LiveRun(const LiveRun&) = delete;
    LiveRun& operator=(const LiveRun&) = delete;
    ~LiveRun();

    /// Forwards until SIGINT or SIGTERM, and then the frames received so far. SIGHUP reloads the
    /// configuration; `report` is called when a port cannot be opened or is open again.
    void run(const std::function<void(const std::string&)>& report);

  private:
    void wait();
    bool answersRequests() const;
    bool takesAllFrames() const;
    void anotherSignalEnds();
    bool takeSignals();
    std::size_t takeFrames();
    void drain();
    void forward(std::span<WritableFrame> burst);
    void forward(const Frame& frame);
    std::size_t takeLeft(std::size_t budget);
    void settleLeft();
    void followNeighbours();
    void serveWorkers();
    void refresh();
    bool refreshRoutes();
    void settle(const std::function<void(const std::string&)>& report);

    Parts parts_;
    Posix::FileDescriptor signals_;
    bool hasMore_ = false;    ///< frames or changes are pending
    bool servesAll_ = false;  ///< also ports that are not ready
    bool knowsLinks_ = false; ///< the kernel has reported all once; ports are open where they can
    bool hasRoutes_ = false;  ///< those of the tables have been taken over once
    bool hasBegun_ = false;   ///< it was ready once; until then frames wait in their ports
    LinkSync::Clock::time_point begunAt_;
    bool isReady_ = false; ///< that, and what the kernel has reported of links and neighbours
    LinkSync::Clock::time_point checkedAt_;
    std::vector<pollfd> waiting_;
    AdaptivePoll poll_;
};

} // namespace OvixAgent
