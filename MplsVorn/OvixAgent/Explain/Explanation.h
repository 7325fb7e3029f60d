#pragma once

#include <optional>
#include <span>
#include <string>
#include <vector>

#include "Explain/Situation.h"
#include "Explain/TrialRouter.h"

namespace OvixAgent {

/// A change that has been tried, and has the frame forwarded.
struct NearestChange {
    std::vector<std::string> commands; ///< in this order; lines of a configuration where it is one
    std::vector<std::string> notes;    ///< what was assumed
    Walk after;
};

/// Why a frame goes where it goes, as it is printed: as text, as JSON or as a page.
struct Explanation {
    struct Step {
        std::string kind; ///< a word: that of the note it is made of
        std::string text;
        std::vector<std::string> details;
        Ovix::RoadNote note; ///< of no step: a step without numbers
        bool isFailure = false;
    };

    std::string port;
    GivenFrame frame;
    std::vector<std::string> headers; ///< as they were parsed, the outermost first
    std::string tables; ///< the name of shared tables; empty: those of a configuration
    std::uint64_t generation = 0;
    std::vector<Step> steps;
    Walk walk;
    std::optional<Walk> onceKnown; ///< of a frame that waits: when its neighbour has answered
    std::string verdict;
    TrialRouter::FastRoad fastRoad{};
    std::optional<NearestChange> change;
    bool isChangeWanted = false; ///< one was looked for
    std::vector<std::string> remarks;
};

/// Forwards the frame in a trial, and looks for the nearest change if it is not forwarded. Refuses
/// what the tables or the plugin refuse of the situation.
Tessel::Result<Explanation> explain(const Situation& situation, const GivenFrame& frame);

/// The headers of a frame, by the very parser of the plugin, and what a pseudowire carries.
std::vector<std::string> parsedHeaders(std::span<const std::uint8_t> frame);

/// What became of a frame, in a sentence; of one that waits also what then becomes of it, if that
/// is known.
std::string verdictText(const Walk& walk, const std::optional<Walk>& onceKnown = {});

/// What is said where no change has the frame forwarded.
std::string noChangeText(const Walk& walk);

// The three forms of an explanation.
std::string explanationText(const Explanation& explanation);
std::string explanationJson(const Explanation& explanation);
/// A page without outside resources.
std::string explanationHtml(const Explanation& explanation);

} // namespace OvixAgent
