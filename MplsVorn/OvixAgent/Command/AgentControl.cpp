#include <algorithm>
#include <filesystem>
#include <fmt/format.h>
#include <map>
#include <utility>

#include "Command/Run.h"
#include "Listing/SituationListing.h"
#include "Mpls/TableDirectory.h"
#include "Program/Version.h"

namespace OvixAgent {

namespace {

/// Whether the command needs what has been counted of labels.
bool isAboutLabels(std::string_view command) noexcept {
    return command == "counters" || command == "clear-counters" || command == "top-labels";
}

/// The control commands.
struct Commands {
    ControlParts parts;

    ControlAnswer operator()(const std::string& request) const {
        static const std::map<std::string, ControlAnswer (Commands::*)(const std::string&) const>
            all{
                {"clear-counters", &Commands::clearCounters},
                {"counters", &Commands::counters},
                {"drops-by-label", &Commands::dropsByLabel},
                {"drops-by-neighbour", &Commands::dropsByNeighbour},
                {"drops-by-port", &Commands::dropsByPort},
                {"events", &Commands::events},
                {"fates", &Commands::fates},
                {"fecs", &Commands::fecs},
                {"neighbours", &Commands::neighbours},
                {"ports", &Commands::ports},
                {"recorded-frames", &Commands::recordedFrames},
                {"pseudowires", &Commands::pseudowires},
                {"routes", &Commands::routes},
                {"situation", &Commands::situation},
                {"status", &Commands::status},
                {"top-labels", &Commands::topLabels},
                {"trace-lines", &Commands::traceLines},
                {"trace-start", &Commands::traceStart},
                {"trace-stop", &Commands::traceStop},
                {"vrfs", &Commands::vrfs},
                {"weighted-sets", &Commands::weightedSets},
            };
        const Tessel::Result<std::string> command = requestedCommand(request);
        if (!command) {
            return refusalAnswer(command.refused().what);
        }
        if (parts.collect) {
            parts.collect(isAboutLabels(command.value()));
        }
        const auto found = all.find(command.value());
        return found != all.end()
                   ? (this->*found->second)(request)
                   : refusalAnswer(fmt::format("there is no command \"{}\"", command.value()));
    }

