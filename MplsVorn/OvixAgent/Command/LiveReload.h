#pragma once

#include <atomic>
#include <memory>
#include <optional>
#include <stop_token>

#include "Answers/CpuAnswers.h"
#include "Command/Run.h"
#include "Ip/SharedIpRoutes.h"
#include "Live/LiveRun.h"
#include "Live/SideThread.h"
#include "Live/links/LinkSync.h"

namespace OvixAgent {

/// The configuration of a live run, in which every port routes IP.
Tessel::Result<AgentConfig> liveConfig(const RunOptions& options, const std::stop_token& stop = {});

/// Reads the configuration again and makes tables of it beside the packet thread, which only puts
/// them in the place of its own, between two frames. A configuration that is refused changes
/// nothing. What was there before is taken down beside the packet thread, too.
class LiveReload final : public Reloading {
  public:
    /// What is configured; everything must outlive it.
    struct Parts {
        AgentState* state;
        ForwardingTables* tables;
        LivePorts* ports;
        LinkSync* links;
        CpuAnswers* answers;
        std::optional<SharedIpRoutes>* ipRoutes; ///< set when the tables are shared
    };

    /// `config` is what the run has begun with. Both it and the options must outlive it.
    LiveReload(const RunOptions& options, const AgentConfig& config, const Parts& parts,
               OvixLog::Log& log)
        : options_(&options), config_(&config), parts_(parts), log_(&log) {}
    LiveReload(const LiveReload&) = delete;
    LiveReload& operator=(const LiveReload&) = delete;
    ~LiveReload() override { ends_.request_stop(); }

    int descriptor() const noexcept override { return side_.descriptor(); }
    void start() override;
    void finish() override;
    bool isUnderWay() const noexcept override { return isPreparing_; }

  private:
    /// What has been made of a configuration; afterwards what was there before.
    struct Made {
        Made(AgentConfig newer, const PortTable& ports)
            : config(std::move(newer)), tables(config, ports) {}

        AgentConfig config;
        ConfiguredTables tables;
        Ptr<Tessel::TableReader> reader; ///< of `ipRoutes`
        std::optional<SharedIpRoutes> ipRoutes;
    };
    using Prepared = Tessel::Result<std::unique_ptr<Made>>;

    Ptr<Tessel::TableReader> readerOfShared() const;
    Prepared prepare();
    Prepared prepareOrRefuse();
    void takeSharedRoutes(Made& made);
    void swap(Made& made);

    const RunOptions* options_;
    const AgentConfig* config_;
    Parts parts_;
    OvixLog::Log* log_;
    bool isPreparing_ = false;
    bool again_ = false;                   ///< asked for while another is being prepared
    Ptr<Tessel::TableReader> reader_;      ///< the other thread's until it is prepared
    std::optional<Prepared> prepared_;     ///< the other thread's until it is prepared
    std::atomic<bool> isPrepared_ = false; ///< and not taken over yet
    std::stop_source ends_;
    SideThread side_; ///< the first to end
};

} // namespace OvixAgent
