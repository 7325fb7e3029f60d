#pragma once

#include <string>
#include <vector>

#include "Explain/Explanation.h"

namespace OvixAgent {

/// The notes of a walk in words, with the records that its tables have.
std::vector<Explanation::Step> stepsOf(const Walk& walk, const TrialRouter& router);

} // namespace OvixAgent
