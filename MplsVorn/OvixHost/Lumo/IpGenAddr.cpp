#include "Lumo/IpGenAddr.h"

#include <arpa/inet.h>

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

std::string IpGenAddr::text() const {
    if (family_ == IpFamily::none) {
        return {};
    }
    std::array<char, INET6_ADDRSTRLEN> text{};
    inet_ntop(family_ == IpFamily::ipv4 ? AF_INET : AF_INET6, bytes_.data(), text.data(),
              text.size());
    return text.data();
}

} // namespace Lumo
