#include "Command/Run.h"

#include <algorithm>
#include <exception>
#include <fmt/format.h>
#include <memory>

#include "Answers/CpuAnswers.h"
#include "Capture/CaptureMerge.h"
#include "Capture/CaptureOutputs.h"
#include "Capture/CaptureRun.h"
#include "Capture/CapturedLoopback.h"
#include "FastPath/FastPath.h"
#include "Live/ports/Card.h"
#include "Program/Ending.h"

namespace OvixAgent {

namespace {

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
    CpuAnswers answers(outputs.cpu(), config, tables, state.tables(),
                       CpuAnswers::Purpose::trialOfCaptures);
    tables.drops = &answers;
    Forwarder forwarder(state.manager(), tables, answers);
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
    } catch (const WorkerError& error) { // likewise
        log({}, error.what());
        return ExitCode::usage;
    } catch (const std::exception& error) {
        log({}, OvixLog::reasonOf(error));
    }
    return ExitCode::badInput;
}

} // namespace OvixAgent
