#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <poll.h>
#include <span>
#include <vector>

#include "FastPath/DecidedForwarding.h"
#include "Forwarding/FrameAccounts.h"
#include "Live/ports/AdaptivePoll.h"
#include "Live/ports/LivePort.h"
#include "Live/workers/FrameRing.h"
#include "Posix/FileDescriptor.h"
#include "State/ForwardingGate.h"
#include "State/OvixLfibCounterCollection.h"

namespace OvixAgent {

/// Forwards the frames of its queues of all ports by decisions, in a thread of its own, and leaves
/// the others to the packet thread. It never asks the plugin, and counts for itself.
///
/// All but `turn`, `wait` and the rings belongs to the packet thread while the gate is closed.
class alignas(64) Worker { // so that no two write one cache line
  public:
    /// Frames that are left: those of routing protocols and of LSP pings have a lane of their own,
    /// and the others of each port, so that a flood at one port leaves those of another their room.
    struct Lanes {
        explicit Lanes(std::size_t ports) {
            for (std::size_t i = 0; i < ports; ++i) {
                ofPorts.push_back(std::make_unique<FrameRing>(std::size_t{1} << 18U));
            }
        }
        FrameRing urgent{std::size_t{1} << 18U};
        std::vector<std::unique_ptr<FrameRing>> ofPorts;
    };

    /// `decided` must outlive it; `wake` becomes readable when a frame is left, or
    /// `hasLinkFallen`, which is asked in each turn, has returned true: its frames then wait until
    /// the worker is called.
    Worker(DecidedTables& decided, int wake, std::function<bool()> hasLinkFallen = {});

    /// Its queue of the port of that index, which sub-interfaces have of their parents.
    void portIs(PortIndex index, LivePort& port);
    /// Those of the parents, which receive.
    std::vector<std::unique_ptr<LivePort>>& ports() noexcept { return ports_; }

    /// Its queues follow what has happened to the ports before.
    void open();
    /// Forwards some of the frames that have come, and says whether there may be more.
    bool turn();
    /// Waits for frames, or to be called.
    void wait(int milliseconds);
    /// How often it has waited or looked for frames; by any thread.
    std::uint32_t turns() const noexcept { return turns_.load(std::memory_order_relaxed); }
    /// Something has happened to ports, or the end has come; by any thread.
    void call() noexcept;

    Lanes& lanes() noexcept { return lanes_; }
    FrameAccounts& accounts() noexcept { return accounts_; }
    OwnPorts& own() noexcept { return own_; }
    Counter::OvixLfibCounterCollection& labels() noexcept { return *labels_; }
    /// Frames forwarded by decisions since the last call.
    std::uint64_t takeFast() noexcept { return std::exchange(fast_, 0); }

  private:
    void flush();
    void reopenClosed();
    void forward(std::span<WritableFrame> burst);
    std::span<WritableFrame> beforeTraced(std::span<WritableFrame> burst) const;
    void leave(const WritableFrame& frame);
    void wakeOthers() const noexcept;
    void awaitCall() const;

    DecidedTables* decided_;
    int wake_;
    std::function<bool()> hasLinkFallen_;
    ForwardingGate::Place* place_;
    FrameAccounts accounts_;
    OwnPorts own_;
    Ptr<Counter::OvixLfibCounterCollection> labels_;
    DecidedForwarding road_;
    std::vector<std::unique_ptr<LivePort>> ports_;
    BurstVisitor visitor_;
    Lanes lanes_;
    FrameAccounts::FateLog full_; ///< where frames are counted that have no room
    AdaptivePoll poll_;
    Posix::FileDescriptor called_;
    std::vector<pollfd> waiting_; ///< at the ports
    bool servesAll_ = true;       ///< also ports that are not ready
    bool arePolled_ = false;
    std::atomic<std::uint32_t> turns_ = 0;
    AdaptivePoll::Clock::time_point reopenedAt_;
    FewBursts searched_;
    std::uint64_t fast_ = 0;
};

/// Whether a frame keeps routing protocols or the network's operators at work: LDP, BGP, OSPF,
/// IS-IS, BFD, LSP echo packets, and what has a reserved label.
bool isUrgent(Wire::Bytes frame) noexcept;

} // namespace OvixAgent
