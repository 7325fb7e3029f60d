#include <cerrno>
#include <cstdio>
#include <fmt/core.h>
#include <system_error>

#include "Command/Run.h"
#include "FastPath/FastPath.h"
#include "Forwarding/PluginHost.h"
#include "Ovix/trace/Trace.h"
#include "Tables/TableLoading.h"

namespace OvixAgent {

namespace {

Tessel::Result<std::unique_ptr<AgentState>> makeState(const AgentConfig& config,
                                                      const RunOptions& options) {
    if (options.tables.empty()) {
        return AgentState::ofConfig(config, options.config);
    }
    Tessel::Result<Ptr<Tessel::TableReader>> tables =
        openSharedTables(options.tables, options.create);
    if (!tables) {
        return tables.refused();
    }
    return std::make_unique<AgentState>(config, std::move(tables).value());
}

void addTables(const RunOptions& options, const AgentState& state, Summary& summary) {
    const Mpls::PublishedTables& tables = state.tables();
    summary.tables = {options.tables, tables.tables().generation(), tables.corruptionsDetected()};
    if (const TablesWatch* const watch = state.tablesWatch()) {
        summary.tables.problem = watch->problem();
    }
    if (summary.tables.corruptions > 0) {
        summary.problems.push_back(fmt::format("the label tables are damaged: {} times, last: {}",
                                               summary.tables.corruptions,
                                               tables.lastCorruption()));
    }
}

} // namespace

Tessel::Result<std::unique_ptr<AgentState>> startAgent(const AgentConfig& config,
                                                       const RunOptions& options) {
    if (options.trace) {
        Ovix::TraceOutput::instance().textLevelOfAllIs(0);
    }
    serveToggles(config, options.config);
    Tessel::Result<std::unique_ptr<AgentState>> state = makeState(config, options);
    if (state) {
        startPlugin(options.plugin, state.value()->pluginContext());
        if (const auto known = checkToggles(config, options.config); !known) {
            return known.refused();
        }
        state.value()->tables().noticeSubscribers();
    }
    return state;
}

Summary framesOf(const RunOptions& options, const AgentState& state, const Forwarder& forwarder) {
    Summary summary;
    forwarder.addTo(summary);
    addTables(options, state, summary);
    return summary;
}

Summary summaryOf(const RunOptions& options, const AgentState& state, const Forwarder& forwarder) {
    Summary summary = framesOf(options, state, forwarder);
    summary.labels = labelTraffic(*state.manager()->pktCounterCollectionHolder());
    return summary;
}

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

namespace {

/// A reader that has enough, as `head` has, closes its end: no error.
void print(const RunOptions& options, const Summary& summary) {
    try {
        fmt::print("{}{}", options.json ? summaryJson(summary) : summaryTable(summary),
                   options.json ? "\n" : "");
        if (std::fflush(stdout) != 0) {
            throw std::system_error(errno, std::generic_category());
        }
    } catch (const std::system_error& failed) {
        if (failed.code() != std::errc::broken_pipe) {
            throw std::system_error(failed.code(), "printing the summary");
        }
    }
}

} // namespace

int report(const RunOptions& options, const Summary& summary, OvixLog::Log& log) {
    for (const auto* const list : {&summary.problems, &summary.closedPorts}) {
        for (const std::string& problem : *list) {
            log({}, problem);
        }
    }
    log.drain();
    print(options, summary);
    if (!summary.isBalanced()) {
        log({}, fmt::format("the frames do not add up: {} in, {} replicas, {} accounted for",
                            summary.in.frames, summary.replicas, summary.accountedFor()));
        return ExitCode::imbalance;
    }
    if (summary.stopSignal != 0) {
        return ExitCode::bySignal + summary.stopSignal;
    }
    return summary.problems.empty() ? ExitCode::success : ExitCode::badInput;
}

} // namespace OvixAgent
