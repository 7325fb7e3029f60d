#include <fmt/format.h>
#include <map>

#include "Command/Run.h"

namespace OvixAgent {

namespace {

/// The control commands.
struct Commands {
    AgentState* state;
    const Forwarder* forwarder;
    const RunOptions* options;
    std::function<std::vector<NamedCounter>()> more;

    std::string operator()(const std::string& request) const {
        static const std::map<std::string, std::string (Commands::*)() const> all{
            {"counters", &Commands::counters},
            {"clear-counters", &Commands::clearCounters},
            {"status", &Commands::status},
        };
        const Tessel::Result<std::string> command = requestedCommand(request);
        if (!command) {
            return refusalAnswer(command.refused().what);
        }
        const auto found = all.find(command.value());
        return found != all.end()
                   ? (this->*found->second)()
                   : refusalAnswer(fmt::format("there is no command \"{}\"", command.value()));
    }

    std::string counters() const {
        std::vector<NamedCounter> all = namedCounters(*forwarder->namedCounters());
        if (more) {
            const std::vector<NamedCounter> others = more();
            all.insert(all.end(), others.begin(), others.end());
        }
        return countersAnswer(labelTraffic(*state->manager()->pktCounterCollectionHolder()), all);
    }
    std::string clearCounters() const {
        state->manager()->clearCountersRequests()->requestClearAll();
        return doneAnswer();
    }
    std::string status() const {
        return statusAnswer(summaryOf(*options, *state, *forwarder), agentVersion);
    }
};

} // namespace

std::unique_ptr<ControlServer> serveControl(const RunOptions& options, AgentState& state,
                                            const Forwarder& forwarder,
                                            std::function<std::vector<NamedCounter>()> more) {
    if (options.control.empty() && options.tables.empty()) {
        return nullptr;
    }
    return std::make_unique<ControlServer>(options.control.empty() ? controlPath(options.tables)
                                                                   : options.control,
                                           Commands{&state, &forwarder, &options, std::move(more)});
}

} // namespace OvixAgent
