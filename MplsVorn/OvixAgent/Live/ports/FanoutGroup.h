#pragma once

#include <cstddef>
#include <mutex>

#include "Posix/FileDescriptor.h"

namespace OvixAgent {

/// Packet sockets of several threads on one interface, each of which receives some of its flows
/// (PACKET_FANOUT, packet(7)): all frames of a flow come to the same socket, as FlowProgram tells
/// them apart, as long as none joins or leaves. No other group has the same number.
class FanoutGroup {
  public:
    /// The socket must be bound to the interface, and should accept nothing until it has joined,
    /// since it receives all flows before. Throws std::system_error, whose text names the step.
    void join(int socket);
    /// Closes a socket that has joined.
    void leave(Posix::FileDescriptor& socket) noexcept;

  private:
    std::mutex mutex_;
    int number_ = 0;
    std::size_t members_ = 0;
};

} // namespace OvixAgent
