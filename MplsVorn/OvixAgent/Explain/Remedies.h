#pragma once

#include <string>
#include <vector>

#include "Explain/Situation.h"
#include "Explain/TrialRouter.h"

namespace OvixAgent {

/// A change that may have a frame forwarded; nothing is known before it has been tried.
struct Remedy {
    std::string command; ///< to be pasted: into a shell, or lines of the configuration
    std::string note;    ///< what is assumed; may be empty
    Situation situation; ///< after the change
    GivenFrame frame;    ///< likewise: the frame itself may be what is wrong
};

/// The changes that suit how a walk has ended, the most likely first.
std::vector<Remedy> remediesFor(const Situation& situation, const GivenFrame& frame,
                                const Walk& walk);

} // namespace OvixAgent
