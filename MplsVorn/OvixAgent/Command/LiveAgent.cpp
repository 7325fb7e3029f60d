#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <fmt/format.h>
#include <memory>
#include <optional>
#include <sched.h>

#include "Command/LiveReload.h"
#include "Command/Run.h"
#include "FastPath/FastPath.h"
#include "Live/LiveRun.h"
#include "Live/ports/PortRates.h"
#include "Ovix/trace/Trace.h"
#include "Web/WebServer.h"

namespace OvixAgent {

namespace {

/// The parts of a live run.
class LiveAgent {
  public:
    LiveAgent(const RunOptions& options, AgentConfig config, std::unique_ptr<AgentState> state,
              OvixLog::Log& log)
        : options_(options), log_(&log), config_(std::move(config)), state_(std::move(state)),
          tables_(config_), ports_(config_, tables_.ports),
          answers_(ports_.cpu(), config_, tables_, state_->tables()),
          forwarder_(state_->manager(), tables_, answers_),
          fastPath_(forwarder_, state_->manager(), tables_, state_->tables()),
          links_(config_, tables_, state_->interfaces(), ports_) {
        tables_.drops = &answers_;
        fastPath_.isOnIs(options.fastPath);
        fastPath_.traceIs(trace_);
        forwarder_.settledIs(
            [this](const Fate& fate, const Frame& frame) { trace_.settled(frame, fate); });
        traceAllIf(options.trace, trace_);
        fastPath_.checkEveryIs(options.checkEvery,
                               [this](const std::string& text) { (*log_)("fast path", text); });
        if (!options.tables.empty()) {
            ipRoutes_.emplace(state_->tables().reader(), tables_.ports, tables_.vrfs);
            pseudowires_.emplace(state_->tables().reader(), tables_, ports_);
        }
        ports_.intakesAre(tables_.pseudowires, tables_.ports);
        ports_.requireUsable();
        if (config_.workers > 0) {
            workers_.emplace(fastPath_, tables_, forwarder_.accounts(), ports_, links_,
                             config_.cpus);
        }
        control_ = serveControl(
            {&options, state_.get(), &forwarder_, &tables_, &history_, &trace_,
             [this] { return counters(); }, [this](PortIndex port) { return liveStateOf(port); },
             [this](bool labels) { collect(labels); }, [this] { return answers_.taken(); }});
        if (!options.metrics.empty()) {
            web_.emplace(WebServer::Settings{options.metrics, options.metricsHosts,
                                             control_->path(), options.tables,
                                             options.metricsLabels});
        }
        if (options.carrier) {
            carrier_.emplace(ports_);
        } else {
            giveBackLinks(ports_);
        }
    }

    Summary run() {
        LiveRun({&state_->tables(), &forwarder_, &fastPath_, &ports_, &links_, &answers_,
                 ipRoutes_ ? &*ipRoutes_ : nullptr, pseudowires_ ? &*pseudowires_ : nullptr,
                 control_.get(), &reload_, carrier_ ? &*carrier_ : nullptr,
                 workers_ ? &*workers_ : nullptr, &tables_.gate,
                 [this] {
                     collectAtTimes();
                     watchTables(*state_, *log_);
                     history_.tick();
                     noteRates();
                     trace_.timeIs(LiveTrace::Clock::now());
                 },
                 &service_, [this] { return statusLine(); }})
            .run([this](const std::string& news) { (*log_)("ports", news); });
        Summary summary = summaryOf(options_, *state_, forwarder_);
        for (const NamedCounter& counter : counters()) {
            summary.counters.push_back(counter);
        }
        summary.closedPorts = ports_.problems();
        return summary;
    }

  private:
    /// What workers have counted.
    void collect(bool labels) {
        if (workers_) {
            workers_->collect();
        }
        if (workers_ && labels) {
            workers_->collectLabels();
        }
    }
    void collectAtTimes() {
        constexpr std::chrono::milliseconds every{100};
        const auto now = LinkSync::Clock::now();
        if (workers_ && now - collectedAt_ >= every) {
            collectedAt_ = now;
            workers_->collect();
        }
    }

    void noteRates() {
        const auto now = PortRates::Clock::now();
        if (rates_.isDue(now)) {
            const ForwardingGate::Closed closed(tables_.gate);
            rates_.tick(now);
        }
    }

    /// Events of the ports, answers of the CPU, and how many frames were forwarded how.
    std::vector<NamedCounter> counters() {
        const ForwardingGate::Closed closed(tables_.gate);
        std::vector<NamedCounter> all;
        all.push_back({"Path", "Agent", "fast", fastPath_.counts().fast});
        all.push_back({"Path", "Agent", "slow", fastPath_.counts().slow});
        all.push_back({"Path", "Agent", "decided", fastPath_.decided()});
        addChecks(options_, fastPath_, all);
        if (const std::uint64_t lines = log_->leftOut(); lines > 0) {
            all.push_back({"Log", "Agent", "lines left out", lines});
        }
        for (const auto& [event, count] : ports_.events()) {
            all.push_back({"Port", "Agent", event, count});
        }
        for (const auto& [answer, count] : answers_.counts()) {
            all.push_back({"Answer", "Agent", answer, count});
        }
        return all;
    }

