#pragma once

#include <string>
#include <vector>

#include "Explain/Situation.h"
#include "Explain/TrialRouter.h"
#include "Tessel/Result.h"

namespace OvixAgent {

/// A frame, and what became of it where the bundle was made.
struct BundledFrame {
    GivenFrame frame;
    Walk outcome; ///< without notes and traces
};

/// All that an agent forwards by, and frames, in one file:
///
///     a line that says what it is, of which version, how many bytes follow, and their hash
///     a line of JSON: configuration, ports, neighbours, frames, and the notes beside them
///     the label tables' memory, as long as the JSON says, if they are shared
struct Bundle {
    Situation situation;
    std::vector<BundledFrame> frames;
    /// What does not change any verdict, as JSON objects by name: versions, counters, settings.
    std::vector<std::pair<std::string, std::string>> more;
};

/// For its owner's eyes, if it is new. Throws std::system_error when the file cannot be written.
void writeBundle(const std::string& path, const Bundle& bundle);

/// Refused, naming the file and what is wrong, for any other file, and when any bit is another.
Tessel::Result<Bundle> readBundle(const std::string& path);

/// Forwards each frame in a trial, and sets its outcome. Refuses as a trial does.
Tessel::Result<void> setOutcomes(Bundle& bundle);

/// What becomes of the frames here, one line for each that differs, beside what became of them
/// there. Refuses as a trial does.
Tessel::Result<std::vector<std::string>> differences(const Bundle& bundle);

} // namespace OvixAgent
