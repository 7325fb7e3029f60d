#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <list>
#include <string>
#include <utility>

#include "Posix/FileDescriptor.h"
#include "Tessel/Result.h"

namespace OvixAgent {

/// The control socket of an agent: NAME.sock in $OVIX_RUNTIME_DIR, else in /run/ovix for root and
/// in $XDG_RUNTIME_DIR/ovix or /tmp/ovix-UID for other users.
std::string controlPath(const std::string& name);

/// The same to ask at; of a user who has no such socket, that of the system.
std::string controlPathToAsk(const std::string& name);

/// Whether whoever asks or answers at the socket may trust the directory that it is in: it belongs
/// to root or this user, as a link to it does, and nobody else may replace what is in it. Refused
/// with the path and what is wrong; a directory that does not exist is not refused.
Tessel::Result<void> checkControlDirectory(const std::string& path);

/// The next part of a list, however long: appends an entry, or nothing where it has found none in
/// what it may look at in one call. False when there are no more.
using Listing = std::function<bool(std::string& entry)>;

/// A line without its end: text, or a list of entries between two texts, with commas in between,
/// which is made while it is sent.
struct ControlAnswer {
    ControlAnswer() = default;
    ControlAnswer(std::string whole) : begin(std::move(whole)) {}
    ControlAnswer(std::string before, Listing list, std::string behind)
        : begin(std::move(before)), entries(std::move(list)), end(std::move(behind)) {}

    std::string begin;
    Listing entries;
    std::string end;
};

/// Answers control requests between frames, on a local stream socket, one after the other when the
/// process has no descriptors left. A request and its answer are a line each. Never blocks: a slow
/// or hostile client waits or is disconnected, and of a long answer each call makes only so much as
/// takes `longestWork`.
class ControlServer {
  public:
    /// Answers a request; both are without the end of their line.
    using Handler = std::function<ControlAnswer(const std::string& request)>;
    static constexpr std::chrono::microseconds longestWork{50};

    static constexpr std::size_t maxClients = 16;
    static constexpr std::size_t maxRequestBytes = 65536;

    /// Listens at the path and replaces a socket that is not served. Throws std::system_error, or
    /// std::runtime_error when another agent serves it, or when its directory is not
    /// to be trusted.
    ControlServer(std::string path, Handler handler);
    ~ControlServer();
    ControlServer(const ControlServer&) = delete;
    ControlServer& operator=(const ControlServer&) = delete;

    /// Answers these requests only to root, the agent's own user and members of "ovix-admin".
    void changesAre(std::function<bool(const std::string& request)> isChange) {
        isChange_ = std::move(isChange);
    }

    const std::string& path() const noexcept { return path_; }
    /// An epoll descriptor, readable when `serve` has work.
    int descriptor() const noexcept { return events_; }

    /// Serves the requests received so far, and goes on with answers.
    void serve();
    /// Whether `serve` has to be called again without waiting: it is in the midst of an answer.
    bool isBusy() const noexcept { return busy_ > 0; }

  private:
    struct Client {
        int socket;
        std::string received;
        std::string toSend;
        ControlAnswer answer{}; ///< whose entries are still to be made, if any
        bool hasEntry = false;  ///< one has been made
    };
    using Clients = std::list<Client>;

    void keepSpare();
    void acceptClients();
    bool progress(Client& client);
    bool receive(Client& client);
    void answer(Client& client, const std::string& request);
    void makeEntries(Client& client) const;
    bool send(Client& client);

    std::string path_;
    Handler handler_;
    std::function<bool(const std::string&)> isChange_;
    int listener_ = -1;
    int events_ = -1;
    /// Given up for a client when there are no descriptors left, so that an operator is heard.
    Posix::FileDescriptor spare_;
    Clients clients_;
    bool clientsWait_ = false; ///< some could not be accepted
    std::size_t busy_ = 0;     ///< clients whose answers are being made, and who take what is made
};

} // namespace OvixAgent
