#include "Shrinking.h"

#include <algorithm>
#include <chrono>
#include <iterator>

#include "Comparison.h"

namespace Differential {

namespace {

using Clock = std::chrono::steady_clock;

/// A difference that takes many frames to come about is shrunk so far as this allows.
constexpr std::chrono::seconds longest{40};

/// Everything behind the step that makes the difference.
void cutBehind(Script& script, std::size_t step) {
    script.steps.erase(script.steps.begin() + static_cast<std::ptrdiff_t>(step) + 1,
                       script.steps.end());
}

/// Takes away parts of a list, halving their size, as long as the roads still differ without.
/// `list` gives the list in a script; it must not become empty. Gives up at `end`.
template <typename List>
void leaveOut(Script& script, Fault fault, Clock::time_point end, const List& list) {
    for (std::size_t part = (list(script).size() + 1) / 2; part > 0; part /= 2) {
        for (std::size_t at = 0; at < list(script).size() && Clock::now() < end;) {
            Script tried = script;
            auto& parts = list(tried);
            const auto first = parts.begin() + static_cast<std::ptrdiff_t>(at);
            parts.erase(first,
                        first + static_cast<std::ptrdiff_t>(std::min(part, parts.size() - at)));
            const auto differs = parts.empty() ? std::nullopt : firstDifference(tried, fault);
            if (differs) {
                cutBehind(tried, *differs);
                script = std::move(tried);
            } else {
                at += part;
            }
        }
    }
}

/// Has counters looked at after the last burst, and after each other one or none of them, if the
/// roads still differ then.
void looksBefore(Script& script, Fault fault, bool looks) {
    Script tried = script;
    for (Step& step : tried.steps) {
        step.looksAtCounters = looks;
    }
    tried.steps.back().looksAtCounters = true;
    if (const auto differs = firstDifference(tried, fault)) {
        cutBehind(tried, *differs);
        script = std::move(tried);
    }
}

void leaveOutFrames(Script& script, Fault fault, Clock::time_point end) {
    for (std::size_t i = 0; i < script.steps.size(); ++i) {
        if (script.steps[i].frames.size() > 1) {
            leaveOut(script, fault, end, [i](Script& of) -> std::vector<ScriptFrame>& {
                static std::vector<ScriptFrame> none;
                return i < of.steps.size() ? of.steps[i].frames : none;
            });
        }
    }
}

} // namespace

Script shrunk(Script script, Fault fault) {
    const Clock::time_point end = Clock::now() + longest;
    const auto steps = [](Script& of) -> std::vector<Step>& { return of.steps; };
    if (const auto differs = firstDifference(script, fault)) {
        cutBehind(script, *differs);
    }
    looksBefore(script, fault, false); // which is faster
    leaveOut(script, fault, end, steps);
    leaveOutFrames(script, fault, end);
    looksBefore(script, fault, true); // which may find it earlier
    leaveOut(script, fault, end, steps);
    leaveOutFrames(script, fault, end);
    return script;
}

} // namespace Differential
