#include "Live/ports/XdpPort.h"

#include <algorithm>
#include <array>
#include <cassert>
#include <cerrno>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "Live/ports/InterfaceControl.h"
#include "Wire/Ethernet.h"

namespace OvixAgent {

namespace {

/// A header with tags, which no MTU includes.
constexpr std::uint32_t linkHeader = Wire::Ethernet::size + Wire::Tag::maxTags * Wire::Tag::size;

} // namespace

XdpPort::XdpPort(PortIndex index, std::string interfaceName)
    : index_(index), name_(std::move(interfaceName)) {
    reopen();
}

bool XdpPort::reopen() {
    shut({});
    try {
        open();
    } catch (const std::runtime_error& refused) { // std::system_error is one
        shut(name_ + ": " + refused.what());
    }
    return isOpen();
}

void XdpPort::open() {
    const std::string name = nameOfInterface(interfaceIndex_, name_);
    interfaceIndex_ = indexOfInterface(name);
    claim_.emplace(interfaceIndex_);
    const std::uint32_t mtu = mtuOfInterface(name);
    constexpr std::uint32_t maxMtu = XdpSocket::maxFrame - linkHeader;
    if (mtu > maxMtu) {
        throw std::runtime_error("an MTU of " + std::to_string(mtu) + " is more than " +
                                 std::to_string(maxMtu) + ", the largest for AF_XDP");
    }
    const std::uint32_t queues = receiveQueuesOfInterface(name);
    if (queues > 1) {
        throw std::runtime_error("has " + std::to_string(queues) +
                                 " receive queues; AF_XDP supports one");
    }
    socket_ = std::make_unique<XdpSocket>(name);
    dropsCounted_ = 0;
    program_ = std::make_unique<XdpProgram>(interfaceIndex_, macOfInterface(name),
                                            socket_->descriptor(), intake_);
    circuit_.intakeIs(interfaceIndex_, intake_);
}

void XdpPort::intakeIs(PacketIntake intake) {
    if (intake == intake_) {
        return;
    }
    intake_ = intake;
    if (!isOpen() || !program_) {
        return;
    }
    try {
        program_->intakeIs(intake);
        circuit_.intakeIs(interfaceIndex_, intake);
    } catch (const std::runtime_error& refused) {
        shut(name_ + ": " + refused.what());
    }
}

void XdpPort::shut(std::string problem) {
    if (isOpen()) {
        counts();
        counts_.add(LiveEvent::sent, socket_->takeSent());
        counts_.add(LiveEvent::interfaceGone, socket_->queued());
    }
    circuit_.leave();
    program_.reset();
    socket_.reset();
    claim_.reset();
    problem_ = std::move(problem);
}

std::size_t XdpPort::receive(const BurstVisitor& visitor, std::size_t budget) {
    std::array<WritableFrame, burstFrames> frames;
    std::size_t received = 0;
    for (bool hasMore = true; isOpen() && received < budget && hasMore;) {
        const std::size_t most = std::min(frames.size(), budget - received);
        const std::span<WritableFrame> burst(frames.data(),
                                             socket_->receive({frames.data(), most}));
        hasMore = burst.size() == most;
        if (!burst.empty()) {
            hand(burst, visitor);
            received += burst.size();
        }
    }
    if (isOpen() && received == 0) {
        checkSocket();
    }
    return received;
}

void XdpPort::hand(std::span<WritableFrame> burst, const BurstVisitor& visitor) {
    const CaptureTime time = timeNow();
    for (WritableFrame& frame : burst) {
        frame.port = index_;
        frame.time = time;
    }
    counts_.addReceived(burst);
    isLent_ = true;
    visitor(burst);
    isLent_ = false;
    socket_->release();
}

// While frames are lent, their memory must stay: the next call to receive will find the error.
void XdpPort::checkSocket() {
    if (isLent_) {
        return;
    }
    if (socket_->takeError() != 0 && !countSocketFailure(interfaceIndex_, counts_)) {
        shut(name_ + ": the interface was removed");
    }
}

void XdpPort::transmit(const Frame& frame) {
    if (!isOpen()) {
        counts_.add(LiveEvent::interfaceGone);
        return;
    }
    if (frame.bytes.size() > XdpSocket::maxFrame) {
        counts_.add(LiveEvent::tooLong);
        return;
    }
    std::uint8_t* buffer = socket_->sendBuffer();
    if (buffer == nullptr) {
        flush();
        buffer = socket_->sendBuffer();
    }
    if (buffer == nullptr) {
        counts_.add(LiveEvent::queueFull);
        return;
    }
    std::copy(frame.bytes.begin(), frame.bytes.end(), buffer);
    socket_->queue(frame.bytes.size());
}

// The kernel accepts a few dozen frames per call and returns EAGAIN for more.
void XdpPort::flush() {
    while (isOpen() && socket_->queued() > 0) {
        const int error = socket_->kick();
        const std::uint64_t sent = socket_->takeSent();
        counts_.add(LiveEvent::sent, sent);
        if (!continuesAfter(error, sent > 0)) {
            break;
        }
    }
    if (isOpen()) {
        socket_->reclaim();
    }
}

bool XdpPort::continuesAfter(int error, bool hasSent) {
    assert(isOpen());
    switch (error) {
    case 0:
        return hasSent;
    case EINTR:
        counts_.add(LiveEvent::interrupted);
        return true;
    case EAGAIN:
    case EBUSY:
    case ENOBUFS:
        counts_.add(LiveEvent::wouldBlock, hasSent ? 0 : 1);
        return hasSent;
    case ENETDOWN:
        counts_.add(LiveEvent::linkDown);
        return false;
    case ENXIO:
    case ENODEV:
        checkSocket();
        return false;
    default:
        counts_.add(LiveEvent::failed);
        return false;
    }
}

const LiveCounts& XdpPort::counts() {
    if (isOpen()) {
        const std::uint64_t drops = socket_->drops();
        counts_.add(LiveEvent::ringFull, drops - dropsCounted_);
        dropsCounted_ = drops;
    }
    return counts_;
}

} // namespace OvixAgent
