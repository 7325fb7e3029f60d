#include "Command/Run.h"

#include <algorithm>
#include <cstdio>
#include <exception>
#include <fmt/core.h>
#include <memory>
#include <optional>

#include "Capture/CaptureMerge.h"
#include "Capture/CaptureOutputs.h"
#include "Capture/CaptureRun.h"
#include "Command/CliInputs.h"
#include "Command/Toggles.h"
#include "Config/Config.h"
#include "Control/AgentControl.h"
#include "Forwarding/PluginHost.h"
#include "Live/LiveRun.h"
#include "Ovix/Trace.h"
#include "Summary/SummaryParts.h"
#include "Tables/AgentState.h"
#include "Tables/SharedTables.h"

namespace OvixAgent {

namespace {

int report(const RunOptions& options, const Summary& summary) {
    for (const std::string& problem : summary.problems) {
        fmt::print(stderr, "ovix-agent: {}\n", problem);
    }
    if (options.json) {
        fmt::print("{}\n", summaryJson(summary));
    } else {
        fmt::print("{}", summaryTable(summary));
    }
    if (!summary.isBalanced()) {
        fmt::print(stderr,
                   "ovix-agent: the frames do not add up: {} in and {} replicas, {} "
                   "accounted for\n",
                   summary.in.frames, summary.replicas, summary.accountedFor());
        return ExitCode::imbalance;
    }
    return summary.problems.empty() ? ExitCode::success : ExitCode::badInput;
}

std::unique_ptr<AgentState> makeState(const AgentConfig& config, const RunOptions& options) {
    if (options.tables.empty()) {
        return std::make_unique<AgentState>(config, options.config);
    }
    return std::make_unique<AgentState>(config, openSharedTables(options.tables));
}

void addTables(const RunOptions& options, const Mpls::PublishedTables& tables, Summary& summary) {
    summary.tables = {options.tables, tables.tables().generation(), tables.corruptionsDetected()};
    if (summary.tables.corruptions > 0) {
        summary.problems.push_back(fmt::format("the label tables are damaged: {} times, last: {}",
                                               summary.tables.corruptions,
                                               tables.lastCorruption()));
    }
}

/// A port of a run on captures has no interface to have its address from.
void checkAddresses(const AgentConfig& config, const RunOptions& options) {
    for (const PortConfig& port : config.ports) {
        if (port.mac == MacAddress{}) {
            throw ConfigError(
                fmt::format("{}: ports: {} has no mac, which only a live run gives it",
                            options.config, port.name));
        }
    }
}

/// What both kinds of run begin with.
std::unique_ptr<AgentState> start(const AgentConfig& config, const RunOptions& options) {
    if (options.trace) {
        Ovix::TraceOutput::instance().textLevelOfAllIs(0);
    }
    serveToggles(config, options.config);
    std::unique_ptr<AgentState> state = makeState(config, options);
    startPlugin(options.plugin, state->pluginContext());
    state->tables().noticeSubscribers();
    return state;
}

Summary summaryOf(const RunOptions& options, const AgentState& state, const Forwarder& forwarder) {
    Summary summary;
    forwarder.addTo(summary);
    summary.labels = labelTraffic(*state.manager()->pktCounterCollectionHolder());
    addTables(options, state.tables(), summary);
    return summary;
}

int runOnCaptures(const RunOptions& options, const AgentConfig& config) {
    checkAddresses(config, options);
    CaptureMerge input(openInputs(options.inputs, config.ports));
    const std::unique_ptr<AgentState> state = start(config, options);
    CaptureOutputs outputs(options, config,
                           input.hasMicroseconds() ? TimePrecision::microseconds
                                                   : TimePrecision::nanoseconds);
    ForwardingTables tables(config);
    for (std::size_t i = 0; i < config.ports.size(); ++i) {
        tables.ports.ports()[i].out = &outputs.port(i);
    }
    Forwarder forwarder(state->manager(), tables, outputs.cpu());
    CapturedLoopback loopback(outputs.loopback());
    CliProgress progress = CliProgress::onTerminal(options.quiet);
    const std::unique_ptr<ControlServer> control = serveControl(options, *state, forwarder);
    CaptureRun{&input, &state->tables(), &forwarder, &loopback, control.get(), &progress}
        .forwardAll();
    outputs.close();

    Summary summary = summaryOf(options, *state, forwarder);
    summary.exceptions = loopback.sent();
    const std::vector<std::string> problems = input.problems();
    summary.problems.insert(summary.problems.begin(), problems.begin(), problems.end());
    return report(options, summary);
}

/// The configuration of a live run: a router's ports route IP.
AgentConfig liveConfig(const RunOptions& options) {
    AgentConfig config = loadConfig(options.config);
    for (PortConfig& port : config.ports) {
        port.routesIp = true;
    }
    return config;
}

/// Interfaces are opened when the run begins, and named by their place.
void checkSamePorts(const AgentConfig& old, const AgentConfig& config, const RunOptions& options) {
    const bool same = std::equal(old.ports.begin(), old.ports.end(), config.ports.begin(),
                                 config.ports.end(), [](const auto& a, const auto& b) {
                                     return a.name == b.name && a.kind == b.kind &&
                                            a.mac == b.mac && a.mtu == b.mtu;
                                 });
    if (!same || old.cpuTap != config.cpuTap) {
        throw ConfigError(fmt::format("{}: ports: names, kinds, mac and mtu change only with a new "
                                      "run",
                                      options.config));
    }
}

int runLive(const RunOptions& options) {
    const AgentConfig config = liveConfig(options);
    const std::unique_ptr<AgentState> state = start(config, options);
    ForwardingTables tables(config);
    LivePorts ports(config, tables.ports);
    CpuAnswers answers(ports.cpu(), config, tables, state->tables());
    tables.tooBig = &answers;
    Forwarder forwarder(state->manager(), tables, answers);
    LinkSync links(config, tables, state->interfaces(), ports);
    std::optional<SharedIpRoutes> ipRoutes;
    if (!options.tables.empty()) {
        ipRoutes.emplace(state->tables().reader(), tables);
    }
    const std::unique_ptr<ControlServer> control = serveControl(options, *state, forwarder);
    const auto reload = [&] {
        try {
            const AgentConfig newer = liveConfig(options);
            checkSamePorts(config, newer, options);
            state->configureTables(newer, options.config);
            tables.configure(newer);
            if (ipRoutes) {
                ipRoutes->startOver();
            }
            fmt::print(stderr, "ovix-agent: {}: taken over\n", options.config);
        } catch (const std::exception& refused) {
            fmt::print(stderr, "ovix-agent: {}; going on as before\n", refused.what());
        }
    };
    LiveRun({&state->tables(), &forwarder, &ports, &links, &answers,
             ipRoutes ? &*ipRoutes : nullptr, control.get()})
        .run(reload);

    Summary summary = summaryOf(options, *state, forwarder);
    for (const auto& [what, count] : ports.troubles()) {
        summary.counters.push_back({"Port", "Agent", what, count});
    }
    return report(options, summary);
}

int runOrThrow(const RunOptions& options) {
    return options.live ? runLive(options) : runOnCaptures(options, loadConfig(options.config));
}

} // namespace

int run(const RunOptions& options) {
    try {
        return runOrThrow(options);
    } catch (const std::exception& error) {
        fmt::print(stderr, "ovix-agent: {}\n", error.what());
        return ExitCode::badInput;
    }
}

} // namespace OvixAgent
