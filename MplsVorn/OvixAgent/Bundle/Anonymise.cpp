#include "Bundle/Anonymise.h"

#include <algorithm>
#include <exception>
#include <fmt/format.h>

namespace OvixAgent {

namespace {

constexpr std::string_view addressCharacters = "0123456789abcdefABCDEF:.";

/// The text with its comments left out: "#" at the start of a line or behind a blank, outside of
/// quotes (YAML 1.2 section 6.6).
std::string withoutComments(const std::string& text) {
    std::string out;
    char quote = '\0';
    for (std::size_t at = 0; at < text.size(); ++at) {
        const char c = text[at];
        const bool isFirst = at == 0 || text[at - 1] == ' ' || text[at - 1] == '\n';
        if (quote == '\0' && c == '#' && isFirst) {
            at = std::min(text.find('\n', at), text.size()) - 1;
            continue;
        }
        if (c == '\n') {
            quote = '\0';
        } else if (quote == '\0' && (c == '"' || c == '\'')) {
            quote = c;
        } else if (c == quote) {
            quote = '\0';
        }
        out += c;
    }
    return out;
}

/// The word with another address in its place, if it is one; `length` is that of the prefix behind
/// it, or less than 0.
std::string anonymousWord(const std::string& word, int length, const AddressMap& map) {
    const auto address = Lumo::IpGenAddr::fromText(word);
    if (address.family() == Lumo::IpFamily::none) {
        return word;
    }
    const auto bits = static_cast<std::uint8_t>(length);
    const bool isPrefix =
        length >= 0 && length <= address.bits() && address.masked(bits) == address;
    return isPrefix ? map(Lumo::IpGenPrefix(address, bits)).address().text() : map(address).text();
}

int lengthBehind(const std::string& text, std::size_t at) {
    return at + 1 < text.size() && text[at] == '/' && text[at + 1] >= '0' && text[at + 1] <= '9'
               ? std::stoi(text.substr(at + 1, 3))
               : -1;
}

std::vector<Lumo::IpGenPrefix> subnetsOf(const AgentConfig& config) {
    std::vector<Lumo::IpGenPrefix> all;
    for (const PortConfig& port : config.ports) {
        for (const InterfaceAddress& own : port.addresses) {
            all.push_back(own.subnet());
        }
    }
    return all;
}

/// The configuration with other addresses, and the ports as they are.
Tessel::Result<AgentConfig> anonymousConfig(const AgentConfig& config, const std::string& file,
                                            const AddressMap& map) {
    Tessel::Result<AgentConfig> made =
        parseConfig(anonymousText(config.text ? *config.text : "", map), file);
    for (std::size_t i = 0; made && i < made.value().ports.size(); ++i) {
        PortConfig& port = made.value().ports[i];
        const PortConfig& is = config.ports.at(i);
        port.isUp = is.isUp;
        port.mtu = is.mtu;
        port.mac = is.mac;
        port.routesIp = is.routesIp;
    }
    return made;
}

/// Of the notes only by what the agent runs: counters may be of named addresses.
void keepVersions(Bundle& bundle) {
    const auto is = [](const auto& each) { return each.first == "versions"; };
    std::erase_if(bundle.more, [&](const auto& each) { return !is(each); });
}

} // namespace

std::string anonymousText(const std::string& text, const AddressMap& map) {
    const std::string bare = withoutComments(text);
    std::string out;
    for (std::size_t at = 0; at < bare.size();) {
        const std::size_t begin = std::min(bare.find_first_of(addressCharacters, at), bare.size());
        const std::size_t end =
            std::min(bare.find_first_not_of(addressCharacters, begin), bare.size());
        out += bare.substr(at, begin - at);
        // A colon behind a word is YAML's.
        std::string word = bare.substr(begin, end - begin);
        const bool hasColon = word.ends_with(':') && !word.ends_with("::");
        word = hasColon ? word.substr(0, word.size() - 1) : word;
        out += anonymousWord(word, hasColon ? -1 : lengthBehind(bare, end), map);
        out += hasColon ? ":" : "";
        at = end;
    }
    return out;
}

Tessel::Result<void> anonymise(Bundle& bundle) {
    Situation& situation = bundle.situation;
    const AddressMap map = AddressMap::random(subnetsOf(situation.config));
    Tessel::Result<AgentConfig> config = anonymousConfig(situation.config, situation.file, map);
    if (!config) {
        return config.refused();
    }
    try {
        if (situation.tables) {
            situation.tables = std::make_shared<const Tessel::TableCopy>(
                anonymousTables(*situation.tables, situation.config, map));
        }
    } catch (const std::exception& damaged) {
        return Tessel::Refused{
            fmt::format("the tables cannot be made anonymous: {}", damaged.what())};
    }
    situation.config = std::move(config).value();
    for (NeighbourConfig& neighbour : situation.neighbours) {
        neighbour.address = map(neighbour.address);
    }
    for (BundledFrame& each : bundle.frames) {
        anonymiseFrame(each.frame.bytes, map);
    }
    keepVersions(bundle);
    return {};
}

} // namespace OvixAgent
