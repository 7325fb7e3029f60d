#include "Web/PageData.h"

#include <algorithm>
#include <fmt/format.h>
#include <nlohmann/json.hpp>
#include <thread>
#include <utility>
#include <vector>

#include "Control/ControlClient.h"
#include "State/Fate.h"
#include "Summary/JsonText.h"

namespace OvixAgent {

namespace {

using FramesJson = nlohmann::ordered_json;

constexpr const char* missing = "null";

bool isNewer(const FramesJson& a, const FramesJson& b) {
    return a.value("sequence", std::uint64_t{0}) > b.value("sequence", std::uint64_t{0});
}

/// Punted frames are mostly for this router itself, as pings are: there are many, and nothing is
/// wrong with them.
bool isShown(const FramesJson& frame, const std::string& reason) {
    return reason == "*"    ? true
           : reason.empty() ? frame.value("fate", "") != Tessel::wordOf(FateKind::punted)
                            : frame.value("reason", "").find(reason) != std::string::npos;
}

/// The frames of an answer that are to be shown, the newest first.
std::vector<FramesJson> shownOf(FramesJson& answer, std::uint64_t before,
                                const std::string& reason) {
    std::vector<FramesJson> shown;
    if (!answer.is_object() || !answer.contains("recorded-frames")) {
        return shown;
    }
    for (FramesJson& frame : answer["recorded-frames"]) {
        const bool isBefore = before == 0 || frame.value("sequence", std::uint64_t{0}) < before;
        if (isBefore && isShown(frame, reason)) {
            frame.erase("bytes");
            shown.push_back(std::move(frame));
        }
    }
    std::sort(shown.begin(), shown.end(), isNewer);
    return shown;
}

} // namespace

std::string PageData::answerTo(const std::string& request) const {
    constexpr std::chrono::seconds longest{2};
    auto answer = askAgent(control_, request, longest);
    return answer ? std::move(answer).value() : missing;
}

PageData::Turn::Turn(const PageData& data) : data_(&data) {
    std::this_thread::sleep_until(data.next_);
    began_ = std::chrono::steady_clock::now();
}

PageData::Turn::~Turn() {
    constexpr std::chrono::milliseconds longest{500};
    const auto now = std::chrono::steady_clock::now();
    data_->next_ = now + std::min<std::chrono::steady_clock::duration>(4 * (now - began_), longest);
}

// None further when one is missing: the agent may be ending, and waits for this.
std::string PageData::now() const {
    const Turn turn(*this);
    const std::pair<const char*, std::string> wanted[]{
        {"status", R"({"command":"status"})"},
        {"fates", R"({"command":"fates"})"},
        {"ports", fmt::format(R"({{"command":"ports","limit":{}}})", mostPorts)},
        {"neighbours", fmt::format(R"({{"command":"neighbours","limit":{}}})", mostNeighbours)},
        {"labels", fmt::format(R"({{"command":"top-labels","limit":{}}})", mostLabels)},
        {"wanted", R"({"command":"drops-by-neighbour"})"}};
    std::string all;
    std::string answer;
    for (const auto& [name, request] : wanted) {
        answer = answer == missing ? answer : answerTo(request);
        all += fmt::format(R"({}"{}":{})", all.empty() ? "{" : ",", name, answer);
    }
    return all + "}";
}

std::string PageData::frames(std::uint64_t before, const std::string& reason) const {
    const Turn turn(*this);
    FramesJson answer =
        FramesJson::parse(answerTo(R"({"command":"recorded-frames"})"), nullptr, false);
    std::vector<FramesJson> shown = shownOf(answer, before, reason);
    const bool hasMore = shown.size() > framesAtOnce;
    shown.resize(std::min(shown.size(), framesAtOnce));
    return dumped(FramesJson{{"frames", std::move(shown)}, {"more", hasMore}});
}

std::string PageData::sets(std::uint64_t from) const {
    const Turn turn(*this);
    return answerTo(
        fmt::format(R"({{"command":"weighted-sets","from":{},"limit":{}}})", from, setsAtOnce));
}

} // namespace OvixAgent
