#include <fmt/format.h>
#include <nlohmann/json.hpp>
#include <utility>

#include "Listing/Listings.h"
#include "Summary/JsonText.h"
#include "Tessel/Words.h"
#include "Wire/Ethernet.h"

namespace OvixAgent {

namespace {

using FateJson = nlohmann::ordered_json;
using Log = FrameRecorder::Log;

FateJson portName(const PortTable& ports, PortIndex port) {
    return port < ports.ports().size() ? FateJson(ports.ports()[port].name) : FateJson(nullptr);
}

FateJson viaJson(const RecordedVia& via, const PortTable& ports) {
    const bool isKnown = via.nexthop.family() != Lumo::IpFamily::none;
    return {{"port", portName(ports, via.port)},
            {"nexthop", isKnown ? FateJson(via.nexthop.text()) : FateJson(nullptr)}};
}

/// What this router has made itself, such as ICMP errors, has no addresses of a link.
bool isOfThisRouter(Wire::Bytes frame) {
    const Wire::Ethernet header(frame);
    return header && header.source() == Lumo::EthAddr{};
}

FateJson frameJson(const Log& log, const RecordedFrame& frame, bool isFirst,
                   const PortTable& ports) {
    const auto label = topLabel(frame.bytes());
    return {
        {"sequence", frame.sequence},
        {"time", frame.time.seconds * 1'000'000'000 + frame.time.nanoseconds},
        {"fate", Tessel::wordOf(log.kind)},
        {"reason", log.reason},
        {"first", isFirst},
        {"port", isOfThisRouter(frame.bytes()) ? FateJson(nullptr) : portName(ports, frame.port)},
        {"own", isOfThisRouter(frame.bytes())},
        {"length", frame.length},
        {"bytes", fmt::format("{:02x}", fmt::join(frame.bytes(), ""))},
        {"label", label ? FateJson(*label) : FateJson(nullptr)},
        {"via", viaJson(frame.via(), ports)},
        {"generation", frame.generation}};
}

/// Visits the entries of lists that are made one after the other: `next(list)` is a list's.
template <typename MakeList>
Listing listOfLists(std::size_t lists, MakeList makeList) {
    return
        [lists, makeList = std::move(makeList), at = std::size_t{0}](std::string& entry) mutable {
            if (at >= lists) {
                return false;
            }
            for (const FateJson& each : makeList(at++)) {
                entry += (entry.empty() ? "" : ",") + dumped(each);
            }
            return true;
        };
}

} // namespace

// By place, not by age: what is overwritten meanwhile is newer than what was asked for.
Listing recordedListing(const FrameRecorder& recorder, const PortTable& ports,
                        std::uint64_t after) {
    return [&recorder, &ports, after, newest = recorder.sequence(), log = std::size_t{0},
            place = std::size_t{0}](std::string& entry) mutable {
        if (log >= recorder.logs().size()) {
            return false;
        }
        const Log& of = *recorder.logs()[log];
        const RecordedFrame* const frame = of.at(place);
        if (frame != nullptr && frame->sequence > after && frame->sequence <= newest) {
            const bool isFirst =
                place == 0 || (place == 1 && of.kept() <= FrameRecorder::framesOfReason);
            entry = dumped(frameJson(of, *frame, isFirst, ports));
        }
        place = (place + 1) % Log::places;
        log += place == 0 ? 1 : 0;
        return true;
    };
}

Listing portFateListing(const FrameRecorder& recorder, const PortTable& ports) {
    return listOfLists(recorder.logs().size(), [&recorder, &ports](std::size_t index) {
        const Log& log = *recorder.logs()[index];
        FateJson entries = FateJson::array();
        const std::vector<std::uint64_t> frames = log.byPort();
        const auto add = [&](FateJson port, std::uint64_t count) {
            if (count > 0) {
                entries.push_back(FateJson{{"port", std::move(port)},
                                           {"fate", Tessel::wordOf(log.kind)},
                                           {"reason", log.reason},
                                           {"frames", count}});
            }
        };
        std::uint64_t own = 0;
        for (PortIndex port = 0; port < frames.size(); ++port) {
            add(portName(ports, port), frames[port] - log.ownAt(port));
            own += log.ownAt(port);
        }
        add(nullptr, own);
        return entries;
    });
}

Listing labelFateListing(const FrameRecorder& recorder, std::int64_t second) {
    return listOfLists(recorder.logs().size(), [&recorder, second](std::size_t index) {
        const Log& log = *recorder.logs()[index];
        FateJson entries = FateJson::array();
        for (const auto& label : log.topLabels(second)) {
            entries.push_back(FateJson{{"label", label.key},
                                       {"fate", Tessel::wordOf(log.kind)},
                                       {"reason", log.reason},
                                       {"frames", label.count},
                                       {"perSecond", label.previous}});
        }
        return entries;
    });
}

Listing unresolvedListing(const FrameRecorder& recorder, const PortTable& ports,
                          std::int64_t second) {
    return listOfLists(1, [&recorder, &ports, second](std::size_t) {
        FateJson entries = FateJson::array();
        for (const auto& one : recorder.unresolved().top(FrameRecorder::topKeys, second)) {
            FateJson entry = viaJson(one.key, ports);
            entry["frames"] = one.count;
            entry["perSecond"] = one.previous;
            entries.push_back(std::move(entry));
        }
        return entries;
    });
}

} // namespace OvixAgent
