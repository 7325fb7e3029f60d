#include "Counters.h"

#include <algorithm>

#include "Ovix/trace/NamedCounters.h"

namespace Differential {

using OvixAgent::Summary;

namespace {

void add(Recording& into, std::string_view name, const OvixAgent::Traffic& traffic) {
    into.add(name, traffic.frames);
    into.add(name, traffic.bytes);
}

void add(Recording& into, std::string_view fate, const OvixAgent::Reasons& reasons, Fault fault) {
    for (const auto& [reason, count] : reasons.counts()) {
        into.add(fate, reason);
        into.add("  frames", fault == Fault::reason && count > 10 ? count + 1 : count);
    }
}

void addLabels(Recording& into, const OvixAgent::AgentState& state, Fault fault) {
    constexpr std::uint64_t falsifiedFrom = 5;
    for (const auto& label :
         OvixAgent::labelTraffic(*state.manager()->pktCounterCollectionHolder())) {
        const bool isFalse = fault == Fault::label && label.traffic.frames > falsifiedFrom;
        into.add("label", std::uint64_t{label.label});
        add(into, "  traffic", label.traffic);
        into.add("  more", std::uint64_t{isFalse});
    }
}

/// The last of the frames that are kept; by which generation shows in no other way.
void addRecorded(Recording& into, const OvixAgent::FrameRecorder& recorder) {
    constexpr std::size_t newest = 4;
    for (const auto& log : recorder.logs()) {
        into.add("recorded", log->reason);
        into.add("  frames", log->frames());
        const std::size_t kept = log->kept();
        for (std::size_t i = kept - std::min(kept, newest); i < kept; ++i) {
            const OvixAgent::RecordedFrame& frame = log->keptAt(i);
            into.add("  frame", {frame.port, frame.time, frame.bytes(), frame.length});
            into.add("  sequence", frame.sequence);
            into.add("  via", std::uint64_t{frame.viaPort});
        }
        for (const std::uint64_t frames : log->byPort()) {
            into.add("  of a port", frames);
        }
    }
}

} // namespace

void recordCounters(Recording& into, const OvixAgent::Forwarder& forwarder,
                    const OvixAgent::AgentState& state, Fault fault) {
    Summary summary;
    forwarder.addTo(summary);
    add(into, "in", summary.in);
    for (const auto& port : summary.forwarded) {
        into.add("port", port.port);
        add(into, "  sent", port.traffic);
    }
    add(into, "punted", summary.punted, fault);
    add(into, "dropped", summary.dropped, fault);
    add(into, "handed on", summary.handedOn, fault);
    into.add("replicas", summary.replicas);
    into.add("waiting", summary.waiting);
    into.add("balanced", std::uint64_t{summary.isBalanced()});
    for (const auto& pseudowire : summary.pseudowires) {
        into.add("pseudowire", pseudowire.name);
        add(into, "  sent", pseudowire.sent);
        add(into, "  delivered", pseudowire.delivered);
    }
    addLabels(into, state, fault);
    addRecorded(into, forwarder.recorder());
    for (const auto& counter : forwarder.namedCounters()->counters()) {
        into.add(counter.category, counter.reason);
        into.add(counter.module, counter.count);
    }
}

} // namespace Differential
