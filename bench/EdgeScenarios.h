#pragma once

#include "Scenarios.h"

namespace Bench {

/// The kinds of traffic at the edge of an MPLS network, where labels are put on or taken off:
/// popped and routed by IPv4 or IPv6, IP with a label pushed, toward an external FEC, an Ethernet
/// frame into a pseudowire with a control word; and what is too big for its link, of which the
/// control plane gets a copy.
std::vector<std::string> edgeScenarioNames();

/// Throws std::out_of_range for an unknown name; knows "pop_route", too: popped and routed by one
/// of the prefixes. `routes` labels, or prefixes, have a route.
Scenario makeEdgeScenario(const std::string& name, std::uint32_t routes,
                          std::size_t frames = scenarioFrames);

} // namespace Bench
