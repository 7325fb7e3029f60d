#include "Live/ports/PacketPort.h"

#include <algorithm>
#include <system_error>
#include <utility>

#include "Live/ports/InterfaceControl.h"
#include "Live/ports/WireFrames.h"

namespace OvixAgent {

namespace {

/// For segments of ordinary size it is more than a burst needs, and enough for two of the largest.
constexpr std::size_t segmentMemory = std::size_t{1} << 18U;

} // namespace

PacketPort::PacketPort(PortIndex index, std::string interfaceName, PacketIntake intake,
                       std::uint32_t queues)
    : index_(index), name_(std::move(interfaceName)),
      queues_(queues > 0 ? std::make_shared<Queues>(queues) : nullptr), intake_(intake),
      burst_(segmentMemory) {
    reopen();
}

PacketPort::PacketPort(PortIndex index, std::string interfaceName, std::shared_ptr<Queues> queues)
    : index_(index), name_(std::move(interfaceName)), queues_(std::move(queues)), isQueue_(true),
      intake_(PacketIntake::labelled), burst_(segmentMemory) {
    reopen();
}

std::unique_ptr<LivePort> PacketPort::queue(std::uint32_t number) {
    if (!queues_ || isQueue_ || number >= queues_->count) {
        return nullptr;
    }
    return std::unique_ptr<LivePort>(new PacketPort(index_, name_, queues_));
}

bool PacketPort::reopen() {
    shut({});
    try {
        isQueue_ ? openQueue() : open();
    } catch (const std::system_error& refused) {
        // Linux before 6.13 lets no socket join a group while the link is down.
        const bool isToCome = isQueue_ && InterfaceFlags().isDown(name_);
        shut(isToCome ? std::string() : name_ + ": " + refused.what());
    }
    return isOpen();
}

void PacketPort::open() {
    interfaceIndex_ = indexOfInterface(nameOfInterface(interfaceIndex_, name_));
    claim_.emplace(interfaceIndex_);
    if (!queues_) {
        ring_.emplace(interfaceIndex_, intake_);
    }
    sender_.open(interfaceIndex_);
    prepareInterface();
    if (queues_) {
        taken_ = {interfaceIndex_, intake_, std::make_shared<FanoutGroup>()};
        queues_->interface.valueIs(taken_);
    }
}

void PacketPort::openQueue() {
    taken_ = queues_->interface.value(takenVersion_);
    interfaceIndex_ = taken_.index;
    intake_ = taken_.intake;
    if (interfaceIndex_ == 0) {
        return;
    }
    ring_.emplace(interfaceIndex_, intake_, RingShare{taken_.group, queues_->count});
    sender_.open(interfaceIndex_);
    sender_.intakeIs(intake_);
}

/// Follows the object that has the interface.
void PacketPort::takeOver() {
    const std::shared_ptr<FanoutGroup> before = taken_.group;
    taken_ = queues_->interface.value(takenVersion_);
    if (taken_.group != before || !isOpen()) {
        reopen();
    } else {
        intakeIs(taken_.intake);
    }
}

void PacketPort::shut(std::string problem) {
    counts();
    sender_.close();
    segments_.drop();
    circuit_.leave();
    ring_.reset();
    claim_.reset();
    problem_ = std::move(problem);
    if (queues_ && !isQueue_ && taken_.group) {
        taken_ = {};
        queues_->interface.valueIs(taken_);
    }
}

std::size_t PacketPort::receive(const BurstVisitor& visitor, std::size_t budget) {
    if (isQueue_ && queues_->interface.version() != takenVersion_) {
        takeOver();
    }
    std::size_t received = 0;
    bool isDry = !ring_;
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
    wasDown_ = wasDown_ && received == 0;
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
        if (ring_) {
            ring_->intakeIs(intake);
        }
        prepareInterface();
    } catch (const std::system_error& refused) {
        shut(name_ + ": " + refused.what());
    }
    if (queues_ && !isQueue_ && isOpen()) {
        taken_.intake = intake;
        queues_->interface.valueIs(taken_);
    }
}

void PacketPort::prepareInterface() {
    sender_.intakeIs(intake_);
    if (!isQueue_) {
        circuit_.intakeIs(interfaceIndex_, intake_);
    }
}

void PacketPort::stopIntake() {
    if (ring_) {
        ring_->stopIntake();
    }
}

// A socket that only sends is not told that its interface has gone.
void PacketPort::checkSocket() {
    const bool mayHaveFailed = ring_ ? ring_->takeError() != 0 : !isInterface(interfaceIndex_);
    if (hasInterfaceGone(interfaceIndex_, mayHaveFailed, wasDown_, counts_)) {
        shut(name_ + ": the interface was removed");
    }
}

void PacketPort::transmit(const Frame& frame) {
    sender_.push(frame.bytes);
}

void PacketPort::flush() {
    sender_.flush();
}

const LiveCounts& PacketPort::counts() {
    if (ring_) {
        counts_.add(LiveEvent::ringFull, ring_->takeDrops());
    }
    return counts_;
}

} // namespace OvixAgent
