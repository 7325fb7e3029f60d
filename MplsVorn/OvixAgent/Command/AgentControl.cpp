#include "Command/AgentControl.h"

#include <fmt/format.h>
#include <map>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "Control/ControlServer.h"
#include "Summary/SummaryText.h"

namespace OvixAgent {

namespace {

using Json = nlohmann::ordered_json;

/// The control commands.
struct Commands {
    AgentState* state;
    const Forwarder* forwarder;
    std::string tables;
    std::function<std::vector<NamedCounter>()> more;

    void operator()(const Json& request, Json& answer) const {
        static const std::map<std::string, void (Commands::*)(Json&) const> all{
            {"counters", &Commands::counters},
            {"clear-counters", &Commands::clearCounters},
            {"status", &Commands::status},
        };
        const auto command = request["command"].get<std::string>();
        const auto found = all.find(command);
        if (found == all.end()) {
            throw std::invalid_argument(fmt::format("there is no command \"{}\"", command));
        }
        (this->*found->second)(answer);
    }

    void counters(Json& answer) const {
        answer["labels"] =
            labelsJson(labelTraffic(*state->manager()->pktCounterCollectionHolder()));
        std::vector<NamedCounter> all = namedCounters(*forwarder->namedCounters());
        if (more) {
            const std::vector<NamedCounter> others = more();
            all.insert(all.end(), others.begin(), others.end());
        }
        answer["counters"] = countersJson(all);
    }
    void clearCounters(Json&) const {
        state->manager()->clearCountersRequests()->requestClearAll();
    }
    void status(Json& answer) const {
        Summary summary;
        forwarder->addTo(summary);
        answer["version"] = agentVersion;
        answer["tables"] = {{"name", tables},
                            {"generation", state->tables().tables().generation()},
                            {"corruptions", state->tables().corruptionsDetected()}};
        answer["frames"] = {{"in", summary.in.frames},
                            {"forwarded", summary.forwardedTotal().frames},
                            {"punted", summary.punted.total()},
                            {"dropped", summary.dropped.total()},
                            {"handedOn", summary.handedOn.total()}};
    }
};

} // namespace

std::unique_ptr<ControlServer> serveControl(const RunOptions& options, AgentState& state,
                                            const Forwarder& forwarder,
                                            std::function<std::vector<NamedCounter>()> more) {
    if (options.control.empty() && options.tables.empty()) {
        return nullptr;
    }
    return std::make_unique<ControlServer>(
        options.control.empty() ? controlPath(options.tables) : options.control,
        Commands{&state, &forwarder, options.tables, std::move(more)});
}

} // namespace OvixAgent
