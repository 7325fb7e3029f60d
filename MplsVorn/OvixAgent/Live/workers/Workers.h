#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <thread>
#include <vector>

#include "FastPath/FastPath.h"
#include "Forwarding/FrameAccounts.h"
#include "Live/links/LinkSync.h"
#include "Live/ports/LivePorts.h"
#include "Live/workers/Worker.h"
#include "Posix/FileDescriptor.h"
#include "State/ForwardingTables.h"

namespace OvixAgent {

/// The threads that forward by decisions beside the packet thread, which this belongs to.
class Workers {
  public:
    /// Everything must outlive it. One worker for each queue of the ports; `cpus` has the processor
    /// of each, or is empty. Throws std::system_error.
    Workers(FastPath& fastPath, ForwardingTables& tables, FrameAccounts& accounts, LivePorts& ports,
            LinkSync& links, std::vector<unsigned int> cpus);
    Workers(const Workers&) = delete;
    Workers& operator=(const Workers&) = delete;
    ~Workers() { stop(); }

    /// Opens their queues, and forwards what has come meanwhile to those that had all flows before
    /// the others were open. `settle` has what they leave processed. Does nothing once they run.
    void start(const std::function<void()>& settle);
    bool haveStarted() const noexcept { return !threads_.empty(); }
    /// They forward what has come so far, and end.
    void stop();

    /// Something has happened to ports.
    void call() noexcept;

    /// Whether each of them, if they run, has turned since this was true before.
    bool haveTurned() noexcept;

    /// Readable when frames have been left.
    int descriptor() const noexcept { return wake_.value(); }
    /// Calls `visitor` with frames that workers have left, as takeFrames has it.
    using Visitor = std::function<bool(const WritableFrame&)>;
    std::size_t takeLeft(const Visitor& visitor, std::size_t budget);

    /// Adds what they have counted to the accounts, ports and pseudowires.
    void collect();
    /// The same of labels, of which there may be a million.
    void collectLabels();
    std::size_t size() const noexcept { return workers_.size(); }

  private:
    void work(std::size_t number);
    void collect(Worker& worker);

    FastPath* fastPath_;
    ForwardingTables* tables_;
    FrameAccounts* accounts_;
    std::vector<unsigned int> cpus_;
    Posix::FileDescriptor wake_;
    std::atomic<bool> ends_{false};
    std::vector<std::unique_ptr<Worker>> workers_;
    std::vector<FrameRing*> urgent_; ///< of all workers
    std::vector<FrameRing*> lanes_;  ///< of their ports
    std::vector<std::thread> threads_;
    std::vector<std::uint32_t> turns_; ///< of each worker, when all had turned
};

} // namespace OvixAgent
