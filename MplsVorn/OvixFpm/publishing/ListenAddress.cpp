#include "publishing/ListenAddress.h"

#include <cassert>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <netinet/in.h>
#include <sys/socket.h>
#include <system_error>

namespace OvixFpm {

namespace {

constexpr int queued = 8; ///< connections that have not been accepted yet

constexpr std::uint8_t loopback[]{127, 0, 0, 1};

/// 0 for an invalid port.
std::uint16_t portOf(const std::string& text) {
    std::uint16_t port = 0;
    const char* end = text.data() + text.size();
    const auto read = std::from_chars(text.data(), end, port);
    return read.ec == std::errc() && read.ptr == end ? port : std::uint16_t{0};
}

} // namespace

ListenAddress::ListenAddress() noexcept : ListenAddress(Lumo::IpGenAddr::ipv4(loopback), 2620) {}

Tessel::Result<ListenAddress> ListenAddress::fromText(const std::string& text) {
    const std::size_t colon = text.rfind(':');
    const std::uint16_t port =
        colon == std::string::npos ? std::uint16_t{0} : portOf(text.substr(colon + 1));
    std::string host = text.substr(0, colon);
    const bool isBracketed = host.size() >= 2 && host.front() == '[' && host.back() == ']';
    if (isBracketed) {
        host = host.substr(1, host.size() - 2);
    }
    // Without brackets the colon before the port is ambiguous (RFC 3986, 3.2.2).
    if (port == 0 || host.empty() || (!isBracketed && host.find(':') != std::string::npos)) {
        return Tessel::Refused{'"' + text + "\" is not ADDRESS:PORT or [IPV6-ADDRESS]:PORT"};
    }
    const Lumo::IpGenAddr address = Lumo::IpGenAddr::fromText(host);
    if (address.family() != (isBracketed ? Lumo::IpFamily::ipv6 : Lumo::IpFamily::ipv4)) {
        return Tessel::Refused{'"' + host + "\" is not an " + (isBracketed ? "IPv6 " : "") +
                               "address"};
    }
    return ListenAddress(address, port);
}

bool ListenAddress::isLoopback() const noexcept {
    return address_.family() == Lumo::IpFamily::ipv6 ? address_.text() == "::1"
                                                     : address_.bytes()[0] == loopback[0];
}

std::string ListenAddress::text() const {
    const bool isIpv6 = address_.family() == Lumo::IpFamily::ipv6;
    return (isIpv6 ? '[' + address_.text() + ']' : address_.text()) + ':' + std::to_string(port_);
}

bool ListenAddress::isBound(const Posix::FileDescriptor& socket) const noexcept {
    if (address_.family() == Lumo::IpFamily::ipv6) {
        sockaddr_in6 to{};
        to.sin6_family = AF_INET6;
        to.sin6_port = htons(port_);
        std::memcpy(&to.sin6_addr, address_.bytes().data(), Lumo::IpGenAddr::ipv6Size);
        return bind(socket.value(), reinterpret_cast<const sockaddr*>(&to), sizeof to) == 0;
    }
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(port_);
    std::memcpy(&to.sin_addr, address_.bytes().data(), Lumo::IpGenAddr::ipv4Size);
    return bind(socket.value(), reinterpret_cast<const sockaddr*>(&to), sizeof to) == 0;
}

Posix::FileDescriptor ListenAddress::listen() const {
    assert(port_ != 0 && address_.family() != Lumo::IpFamily::none);
    const int family = address_.family() == Lumo::IpFamily::ipv6 ? AF_INET6 : AF_INET;
    Posix::FileDescriptor socket(::socket(family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const std::string failed = "cannot listen at " + text();
    const int on = 1;
    if (!socket.isOpen() ||
        setsockopt(socket.value(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0 ||
        !isBound(socket) || ::listen(socket.value(), queued) != 0) {
        throw std::system_error(errno, std::generic_category(), failed);
    }
    return socket;
}

} // namespace OvixFpm
