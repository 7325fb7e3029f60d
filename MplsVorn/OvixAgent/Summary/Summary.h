#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace OvixAgent {

struct Traffic {
    std::uint64_t frames = 0;
    std::uint64_t bytes = 0;

    void add(std::size_t frameBytes) noexcept {
        ++frames;
        bytes += frameBytes;
    }

    friend bool operator==(const Traffic&, const Traffic&) = default;
};

struct PortTraffic {
    std::string port;
    Traffic traffic;
};

/// Frames that met one fate, by reason.
class Reasons {
  public:
    void add(const std::string& reason, std::uint64_t frames) { counts_[reason] += frames; }
    std::uint64_t total() const;
    const std::map<std::string, std::uint64_t>& counts() const noexcept { return counts_; }

  private:
    std::map<std::string, std::uint64_t> counts_;
};

/// What was counted for an incoming label.
struct LabelTraffic {
    std::uint32_t label = 0;
    Traffic traffic;
};

/// What a pseudowire carried: the customer's frames by direction.
struct PseudowireTraffic {
    std::string name;
    Traffic sent;      ///< from the attachment circuit towards the other end
    Traffic delivered; ///< out of the attachment circuit
};

/// The label tables at the end of a run.
struct TablesState {
    std::string name; ///< empty: the configuration's own
    std::uint64_t generation = 0;
    std::uint64_t corruptions = 0; ///< reads that ran into something that cannot be right
};

struct NamedCounter {
    std::string category;
    std::string module;
    std::string reason;
    std::uint64_t count = 0;
};

/// What became of every frame of a run.
struct Summary {
    Traffic in;
    std::vector<PortTraffic> forwarded; ///< what left each port, copies included, in port order
    Reasons punted;
    Reasons dropped;
    Reasons handedOn; ///< not for MPLS to handle
    /// Copies beyond the first of frames that were replicated, whatever became of them, and
    /// fragments beyond the first of packets that left in several.
    std::uint64_t replicas = 0;
    /// What the plugin sent to the loopback interface about frames that have their own fate.
    Traffic exceptions;
    std::vector<LabelTraffic> labels;
    std::vector<PseudowireTraffic> pseudowires;
    std::vector<NamedCounter> counters;
    TablesState tables;
    std::vector<std::string> problems; ///< inputs that ended early

    Traffic forwardedTotal() const;

    /// Frames whose fate is known: forwarded, punted, dropped or handed on.
    std::uint64_t accountedFor() const;

    /// True when each frame, and each copy of one, is accounted for exactly once.
    bool isBalanced() const { return in.frames + replicas == accountedFor(); }
};

/// A table for people; parts without content are left out.
std::string summaryTable(const Summary& summary);

/// The same as JSON, indented, without a newline at the end:
/// {"balanced", "in": {"frames", "bytes"},
///  "forwarded": {"frames", "bytes", "ports": {PORT: {"frames", "bytes"}}},
///  "punted", "dropped", "handedOn": {"frames", "reasons": {REASON: COUNT}},
///  "replicas", "exceptions": {"frames", "bytes"}, "labels": [{"label", "packets", "bytes"}],
///  "pseudowires": [{"name", "sent", "delivered": {"frames", "bytes"}}],
///  "counters": [{"category", "module", "reason", "count"}],
///  "tables": {"name", "generation", "corruptions"}, "problems": [TEXT]}.
/// Every key is always there.
std::string summaryJson(const Summary& summary);

} // namespace OvixAgent
