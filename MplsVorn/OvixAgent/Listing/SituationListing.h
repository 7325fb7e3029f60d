#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "Control/ControlServer.h"

namespace OvixAgent {

/// What an agent forwards by, beside the ports, neighbours and routes that are listed apart.
struct SituationFacts {
    std::string version;
    std::string run;    ///< "live" or "captures"
    std::string file;   ///< of the configuration, from the root
    std::string plugin; ///< empty: the one installed with the agent
    std::string tables; ///< the name of shared tables; empty: those of the configuration
    std::uint64_t generation = 0;
    bool anyMac = false;
};

/// {"ok", "version", "run", "file", "plugin", "tables", "generation", "anyMac",
///  "config": [TEXT]}: the text of the configuration in force, in blocks of whole lines.
ControlAnswer situationAnswer(const SituationFacts& facts, std::shared_ptr<const std::string> text);

} // namespace OvixAgent
