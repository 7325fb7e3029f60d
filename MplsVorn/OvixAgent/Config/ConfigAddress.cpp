#include "Config/ConfigAddress.h"

#include <arpa/inet.h>
#include <charconv>
#include <fmt/format.h>
#include <optional>

#include "Config/ConfigText.h"

namespace OvixAgent {

namespace {

constexpr std::size_t macTextSize = 17;

std::optional<IpAddress> parseIpAddress(std::string_view text) {
    const std::string terminated(text);
    if (terminated.find('\0') != std::string::npos) {
        return std::nullopt; // inet_pton would read no further
    }
    IpAddress address;
    if (inet_pton(AF_INET, terminated.c_str(), address.bytes.data()) == 1) {
        return address;
    }
    address.family = IpAddress::Family::ipv6;
    if (inet_pton(AF_INET6, terminated.c_str(), address.bytes.data()) == 1) {
        return address;
    }
    return std::nullopt;
}

std::optional<std::uint8_t> parseHexByte(std::string_view digits) {
    std::uint8_t byte = 0;
    const char* const end = digits.data() + digits.size();
    const auto result = std::from_chars(digits.data(), end, byte, 16);
    return result.ec == std::errc() && result.ptr == end ? std::optional(byte) : std::nullopt;
}

std::optional<MacAddress> parseMac(std::string_view text) {
    if (text.size() != macTextSize) {
        return std::nullopt;
    }
    MacAddress mac{};
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

IpAddress readIpAddress(const ConfigValue& value) {
    const std::string_view text = value.text("an IP address");
    const std::optional<IpAddress> address = parseIpAddress(text);
    if (!address) {
        value.fail(fmt::format("{} is not an IPv4 or IPv6 address", inQuotes(text)));
    }
    return *address;
}

IpInterfaceAddress readIpInterfaceAddress(const ConfigValue& value) {
    const std::string_view text = value.text("an IP address with prefix length");
    const std::size_t slash = text.find('/');
    if (slash == std::string_view::npos) {
        value.fail(fmt::format("{} lacks its prefix length, as in 10.0.1.1/24", inQuotes(text)));
    }
    const std::optional<IpAddress> address = parseIpAddress(text.substr(0, slash));
    if (!address) {
        value.fail(
            fmt::format("{} is not an IPv4 or IPv6 address with prefix length", inQuotes(text)));
    }
    const std::string_view digits = text.substr(slash + 1);
    const unsigned longest = address->family == IpAddress::Family::ipv4 ? 32 : 128;
    unsigned length = 0;
    const char* const end = digits.data() + digits.size();
    const auto result = std::from_chars(digits.data(), end, length);
    if (result.ec != std::errc() || result.ptr != end || length > longest) {
        value.fail(fmt::format("the prefix length of {} is not in 0..{}", inQuotes(text), longest));
    }
    return {*address, static_cast<std::uint8_t>(length)};
}

IpPrefix prefixOf(const IpAddress& address, std::uint8_t length) {
    IpPrefix prefix{address, length};
    const std::size_t whole = length / 8U;
    const unsigned rest = length % 8U;
    for (std::size_t i = whole; i < prefix.address.bytes.size(); ++i) {
        const unsigned kept = i == whole && rest != 0 ? 0xff00U >> rest : 0U;
        prefix.address.bytes[i] &= static_cast<std::uint8_t>(kept);
    }
    return prefix;
}

IpPrefix readIpPrefix(const ConfigValue& value) {
    const IpInterfaceAddress given = readIpInterfaceAddress(value);
    const IpPrefix prefix = prefixOf(given.address, given.prefixLength);
    if (prefix.address != given.address) {
        value.fail(fmt::format("{} has bits set behind its prefix length",
                               inQuotes(value.text("prefix"))));
    }
    return prefix;
}

MacAddress readUnicastMac(const ConfigValue& value) {
    const std::string_view text = value.text("a MAC address");
    const std::optional<MacAddress> mac = parseMac(text);
    if (!mac) {
        value.fail(fmt::format("{} is not a MAC address, as in 02:00:00:00:00:01", inQuotes(text)));
    }
    if (((*mac)[0] & 1U) != 0) {
        value.fail(
            fmt::format("{} is a group address; a unicast address is needed", inQuotes(text)));
    }
    if (*mac == MacAddress{}) {
        value.fail(fmt::format("{} is no station's address", inQuotes(text)));
    }
    return *mac;
}

} // namespace OvixAgent
