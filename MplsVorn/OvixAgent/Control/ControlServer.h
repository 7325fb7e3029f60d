#pragma once

#include <cstdint>
#include <functional>
#include <list>
#include <nlohmann/json_fwd.hpp>
#include <string>

namespace OvixAgent {

/// Where an agent is reached while it runs: NAME.sock in $OVIX_RUNTIME_DIR, else in /run/ovix for
/// root and in ovix under $XDG_RUNTIME_DIR or /tmp/ovix-UID for everybody else.
std::string controlPath(const std::string& name);

/// Answers requests from other processes between frames, over a local stream socket. A request is a
/// line of JSON, {"command": NAME, ...}; the answer is a line of JSON, {"ok": true, ...} or
/// {"ok": false, "error": TEXT}. Never blocks: a slow or hostile client waits or is cut off.
class ControlServer {
  public:
    /// Fills in the answer; what it throws becomes the error.
    using Handler =
        std::function<void(const nlohmann::ordered_json& request, nlohmann::ordered_json& answer)>;

    static constexpr std::size_t maxClients = 16;
    static constexpr std::size_t maxRequestBytes = 65536;

    /// Listens at the path, in the place of a socket that nobody serves any more. Throws
    /// std::system_error, or std::runtime_error when another agent is there.
    ControlServer(std::string path, Handler handler);
    ~ControlServer();
    ControlServer(const ControlServer&) = delete;
    ControlServer& operator=(const ControlServer&) = delete;

    const std::string& path() const noexcept { return path_; }
    /// Becomes readable when somebody wants something: an epoll descriptor.
    int descriptor() const noexcept { return events_; }

    /// Deals with what has come so far.
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
