#pragma once

#include <cstdint>
#include <functional>
#include <list>
#include <nlohmann/json_fwd.hpp>
#include <string>

namespace OvixAgent {

/// The control socket of an agent: NAME.sock in $OVIX_RUNTIME_DIR, else in /run/ovix for root and
/// in $XDG_RUNTIME_DIR/ovix or /tmp/ovix-UID for other users.
std::string controlPath(const std::string& name);

/// Answers control requests between frames, on a local stream socket. A request is a line of JSON,
/// {"command": NAME, ...}; the answer is a line of JSON, {"ok": true, ...} or {"ok": false,
/// "error": TEXT}. Never blocks: a slow or hostile client waits or is disconnected.
class ControlServer {
  public:
    /// Adds to the answer; the text of what it throws becomes the error.
    using Handler =
        std::function<void(const nlohmann::ordered_json& request, nlohmann::ordered_json& answer)>;

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
    std::string answer(const std::string& request) const;

    std::string path_;
    Handler handler_;
    int listener_ = -1;
    int events_ = -1;
    Clients clients_;
};

} // namespace OvixAgent
