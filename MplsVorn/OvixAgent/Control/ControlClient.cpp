#include "Control/ControlClient.h"

#include <algorithm>
#include <cassert>
#include <cerrno>
#include <cstring>
#include <fmt/format.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>

#include "Posix/FileDescriptor.h"

namespace OvixAgent {

namespace {

constexpr std::size_t maxAnswerBytes = std::size_t{256} << 20U;

Tessel::Refused refusedAt(const std::string& path, const std::string& what) {
    return {fmt::format("control socket {}: {}", path, what)};
}
Tessel::Refused refusedForErrno(const std::string& path) {
    if (errno == EAGAIN) {
        return refusedAt(path, "the agent does not answer");
    }
    if (errno == ENOENT || errno == ECONNREFUSED) {
        return refusedAt(path, errno == ENOENT ? "there is no such socket: is the agent running?"
                                               : "no agent answers there");
    }
    return refusedAt(path, std::strerror(errno));
}

/// False sets errno.
bool isConnected(const Posix::FileDescriptor& socket, const std::string& path,
                 std::chrono::seconds longest) {
    sockaddr_un address{};
    assert(path.size() < sizeof address.sun_path);
    address.sun_family = AF_UNIX;
    std::copy(path.begin(), path.end(), address.sun_path);
    const timeval patience{static_cast<time_t>(longest.count()), 0};
    setsockopt(socket.value(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    setsockopt(socket.value(), SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
    return connect(socket.value(), reinterpret_cast<const sockaddr*>(&address), sizeof address) ==
           0;
}

/// False sets errno.
bool isSent(const Posix::FileDescriptor& socket, std::string_view text) {
    while (!text.empty()) {
        const ssize_t count = send(socket.value(), text.data(), text.size(), MSG_NOSIGNAL);
        if (count < 0 && errno != EINTR) {
            return false;
        }
        text.remove_prefix(static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    }
    return true;
}

/// Without its line break.
Tessel::Result<std::string> receiveLine(const Posix::FileDescriptor& socket,
                                        const std::string& path) {
    std::string received;
    char bytes[65536];
    while (received.find('\n') == std::string::npos) {
        const ssize_t count = recv(socket.value(), bytes, sizeof bytes, 0);
        if (count == 0 || received.size() > maxAnswerBytes) {
            return refusedAt(path, "the answer has no end");
        }
        if (count < 0 && errno != EINTR) {
            return refusedForErrno(path);
        }
        received.append(bytes, static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    }
    return received.substr(0, received.find('\n'));
}

} // namespace

Tessel::Result<std::string> askAgent(const std::string& path, std::string_view request,
                                     std::chrono::seconds longest) {
    if (path.size() >= sizeof(sockaddr_un::sun_path)) {
        return refusedAt(path, "the path is too long");
    }
    const Posix::FileDescriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!isConnected(socket, path, longest) || !isSent(socket, fmt::format("{}\n", request))) {
        return refusedForErrno(path);
    }
    return receiveLine(socket, path);
}

} // namespace OvixAgent
