#include "Comparison.h"

#include <algorithm>

namespace Differential {

namespace {

void perform(Router& router, const Step& step) {
    if (step.change) {
        step.change(router);
    } else {
        router.receive(step.frames);
    }
}

/// What a router has done at some time of a script.
struct Progress {
    OvixAgent::FastPath::Counts counts;
    std::uint64_t framesOut = 0;
};

/// The recording of each step.
class Run {
  public:
    Run(const Script& script, Road road, Fault fault) : router_(script, road, fault) {}

    Recording perform(const Step& step, bool keepsLines = false) {
        if (keepsLines) {
            router_.take(false);
            router_.keepLines();
        }
        try {
            Differential::perform(router_, step);
        } catch (const std::exception& thrown) {
            Recording failed = router_.take(false, keepsLines);
            failed.add("thrown", std::string_view(thrown.what()));
            return failed;
        }
        return router_.take(step.looksAtCounters, keepsLines);
    }
    Progress progress() const { return {router_.counts(), router_.framesOut()}; }
    bool isFast() const { return router_.isFast(); }
    OvixAgent::Summary summary() const { return router_.summary(); }

  private:
    Router router_;
};

/// Which road a frame takes shows where it comes alone.
void count(Coverage& coverage, const Step& step, const Progress& before, const Progress& after,
           bool isFast) {
    const std::uint64_t fast = after.counts.fast - before.counts.fast;
    coverage.fast += fast;
    coverage.slow += after.counts.slow - before.counts.slow;
    for (const ScriptFrame& frame : step.frames) {
        ++coverage.kinds[static_cast<std::size_t>(frame.kind)].frames;
    }
    if (step.frames.size() != 1 || !isFast) {
        return;
    }
    KindCounts& kind = coverage.kinds[static_cast<std::size_t>(step.frames.front().kind)];
    ++kind.alone;
    kind.aloneFast += fast;
    if (after.framesOut > before.framesOut) {
        ++kind.left;
        kind.leftFast += fast;
    }
}

/// Numbers in reasons do not make other fates.
std::string withoutNumbers(std::string reason) {
    const auto isDigit = [](char c) { return c >= '0' && c <= '9'; };
    const auto first = std::find_if(reason.begin(), reason.end(), isDigit);
    const auto end = std::find_if_not(first, reason.end(), isDigit);
    return reason.starts_with("ttl") ? reason.replace(first, end, "N") : reason;
}

void countFates(Coverage& coverage, const OvixAgent::Summary& summary) {
    const std::pair<const char*, const OvixAgent::Reasons*> fates[]{
        {"punted", &summary.punted},
        {"dropped", &summary.dropped},
        {"handed on", &summary.handedOn}};
    coverage.fates["forwarded"] += summary.forwardedTotal().frames;
    for (const auto& [fate, reasons] : fates) {
        for (const auto& [reason, frames] : reasons->counts()) {
            coverage.fates[std::string(fate) + ": " + withoutNumbers(reason)] += frames;
        }
    }
}

std::vector<std::uint64_t> digestsByDefinition(const Script& script, Coverage* coverage) {
    Run run(script, Road::definition, Fault::none);
    std::vector<std::uint64_t> digests;
    for (const Step& step : script.steps) {
        digests.push_back(run.perform(step).digest());
    }
    if (coverage != nullptr) {
        countFates(*coverage, run.summary());
    }
    return digests;
}

} // namespace

std::optional<std::size_t> firstDifference(const Script& script, Fault fault, Coverage* coverage) {
    const std::vector<std::uint64_t> expected = digestsByDefinition(script, coverage);
    Run run(script, Road::fast, fault);
    Progress before;
    for (std::size_t i = 0; i < script.steps.size(); ++i) {
        const bool differs = run.perform(script.steps[i]).digest() != expected[i];
        if (coverage != nullptr) {
            const Progress now = run.progress();
            count(*coverage, script.steps[i], before, now, run.isFast());
            before = now;
        }
        if (differs) {
            return i;
        }
    }
    return std::nullopt;
}

std::vector<std::string> whatHappens(const Script& script, Road road, Fault fault,
                                     std::size_t step) {
    Run run(script, road, fault);
    for (std::size_t i = 0; i < step; ++i) {
        run.perform(script.steps[i]);
    }
    return run.perform(script.steps[step], true).lines();
}

} // namespace Differential
