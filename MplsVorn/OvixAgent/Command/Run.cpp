#include "Command/Run.h"

#include <algorithm>
#include <csignal>
#include <exception>
#include <fmt/format.h>
#include <memory>
#include <optional>

#include "Capture/CaptureMerge.h"
#include "Capture/CaptureOutputs.h"
#include "Capture/CaptureRun.h"
#include "Capture/CapturedLoopback.h"
#include "Command/LiveReload.h"
#include "FastPath/FastPath.h"
#include "Live/LiveRun.h"
#include "Live/ports/Card.h"
#include "Ovix/trace/Trace.h"
#include "Web/WebServer.h"

namespace OvixAgent {

namespace {

void addChecks(const RunOptions& options, const FastPath& fastPath,
               std::vector<NamedCounter>& counters) {
    if (options.checkEvery > 0) {
        counters.push_back({"Path", "Agent", "checked", fastPath.counts().checked});
        counters.push_back({"Path", "Agent", "different", fastPath.counts().different});
    }
}

void watchTables(AgentState& state, OvixLog::Log& log) {
    if (TablesWatch* const watch = state.tablesWatch()) {
        for (const std::string& news : watch->look()) {
            log("tables", news);
        }
    }
}

/// With --trace every frame is traced, behind the plugin's own lines about it.
void traceAllIf(bool isAsked, LiveTrace& trace) {
    if (isAsked) {
        trace.writeAllTo([](std::string_view line) {
            if (const auto& sink = Ovix::TraceOutput::instance().textSink()) {
                sink("Ovix::Trace", 0, line);
            }
        });
    }
}

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
        traceAllIf(options.trace, trace_);
        fastPath_.checkEveryIs(options.checkEvery,
                               [this](const std::string& text) { (*log_)("fast path", text); });
        if (!options.tables.empty()) {
            ipRoutes_.emplace(state_->tables().reader(), tables_.ports, tables_.vrfs);
            pseudowires_.emplace(state_->tables().reader(), tables_, ports_);
        }
        ports_.circuitsAre(tables_.pseudowires, tables_.ports);
        ports_.requireUsable();
        control_ = serveControl({&options, state_.get(), &forwarder_, &tables_, &history_, &trace_,
                                 [this] { return counters(); },
                                 [this](PortIndex port) { return liveStateOf(port); },
                                 [this] { return answers_.taken(); }});
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
                 [this] {
                     watchTables(*state_, *log_);
                     history_.tick();
                     trace_.timeIs(LiveTrace::Clock::now());
                 },
                 &service_, [this] { return statusLine(); }})
            .run([this](const std::string& news) { (*log_)("ports", news); });
        Summary summary = summaryOf(options_, *state_, forwarder_);
        for (const NamedCounter& counter : counters()) {
            summary.counters.push_back(counter);
        }
        for (const std::string& problem : ports_.problems()) {
            summary.problems.push_back(problem);
        }
        return summary;
    }

  private:
    /// Events of the ports, answers of the CPU, and how many frames were forwarded how.
    std::vector<NamedCounter> counters() const {
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
    std::string statusLine() const {
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

    LiveState liveStateOf(PortIndex index) const {
        LivePort& port = ports_.port(index);
        const PortDown down = links_.downBecause(index);
        const LiveCounts& counts = port.counts();
        return {port.isOpen(),
                down == PortDown::none || !port.isOpen() ? port.problem()
                                                         : std::string(Tessel::wordOf(down)),
                {counts.of(LiveEvent::received), counts.receivedBytes()},
                counts.of(LiveEvent::ringFull),
                port.ringFrames()};
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
    LiveTrace trace_{tables_.ports};
    LinkSync links_;
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

Tessel::Result<Summary> runLive(const RunOptions& options, OvixLog::Log& log) {
    holdReloads();
    logTraces(log);
    Tessel::Result<AgentConfig> config = liveConfig(options);
    if (!config) {
        return config.refused();
    }
    Tessel::Result<std::unique_ptr<AgentState>> state = startAgent(config.value(), options);
    if (!state) {
        return state.refused();
    }
    return LiveAgent(options, std::move(config).value(), std::move(state).value(), log).run();
}

/// A run on captures has no interfaces to read MAC addresses from.
Tessel::Result<void> checkAddresses(const AgentConfig& config, const RunOptions& options) {
    for (const PortConfig& port : config.ports) {
        if (port.mac == Lumo::EthAddr{}) {
            return Tessel::Refused{
                fmt::format("{}: ports: {} has no mac, which only a live run may omit",
                            options.config, port.name)};
        }
    }
    return {};
}

std::vector<std::string> inputPaths(const RunOptions& options) {
    std::vector<std::string> paths;
    for (const InputOption& input : options.inputs) {
        paths.push_back(input.path);
    }
    return paths;
}

Summary forwardCaptures(const RunOptions& options, const AgentConfig& config, CaptureMerge& input,
                        AgentState& state, OvixLog::Log& log) {
    CaptureOutputs outputs(options.outDirectory, inputPaths(options), config,
                           input.hasMicroseconds() ? TimePrecision::microseconds
                                                   : TimePrecision::nanoseconds);
    ForwardingTables tables(config);
    for (std::size_t i = 0; i < config.ports.size(); ++i) {
        tables.ports.ports()[i].out = &outputs.port(i);
        tables.ports.ports()[i].anyMac = options.anyMac;
    }
    Forwarder forwarder(state.manager(), tables, outputs.cpu());
    FastPath fastPath(forwarder, state.manager(), tables, state.tables());
    fastPath.isOnIs(options.fastPath);
    std::vector<std::string> differences;
    fastPath.checkEveryIs(options.checkEvery, [&](const std::string& text) {
        if (constexpr std::size_t most = 16; differences.size() < most) {
            differences.push_back(text);
        }
    });
    CapturedLoopback lo(outputs.loopback(), fastPath.current());
    FateHistory history(forwarder);
    LiveTrace trace(tables.ports);
    fastPath.traceIs(trace);
    traceAllIf(options.trace, trace);
    CliProgress progress = CliProgress::onTerminal(options.quiet);
    const std::unique_ptr<ControlServer> control =
        serveControl({&options, &state, &forwarder, &tables, &history, &trace});
    const int stopSignal = CaptureRun{
        &input, &state.tables(), &fastPath, control.get(), &progress, [&] {
            watchTables(state, log);
            history.tick();
            trace.timeIs(LiveTrace::Clock::now());
        }}.forwardAll();
    outputs.close();

    Summary summary = summaryOf(options, state, forwarder);
    summary.exceptions = lo.sent();
    summary.problems.insert(summary.problems.end(), differences.begin(), differences.end());
    addChecks(options, fastPath, summary.counters);
    summary.stopSignal = stopSignal;
    if (stopSignal == 0) { // which may cut short the reading of a frame
        const std::vector<std::string> problems = input.problems();
        summary.problems.insert(summary.problems.begin(), problems.begin(), problems.end());
    }
    return summary;
}

Tessel::Result<Summary> runOnCaptures(const RunOptions& options, OvixLog::Log& log) {
    const Tessel::Result<AgentConfig> config = loadConfig(options.config);
    if (!config) {
        return config.refused();
    }
    if (const auto addresses = checkAddresses(config.value(), options); !addresses) {
        return addresses.refused();
    }
    CaptureMerge input(openInputs(options.inputs, config.value().ports));
    const Tessel::Result<std::unique_ptr<AgentState>> state = startAgent(config.value(), options);
    if (!state) {
        return state.refused();
    }
    return forwardCaptures(options, config.value(), input, *state.value(), log);
}

} // namespace

int run(const RunOptions& options, OvixLog::Log& log) {
    try {
        const auto summary = options.live ? runLive(options, log) : runOnCaptures(options, log);
        if (summary) {
            return report(options, summary.value(), log);
        }
        log({}, summary.refused().what);
    } catch (const CardError& error) { // nothing has been started
        log({}, error.what());
        return ExitCode::usage;
    } catch (const std::exception& error) {
        log({}, error.what());
    }
    return ExitCode::badInput;
}

} // namespace OvixAgent
