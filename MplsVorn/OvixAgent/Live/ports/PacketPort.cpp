#include "Live/ports/PacketPort.h"

#include <cerrno>
#include <linux/if_packet.h>
#include <system_error>
#include <utility>

#include "Live/ports/InterfaceControl.h"
#include "Live/ports/WireFrames.h"

namespace OvixAgent {

PacketPort::PacketPort(PortIndex index, std::string interfaceName, PacketIntake intake)
    : index_(index), name_(std::move(interfaceName)), intake_(intake) {
    reopen();
}

bool PacketPort::reopen() {
    shut({});
    try {
        interfaceIndex_ = indexOfInterface(name_);
        ring_.emplace(interfaceIndex_, intake_);
        openSender();
    } catch (const std::system_error& refused) {
        shut(name_ + ": " + refused.what());
    }
    return isOpen();
}

// Protocol 0: the socket receives nothing. Its buffer is larger than the interface's queue, so that
// a full queue refuses single frames.
void PacketPort::openSender() {
    constexpr int bufferBytes = 1 << 23;
    sender_ = Posix::FileDescriptor(socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    sockaddr_ll address{};
    address.sll_family = AF_PACKET;
    address.sll_ifindex = static_cast<int>(interfaceIndex_);
    if (!sender_.isOpen() ||
        bind(sender_.value(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        throw std::system_error(errno, std::generic_category(), "opening a socket to send on");
    }
    if (setsockopt(sender_.value(), SOL_SOCKET, SO_SNDBUFFORCE, &bufferBytes, sizeof bufferBytes) !=
        0) {
        // Without the privilege the kernel limits the size.
        setsockopt(sender_.value(), SOL_SOCKET, SO_SNDBUF, &bufferBytes, sizeof bufferBytes);
    }
}

void PacketPort::shut(std::string problem) {
    queue_.drop(LiveEvent::interfaceGone);
    counts();
    segments_.drop();
    ring_.reset();
    sender_ = Posix::FileDescriptor();
    problem_ = std::move(problem);
}

std::size_t PacketPort::receive(const FrameVisitor& visitor, std::size_t budget) {
    if (!isOpen()) {
        return 0;
    }
    std::size_t received = 0;
    RingFrame inRing;
    Frame frame;
    frame.port = index_;
    while (received < budget) {
        if (!segments_.next(frame)) {
            if (!ring_->next(inRing)) {
                checkSocket();
                break;
            }
            if (inRing.offloaded.segmentation != 0) {
                toWireFrames(inRing, segments_, counts_);
                continue;
            }
            toWireFrame(inRing, frame, counts_);
        }
        counts_.add(LiveEvent::received);
        ++received;
        visitor(frame);
    }
    return received;
}

void PacketPort::stopIntake() {
    if (isOpen()) {
        ring_->stopIntake();
    }
}

void PacketPort::checkSocket() {
    if (ring_->takeError() != 0 && !countSocketFailure(interfaceIndex_, counts_)) {
        shut(name_ + ": the interface was removed");
    }
}

void PacketPort::transmit(const Frame& frame) {
    if (isOpen()) {
        queue_.push(sender_.value(), frame.bytes);
    } else {
        counts_.add(LiveEvent::interfaceGone);
    }
}

void PacketPort::flush() {
    if (isOpen()) {
        queue_.flush(sender_.value());
    }
}

const LiveCounts& PacketPort::counts() {
    if (isOpen()) {
        counts_.add(LiveEvent::ringFull, ring_->takeDrops());
    }
    return counts_;
}

} // namespace OvixAgent
