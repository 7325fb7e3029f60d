#include "Live/ports/PacketSender.h"

#include <cerrno>
#include <linux/if_packet.h>
#include <sys/socket.h>

#include "Live/ports/KernelGuard.h"
#include "Posix/SystemError.h"

namespace OvixAgent {

// Protocol 0: the socket receives nothing. Its buffer is larger than the interface's queue, so that
// a full queue refuses single frames.
void PacketSender::open(unsigned int interfaceIndex) {
    constexpr int bufferBytes = 1 << 23;
    Posix::FileDescriptor opened(socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    sockaddr_ll address{};
    address.sll_family = AF_PACKET;
    address.sll_ifindex = static_cast<int>(interfaceIndex);
    if (!opened.isOpen() ||
        bind(opened.value(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        Posix::fail("opening a socket to send on");
    }
    if (setsockopt(opened.value(), SOL_SOCKET, SO_SNDBUFFORCE, &bufferBytes, sizeof bufferBytes) !=
        0) {
        // Without the privilege the kernel limits the size.
        setsockopt(opened.value(), SOL_SOCKET, SO_SNDBUF, &bufferBytes, sizeof bufferBytes);
    }
    socket_ = std::move(opened);
}

void PacketSender::close() noexcept {
    queue_.drop(LiveEvent::interfaceGone);
    socket_ = Posix::FileDescriptor();
}

// The guard lets marked frames pass. Without the privilege to mark them there is no guard.
void PacketSender::intakeIs(PacketIntake intake) noexcept {
    const unsigned int mark = intake == PacketIntake::everything ? KernelGuard::mark : 0;
    setsockopt(socket_.value(), SOL_SOCKET, SO_MARK, &mark, sizeof mark);
}

void PacketSender::push(std::span<const std::uint8_t> frame) noexcept {
    if (isOpen()) {
        queue_.push(socket_.value(), frame);
    } else {
        counts_->add(LiveEvent::interfaceGone);
    }
}

void PacketSender::flush() noexcept {
    if (isOpen()) {
        queue_.flush(socket_.value());
    }
}

} // namespace OvixAgent
