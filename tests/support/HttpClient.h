#pragma once

#include <algorithm>
#include <arpa/inet.h>
#include <netinet/in.h>
#include <string>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <utility>

#include "Posix/FileDescriptor.h"

/// One end of a connection to a server under test, at a port of this machine or a path.
class HttpClient {
  public:
    explicit HttpClient(std::uint16_t port) : socket_(socket(AF_INET, SOCK_STREAM, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        isConnected_ = connected(&address, sizeof address);
    }
    explicit HttpClient(const std::string& path) : socket_(socket(AF_UNIX, SOCK_STREAM, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::copy(path.begin(), path.end(), address.sun_path);
        isConnected_ = connected(&address, sizeof address);
    }

    bool isConnected() const { return isConnected_; }
    /// False when the other end has closed.
    bool say(const std::string& text) const {
        return send(socket_.value(), text.data(), text.size(), MSG_NOSIGNAL) ==
               static_cast<ssize_t>(text.size());
    }
    /// All that comes until the other end closes; what has come, when it is silent for `seconds`.
    std::string heard(long seconds = 10) const {
        const timeval patience{seconds, 0};
        setsockopt(socket_.value(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
        std::string all;
        char bytes[65536];
        ssize_t got = 0;
        while ((got = recv(socket_.value(), bytes, sizeof bytes, 0)) > 0) {
            all.append(bytes, static_cast<std::size_t>(got));
        }
        return all;
    }

  private:
    template <typename Address>
    bool connected(const Address* address, socklen_t size) const {
        return connect(socket_.value(), reinterpret_cast<const sockaddr*>(address), size) == 0;
    }

    Posix::FileDescriptor socket_;
    bool isConnected_ = false;
};
