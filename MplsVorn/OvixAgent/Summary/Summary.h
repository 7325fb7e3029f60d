#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "State/Frame.h"
#include "Tessel/Result.h"

namespace Counter {
class PktCounterCollectionHolder;
}
namespace Ovix {
class OvixNamedCounters;
}

namespace OvixAgent {

struct PortTraffic {
    std::string port;
    Traffic traffic;
};

/// The frames of one fate, by reason.
class Reasons {
  public:
    void add(const std::string& reason, std::uint64_t frames) { counts_[reason] += frames; }
    std::uint64_t total() const;
    const std::map<std::string, std::uint64_t>& counts() const noexcept { return counts_; }

  private:
    std::map<std::string, std::uint64_t> counts_;
};

/// The counter of an incoming label.
struct LabelTraffic {
    std::uint32_t label = 0;
    Traffic traffic;
};

/// The customer's frames that a pseudowire carried, by direction.
struct PseudowireTraffic {
    std::string name;
    Traffic sent;      ///< from the attachment circuit to the remote end
    Traffic delivered; ///< out of the attachment circuit
};

/// The label tables at the end of a run.
struct TablesState {
    std::string name; ///< empty: the configuration's own
    std::uint64_t generation = 0;
    std::uint64_t corruptions = 0; ///< damaged records read
    std::string problem = {};      ///< what is wrong with their file
};

struct NamedCounter {
    std::string category;
    std::string module;
    std::string reason;
    std::uint64_t count = 0;
};

/// The fates of all frames of a run, and its counters.
struct Summary {
    Traffic in;
    std::vector<PortTraffic> forwarded; ///< sent by each port, copies included, in port order
    Reasons punted;
    Reasons dropped;
    Reasons handedOn; ///< not MPLS
    /// Copies beyond the first of replicated frames, whatever their fate, and fragments beyond the
    /// first of fragmented packets.
    std::uint64_t replicas = 0;
    /// Of those that came in, what the router has answered itself; set of a running agent.
    std::uint64_t answers = 0;
    /// Packets whose neighbour is being resolved; none at the end of a run.
    std::uint64_t waiting = 0;
    /// MTU exception frames sent to the loopback interface, beside the fates of their frames.
    Traffic exceptions;
    std::vector<LabelTraffic> labels;
    std::vector<PseudowireTraffic> pseudowires;
    std::vector<NamedCounter> counters;
    TablesState tables;
    std::vector<std::string> problems; ///< inputs that ended early, differences that checks found
    /// Why ports are not open at the end of a live run, which it has not failed for.
    std::vector<std::string> closedPorts;
    int stopSignal = 0;                ///< which signal has ended a run on captures; 0: none

    Traffic forwardedTotal() const;

    /// Frames forwarded, punted, dropped or handed on, and those that wait.
    std::uint64_t accountedFor() const;

    /// True when each frame, and each copy of one, is accounted for exactly once.
    bool isBalanced() const { return in.frames + replicas == accountedFor(); }
};

/// What has been counted per label, sorted by label.
std::vector<LabelTraffic> labelTraffic(const Counter::PktCounterCollectionHolder& holder);
std::vector<NamedCounter> namedCounters(const Ovix::OvixNamedCounters& counters);
/// The same by the reasons that people read, each once, without lookups that ended no frame.
std::vector<NamedCounter> readableCounters(const Ovix::OvixNamedCounters& counters);

/// A table for people; empty parts are left out.
std::string summaryTable(const Summary& summary);

/// The same as indented JSON without a trailing newline:
/// {"balanced", "in": {"frames", "bytes"},
///  "forwarded": {"frames", "bytes", "ports": {PORT: {"frames", "bytes"}}},
///  "punted", "dropped", "handedOn": {"frames", "reasons": {REASON: COUNT}},
///  "replicas", "exceptions": {"frames", "bytes"}, "labels": [{"label", "packets", "bytes"}],
///  "pseudowires": [{"name", "sent", "delivered": {"frames", "bytes"}}],
///  "counters": [{"category", "module", "reason", "count"}],
///  "tables": {"name", "generation", "corruptions", "problem"}, "problems": [TEXT]}.
/// Every key is always present.
std::string summaryJson(const Summary& summary);

/// The command of a request at the control socket: {"command": NAME, ...}.
Tessel::Result<std::string> requestedCommand(const std::string& request);

/// A member of it that is a text or a number; empty or 0 when there is none.
std::string requestedText(const std::string& request, const char* member);
std::uint64_t requestedNumber(const std::string& request, const char* member);

/// Of a running agent, beside its frames.
struct MoreStatus {
    std::uint64_t committedAt = 0; ///< the generation of the tables, in nanoseconds since 1970
    std::vector<std::pair<std::string_view, std::uint64_t>> entries = {}; ///< of each table
    std::size_t neighbours = 0;
    std::size_t wantedNeighbours = 0; ///< that packets wait for
};

/// An entry of "labels", and all of "counters", as in the summary.
std::string labelText(const LabelTraffic& label);
std::string countersText(const std::vector<NamedCounter>& counters);

/// What has been counted of frames in a time.
struct FateGrowth {
    double seconds = 0;
    Summary frames;
};

/// Answers to requests, each a line of JSON without its end, {"ok": true, ...} or {"ok": false,
/// "error": TEXT}: the frames and tables of a run so far, of which `run` names the kind; the fates
/// of its frames with their reasons, as in the summary, and how they have grown since they were
/// asked for last and of late; nothing but success; a refusal.
std::string statusAnswer(const Summary& summary, std::string_view version, std::string_view run,
                         const MoreStatus& more = {});
std::string fatesAnswer(const Summary& summary, const FateGrowth& sinceAsked,
                        const FateGrowth& ofLate);
std::string doneAnswer();
std::string refusalAnswer(const std::string& error);

} // namespace OvixAgent
