#pragma once

#include <cstdint>
#include <string>

#include "Lumo/IpGenAddr.h"
#include "Posix/FileDescriptor.h"

namespace OvixFpm {

/// Where zebra connects to: an IPv4 or IPv6 address, and a port other than 0.
class ListenAddress {
  public:
    /// From "127.0.0.1:2620" or "[::1]:2620". Names are not looked up. Throws std::invalid_argument
    /// with the reason.
    static ListenAddress fromText(const std::string& text);

    /// As fromText() takes it.
    std::string text() const;

    /// A socket that listens there and does not block. Throws std::system_error.
    Posix::FileDescriptor listen() const;

  private:
    ListenAddress(const Lumo::IpGenAddr& address, std::uint16_t port) noexcept
        : address_(address), port_(port) {}
    bool binds(const Posix::FileDescriptor& socket) const noexcept;

    Lumo::IpGenAddr address_;
    std::uint16_t port_;
};

} // namespace OvixFpm
