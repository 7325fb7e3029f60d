#pragma once

#include <string>
#include <string_view>

#include "Explain/Situation.h"
#include "Ovix/trace/RoadNotes.h"

namespace OvixAgent {

/// A name as one word of a shell's command, whatever it is made of.
std::string shellWord(std::string_view text);
/// The same as a scalar of YAML.
std::string yamlWord(std::string_view text);

// How changes are written down, by where a situation's state comes from.

/// "ovixctl --tables lab lfib add 100 …".
std::string ctlCommand(const Situation& situation, const std::string& words);
/// Lines of the configuration: an entry of a section.
std::string configEntry(const Situation& situation, std::string_view section,
                        const std::string& entry);
/// The same: a key of the port's entry.
std::string portKey(const Situation& situation, PortIndex port, const std::string& key);

/// The port of that name; noPort when there is none.
PortIndex portNamed(const AgentConfig& config, std::string_view name) noexcept;

/// "10.0.2.2/32" or its IPv6 like.
std::string hostPrefix(const Lumo::IpGenAddr& address);
/// "inet 10.0.2.2" or "inet6 2001:db8::1".
std::string addressWords(const Lumo::IpGenAddr& address);

/// Neighbours to lead to: those at other ports than the one that the frame came in at come first.
std::vector<NeighbourConfig> likelyNeighbours(const Situation& situation, PortIndex from);

} // namespace OvixAgent
