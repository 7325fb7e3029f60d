#include "RoadRunner.h"

#include <exception>
#include <unistd.h>

namespace Fuzz {

using namespace Differential;

namespace {

/// Then there is a new router, of another world.
constexpr unsigned mostInputs = 512;

} // namespace

bool RoadRunner::mayKeep(unsigned world) const noexcept {
    return router_ && inputs_ < mostInputs &&
           (keeping_ == Keeping::forLong || (world == world_ && !isChanged_));
}

void RoadRunner::prepare(unsigned world) {
    if (mayKeep(world)) {
        ++inputs_;
        return;
    }
    router_.reset(); // there may be only one at a time
    if (!start_ || world != world_) {
        start_.emplace(makeWorld(world));
    }
    world_ = world;
    router_ = std::make_unique<Router>(start_->script, road_, Fault::none);
    for (const Step& step : start_->script.steps) {
        step.change(*router_);
    }
    router_->take(false);
    isChanged_ = false;
    inputs_ = 0;
}

void RoadRunner::note(Bytes input, bool isFirst) {
    if (history_ == nullptr) {
        return;
    }
    if (isFirst) {
        std::rewind(history_);
        check(ftruncate(fileno(history_), 0) == 0, "the history cannot be written");
        std::fputc(static_cast<int>(world_), history_);
    }
    std::fwrite(input.data(), 1, input.size(), history_);
    std::fputc(endOfInput, history_);
    std::fflush(history_);
}

void RoadRunner::perform(const Step& step, Outcome& outcome, bool keepsLines,
                         bool looksAtCounters) {
    if (keepsLines) {
        router_->take(false);
        router_->keepLines();
    }
    std::string thrown;
    try {
        if (step.change) {
            step.change(*router_);
        } else {
            router_->receive(step.frames);
        }
    } catch (const std::exception& exception) {
        thrown = exception.what();
    }
    check(thrown.empty(), "thrown", thrown);
    isChanged_ = isChanged_ || step.change;
    frames_ += step.frames.size();
    const Recording recording = router_->take(looksAtCounters, keepsLines);
    outcome.digests.push_back(recording.digest());
    if (keepsLines) {
        outcome.lines.push_back("-- " + step.text);
        outcome.lines.insert(outcome.lines.end(), recording.lines().begin(),
                             recording.lines().end());
    }
}

Outcome RoadRunner::run(Bytes input, const Answers* given, Answers* made, bool keepsLines) {
    prepare(input.empty() ? 0 : input[0] % worlds);
    note(input.subspan(std::min<std::size_t>(1, input.size())), inputs_ == 0);
    Network network = start_->network;
    const std::vector<Step> steps = readSteps(input, start_->script, network);
    Outcome outcome;
    for (std::size_t i = 0; i < steps.size(); ++i) {
        perform(steps[i], outcome, keepsLines);
        const Step answers{"answers", {}, given != nullptr ? (*given)[i] : router_->takeAnswers()};
        if (!answers.frames.empty()) {
            perform(answers, outcome, keepsLines);
        }
        router_->takeAnswers(); // answers to answers do not come back
        if (made != nullptr) {
            made->push_back(answers.frames);
        }
    }
    finish(outcome, keepsLines);
    return outcome;
}

/// What waits is given up, and then every frame has had one fate.
void RoadRunner::finish(Outcome& outcome, bool keepsLines) {
    const Step end{"the end", settleAll};
    const bool wasChanged = isChanged_;
    // All labels' counters take as long as many frames.
    perform(end, outcome, keepsLines, keeping_ == Keeping::inputByInput || inputs_ % 16 == 0);
    isChanged_ = wasChanged;
    const OvixAgent::Summary summary = router_->summary();
    check(summary.isBalanced(), "the frames do not add up",
          std::to_string(summary.in.frames) + " in and " + std::to_string(summary.replicas) +
              " replicas, " + std::to_string(summary.accountedFor()) + " accounted for");
}

} // namespace Fuzz
