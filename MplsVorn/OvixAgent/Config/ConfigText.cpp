#include "Config/ConfigText.h"

#include <algorithm>
#include <array>
#include <charconv>
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

constexpr std::size_t macTextSize = 17;

std::optional<std::uint8_t> parseHexByte(std::string_view digits) {
    std::uint8_t byte = 0;
    const char* const end = digits.data() + digits.size();
    const auto result = std::from_chars(digits.data(), end, byte, 16);
    return result.ec == std::errc() && result.ptr == end ? std::optional(byte) : std::nullopt;
}

std::optional<Lumo::EthAddr> parseMac(std::string_view text) {
    if (text.size() != macTextSize) {
        return std::nullopt;
    }
    Lumo::EthAddr mac{};
    for (std::size_t i = 0; i < mac.size(); ++i) {
        const std::optional<std::uint8_t> byte = parseHexByte(text.substr(3 * i, 2));
        if (!byte || (i + 1 < mac.size() && text[3 * i + 2] != ':')) {
            return std::nullopt;
        }
        mac[i] = *byte;
    }
    return mac;
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
    std::size_t best = (1 + std::min<std::size_t>(2, name.size() / 2)) * longestCompared;
    for (const std::string_view candidate : candidates) {
        if (candidate.size() <= longestCompared) {
            // Of two that are as near the one of the name's length.
            const std::size_t difference =
                std::max(name.size(), candidate.size()) - std::min(name.size(), candidate.size());
            const std::size_t rank = editDistance(name, candidate) * longestCompared +
                                     std::min(difference, std::size_t{9});
            if (rank < best) {
                best = rank;
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

Lumo::IpGenAddr readIpAddress(const ConfigValue& value) {
    const std::string_view text = value.text("an IP address");
    const auto address = Lumo::IpGenAddr::fromText(std::string(text));
    if (address.family() == Lumo::IpFamily::none) {
        value.fail(fmt::format("{} is not an IPv4 or IPv6 address", inQuotes(text)));
    }
    return address;
}

InterfaceAddress readInterfaceAddress(const ConfigValue& value) {
    const std::string_view text = value.text("an IP address with prefix length");
    const std::size_t slash = text.find('/');
    if (slash == std::string_view::npos) {
        value.fail(fmt::format("{} lacks its prefix length, as in 10.0.1.1/24", inQuotes(text)));
    }
    const auto address = Lumo::IpGenAddr::fromText(std::string(text.substr(0, slash)));
    if (address.family() == Lumo::IpFamily::none) {
        value.fail(
            fmt::format("{} is not an IPv4 or IPv6 address with prefix length", inQuotes(text)));
    }
    const std::string_view digits = text.substr(slash + 1);
    unsigned length = 0;
    const char* const end = digits.data() + digits.size();
    const auto result = std::from_chars(digits.data(), end, length);
    if (result.ec != std::errc() || result.ptr != end || length > address.bits()) {
        value.fail(
            fmt::format("the prefix length of {} is not in 0..{}", inQuotes(text), address.bits()));
    }
    return {address, static_cast<std::uint8_t>(length)};
}

Lumo::IpGenPrefix readIpPrefix(const ConfigValue& value) {
    const InterfaceAddress given = readInterfaceAddress(value);
    const Lumo::IpGenPrefix prefix = given.subnet();
    if (prefix.address() != given.address) {
        value.fail(fmt::format("{} has bits set beyond its prefix length",
                               inQuotes(value.text("prefix"))));
    }
    return prefix;
}

Lumo::EthAddr readUnicastMac(const ConfigValue& value) {
    const std::string_view text = value.text("a MAC address");
    const std::optional<Lumo::EthAddr> mac = parseMac(text);
    if (!mac) {
        value.fail(fmt::format("{} is not a MAC address, as in 02:00:00:00:00:01", inQuotes(text)));
    }
    if (((*mac)[0] & 1U) != 0) {
        value.fail(
            fmt::format("{} is a group address; a unicast address is needed", inQuotes(text)));
    }
    if (*mac == Lumo::EthAddr{}) {
        value.fail(fmt::format("{} is not the address of a station", inQuotes(text)));
    }
    return *mac;
}

} // namespace OvixAgent
