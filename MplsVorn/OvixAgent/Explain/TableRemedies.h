#pragma once

#include "Explain/Remedies.h"

namespace OvixAgent {

/// Changes of the label tables for a label that leads nowhere: its route is missing, is not
/// programmed, or its adjacency is missing.
std::vector<Remedy> tableRemedies(const Situation& situation, const GivenFrame& frame,
                                  const Walk& walk);

/// The same for a via whose own MTU is less than `length`.
std::vector<Remedy> withoutViaMtu(const Situation& situation, const GivenFrame& frame,
                                  const Walk& walk, std::uint32_t length);

} // namespace OvixAgent
