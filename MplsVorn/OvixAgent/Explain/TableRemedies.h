#pragma once

#include "Explain/Remedies.h"

namespace OvixAgent {

/// What the label that was looked up last was found as.
struct Asked {
    Lumo::MplsLabel label;
    std::string table;
    std::string found;
    std::uint32_t adjacency = 0;
};

/// Unset when no table was asked.
std::optional<Asked> lastAsked(const Walk& walk);

/// Changes of the label tables for a label that leads nowhere: its route is missing, is not
/// programmed, or its adjacency is missing.
std::vector<Remedy> tableRemedies(const Situation& situation, const GivenFrame& frame,
                                  const Walk& walk);

/// The same for an adjacency that is made from the label's route and missing, as when its record is
/// damaged; unset for others.
std::optional<Remedy> routeWrittenAgain(const Situation& situation, const GivenFrame& frame,
                                        const Asked& asked);

/// The same for a via whose own MTU is less than `length`.
std::vector<Remedy> withoutViaMtu(const Situation& situation, const GivenFrame& frame,
                                  const Walk& walk, std::uint32_t length);

/// The same for vias that name an interface which is no port: the port of their next hop's subnet
/// in its place.
std::vector<Remedy> ontoPort(const Situation& situation, const GivenFrame& frame, const Walk& walk);

} // namespace OvixAgent