    /// For the service manager.
    std::string statusLine() {
        const ForwardingGate::Closed closed(tables_.gate);
        const auto& ports = ports_.all();
        const auto open = std::count_if(ports.begin(), ports.end(),
                                        [](const auto& port) { return port->isOpen(); });
        std::string line = fmt::format("forwarding on {} of {} ports", open, ports.size());
        for (const std::string& problem : ports_.problems()) {
            line += "; " + problem;
        }
        const TablesWatch* const watch = state_->tablesWatch();
        return watch != nullptr && !watch->problem().empty() ? line + "; " + watch->problem()
                                                             : line;
    }

    LiveState liveStateOf(PortIndex index) {
        const ForwardingGate::Closed closed(tables_.gate);
        const auto now = PortRates::Clock::now();
        const LivePort& port = ports_.port(index);
        const PortDown down = links_.downBecause(index);
        LiveState state{port.isOpen(),
                        down == PortDown::none || !port.isOpen()
                            ? port.problem()
                            : std::string(Tessel::wordOf(down)),
                        {ports_.count(index, LiveEvent::received), ports_.receivedBytes(index)},
                        rates_.ofPort(index, now),
                        ports_.count(index, LiveEvent::ringFull),
                        port.ringFrames(),
                        {}};
        for (LivePort* const queue : ports_.queuesOf(index)) {
            const LiveCounts& counts = queue->counts();
            state.ringFrames += queue->ringFrames();
            state.queues.push_back({counts.of(LiveEvent::received),
                                    rates_.ofQueue(index, state.queues.size(), now),
                                    counts.of(LiveEvent::ringFull)});
        }
        return state;
    }

    const RunOptions& options_;
    OvixLog::Log* log_;
    AgentConfig config_;
    std::unique_ptr<AgentState> state_;
    ForwardingTables tables_;
    LivePorts ports_;
    CpuAnswers answers_;
    Forwarder forwarder_;
    FastPath fastPath_;
    FateHistory history_{forwarder_};
    PortRates rates_{ports_, tables_.ports.ports().size()};
    LiveTrace trace_{tables_.ports};
    LinkSync links_;
    std::optional<Workers> workers_; ///< set when there are any
    LinkSync::Clock::time_point collectedAt_;
    std::optional<SharedIpRoutes> ipRoutes_;       ///< set when the tables are shared
    std::optional<SharedPseudowires> pseudowires_; ///< likewise
    std::unique_ptr<ControlServer> control_;       ///< may be null
    OvixLog::ServiceManager service_;
    std::optional<Carrier> carrier_; ///< set when the links go down with the agent
    LiveReload reload_{options_,
                       config_,
                       {state_.get(), &tables_, &ports_, &links_, &answers_, &ipRoutes_},
                       *log_};
    std::optional<WebServer> web_; ///< set when asked for; the first to end
};

/// Traces are logged like everything else, so that their reader cannot hold up the frames.
void logTraces(OvixLog::Log& log) {
    Ovix::TraceOutput::instance().textSinkIs(
        [&log](std::string_view name, unsigned, std::string_view message) {
            log.plain(fmt::format("{}: {}", name, message));
        });
}

/// A SIGHUP that comes before the run can reload waits for that, and ends nothing.
void holdReloads() {
    sigset_t reload;
    sigemptyset(&reload);
    sigaddset(&reload, SIGHUP);
    sigprocmask(SIG_BLOCK, &reload, nullptr);
}

/// Workers that share a processor only hold up each other.
void requireProcessors(const AgentConfig& config, const RunOptions& options) {
    cpu_set_t allowed;
    CPU_ZERO(&allowed);
    sched_getaffinity(0, sizeof allowed, &allowed);
    const int processors = CPU_COUNT(&allowed);
    if (config.cpus.empty() && config.workers > static_cast<unsigned int>(processors)) {
        throw WorkerError(fmt::format("{}: workers: {} for {} processors: give fewer",
                                      options.config, config.workers, processors));
    }
    for (const unsigned int cpu : config.cpus) {
        if (!CPU_ISSET(cpu, &allowed)) {
            throw WorkerError(fmt::format("{}: cpus: this process may not run on processor {}: "
                                          "see nproc and taskset(1)",
                                          options.config, cpu));
        }
    }
    // Where system calls are filtered; nobody would hear of it from the workers' threads.
    if (!config.cpus.empty() && sched_setaffinity(0, sizeof allowed, &allowed) != 0) {
        throw WorkerError(fmt::format("{}: cpus: this process may not choose processors: {}",
                                      options.config, std::strerror(errno)));
    }
    if (config.workers > 0 && options.checkEvery > 0) {
        throw WorkerError("--check-every: not with workers, who forward without the definition");
    }
}

} // namespace

Tessel::Result<Summary> runLive(const RunOptions& options, OvixLog::Log& log) {
    holdReloads();
    logTraces(log);
    Tessel::Result<AgentConfig> config = liveConfig(options);
    if (!config) {
        return config.refused();
    }
    requireProcessors(config.value(), options);
    Tessel::Result<std::unique_ptr<AgentState>> state = startAgent(config.value(), options);
    if (!state) {
        return state.refused();
    }
    return LiveAgent(options, std::move(config).value(), std::move(state).value(), log).run();
}

} // namespace OvixAgent