    ControlAnswer counters(const std::string& /*request*/) const {
        return {R"({"ok":true,"labels":[)", labelListing(labelCounters()),
                R"(],"counters":)" + countersText(allEvents()) + "}"};
    }
    /// The counters but those of labels, of which there may be a million, in words for people.
    ControlAnswer events(const std::string& /*request*/) const {
        return {R"({"ok":true,"counters":)" + countersText(readableEvents()) + "}"};
    }
    ControlAnswer clearCounters(const std::string& /*request*/) const {
        parts.state->manager()->clearCountersRequests()->requestClearAll();
        return doneAnswer();
    }
    ControlAnswer status(const std::string& /*request*/) const {
        return statusAnswer(soFar(), OvixLog::version(), parts.live ? "live" : "captures",
                            moreStatus());
    }
    /// Only those who ask for growth have asked, so that nobody else's reading disturbs theirs.
    ControlAnswer fates(const std::string& request) const {
        if (requestedNumber(request, "growth") == 0) {
            return fatesAnswer(soFar(), {}, {});
        }
        return fatesAnswer(soFar(), parts.history->sinceAsked(), parts.history->ofLate());
    }
    ControlAnswer dropsByLabel(const std::string& /*request*/) const {
        return list("drops-by-label", labelFateListing(recorder(), second()));
    }
    ControlAnswer dropsByNeighbour(const std::string& /*request*/) const {
        return list("drops-by-neighbour",
                    unresolvedListing(recorder(), parts.tables->ports, second()));
    }
    ControlAnswer topLabels(const std::string& request) const {
        const std::size_t most = std::min<std::size_t>(requestedNumber(request, "limit"), 10'000);
        return list("top-labels", topLabelListing(labelCounters(), most));
    }
    ControlAnswer weightedSets(const std::string& request) const {
        const std::uint64_t from =
            std::min<std::uint64_t>(requestedNumber(request, "from"), Lumo::MplsLabel::max);
        const std::size_t most = std::min<std::size_t>(requestedNumber(request, "limit"), 1000);
        return list("weighted-sets", weightedListing(parts.state->tables(), parts.tables->ports,
                                                     static_cast<std::uint32_t>(from),
                                                     std::max<std::size_t>(most, 1)));
    }
    ControlAnswer dropsByPort(const std::string& /*request*/) const {
        return list("drops-by-port", portFateListing(recorder(), parts.tables->ports));
    }
    ControlAnswer recordedFrames(const std::string& request) const {
        const std::uint64_t after = requestedNumber(request, "after");
        return {fmt::format(R"({{"ok":true,"sequence":{},"memory":{},"memoryLimit":{},)"
                            R"("recorded-frames":[)",
                            recorder().sequence(), recorder().memoryBytes(),
                            FrameRecorder::mostMemoryBytes()),
                recordedListing(recorder(), parts.tables->ports, after), "]}"};
    }
    ControlAnswer fecs(const std::string& /*request*/) const {
        return list("fecs", fecListing(*parts.tables));
    }
    ControlAnswer neighbours(const std::string& request) const {
        return list("neighbours", limited(neighbourListing(*parts.tables), request));
    }
    ControlAnswer ports(const std::string& request) const {
        return list("ports", limited(portListing(*parts.tables, parts.live), request));
    }
    ControlAnswer pseudowires(const std::string& /*request*/) const {
        return list("pseudowires", pseudowireListing(*parts.tables));
    }
    ControlAnswer routes(const std::string& request) const {
        const std::string vrf = requestedText(request, "vrf");
        if (!vrf.empty() && !parts.tables->vrfs->number(vrf)) {
            return refusalAnswer(fmt::format("there is no VRF \"{}\"", vrf));
        }
        return list("routes", routeListing(*parts.tables, vrf));
    }
    /// What it forwards by, but for what other commands list.
    ControlAnswer situation(const std::string& /*request*/) const {
        const RunOptions& options = *parts.options;
        return situationAnswer({std::string(OvixLog::version()), parts.live ? "live" : "captures",
                                std::filesystem::absolute(options.config), options.plugin,
                                options.tables, parts.state->tables().tables().generation(),
                                options.anyMac},
                               parts.state->configText());
    }
    ControlAnswer traceStart(const std::string& request) const {
        if (parts.trace->isWritten()) {
            return refusalAnswer("the agent runs with --trace, which traces all frames");
        }
        const Tessel::Result<TraceFilter> filter = requestedTrace(request, parts.tables->ports);
        if (!filter) {
            return refusalAnswer(filter.refused().what);
        }
        parts.trace->start(filter.value());
        return traceLines({});
    }
    ControlAnswer traceStop(const std::string& /*request*/) const {
        if (!parts.trace->isWritten()) {
            parts.trace->stop();
        }
        return doneAnswer();
    }
    ControlAnswer traceLines(const std::string& request) const {
        const LiveTrace& trace = *parts.trace;
        return {fmt::format(R"({{"ok":true,"on":{},"frames":{},"end":{},"lines":[)", trace.isOn(),
                            trace.frames(), trace.end()),
                traceListing(trace, requestedNumber(request, "after")), "]}"};
    }
    ControlAnswer vrfs(const std::string& /*request*/) const {
        return list("vrfs", vrfListing(*parts.tables));
    }

  private:
    std::vector<NamedCounter> allEvents() const {
        std::vector<NamedCounter> all = namedCounters(*parts.forwarder->namedCounters());
        if (parts.more) {
            const std::vector<NamedCounter> others = parts.more();
            all.insert(all.end(), others.begin(), others.end());
        }
        return all;
    }
    /// As drops show says it: reasons for people, those alike together, and without lookups that
    /// went on in another table.
    std::vector<NamedCounter> readableEvents() const {
        std::vector<NamedCounter> all = readableCounters(*parts.forwarder->namedCounters());
        if (parts.more) {
            const std::vector<NamedCounter> others = parts.more();
            all.insert(all.end(), others.begin(), others.end());
        }
        return all;
    }
    MoreStatus moreStatus() const {
        const Tessel::TableReader& tables = parts.state->tables().tables();
        MoreStatus more;
        more.committedAt = tables.committedAt();
        for (const auto& [word, table] : Tessel::words<Mpls::TableId>) {
            more.entries.emplace_back(word, tables.entries(static_cast<std::size_t>(table)));
        }
        more.neighbours = parts.tables->neighbours.size();
        more.wantedNeighbours = parts.forwarder->wantedNeighbours();
        return more;
    }
    const Counter::PktCounterCollectionHolder& labelCounters() const {
        return *parts.state->manager()->pktCounterCollectionHolder();
    }
    static Listing limited(Listing all, const std::string& request) {
        const std::uint64_t most = requestedNumber(request, "limit");
        return most == 0 ? std::move(all) : firstOf(std::move(all), most);
    }
    const FrameRecorder& recorder() const { return parts.forwarder->recorder(); }
    /// That of the last frame in a run on captures.
    std::int64_t second() const { return parts.live ? timeNow().seconds : 0; }
    Summary soFar() const {
        Summary summary = framesOf(*parts.options, *parts.state, *parts.forwarder);
        summary.answers = parts.answers ? parts.answers() : 0;
        return summary;
    }
    static ControlAnswer list(std::string_view name, Listing entries) {
        return {fmt::format(R"({{"ok":true,"{}":[)", name), std::move(entries), "]}"};
    }
};

/// Whether a request changes more than what is shown to who asks.
bool isChange(const std::string& request) {
    const Tessel::Result<std::string> command = requestedCommand(request);
    return command && (command.value() == "clear-counters" || command.value() == "trace-start" ||
                       command.value() == "trace-stop");
}

} // namespace

std::unique_ptr<ControlServer> serveControl(const ControlParts& parts) {
    const RunOptions& options = *parts.options;
    if (options.control.empty() && options.tables.empty()) {
        return nullptr;
    }
    auto server = std::make_unique<ControlServer>(
        options.control.empty() ? controlPath(options.tables) : options.control, Commands{parts});
    server->changesAre(isChange);
    return server;
}

} // namespace OvixAgent
