#include "Command/RunLive.h"

#include <algorithm>
#include <cstdio>
#include <exception>
#include <fmt/core.h>
#include <memory>
#include <optional>

#include "Command/AgentControl.h"
#include "Command/RunParts.h"
#include "Config/Config.h"
#include "Live/LiveRun.h"

namespace OvixAgent {

namespace {

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

void tell(const std::string& news) {
    fmt::print(stderr, "ovix-agent: {}\n", news);
}

/// What the ports have met with beside frames, and the CPU side's answers.
std::vector<NamedCounter> liveCounters(const LivePorts& ports, const CpuAnswers& answers) {
    std::vector<NamedCounter> all;
    for (const auto& [what, count] : ports.troubles()) {
        all.push_back({"Port", "Agent", what, count});
    }
    for (const auto& [what, count] : answers.counts()) {
        all.push_back({"Answer", "Agent", what, count});
    }
    return all;
}

} // namespace

int runLive(const RunOptions& options) {
    const AgentConfig config = liveConfig(options);
    const std::unique_ptr<AgentState> state = startAgent(config, options);
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
    ports.mustBeUsable();
    const auto counters = [&] { return liveCounters(ports, answers); };
    const std::unique_ptr<ControlServer> control =
        serveControl(options, *state, forwarder, counters);
    const auto reload = [&] {
        try {
            const AgentConfig newer = liveConfig(options);
            checkSamePorts(config, newer, options);
            state->configureTables(newer, options.config);
            tables.configure(newer);
            links.configure(newer);
            answers.configure(newer);
            if (ipRoutes) {
                ipRoutes->startOver();
            }
            tell(options.config + ": taken over");
        } catch (const std::exception& refused) {
            tell(std::string(refused.what()) + "; going on as before");
        }
    };
    LiveRun({&state->tables(), &forwarder, &ports, &links, &answers,
             ipRoutes ? &*ipRoutes : nullptr, control.get()})
        .run(reload, tell);

    Summary summary = summaryOf(options, *state, forwarder);
    for (const NamedCounter& counter : counters()) {
        summary.counters.push_back(counter);
    }
    const std::vector<std::string> problems = ports.problems();
    summary.problems.insert(summary.problems.end(), problems.begin(), problems.end());
    return report(options, summary);
}

} // namespace OvixAgent
