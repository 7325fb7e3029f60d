#pragma once

#include <cstdint>
#include <string>

#include "Lumo/IpGenAddr.h"
#include "Posix/FileDescriptor.h"
#include "Tessel/Result.h"

namespace OvixFpm {

/// Where zebra connects to: an IPv4 or IPv6 address, and a port other than 0.
class ListenAddress {
  public:
    /// 127.0.0.1:2620, where zebra connects to by default.
    ListenAddress() noexcept;

    /// From "127.0.0.1:2620" or "[::1]:2620". Refuses anything else; names are not looked up.
    static Tessel::Result<ListenAddress> fromText(const std::string& text);

    /// Whether only this host can connect to it.
    bool isLoopback() const noexcept;

    /// In the form that fromText() takes.
    std::string text() const;

    /// A non-blocking socket that listens there. Throws std::system_error.
    Posix::FileDescriptor listen() const;

  private:
    ListenAddress(const Lumo::IpGenAddr& address, std::uint16_t port) noexcept
        : address_(address), port_(port) {}
    bool isBound(const Posix::FileDescriptor& socket) const noexcept;

    Lumo::IpGenAddr address_;
    std::uint16_t port_;
};

} // namespace OvixFpm
