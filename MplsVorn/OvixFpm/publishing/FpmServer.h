#pragma once

#include <chrono>
#include <functional>
#include <mutex>
#include <optional>
#include <poll.h>
#include <span>
#include <string>

#include "decoding/FpmDecoder.h"
#include "publishing/AllowedPeers.h"
#include "publishing/Companion.h"
#include "publishing/ListenAddress.h"
#include "publishing/RoutePublisher.h"
#include "publishing/WaitingConnections.h"

namespace OvixFpm {

/// How long zebra must be quiet until its stale routes are removed. Refuses what is not a number
/// from 0 to 3600.
Tessel::Result<std::chrono::milliseconds> sweepTime(double seconds);

/// How it stands with zebra. Times are of the system's clock, 0 for never.
struct FpmState {
    bool isConnected = false;
    std::chrono::system_clock::time_point connectedAt{}; ///< last
    std::chrono::system_clock::time_point heardAt{};
    std::uint64_t connections = 0; ///< taken into use
    MessageCounts counts;          ///< of all of them
    std::size_t staleRoutes = 0;   ///< not announced again yet
};

/// Listens for zebra and publishes its routes: one connection at a time, of allowed peers alone. A
/// new one replaces the old once a whole frame has come from it. Routes outlive the connection;
/// those that the next one has not announced again, by the time it has been quiet for a while, are
/// removed. A connection without any route removes nothing.
class FpmServer {
  public:
    using Clock = std::chrono::steady_clock;

    struct Settings {
        ListenAddress listenAt;
        AllowedPeers peers;
        std::chrono::milliseconds sweepAfter{30000}; ///< of quiet after a route
        bool isVerbose = false;                      ///< logs every change
        /// Called several times a second, with whether zebra is connected; may be empty.
        std::function<void(Clock::time_point, bool)> turn = {};
    };

    static constexpr std::size_t mostCompanions = 2;

    /// Listens. Throws std::system_error.
    FpmServer(RoutePublisher& routes, Settings settings, Log log, Companions companions = {});
    FpmServer(const FpmServer&) = delete;
    FpmServer& operator=(const FpmServer&) = delete;

    /// Serves until `stop` becomes readable.
    void run(int stop);
    const MessageCounts& counts() const noexcept { return counts_; }
    /// As it was between two messages; for any thread.
    FpmState state() const;

  private:
    void accept();
    void connectionIs(Posix::FileDescriptor connection);
    void receive();
    void receiveFromWaiting();
    void take(Bytes bytes);
    void disconnect(const std::string& why);
    void noteState();
    void takeEvents();
    void takeChange(const RouteChange& change);
    void pollCompanions(std::span<pollfd, mostCompanions> places) const;
    void serveCompanions();
    bool beginBatch();
    void sweepWhenQuiet(Clock::time_point now);
    void commitWhenQuiet();
    int timeoutMs() const;
    int ownTimeoutMs() const;

    RoutePublisher* routes_;
    Companions companions_;
    Settings settings_;
    Log log_;
    Posix::FileDescriptor listener_;
    Posix::FileDescriptor connection_;
    WaitingConnections waiting_;
    FpmDecoder decoder_;
    MessageCounts counts_; ///< of connections that have ended
    std::optional<Clock::time_point> firstUncommitted_;
    Clock::time_point heardAt_;
    std::optional<Clock::time_point> firstRouteAt_; ///< of this connection
    bool hasSwept_ = false;                         ///< since the connection was made
    Clock::time_point tablesSeenAt_ = Clock::now();
    bool isHeldUp_ = false; ///< another writer has the tables
    mutable std::mutex stateMutex_;
    FpmState state_; ///< by the mutex
};

} // namespace OvixFpm
