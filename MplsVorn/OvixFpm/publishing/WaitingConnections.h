#pragma once

#include <functional>
#include <optional>
#include <poll.h>
#include <span>
#include <string>
#include <vector>

#include "Posix/FileDescriptor.h"
#include "framing/FpmStream.h"

namespace OvixFpm {

using Log = std::function<void(const std::string& line)>;

/// Connections made while another is being served. Anybody can connect: only a whole frame shows
/// that it is zebra. What makes no sense as one is closed.
class WaitingConnections {
  public:
    static constexpr std::size_t most = 4;

    /// A connection that has sent a whole frame, and all bytes that have come from it.
    struct Heard {
        Posix::FileDescriptor connection;
        std::vector<std::uint8_t> bytes;
    };

    explicit WaitingConnections(Log log) : log_(std::move(log)) {}

    /// One more, which does not block. When there are too many, the oldest is closed.
    void add(Posix::FileDescriptor connection);

    /// What to wait for; -1 where there is no connection.
    void pollIn(std::span<pollfd, most> places) const noexcept;

    /// Reads what has come, until a connection has sent a whole frame: that one waits no longer.
    std::optional<Heard> receive();

  private:
    enum class State { waits, isZebra, hasEnded };
    struct Waiting {
        Posix::FileDescriptor connection;
        FpmStream stream;
        std::vector<std::uint8_t> bytes; ///< as much as a frame and a piece at most
    };

    State receiveFrom(Waiting& waiting);

    Log log_;
    std::vector<Waiting> all_; ///< the oldest first
};

} // namespace OvixFpm
