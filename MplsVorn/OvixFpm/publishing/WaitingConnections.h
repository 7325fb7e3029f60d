#pragma once

#include <functional>
#include <optional>
#include <poll.h>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "Posix/FileDescriptor.h"
#include "framing/FpmStream.h"

namespace OvixFpm {

/// Receives a line and what it is about in a few words; lines about the same may be left out when
/// there are too many. Nothing is ever left out of those about nothing in particular.
using Log = std::function<void(std::string_view about, const std::string& line)>;

/// Connections made while another is being served. Anyone can connect: only a whole frame shows
/// that it is zebra. A connection that sends anything else is closed.
class WaitingConnections {
  public:
    static constexpr std::size_t most = 4;

    /// A connection that has sent a whole frame, and all bytes received from it.
    struct Heard {
        Posix::FileDescriptor connection;
        std::vector<std::uint8_t> bytes;
    };

    explicit WaitingConnections(Log log) : log_(std::move(log)) {}

    /// Adds a non-blocking connection. When there are too many, the oldest is closed.
    void add(Posix::FileDescriptor connection);

    /// The descriptors to poll; -1 where there is no connection.
    void pollIn(std::span<pollfd, most> places) const noexcept;

    /// Reads from all until one has sent a whole frame; that one is removed from here.
    std::optional<Heard> receive();

  private:
    enum class State : std::uint8_t { waits, isZebra, hasEnded };
    struct Waiting {
        Posix::FileDescriptor connection;
        FpmStream stream;
        std::vector<std::uint8_t> bytes; ///< at most a frame and a piece
    };

    State receiveFrom(Waiting& waiting);

    Log log_;
    std::vector<Waiting> all_; ///< the oldest first
};

} // namespace OvixFpm
