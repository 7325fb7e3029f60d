#include "Config/ConfigAddress.h"

#include <charconv>
#include <fmt/format.h>
#include <optional>

#include "Config/ConfigText.h"

namespace OvixAgent {

namespace {

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
