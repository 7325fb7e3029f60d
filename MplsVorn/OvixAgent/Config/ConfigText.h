#pragma once

#include <span>
#include <string>
#include <string_view>

namespace OvixAgent {

/// The text in double quotes, fit for one line of a message: control characters and quotes escaped,
/// shortened beyond 60 bytes.
std::string inQuotes(std::string_view text);

/// The candidate that `name` is most likely a misspelling of; empty when none is close.
std::string_view nearestName(std::string_view name, std::span<const std::string_view> candidates);

/// What to say after an unknown name: `; did you mean "mtu"?` when a candidate is close, else
/// `; known: mac, mtu, name` with at most 16 candidates; nothing without candidates.
std::string suggestion(std::string_view name, std::span<const std::string_view> candidates);

} // namespace OvixAgent
