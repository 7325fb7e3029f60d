#pragma once

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

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

/// What an agent answers to "counters". Throws std::runtime_error for an answer of another form.
Counters countersOf(const nlohmann::ordered_json& answer);

/// One label's alone; none when nothing has been counted for it.
Counters countersOfLabel(const Counters& counters, std::uint32_t label);

/// Tables for people; those without content are left out.
std::string countersText(const Counters& counters);

/// {"labels": [{"label", "packets", "bytes"}],
///  "counters": [{"category", "module", "reason", "count"}]}
nlohmann::ordered_json countersJson(const Counters& counters);

} // namespace OvixCtl
