#include <fmt/format.h>

#include "Bundle/Anonymise.h"
#include "Bundle/Bundle.h"
#include "Capture/CaptureInterfaces.h"
#include "Capture/CaptureReader.h"
#include "Command/Run.h"
#include "Explain/FrameWords.h"
#include "Explain/RemedyWords.h"
#include "Program/Version.h"
#include "Summary/JsonText.h"
#include "commands/AgentAnswer.h"
#include "commands/AgentSituation.h"

namespace OvixCtl {

using OvixAgent::dumped;

namespace {

using OvixAgent::Bundle;

/// The frames that the agent has kept, where it keeps any. Those that it has made itself have come
/// in at no port.
void takeRecorded(const Request& request, Bundle& bundle) {
    const Tessel::Result<Json> recorded = answerOf(request, "recorded-frames");
    if (!recorded || !recorded.value().contains("recorded-frames")) {
        return;
    }
    for (const Json& each : recorded.value()["recorded-frames"]) {
        const auto port = portNamed(bundle.situation.config, cellOf(each.value("port", Json())));
        auto frame = OvixAgent::readFrame(each.value("bytes", ""), port, {});
        if (port != OvixAgent::noPort && frame) {
            const auto length = each.value("length", frame.value().originalLength);
            frame.value().originalLength = std::max(length, frame.value().originalLength);
            bundle.frames.push_back({std::move(frame).value(), {}});
        }
    }
}

Tessel::Result<void> takeCapture(const Request& request, Bundle& bundle) {
    constexpr std::size_t mostFrames = 10'000;
    if (request.frames.empty()) {
        return {};
    }
    const bool isPortGiven = !request.port.empty();
    auto port = portNamed(bundle.situation.config, request.port);
    if (isPortGiven && port == OvixAgent::noPort) {
        return Tessel::Refused{fmt::format("--port: there is no port \"{}\"", request.port)};
    }
    OvixAgent::CaptureReader capture(port, request.frames);
    OvixAgent::CaptureInterfaces interfaces(request.frames);
    std::size_t taken = 0;
    while (const OvixAgent::Frame* const frame = capture.next()) {
        if (++taken > mostFrames) {
            return Tessel::Refused{
                fmt::format("{}: has more than {} frames", request.frames, mostFrames)};
        }
        if (!isPortGiven) {
            port = portNamed(bundle.situation.config, interfaces.next().value_or(""));
        }
        if (port == OvixAgent::noPort) {
            return Tessel::Refused{
                fmt::format("--frames needs --port: {} names no port that frame {} came in at",
                            request.frames, taken)};
        }
        bundle.frames.push_back({{{frame->bytes.begin(), frame->bytes.end()},
                                  frame->originalLength,
                                  port,
                                  frame->time,
                                  {}},
                                 {}});
    }
    return {};
}

/// Of the agent, if it answers, and of what writes the bundle.
Json versions(const Request& request) {
    const Tessel::Result<Json> status = answerOf(request, "status");
    return {{"agent", status ? status.value().value("version", "") : ""},
            {"ovixctl", OvixLog::version()}};
}

} // namespace

Tessel::Result<int> writeBundleOfAgent(const Request& request) {
    Tessel::Result<OvixAgent::Situation> situation = situationOf(request);
    if (!situation) {
        return situation.refused();
    }
    Bundle bundle;
    bundle.situation = std::move(situation).value();
    const std::uint64_t generation =
        bundle.situation.tables ? bundle.situation.tables->reader()->generation() : 0;
    for (const char* const command : {"status", "counters", "fates", "vrfs"}) {
        if (const Tessel::Result<Json> answer = answerOf(request, command)) {
            bundle.more.emplace_back(command, answer.value().dump());
        }
    }
    bundle.more.emplace_back("versions", versions(request).dump());
    takeRecorded(request, bundle);
    if (const auto taken = takeCapture(request, bundle); !taken) {
        return taken.refused();
    }
    OvixAgent::serveToggles(bundle.situation.config, bundle.situation.file);
    if (request.anonymise) {
        if (const auto done = OvixAgent::anonymise(bundle); !done) {
            return done.refused();
        }
    }
    if (const auto done = setOutcomes(bundle); !done) {
        return done.refused();
    }
    writeBundle(request.words.front(), bundle);
    if (request.json) {
        const Json written{{"file", request.words.front()},
                           {"frames", bundle.frames.size()},
                           {"generation", generation}};
        fmt::print("{}\n", dumped(written));
    } else {
        fmt::print("{}: {} frames, tables at generation {}\n", request.words.front(),
                   bundle.frames.size(), generation);
    }
    return ExitCode::success;
}

} // namespace OvixCtl
