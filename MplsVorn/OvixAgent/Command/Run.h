#pragma once

#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "Command/CliOptions.h"
#include "Command/FateHistory.h"
#include "Config/Config.h"
#include "Control/ControlServer.h"
#include "Forwarding/Forwarder.h"
#include "Listing/Listings.h"
#include "Log/Log.h"
#include "Summary/Summary.h"
#include "Tables/AgentState.h"
#include "Trace/LiveTrace.h"

namespace OvixAgent {

class FastPath;

/// Runs the agent on captures or live and prints the summary. Returns the exit code; errors are
/// logged.
int run(const RunOptions& options, OvixLog::Log& log);

/// The same of a live run, up to its summary. Throws WorkerError and CardError before anything is
/// started.
Tessel::Result<Summary> runLive(const RunOptions& options, OvixLog::Log& log);

/// Workers that cannot be had.
struct WorkerError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// What both kinds of run are made of.

/// How many frames were checked, if any were to be.
void addChecks(const RunOptions& options, const FastPath& fastPath,
               std::vector<NamedCounter>& counters);
/// Looks whether the tables are still there, and logs what is new.
void watchTables(AgentState& state, OvixLog::Log& log);
/// With --trace every frame is traced, behind the plugin's own lines about it.
void traceAllIf(bool isAsked, LiveTrace& trace);

/// Opens the tables that the options name and starts the plugin. What the tables or the plugin
/// refuse of the configuration is refused; throws what the system refuses.
Tessel::Result<std::unique_ptr<AgentState>> startAgent(const AgentConfig& config,
                                                       const RunOptions& options);

/// Sets the source of the toggle service: the configuration and, for toggles that it does not set,
/// the toggle files beside the configuration file, JSON objects of toggle name to boolean. The
/// service then throws std::runtime_error for a toggle file that cannot be read or is invalid.
void serveToggles(const AgentConfig& config, const std::string& configFile);

/// Whether the plugins, which have been started, know all toggles of the configuration. Refused for
/// a toggle or toggle file that none of them has asked for.
Tessel::Result<void> checkToggles(const AgentConfig& config, const std::string& configFile);

/// What requests at the control socket are answered from; everything must outlive the server.
struct ControlParts {
    const RunOptions* options;
    AgentState* state;
    const Forwarder* forwarder;
    const ForwardingTables* tables;
    FateHistory* history;
    LiveTrace* trace;
    std::function<std::vector<NamedCounter>()> more = {}; ///< counters beside the forwarder's
    LiveStateOf live = {};
    std::function<void(bool labels)> collect = {}; ///< counts of other threads, to be asked first
    std::function<std::uint64_t()> answers = {};   ///< frames received that the router has made
};
/// Serves the control commands. Null when the run has neither shared tables nor a control socket.
/// Throws as ControlServer does.
std::unique_ptr<ControlServer> serveControl(const ControlParts& parts);

/// The summary of a run so far, of frames and tables; `framesOf` leaves out the traffic of labels,
/// of which there may be many.
Summary summaryOf(const RunOptions& options, const AgentState& state, const Forwarder& forwarder);
Summary framesOf(const RunOptions& options, const AgentState& state, const Forwarder& forwarder);

/// Logs the problems of the summary and prints it; returns the exit code. Throws
/// std::system_error when printing fails.
int report(const RunOptions& options, const Summary& summary, OvixLog::Log& log);

} // namespace OvixAgent
