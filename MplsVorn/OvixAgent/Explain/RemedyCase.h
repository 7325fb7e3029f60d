#pragma once

#include <algorithm>
#include <string>
#include <vector>

#include "Explain/Remedies.h"
#include "Explain/RemedyWords.h"

namespace OvixAgent {

/// What the remedies are made from.
struct RemedyCase {
    const Situation& situation;
    const GivenFrame& frame;
    const Walk& walk;

    /// Of the note of that kind that came last; empty when there is none.
    std::string value(std::string_view step, std::string_view name) const {
        const Ovix::RoadNote* const note = walk.last(step);
        const std::string* const held = note != nullptr ? note->value(name) : nullptr;
        return held != nullptr ? *held : std::string();
    }
    PortIndex port(std::string_view step, std::string_view name = "port") const {
        return portNamed(situation.config, value(step, name));
    }
    Remedy unchanged() const { return {{}, {}, situation, frame}; }
};

using Remedies = std::vector<Remedy>;

// By a reason why a frame is not forwarded, what suits it.

Remedies portUp(const RemedyCase& of, PortIndex port);
Remedies egressUp(const RemedyCase& of);
Remedies greaterMtu(const RemedyCase& of);
Remedies mplsAllowed(const RemedyCase& of);
Remedies upstreamLabelsTaken(const RemedyCase& of);
Remedies ipRouted(const RemedyCase& of);
Remedies reversePathOff(const RemedyCase& of);
Remedies subInterfaceMade(const RemedyCase& of);

Remedies neighbourKnown(const RemedyCase& of);
Remedies routeMade(const RemedyCase& of);
Remedies vrfMade(const RemedyCase& of);
Remedies fecMade(const RemedyCase& of);

} // namespace OvixAgent
