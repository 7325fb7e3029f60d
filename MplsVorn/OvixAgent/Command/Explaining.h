#pragma once

#include <functional>
#include <string>

#include "Command/CliOptions.h"
#include "Explain/Situation.h"
#include "Tessel/Result.h"

namespace OvixAgent {

/// How an explanation is printed.
struct PrintOptions {
    bool json = false;
    std::string html; ///< the file for a page; empty: none
};

/// Explains what becomes of a frame, which FrameWords.h describes, by a situation, and prints it.
/// Without a port the frame is of a capture that names it. Returns the exit code. Refuses a frame,
/// and what the tables refuse of the situation.
Tessel::Result<int> explainFrame(const Situation& situation, const std::string& port,
                                 const std::string& frame, const PrintOptions& printing);

/// The exit code of a command; 2 when it is refused, after having printed why.
int exitCodeOf(const std::function<Tessel::Result<int>()>& command);

/// The command `explain`: by a configuration, and perhaps by shared tables. Prints what is wrong.
int runExplain(const ExplainOptions& options);

} // namespace OvixAgent
