#include "Command/Run.h"

#include <exception>
#include <fmt/core.h>
#include <memory>

#include "Capture/CaptureMerge.h"
#include "Capture/CaptureOutputs.h"
#include "Capture/CaptureRun.h"
#include "Command/AgentControl.h"
#include "Command/CliInputs.h"
#include "Command/RunLive.h"
#include "Command/RunParts.h"
#include "Config/Config.h"

namespace OvixAgent {

namespace {

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

std::vector<std::string> inputPaths(const RunOptions& options) {
    std::vector<std::string> paths;
    for (const InputOption& input : options.inputs) {
        paths.push_back(input.path);
    }
    return paths;
}

int runOnCaptures(const RunOptions& options, const AgentConfig& config) {
    checkAddresses(config, options);
    CaptureMerge input(openInputs(options.inputs, config.ports));
    const std::unique_ptr<AgentState> state = startAgent(config, options);
    CaptureOutputs outputs(options.outDirectory, inputPaths(options), config,
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
