#pragma once

#include <cstdint>
#include <functional>
#include <list>
#include <string>

namespace OvixAgent {

/// The control socket of an agent: NAME.sock in $OVIX_RUNTIME_DIR, else in /run/ovix for root and
/// in $XDG_RUNTIME_DIR/ovix or /tmp/ovix-UID for other users.
std::string controlPath(const std::string& name);

/// Answers control requests between frames, on a local stream socket. A request and its answer are
/// a line each. Never blocks: a slow or hostile client waits or is disconnected.
class ControlServer {
  public:
    /// Answers a request; both are without the end of their line.
    using Handler = std::function<std::string(const std::string& request)>;

    static constexpr std::size_t maxClients = 16;
    static constexpr std::size_t maxRequestBytes = 65536;

    /// Listens at the path and replaces a socket that is not served. Throws std::system_error, or
    /// std::runtime_error when another agent serves it.
    ControlServer(std::string path, Handler handler);
    ~ControlServer();
    ControlServer(const ControlServer&) = delete;
    ControlServer& operator=(const ControlServer&) = delete;

    const std::string& path() const noexcept { return path_; }
    /// An epoll descriptor, readable when `serve` has work.
    int descriptor() const noexcept { return events_; }

    /// Serves the requests received so far.
    void serve();

  private:
    struct Client {
        int socket;
        std::string received;
        std::string toSend;
    };
    using Clients = std::list<Client>;

    void acceptClients();
    bool progress(Client& client);
    bool receive(Client& client);
    bool send(Client& client);

    std::string path_;
    Handler handler_;
    int listener_ = -1;
    int events_ = -1;
    Clients clients_;
    bool clientsWait_ = false; ///< some could not be accepted
};

} // namespace OvixAgent
