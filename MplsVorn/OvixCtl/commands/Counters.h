#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "Tessel/Result.h"

namespace OvixCtl {

struct LabelCounter {
    std::uint32_t label = 0;
    std::uint64_t packets = 0;
    std::uint64_t bytes = 0;
};
struct NamedCounter {
    std::string category;
    std::string module;
    std::string reason;
    std::uint64_t count = 0;
};
struct Counters {
    std::vector<LabelCounter> labels;
    std::vector<NamedCounter> named;
};

/// The counters of the agent that answers at a socket. Refuses, naming the path, when there is no
/// agent, for its own error, and for an answer that is not counters.
Tessel::Result<Counters> readCounters(const std::string& path);

/// Only those of one label; empty when nothing has been counted for it.
Counters countersOfLabel(const Counters& counters, std::uint32_t label);

/// Tables for people; those without content are left out.
std::string countersText(const Counters& counters);

/// {"labels": [{"label", "packets", "bytes"}],
///  "counters": [{"category", "module", "reason", "count"}]}, on one line
std::string countersJson(const Counters& counters);

} // namespace OvixCtl
