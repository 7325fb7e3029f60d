#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "Live/ports/XdpProgram.h"
#include "Live/ports/XdpSocket.h"
#include "Posix/FileDescriptor.h"

namespace OvixAgent {

/// One thread's AF_XDP sockets on the queues of an interface: all of them, or every nth.
class XdpSockets {
  public:
    bool isOpen() const noexcept { return !sockets_.empty(); }
    /// Opens those of the queues `first`, `first + step` and so on, and has the program redirect to
    /// them. Throws std::system_error, whose text names the step that failed.
    void open(const std::string& interfaceName, const XdpProgram& program, std::uint32_t first,
              std::uint32_t step);
    void close() noexcept;

    std::size_t size() const noexcept { return sockets_.size(); }
    /// Reports what comes to any of them.
    int descriptor() const noexcept;
    /// To receive from: each in turn.
    XdpSocket& next() noexcept;
    /// To send on.
    XdpSocket& first() noexcept { return *sockets_.front(); }

    /// Frames dropped for lack of a buffer since the sockets were opened.
    std::uint64_t drops() const noexcept;
    /// Clears the pending errors; whether there was one.
    bool takeError() noexcept;

  private:
    void watchAll();

    std::vector<std::unique_ptr<XdpSocket>> sockets_;
    std::size_t turn_ = 0;
    Posix::FileDescriptor watch_; ///< of several sockets, an epoll(7) set
};

} // namespace OvixAgent
