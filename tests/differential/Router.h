#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Answers/CpuAnswers.h"
#include "BusyWorker.h"
#include "Capture/CapturedLoopback.h"
#include "FastPath/FastPath.h"
#include "Ip/SharedIpRoutes.h"
#include "Published/TablePublisher.h"
#include "Recording.h"
#include "Script.h"
#include "State/ForwardingTables.h"
#include "Tables/AgentState.h"
#include "WorkerRoad.h"

namespace Differential {

/// Which way frames go.
enum class Road : std::uint8_t { definition, fast };

/// An agent without a program around it: the plugin, its tables with their publisher, and ports
/// that record what leaves. There may be only one at a time in a process.
class Router {
  public:
    /// The script must outlive it.
    Router(const Script& script, Road road, Fault fault);
    Router(const Router&) = delete;
    Router& operator=(const Router&) = delete;
    ~Router();

    // What changes of a script work on.
    Mpls::TablePublisher& publisher() noexcept { return publisher_; }
    /// `change(tables)` of what workers share: behind the closed gate, as in the agent.
    template <typename Change>
    void change(const Change& change) {
        const OvixAgent::ForwardingGate::Closed closed(tables_.gate);
        change(tables_);
    }
    Ovix::PluginManager& manager() noexcept { return *state_->manager(); }
    /// Goes over to another configuration of the script, as at a reload.
    void configure(std::size_t config);
    /// The tables' changes become visible.
    void commit() { publisher_.commit(); }
    void mplsRoutingIs(bool on);
    void portUpIs(OvixAgent::PortIndex port, bool up);
    void settleWaiting(bool atTheEnd);
    void clearCounters();
    void traceIs(bool on);
    void fastPathIs(bool on);

    /// Takes over changed tables, as between frames, and receives the frames.
    void receive(const std::vector<ScriptFrame>& frames);

    /// The answers to what was received, of a script that has them, to be received as well.
    std::vector<ScriptFrame> takeAnswers();

    /// What has happened since the last call. The counters are looked at only if asked for: their
    /// numbers are those since the start.
    Recording take(bool looksAtCounters, bool keepsLines = false);
    /// From now on, what happens is kept in words, too; to be called right after take().
    void keepLines();

    const OvixAgent::FastPath::Counts& counts() const noexcept;
    OvixAgent::Summary summary() const;
    /// Whether the script has the fast path on, and no trace that keeps frames from it.
    bool isFast() const noexcept { return isFastPathOn_ && !isTraced_; }
    /// Frames that have left by ports.
    std::uint64_t framesOut() const noexcept;

  private:
    class Ports;
    class Buffers;
    class Drops;

    void receiveFast(const std::vector<ScriptFrame>& frames);
    void receiveByWorker(const std::vector<ScriptFrame>& frames);
    void receiveByDefinition(const std::vector<ScriptFrame>& frames);
    void refresh();
    OvixAgent::TransmitPort& cpu() noexcept;

    const Script* script_;
    Fault fault_;
    Mpls::TablePublisher publisher_;
    std::unique_ptr<OvixAgent::AgentState> state_;
    OvixAgent::ForwardingTables tables_;
    std::unique_ptr<Ports> ports_;
    std::unique_ptr<Drops> drops_;
    std::unique_ptr<Buffers> buffers_;
    std::unique_ptr<OvixAgent::CpuAnswers> answers_; ///< null without
    OvixAgent::SharedIpRoutes ipRoutes_;
    OvixAgent::Forwarder forwarder_;
    OvixAgent::Frame received_; ///< by the definition
    const OvixAgent::Frame none_{};
    bool isFastPathOn_ = true;
    bool isTraced_ = false;
    std::optional<OvixAgent::FastPath> fastPath_; ///< unset on the road of the definition
    std::optional<WorkerRoad> worker_;            ///< set when it forwards
    std::optional<BusyWorker> busy_;              ///< set when one forwards beside it
    std::optional<OvixAgent::CapturedLoopback> loopback_;
};

} // namespace Differential
