#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "Lumo/IpGenAddr.h"
#include "Posix/FileDescriptor.h"
#include "Tessel/Result.h"

namespace OvixHttp {

/// Where a server listens: a TCP port of an address, or a local socket.
struct Endpoint {
    Lumo::IpGenAddr address;
    std::uint16_t port = 0;
    std::string path; ///< of the local socket; empty: the TCP port

    /// Of [ADDRESS:]PORT, where an IPv6 address is in brackets and none stands for 127.0.0.1, or of
    /// a path that begins with a slash.
    static Tessel::Result<Endpoint> fromText(const std::string& text);
    std::string text() const;
};

/// A listening socket. A local one is its user's alone, and takes the place of one that nobody
/// serves any more. Throws std::runtime_error saying what cannot be used.
Posix::FileDescriptor listenAt(const Endpoint& endpoint);

/// Whether a request that names this host (RFC 9110 section 7.2) is meant for a server at the
/// endpoint: loopback addresses, localhost, the address listened at, and `names`. A page of another
/// site whose name has been made to lead here still sends that name. Whoever listens at every
/// address is asked by any of them, but still by no name.
bool isOwnHost(std::string_view host, const Endpoint& endpoint,
               const std::vector<std::string>& names);

} // namespace OvixHttp
