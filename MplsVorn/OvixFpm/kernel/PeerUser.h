#pragma once

#include <optional>
#include <sys/types.h>

#include "Posix/FileDescriptor.h"

namespace OvixFpm {

/// The user whose process has the other end of a TCP connection, by the kernel's table of sockets
/// (sock_diag(7)). Unset when that end is on another host, has been closed, or cannot be found.
std::optional<uid_t> peerUser(const Posix::FileDescriptor& connection);

} // namespace OvixFpm
