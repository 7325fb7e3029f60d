#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>
#include <xdp/xsk.h>

#include "State/Frame.h"

namespace OvixAgent {

/// An AF_XDP socket on a queue of an interface with its frame buffers, half of them to
/// receive, half to send.
class XdpSocket {
  public:
    static constexpr std::uint32_t bufferBytes = 4096;
    /// The kernel reserves 256 bytes of each buffer.
    static constexpr std::uint32_t maxFrame = bufferBytes - 256;
    static constexpr std::uint32_t buffers = 2048; ///< of each kind

    /// Throws std::system_error, whose text names the step that failed.
    XdpSocket(const std::string& interfaceName, std::uint32_t queue);
    XdpSocket(const XdpSocket&) = delete;
    XdpSocket& operator=(const XdpSocket&) = delete;

    int descriptor() const noexcept { return xsk_socket__fd(socket_.get()); }

    /// Received frames, at most `frames.size()`; valid until `release()`, which must precede the
    /// next call. Their ports and times are not set. Returns their number.
    std::size_t receive(std::span<WritableFrame> frames) noexcept;
    void release() noexcept;

    /// A buffer for a frame of at most `maxFrame` bytes; null when all are queued.
    std::uint8_t* sendBuffer() noexcept;
    /// Queues the frame in the buffer that sendBuffer() returned last.
    void queue(std::size_t bytes) noexcept;
    /// Takes back the buffers of sent frames. Those used last are used next, while they are cached.
    void reclaim() noexcept;
    /// Makes the kernel send queued frames; 0, or the error number when it stopped early.
    int kick() noexcept;
    /// The number of frames that the kernel has taken since the last call.
    std::uint64_t takeSent() noexcept;
    /// The number of queued frames that the kernel has not taken.
    std::uint32_t queued() const noexcept;

    /// The number of frames dropped for lack of a buffer since the socket was opened.
    std::uint64_t drops() const noexcept;
    /// Clears and returns the pending error of the socket; 0 when there is none.
    int takeError() noexcept;

  private:
    struct Deleter {
        void operator()(xsk_umem* memory) const noexcept { xsk_umem__delete(memory); }
        void operator()(xsk_socket* socket) const noexcept { xsk_socket__delete(socket); }
        void operator()(std::uint8_t* pages) const noexcept;
    };

    void offer(std::span<const std::uint64_t> addresses) noexcept;

    std::unique_ptr<std::uint8_t[], Deleter> pages_;
    xsk_ring_prod fill_{};
    xsk_ring_cons completed_{};
    xsk_ring_cons received_{};
    xsk_ring_prod sending_{};
    std::unique_ptr<xsk_umem, Deleter> memory_;
    std::unique_ptr<xsk_socket, Deleter> socket_;
    std::vector<std::uint64_t> held_; ///< addresses of received frames, until released
    std::vector<std::uint64_t> free_; ///< addresses of the buffers to send from
    std::uint32_t sentUpTo_ = 0;      ///< place in the ring up to which takeSent() has counted
};

} // namespace OvixAgent
