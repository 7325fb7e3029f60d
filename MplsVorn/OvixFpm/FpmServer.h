#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "FpmDecoder.h"
#include "RoutePublisher.h"

namespace OvixFpm {

/// Listens for zebra and publishes what it tells: one connection at a time, a new one takes the
/// place of the old. Routes outlive the connection; what the next one does not tell of again, by
/// the time it has been quiet for a while, goes.
class FpmServer {
  public:
    using Clock = std::chrono::steady_clock;
    using Log = std::function<void(const std::string& line)>;

    struct Settings {
        std::string address = "127.0.0.1"; ///< IPv4
        std::uint16_t port = 2620;
        std::chrono::milliseconds sweepAfter{30000}; ///< of quiet after a connection was made
        bool tellsOfRoutes = false;
    };

    /// Listens. Throws std::system_error.
    FpmServer(RoutePublisher& routes, Settings settings, Log log);
    ~FpmServer();
    FpmServer(const FpmServer&) = delete;
    FpmServer& operator=(const FpmServer&) = delete;

    /// Serves until `stop` becomes readable.
    void run(int stop);
    const MessageCounts& counts() const noexcept { return counts_; }

  private:
    void accept();
    void receive();
    void disconnect(const std::string& why);
    void takeEvents();
    void commitWhenQuiet();
    int timeoutMs() const;

    RoutePublisher* routes_;
    Settings settings_;
    Log log_;
    int listener_ = -1;
    int connection_ = -1;
    FpmDecoder decoder_;
    MessageCounts counts_; ///< of connections that have ended
    std::optional<Clock::time_point> firstUncommitted_;
    Clock::time_point heardAt_;
    Clock::time_point connectedAt_;
    bool sweepDue_ = false;
};

} // namespace OvixFpm
