#include "Config/ConfigText.h"

#include <algorithm>
#include <array>
#include <fmt/format.h>
#include <numeric>

namespace OvixAgent {

namespace {

constexpr std::size_t shownBytes = 60;
constexpr std::size_t longestCompared = 40;
constexpr std::size_t namesListed = 16;

/// Levenshtein distance; neither name may be longer than `longestCompared`.
std::size_t editDistance(std::string_view a, std::string_view b) {
    std::array<std::size_t, longestCompared + 1> row{};
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (std::size_t i = 0; i < a.size(); ++i) {
        std::size_t diagonal = row[0];
        row[0] = i + 1;
        for (std::size_t j = 0; j < b.size(); ++j) {
            const std::size_t replaced = diagonal + (a[i] == b[j] ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({replaced, row[j] + 1, row[j + 1] + 1});
        }
    }
    return row[b.size()];
}

} // namespace

std::string inQuotes(std::string_view text) {
    std::string result = "\"";
    for (const char c : text.substr(0, shownBytes)) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x20 || byte == 0x7f) {
            result += fmt::format("\\x{:02x}", byte);
        } else if (c == '"' || c == '\\') {
            result += '\\';
            result += c;
        } else {
            result += c;
        }
    }
    result += text.size() > shownBytes ? "...\"" : "\"";
    return result;
}

std::string_view nearestName(std::string_view name, std::span<const std::string_view> candidates) {
    if (name.size() > longestCompared) {
        return {};
    }
    std::string_view nearest;
    std::size_t best = 1 + std::min<std::size_t>(2, name.size() / 2);
    for (const std::string_view candidate : candidates) {
        if (candidate.size() <= longestCompared) {
            const std::size_t distance = editDistance(name, candidate);
            if (distance < best) {
                best = distance;
                nearest = candidate;
            }
        }
    }
    return nearest;
}

std::string suggestion(std::string_view name, std::span<const std::string_view> candidates) {
    if (candidates.empty()) {
        return {};
    }
    if (const std::string_view near = nearestName(name, candidates); !near.empty()) {
        return fmt::format("; did you mean \"{}\"?", near);
    }
    const auto listed = candidates.first(std::min(candidates.size(), namesListed));
    return fmt::format("; known: {}{}", fmt::join(listed, ", "),
                       listed.size() < candidates.size() ? ", ..." : "");
}

} // namespace OvixAgent
