#include "Explain/NearestChanges.h"

#include <exception>

#include "Explain/Remedies.h"

namespace OvixAgent {

namespace {

/// How many changes are put together, and how many are tried, at the most.
constexpr int mostTogether = 4;
constexpr int mostTried = 24;

/// Unset when the situation cannot be.
std::optional<Walk> tried(const Remedy& remedy) {
    try {
        const auto router = TrialRouter::of(remedy.situation);
        return router ? std::optional(router.value()->walk(remedy.frame)) : std::nullopt;
    } catch (const std::exception&) {
        return std::nullopt; // the tables have no room, for example
    }
}

/// Whether the frame comes further, or its packet may be larger.
bool isNearer(const Walk& after, const Walk& before) {
    const auto mtu = [](const Walk& walk) {
        const Ovix::RoadNote* const note = walk.last("mtu");
        return note != nullptr ? *note->value("mtu") : std::string();
    };
    return after.reason != before.reason || mtu(after) != mtu(before);
}

void add(NearestChange& change, const Remedy& remedy) {
    change.commands.push_back(remedy.command);
    if (!remedy.note.empty()) {
        change.notes.push_back(remedy.note);
    }
}

} // namespace

std::optional<NearestChange> nearestChange(const Situation& situation, const GivenFrame& frame,
                                           const Walk& walk) {
    NearestChange change;
    Situation now = situation;
    GivenFrame sent = frame;
    Walk reached = walk;
    int trials = 0;
    for (int i = 0; i < mostTogether; ++i) {
        std::optional<Remedy> further;
        Walk furtherWalk;
        for (Remedy& remedy : remediesFor(now, sent, reached)) {
            const auto after = ++trials <= mostTried ? tried(remedy) : std::nullopt;
            if (after && after->isForwarded()) {
                add(change, remedy);
                change.after = *after;
                return change;
            }
            if (after && !further && isNearer(*after, reached)) {
                further = std::move(remedy);
                furtherWalk = *after;
            }
        }
        if (!further) {
            return std::nullopt;
        }
        add(change, *further);
        now = std::move(further->situation);
        sent = std::move(further->frame);
        reached = std::move(furtherWalk);
    }
    return std::nullopt;
}

} // namespace OvixAgent
