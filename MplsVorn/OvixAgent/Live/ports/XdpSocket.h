#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>
#include <xdp/xsk.h>

namespace OvixAgent {

/// An AF_XDP socket on the first queue of an interface, with the memory that its frames lie in:
/// half of the buffers are there to receive into, the other half to send from.
class XdpSocket {
  public:
    static constexpr std::uint32_t bufferBytes = 4096;
    /// What of a buffer the kernel leaves for a frame.
    static constexpr std::uint32_t maxFrame = bufferBytes - 256;
    static constexpr std::uint32_t buffers = 2048; ///< of each kind

    /// Throws std::system_error, whose text says which step failed.
    explicit XdpSocket(const std::string& interfaceName);
    XdpSocket(const XdpSocket&) = delete;
    XdpSocket& operator=(const XdpSocket&) = delete;

    int descriptor() const noexcept { return xsk_socket__fd(socket_.get()); }

    /// The frames that have come in, at most as many as there is room for; they are good until
    /// `release()`, which is due before the next call.
    std::size_t receive(std::span<std::span<const std::uint8_t>> frames) noexcept;
    void release() noexcept;

    /// A buffer to put a frame of at most `maxFrame` bytes in; null when all are on their way.
    std::uint8_t* sendBuffer() noexcept;
    /// Queues the frame in the buffer that was asked for last.
    void queue(std::size_t bytes) noexcept;
    /// Has the kernel send what is queued; 0, or why it stopped early.
    int kick() noexcept;
    /// How many frames the kernel has taken since the last call.
    std::uint64_t takeSent() noexcept;
    /// How many frames are queued and not yet taken.
    std::uint32_t queued() const noexcept;

    /// How many frames have found no buffer since the socket was opened.
    std::uint64_t drops() const noexcept;
    /// The error pending at the socket, which is cleared by this; 0 when there is none.
    int takeError() noexcept;

  private:
    struct Deleter {
        void operator()(xsk_umem* memory) const noexcept { xsk_umem__delete(memory); }
        void operator()(xsk_socket* socket) const noexcept { xsk_socket__delete(socket); }
        void operator()(std::uint8_t* pages) const noexcept;
    };

    void offer(std::span<const std::uint64_t> addresses) noexcept;
    void reclaim() noexcept;

    std::unique_ptr<std::uint8_t[], Deleter> pages_;
    xsk_ring_prod fill_{};
    xsk_ring_cons completed_{};
    xsk_ring_cons received_{};
    xsk_ring_prod sending_{};
    std::unique_ptr<xsk_umem, Deleter> memory_;
    std::unique_ptr<xsk_socket, Deleter> socket_;
    std::vector<std::uint64_t>
        handedOut_;                   ///< addresses of the frames received, to be offered again
    std::vector<std::uint64_t> free_; ///< addresses of the buffers to send from
    std::uint32_t sentUpTo_ = 0;      ///< place in the ring that `takeSent` has counted to
};

} // namespace OvixAgent
