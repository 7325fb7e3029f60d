#include "Live/ports/PacketPort.h"

#include <algorithm>
#include <cerrno>
#include <linux/if_packet.h>
#include <system_error>
#include <utility>

#include "Live/ports/InterfaceControl.h"
#include "Live/ports/WireFrames.h"

namespace OvixAgent {

namespace {

/// For segments of ordinary size it is more than a burst needs, and enough for two of the largest.
constexpr std::size_t segmentMemory = std::size_t{1} << 18U;

} // namespace

PacketPort::PacketPort(PortIndex index, std::string interfaceName, PacketIntake intake)
    : index_(index), name_(std::move(interfaceName)), intake_(intake), burst_(segmentMemory) {
    reopen();
}

bool PacketPort::reopen() {
    shut({});
    try {
        interfaceIndex_ = indexOfInterface(nameOfInterface(interfaceIndex_, name_));
        claim_.emplace(interfaceIndex_);
        ring_.emplace(interfaceIndex_, intake_);
        openSender();
        prepareInterface();
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
    circuit_.leave();
    ring_.reset();
    sender_ = Posix::FileDescriptor();
    claim_.reset();
    problem_ = std::move(problem);
}

std::size_t PacketPort::receive(const BurstVisitor& visitor, std::size_t budget) {
    std::size_t received = 0;
    bool isDry = false;
    while (isOpen() && received < budget && !isDry) {
        isDry = !gather(std::min(burstFrames, budget - received));
        const std::size_t count = burst_.frames().size();
        if (count > 0) {
            counts_.addReceived(burst_.frames());
            received += count;
            visitor(burst_.frames());
        }
        if (segments_.nextSize() == 0) { // which are cut from a frame in the ring
            ring_->release();
        }
    }
    if (isOpen() && received == 0) {
        checkSocket();
    }
    return received;
}

/// Fills the burst, with `most` frames at the most. False when no more have come.
bool PacketPort::gather(std::size_t most) noexcept {
    burst_.clear();
    while (burst_.frames().size() < most) {
        if (segments_.nextSize() > 0) {
            if (!gatherSegment()) {
                return true;
            }
            continue;
        }
        RingFrame received;
        if (!ring_->next(received)) {
            return false;
        }
        if (received.offloaded.segmentation != 0) {
            toWireFrames(received, segments_, counts_);
            continue;
        }
        WritableFrame frame = toWireFrame(received, counts_);
        frame.port = index_;
        burst_.add(frame);
        if (!received.isInSlot) {
            return true;
        }
    }
    return true;
}

/// False when the burst has no room for it.
bool PacketPort::gatherSegment() noexcept {
    std::uint8_t* const room = burst_.room(segments_.nextSize());
    if (room != nullptr) {
        WritableFrame segment = segments_.next(room);
        segment.port = index_;
        burst_.addWritten(segment);
    }
    return room != nullptr;
}

void PacketPort::intakeIs(PacketIntake intake) {
    if (intake == intake_) {
        return;
    }
    intake_ = intake;
    if (!isOpen()) {
        return;
    }
    try {
        acceptFrames(ring_->descriptor(), intake);
        prepareInterface();
    } catch (const std::system_error& refused) {
        shut(name_ + ": " + refused.what());
    }
}

// The guard lets marked frames pass. Without the privilege to mark them there is no guard.
void PacketPort::prepareInterface() {
    const unsigned int mark = intake_ == PacketIntake::everything ? KernelGuard::mark : 0;
    setsockopt(sender_.value(), SOL_SOCKET, SO_MARK, &mark, sizeof mark);
    circuit_.intakeIs(interfaceIndex_, intake_);
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
