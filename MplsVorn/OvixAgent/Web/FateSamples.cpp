#include "Web/FateSamples.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <utility>
#include <vector>

#include "Control/ControlClient.h"
#include "Posix/WithoutSignals.h"
#include "Summary/JsonText.h"

namespace OvixAgent {

namespace {

using SampleJson = nlohmann::ordered_json;

/// Those met most first.
std::vector<std::string> reasonsOf(const std::deque<FateSamples::Counts>& growth) {
    FateSamples::Counts sums;
    for (const FateSamples::Counts& interval : growth) {
        for (const auto& [reason, frames] : interval) {
            sums[reason] += frames;
        }
    }
    std::vector<std::pair<std::string, std::uint64_t>> sorted(sums.begin(), sums.end());
    std::stable_sort(sorted.begin(), sorted.end(),
                     [](const auto& a, const auto& b) { return a.second > b.second; });
    std::vector<std::string> reasons;
    for (const auto& [reason, frames] : sorted) {
        reasons.push_back(reason);
    }
    return reasons;
}

} // namespace

FateSamples::FateSamples(std::string control) : control_(std::move(control)) {
    const Posix::WithoutSignals here;
    thread_ = std::thread([this] { run(); });
}

FateSamples::~FateSamples() {
    {
        const std::lock_guard lock(mutex_);
        isStopped_ = true;
    }
    stops_.notify_one();
    thread_.join();
}

void FateSamples::run() {
    std::unique_lock lock(mutex_);
    while (!isStopped_) {
        lock.unlock();
        const auto answer = askAgent(control_, R"({"command":"fates"})", std::chrono::seconds(1));
        const auto fates = nlohmann::json::parse(answer ? answer.value() : "", nullptr, false);
        if (fates.is_object() && fates.contains("dropped")) {
            add(fates["dropped"].value("reasons", Counts()));
        }
        lock.lock();
        stops_.wait_for(lock, every, [this] { return isStopped_; });
    }
}

void FateSamples::add(Counts dropped) {
    const std::lock_guard lock(mutex_);
    if (std::exchange(hasLast_, true)) {
        Counts grown;
        for (const auto& [reason, frames] : dropped) {
            const auto before = last_.find(reason);
            const std::uint64_t was = before != last_.end() ? before->second : 0;
            if (frames != was) {
                grown[reason] = frames > was ? frames - was : frames; // cleared in between
            }
        }
        growth_.push_back(std::move(grown));
        if (growth_.size() > most) {
            growth_.pop_front();
        }
    }
    last_ = std::move(dropped);
}

std::string FateSamples::json(std::size_t reasons) const {
    const std::lock_guard lock(mutex_);
    const std::vector<std::string> all = reasonsOf(growth_);
    SampleJson list = SampleJson::array();
    const auto row = [&](SampleJson name, auto&& isOf) {
        SampleJson frames = SampleJson::array();
        for (const Counts& interval : growth_) {
            std::uint64_t sum = 0;
            for (const auto& [reason, count] : interval) {
                sum += isOf(reason) ? count : 0;
            }
            frames.push_back(sum);
        }
        list.push_back(SampleJson{{"reason", std::move(name)}, {"frames", std::move(frames)}});
    };
    const auto shown = all.begin() + static_cast<std::ptrdiff_t>(std::min(reasons, all.size()));
    for (auto name = all.begin(); name != shown; ++name) {
        row(*name, [&](const std::string& reason) { return reason == *name; });
    }
    if (shown != all.end()) {
        row(nullptr, [&](const std::string& reason) {
            return std::find(shown, all.end(), reason) != all.end();
        });
    }
    const SampleJson json{
        {"seconds", every.count()}, {"samples", growth_.size()}, {"reasons", std::move(list)}};
    return dumped(json);
}

} // namespace OvixAgent
