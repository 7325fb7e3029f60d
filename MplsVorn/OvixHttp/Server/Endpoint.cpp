#include "Server/Endpoint.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <fmt/format.h>
#include <netinet/in.h>
#include <optional>
#include <stdexcept>
#include <strings.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

namespace OvixHttp {

namespace {

std::optional<std::uint16_t> portOf(std::string_view text) {
    std::uint16_t port = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), port);
    const bool isWhole = error == std::errc() && end == text.data() + text.size();
    return isWhole && port != 0 ? std::optional(port) : std::nullopt;
}

/// Of text in which IPv6 addresses are in brackets; of no family when it is no address.
Lumo::IpGenAddr addressOf(std::string_view text) {
    const bool isBracketed = text.size() > 2 && text.front() == '[' && text.back() == ']';
    const auto address = Lumo::IpGenAddr::fromText(
        std::string(isBracketed ? text.substr(1, text.size() - 2) : text));
    const auto family = isBracketed ? Lumo::IpFamily::ipv6 : Lumo::IpFamily::ipv4;
    return address.family() == family ? address : Lumo::IpGenAddr();
}

[[noreturn]] void fail(const Endpoint& endpoint, const std::string& why) {
    throw std::runtime_error(fmt::format("cannot listen at {}: {}", endpoint.text(), why));
}

Posix::FileDescriptor bound(const Endpoint& endpoint, const sockaddr* address, socklen_t size) {
    Posix::FileDescriptor made(
        socket(address->sa_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const int yes = 1;
    setsockopt(made.value(), SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    if (address->sa_family == AF_INET6) {
        setsockopt(made.value(), IPPROTO_IPV6, IPV6_V6ONLY, &yes, sizeof yes);
    }
    constexpr int waiting = 1024; // else a flood of others makes a client try again in a second
    if (bind(made.value(), address, size) != 0 || listen(made.value(), waiting) != 0) {
        fail(endpoint, std::strerror(errno));
    }
    return made;
}

Posix::FileDescriptor listenAtPort(const Endpoint& endpoint) {
    const std::string text = endpoint.address.text();
    if (endpoint.address.family() == Lumo::IpFamily::ipv6) {
        sockaddr_in6 address{};
        address.sin6_family = AF_INET6;
        address.sin6_port = htons(endpoint.port);
        inet_pton(AF_INET6, text.c_str(), &address.sin6_addr);
        return bound(endpoint, reinterpret_cast<const sockaddr*>(&address), sizeof address);
    }
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(endpoint.port);
    inet_pton(AF_INET, text.c_str(), &address.sin_addr);
    return bound(endpoint, reinterpret_cast<const sockaddr*>(&address), sizeof address);
}

Posix::FileDescriptor listenAtPath(const Endpoint& endpoint) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (endpoint.path.size() >= sizeof address.sun_path) {
        fail(endpoint, "the path is too long");
    }
    std::copy(endpoint.path.begin(), endpoint.path.end(), address.sun_path);
    const auto* const generic = reinterpret_cast<const sockaddr*>(&address);
    struct stat found {};
    if (lstat(endpoint.path.c_str(), &found) == 0) {
        if (!S_ISSOCK(found.st_mode)) {
            fail(endpoint, "exists and is not a socket");
        }
        const Posix::FileDescriptor probe(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
        if (connect(probe.value(), generic, sizeof address) == 0) {
            fail(endpoint, "somebody serves it");
        }
        unlink(endpoint.path.c_str());
    }
    const mode_t mask = umask(0177);
    try {
        Posix::FileDescriptor made = bound(endpoint, generic, sizeof address);
        umask(mask);
        return made;
    } catch (...) {
        umask(mask);
        throw;
    }
}

bool isLoopback(const Lumo::IpGenAddr& address) {
    const std::string text = address.text();
    return text == "::1" || text.compare(0, 4, "127.") == 0;
}

bool isSameName(std::string_view a, std::string_view b) {
    return a.size() == b.size() && strncasecmp(a.data(), b.data(), a.size()) == 0;
}

/// Without the port.
std::string_view hostOf(std::string_view text) {
    const std::size_t colon = text.rfind(':');
    const bool isPort = colon != text.npos && text.find(']', colon) == text.npos;
    return isPort ? text.substr(0, colon) : text;
}

} // namespace

Tessel::Result<Endpoint> Endpoint::fromText(const std::string& text) {
    if (text.size() > 1 && text.front() == '/') {
        return Endpoint{{}, 0, text};
    }
    const std::size_t colon = text.rfind(':');
    const auto address =
        addressOf(colon == text.npos ? "127.0.0.1" : std::string_view(text).substr(0, colon));
    const auto port = portOf(std::string_view(text).substr(colon == text.npos ? 0 : colon + 1));
    if (address.family() == Lumo::IpFamily::none || !port) {
        return Tessel::Refused{fmt::format("\"{}\" is not [ADDRESS:]PORT or /PATH", text)};
    }
    return Endpoint{address, *port, {}};
}

std::string Endpoint::text() const {
    const std::string host = address.text();
    return !path.empty()                              ? path
           : address.family() == Lumo::IpFamily::ipv6 ? fmt::format("[{}]:{}", host, port)
                                                      : fmt::format("{}:{}", host, port);
}

Posix::FileDescriptor listenAt(const Endpoint& endpoint) {
    return endpoint.path.empty() ? listenAtPort(endpoint) : listenAtPath(endpoint);
}

bool isOwnHost(std::string_view host, const Endpoint& endpoint,
               const std::vector<std::string>& names) {
    const std::string_view name = hostOf(host);
    if (isSameName(name, "localhost") ||
        std::any_of(names.begin(), names.end(),
                    [&](const std::string& own) { return isSameName(own, name); })) {
        return true;
    }
    const auto address = addressOf(name);
    if (address.family() == Lumo::IpFamily::none) {
        return false;
    }
    const std::string own = endpoint.address.text();
    const bool isEvery = endpoint.path.empty() && (own == "0.0.0.0" || own == "::");
    return isLoopback(address) || isEvery || address == endpoint.address;
}

} // namespace OvixHttp
