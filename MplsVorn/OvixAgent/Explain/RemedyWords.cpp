#include "Explain/RemedyWords.h"

#include <algorithm>
#include <array>
#include <fmt/format.h>

namespace OvixAgent {

namespace {

/// Whether the shell and YAML take a text for nothing but a word.
bool isPlain(std::string_view text) {
    constexpr std::string_view others = "._/+-";
    const bool isWord = std::all_of(text.begin(), text.end(), [&](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
               others.find(c) != others.npos;
    });
    return isWord && !text.empty() && text.front() != '-';
}

/// Whether a line of the configuration begins with that, or is just that.
bool hasLine(const AgentConfig& config, const std::string& line) {
    return config.text && ("\n" + *config.text).find("\n" + line) != std::string::npos;
}

} // namespace

std::string shellWord(std::string_view text) {
    if (isPlain(text)) {
        return std::string(text);
    }
    std::string word = "'";
    for (const char c : text) {
        word += c == '\'' ? std::string("'\\''") : std::string(1, c);
    }
    return word + "'";
}

std::string yamlWord(std::string_view text) {
    constexpr std::array<std::string_view, 9> meaning{"y",   "n",    "yes",   "no",  "on",
                                                      "off", "true", "false", "null"};
    const bool isName = isPlain(text) && (text.front() | 0x20) >= 'a' &&
                        std::find(meaning.begin(), meaning.end(), text) == meaning.end();
    if (isName) {
        return std::string(text);
    }
    std::string word = "\"";
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        word += c == '"' || c == '\\'         ? std::string("\\") + c
                : byte < 0x20 || byte == 0x7f ? fmt::format("\\x{:02x}", byte)
                                              : std::string(1, c);
    }
    return word + "\"";
}

std::string ctlCommand(const Situation& situation, const std::string& words) {
    return fmt::format("ovixctl --tables {} {}", shellWord(situation.tablesName), words);
}

std::string configEntry(const Situation& situation, std::string_view section,
                        const std::string& entry) {
    // Keys that the configuration has already are not repeated: they would be refused.
    std::vector<std::string> lines{std::string(section) + ":"};
    for (std::size_t from = 0; from < entry.size();) {
        const std::size_t end = std::min(entry.find('\n', from), entry.size());
        lines.push_back(entry.substr(from, end - from));
        from = end + 1;
    }
    std::string above;
    std::size_t kept = 0;
    while (kept + 1 < lines.size() && hasLine(situation.config, lines[kept])) {
        const std::string& key = lines[kept++];
        const std::size_t start = key.find_first_not_of(' ');
        above += (above.empty() ? ", below " : " ") + key.substr(start);
    }
    return fmt::format(
        "# in {}{}\n{}", yamlWord(situation.file), above,
        fmt::join(lines.begin() + static_cast<std::ptrdiff_t>(kept), lines.end(), "\n"));
}

std::string portKey(const Situation& situation, PortIndex port, const std::string& key) {
    return fmt::format("# in {}, of port {}\n{}", yamlWord(situation.file),
                       yamlWord(situation.config.ports.at(port).name), key);
}

PortIndex portNamed(const AgentConfig& config, std::string_view name) noexcept {
    for (PortIndex i = 0; i < config.ports.size(); ++i) {
        if (config.ports[i].name == name) {
            return i;
        }
    }
    return noPort;
}

std::string hostPrefix(const Lumo::IpGenAddr& address) {
    return fmt::format("{}/{}", address.text(), unsigned{address.bits()});
}

std::string addressWords(const Lumo::IpGenAddr& address) {
    const bool isIpv4 = address.family() == Lumo::IpFamily::ipv4;
    return fmt::format("{} {}", isIpv4 ? "inet" : "inet6", address.text());
}

std::vector<NeighbourConfig> likelyNeighbours(const Situation& situation, PortIndex from) {
    constexpr std::size_t most = 4;
    std::vector<NeighbourConfig> all = situation.config.neighbours;
    all.insert(all.end(), situation.neighbours.begin(), situation.neighbours.end());
    std::stable_partition(all.begin(), all.end(), [&](const NeighbourConfig& neighbour) {
        return neighbour.port != from && situation.config.ports[neighbour.port].isUp;
    });
    all.resize(std::min(all.size(), most));
    return all;
}

} // namespace OvixAgent
