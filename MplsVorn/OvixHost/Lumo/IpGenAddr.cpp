#include "Lumo/IpGenAddr.h"

#include <arpa/inet.h>
#include <array>
#include <charconv>

namespace Lumo {

IpGenAddr IpGenAddr::fromText(const std::string& text) {
    std::array<std::uint8_t, ipv6Size> bytes{};
    if (text.find('\0') != std::string::npos) {
        return {}; // inet_pton would read no further
    }
    if (inet_pton(AF_INET, text.c_str(), bytes.data()) == 1) {
        return ipv4(bytes.data());
    }
    if (inet_pton(AF_INET6, text.c_str(), bytes.data()) == 1) {
        return ipv6(bytes.data());
    }
    return {};
}

namespace {

/// inet_ntop() would take much of the time of a list of a million routes.
std::string ipv4Text(const std::uint8_t* bytes) {
    std::array<char, INET_ADDRSTRLEN> text;
    char* end = text.data();
    for (std::size_t i = 0; i < 4; ++i) {
        if (i > 0) {
            *end++ = '.';
        }
        end = std::to_chars(end, text.data() + text.size(), bytes[i]).ptr;
    }
    return {text.data(), end};
}

} // namespace

std::string IpGenAddr::text() const {
    if (family_ == IpFamily::none) {
        return {};
    }
    if (family_ == IpFamily::ipv4) {
        return ipv4Text(bytes_.data());
    }
    std::array<char, INET6_ADDRSTRLEN> text{};
    inet_ntop(AF_INET6, bytes_.data(), text.data(), text.size());
    return text.data();
}

} // namespace Lumo
