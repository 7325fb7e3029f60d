#include "Live/ports/XdpSocket.h"

#include <algorithm>
#include <atomic>
#include <cassert>
#include <cerrno>
#include <linux/if_xdp.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <system_error>

#include "Posix/SystemError.h"
#include "Tessel/Prefetch.h"

namespace OvixAgent {

namespace {

constexpr std::size_t memoryBytes = std::size_t{2} * XdpSocket::buffers * XdpSocket::bufferBytes;

std::uint32_t consumerOf(const xsk_ring_prod& ring) noexcept {
    return std::atomic_ref<std::uint32_t>(*ring.consumer).load(std::memory_order_acquire);
}

} // namespace

void XdpSocket::Deleter::operator()(std::uint8_t* pages) const noexcept {
    munmap(pages, memoryBytes);
}

XdpSocket::XdpSocket(const std::string& interfaceName, std::uint32_t queue) {
    void* const pages =
        mmap(nullptr, memoryBytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (pages == MAP_FAILED) {
        Posix::fail("allocating the memory of frames");
    }
    pages_.reset(static_cast<std::uint8_t*>(pages));
    const xsk_umem_config memoryConfig{buffers, buffers, bufferBytes, 0, 0};
    xsk_umem* memory = nullptr;
    if (const int error =
            xsk_umem__create(&memory, pages, memoryBytes, &fill_, &completed_, &memoryConfig);
        error != 0) {
        Posix::fail("registering the memory of frames", -error);
    }
    memory_.reset(memory);
    xsk_socket_config config{};
    config.rx_size = buffers;
    config.tx_size = buffers;
    config.libxdp_flags = XSK_LIBXDP_FLAGS__INHIBIT_PROG_LOAD; // XdpProgram attaches ours
    config.bind_flags = XDP_USE_NEED_WAKEUP;
    xsk_socket* socket = nullptr;
    if (const int error = xsk_socket__create(&socket, interfaceName.c_str(), queue, memory,
                                             &received_, &sending_, &config);
        error != 0) {
        Posix::fail("opening an AF_XDP socket", -error);
    }
    socket_.reset(socket);
    held_.reserve(buffers);
    for (std::uint64_t i = 0; i < buffers; ++i) {
        held_.push_back(i * bufferBytes);
        free_.push_back((buffers + i) * bufferBytes);
    }
    offer(held_);
    held_.clear();
}

void XdpSocket::offer(std::span<const std::uint64_t> addresses) noexcept {
    assert(addresses.size() <= buffers);
    std::uint32_t place = 0;
    // There is always room: the ring has a place for every receive buffer.
    xsk_ring_prod__reserve(&fill_, static_cast<std::uint32_t>(addresses.size()), &place);
    for (const std::uint64_t address : addresses) {
        *xsk_ring_prod__fill_addr(&fill_, place++) = address;
    }
    xsk_ring_prod__submit(&fill_, static_cast<std::uint32_t>(addresses.size()));
}

std::size_t XdpSocket::receive(std::span<WritableFrame> frames) noexcept {
    assert(held_.empty());
    std::uint32_t place = 0;
    const std::uint32_t count = xsk_ring_cons__peek(
        &received_, static_cast<std::uint32_t>(std::min<std::size_t>(frames.size(), buffers)),
        &place);
    for (std::uint32_t i = 0; i < count; ++i) {
        const xdp_desc& descriptor = *xsk_ring_cons__rx_desc(&received_, place++);
        frames[i] = {.bytes = pages_.get() + descriptor.addr,
                     .size = descriptor.len,
                     .originalLength = descriptor.len,
                     .headroom = static_cast<std::uint32_t>(descriptor.addr % bufferBytes),
                     .time = {}};
        assert(frames[i].headroom >= frameHeadroom); // XDP_PACKET_HEADROOM
        Tessel::prefetch(frames[i].bytes);
        held_.push_back(descriptor.addr / bufferBytes * bufferBytes);
    }
    return count;
}

void XdpSocket::release() noexcept {
    xsk_ring_cons__release(&received_, static_cast<std::uint32_t>(held_.size()));
    offer(held_);
    held_.clear();
    if (xsk_ring_prod__needs_wakeup(&fill_) != 0) {
        recvfrom(descriptor(), nullptr, 0, MSG_DONTWAIT, nullptr, nullptr);
    }
}

void XdpSocket::reclaim() noexcept {
    std::uint32_t place = 0;
    const std::uint32_t count = xsk_ring_cons__peek(&completed_, buffers, &place);
    for (std::uint32_t i = 0; i < count; ++i) {
        free_.push_back(*xsk_ring_cons__comp_addr(&completed_, place++));
    }
    xsk_ring_cons__release(&completed_, count);
}

std::uint8_t* XdpSocket::sendBuffer() noexcept {
    if (free_.empty()) {
        reclaim();
    }
    return free_.empty() ? nullptr : pages_.get() + free_.back();
}

// There is always room: the ring has a place for every send buffer.
void XdpSocket::queue(std::size_t bytes) noexcept {
    assert(!free_.empty() && bytes <= maxFrame);
    std::uint32_t place = 0;
    xsk_ring_prod__reserve(&sending_, 1, &place);
    *xsk_ring_prod__tx_desc(&sending_, place) = {free_.back(), static_cast<std::uint32_t>(bytes),
                                                 0};
    free_.pop_back();
    xsk_ring_prod__submit(&sending_, 1);
}

int XdpSocket::kick() noexcept {
    return sendto(descriptor(), nullptr, 0, MSG_DONTWAIT, nullptr, 0) >= 0 ? 0 : errno;
}

std::uint64_t XdpSocket::takeSent() noexcept {
    const std::uint32_t consumed = consumerOf(sending_);
    const std::uint32_t sent = consumed - sentUpTo_;
    sentUpTo_ = consumed;
    return sent;
}

std::uint32_t XdpSocket::queued() const noexcept {
    return *sending_.producer - consumerOf(sending_);
}

std::uint64_t XdpSocket::drops() const noexcept {
    xdp_statistics statistics{};
    socklen_t size = sizeof statistics;
    return getsockopt(descriptor(), SOL_XDP, XDP_STATISTICS, &statistics, &size) == 0
               ? statistics.rx_dropped + statistics.rx_ring_full
               : 0;
}

int XdpSocket::takeError() noexcept {
    int error = 0;
    socklen_t size = sizeof error;
    return getsockopt(descriptor(), SOL_SOCKET, SO_ERROR, &error, &size) == 0 ? error : errno;
}

} // namespace OvixAgent
