#include "route/RouteWords.h"

#include <algorithm>
#include <arpa/inet.h>
#include <charconv>
#include <fmt/format.h>
#include <optional>

#include "Config/ConfigText.h"
#include "Config/ConfigVias.h"

namespace OvixCtl {

using OvixAgent::inQuotes;
using OvixAgent::IpAddress;

namespace {

constexpr std::uint32_t implicitNull = 3; // RFC 3032

std::optional<IpAddress> addressOf(const std::string& word, IpAddress::Family family) {
    IpAddress address;
    address.family = family;
    const int af = family == IpAddress::Family::ipv4 ? AF_INET : AF_INET6;
    return inet_pton(af, word.c_str(), address.bytes.data()) == 1 ? std::optional(address)
                                                                  : std::nullopt;
}

} // namespace

std::uint32_t parseNumber(const std::string& word, std::string_view noun, std::uint32_t max) {
    std::uint32_t number = 0;
    const char* const end = word.data() + word.size();
    const auto result = std::from_chars(word.data(), end, number);
    if (result.ec == std::errc::invalid_argument || result.ptr != end) {
        throw UsageError(fmt::format("{} {} is not a number", noun, inQuotes(word)));
    }
    if (result.ec != std::errc() || number > max) {
        throw UsageError(fmt::format("{} {} is out of range (0..{})", noun, word, max));
    }
    return number;
}

std::uint32_t parseLabel(const std::string& word) {
    return parseNumber(word, "label", OvixAgent::maxLabel);
}

std::vector<std::uint32_t> parseLabels(const std::string& word) {
    std::vector<std::uint32_t> labels;
    for (std::size_t from = 0; from <= word.size();) {
        const std::size_t to = std::min(word.find('/', from), word.size());
        labels.push_back(parseLabel(word.substr(from, to - from)));
        if (labels.back() == implicitNull) {
            throw UsageError(
                "label 3 (implicit null) never stands in a frame; leave out \"as\" to pop");
        }
        from = to + 1;
    }
    return labels;
}

IpAddress parseAddress(const std::string& word, std::string_view family) {
    std::optional<IpAddress> address;
    if (family != "inet6") {
        address = addressOf(word, IpAddress::Family::ipv4);
    }
    if (family != "inet" && !address) {
        address = addressOf(word, IpAddress::Family::ipv6);
    }
    if (!address) {
        throw UsageError(fmt::format("{} is not an {} address", inQuotes(word),
                                     family == "inet"    ? "IPv4"
                                     : family == "inet6" ? "IPv6"
                                                         : "IPv4 or IPv6"));
    }
    return *address;
}

} // namespace OvixCtl
