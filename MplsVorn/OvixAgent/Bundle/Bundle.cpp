#include "Bundle/Bundle.h"

#include <fmt/format.h>

#include "Explain/Explanation.h"
#include "Explain/FrameWords.h"

namespace OvixAgent {

namespace {

std::string outcomeText(const Walk& walk) {
    std::string text = verdictText(walk);
    for (const Walk::Sent& sent : walk.sent) {
        text += fmt::format("; {} {}", sent.port, hexText(sent.bytes));
    }
    return text;
}

Walk walkOf(TrialRouter& router, const GivenFrame& frame) {
    Walk walk = router.walk(frame);
    walk.notes.clear();
    walk.trace.clear();
    return walk;
}

} // namespace

Tessel::Result<void> setOutcomes(Bundle& bundle) {
    const auto router = TrialRouter::of(bundle.situation);
    if (!router) {
        return router.refused();
    }
    for (BundledFrame& each : bundle.frames) {
        each.outcome = walkOf(*router.value(), each.frame);
    }
    return {};
}

Tessel::Result<std::vector<std::string>> differences(const Bundle& bundle) {
    const auto router = TrialRouter::of(bundle.situation);
    if (!router) {
        return router.refused();
    }
    std::vector<std::string> all;
    for (std::size_t i = 0; i < bundle.frames.size(); ++i) {
        const BundledFrame& each = bundle.frames[i];
        const Walk here = walkOf(*router.value(), each.frame);
        if (!here.isSameOutcome(each.outcome)) {
            all.push_back(fmt::format("frame {} at {}: was {}\n  is {}", i + 1,
                                      bundle.situation.config.ports[each.frame.port].name,
                                      outcomeText(each.outcome), outcomeText(here)));
        }
    }
    return all;
}

} // namespace OvixAgent
