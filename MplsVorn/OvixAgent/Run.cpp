#include "Run.h"

#include <algorithm>
#include <cstdio>
#include <exception>
#include <fmt/core.h>
#include <memory>

#include "AgentState.h"
#include "CaptureDirectory.h"
#include "CaptureMerge.h"
#include "CapturedLoopback.h"
#include "CliInputs.h"
#include "CliProgress.h"
#include "Config.h"
#include "Forwarder.h"
#include "Ovix/Trace.h"
#include "PluginHost.h"
#include "Toggles.h"

namespace OvixAgent {

namespace {

/// One of the output captures.
class CapturePort : public TransmitPort {
  public:
    CapturePort(CaptureDirectory& captures, std::size_t index)
        : captures_(&captures), index_(index) {}
    void transmit(const Frame& frame) override { captures_->write(index_, frame); }

  private:
    CaptureDirectory* captures_;
    std::size_t index_;
};

/// The output captures: one per port, and behind them the CPU's and the loopback interface's.
struct Outputs {
    Outputs(const RunOptions& options, const AgentConfig& config, TimePrecision precision)
        : captures(options.outDirectory, names(config), inputPaths(options), precision) {
        for (std::size_t i = 0; i < config.ports.size() + 2; ++i) {
            ports.push_back(std::make_unique<CapturePort>(captures, i));
        }
    }
    TransmitPort& cpu() const { return *ports[ports.size() - 2]; }
    TransmitPort& loopback() const { return *ports.back(); }

    static std::vector<std::string> names(const AgentConfig& config) {
        std::vector<std::string> all;
        for (const PortConfig& port : config.ports) {
            all.push_back(port.name);
        }
        all.emplace_back("cpu");
        all.emplace_back("lo");
        return all;
    }
    static std::vector<std::string> inputPaths(const RunOptions& options) {
        std::vector<std::string> paths;
        for (const InputOption& input : options.inputs) {
            paths.push_back(input.path);
        }
        return paths;
    }

    CaptureDirectory captures;
    std::vector<std::unique_ptr<CapturePort>> ports;
};

std::vector<LabelTraffic> labelTraffic(const Counter::PktCounterCollectionHolder& holder) {
    std::vector<LabelTraffic> labels;
    for (const auto& collection : holder.collections()) {
        collection->forEach([&](Mpls::RouteKey key, const Counter::PktCounter& counter) {
            labels.push_back({key.topLabel().value(), {counter.packets(), counter.bytes()}});
        });
    }
    std::sort(labels.begin(), labels.end(),
              [](const auto& a, const auto& b) { return a.label < b.label; });
    return labels;
}

void forwardAll(CaptureMerge& input, Forwarder& forwarder, CapturedLoopback& loopback,
                CliProgress& progress) {
    std::uint64_t frames = 0;
    while (const Frame* frame = input.next()) {
        loopback.timeIs(frame->time);
        forwarder.receive(*frame);
        ++frames;
        if (progress.isDue()) {
            progress.show(frames, input.progress());
        }
    }
    progress.clear();
}

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

int runOrThrow(const RunOptions& options) {
    const AgentConfig config = loadConfig(options.config);
    CaptureMerge input(openInputs(options.inputs, config.ports));
    if (options.trace) {
        Ovix::TraceOutput::instance().textLevelOfAllIs(0);
    }
    serveToggles(config, options.config);
    AgentState state(config, options.config);
    startPlugin(options.plugin, state.pluginContext());

    Outputs outputs(options, config,
                    input.hasMicroseconds() ? TimePrecision::microseconds
                                            : TimePrecision::nanoseconds);
    ForwardingTables tables(config);
    for (std::size_t i = 0; i < config.ports.size(); ++i) {
        tables.ports.ports()[i].out = outputs.ports[i].get();
    }
    Forwarder forwarder(state.manager(), tables, outputs.cpu());
    CapturedLoopback loopback(outputs.loopback());
    CliProgress progress = CliProgress::onTerminal(options.quiet);
    forwardAll(input, forwarder, loopback, progress);
    outputs.captures.close();

    Summary summary;
    forwarder.addTo(summary);
    summary.exceptions = loopback.sent();
    summary.labels = labelTraffic(*state.manager()->pktCounterCollectionHolder());
    summary.problems = input.problems();
    return report(options, summary);
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
