#pragma once

#include <cstdint>
#include <span>

#include "Live/ports/PacketIntake.h"
#include "Live/ports/SendQueue.h"
#include "Posix/FileDescriptor.h"

namespace OvixAgent {

/// A packet socket that only sends on an interface, and the frames that wait for it.
class PacketSender {
  public:
    /// `counts` must outlive it.
    explicit PacketSender(LiveCounts& counts) : counts_(&counts), queue_(counts) {}

    bool isOpen() const noexcept { return socket_.isOpen(); }
    /// Throws std::system_error, whose text names the step that failed.
    void open(unsigned int interfaceIndex);
    /// Drops and counts what waits.
    void close() noexcept;

    /// For the intake of the interface's port: whether a KernelGuard must let the frames pass.
    void intakeIs(PacketIntake intake) noexcept;

    /// Queues a copy of the frame, or counts it as lost while the socket is not open.
    void push(std::span<const std::uint8_t> frame) noexcept;
    /// Sends what the kernel accepts now.
    void flush() noexcept;

  private:
    LiveCounts* counts_;
    Posix::FileDescriptor socket_;
    SendQueue queue_;
};

} // namespace OvixAgent
