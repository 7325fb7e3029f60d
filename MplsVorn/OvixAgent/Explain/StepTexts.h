#pragma once

#include <string>
#include <vector>

#include "Explain/Explanation.h"
#include "Mpls/Via.h"
#include "State/PortTable.h"

namespace OvixAgent {

/// The notes of a walk in words, with the records that its tables have.
std::vector<Explanation::Step> stepsOf(const Walk& walk, const TrialRouter& router);

/// "swap 200/300 via 10.0.2.2 dev east weight 3".
std::string viaText(const Mpls::WeightedVia& via, const PortTable& ports);

} // namespace OvixAgent
