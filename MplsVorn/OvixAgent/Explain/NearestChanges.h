#pragma once

#include <optional>

#include "Explain/Explanation.h"

namespace OvixAgent {

/// The change of tables, ports, neighbours, routes or of the frame itself that has a frame
/// forwarded which is not: each is tried on a copy of the situation. Where one is not enough, those
/// that bring the frame further are tried with others. Unset when none is found.
std::optional<NearestChange> nearestChange(const Situation& situation, const GivenFrame& frame,
                                           const Walk& walk);

} // namespace OvixAgent
