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

XdpPort::XdpPort(PortIndex index, std::string interfaceName, std::uint32_t queues)
    : index_(index), name_(std::move(interfaceName)),
      queues_(queues > 0 ? std::make_shared<Queues>(queues) : nullptr) {
    reopen();
}

XdpPort::XdpPort(PortIndex index, std::string interfaceName, std::shared_ptr<Queues> queues,
                 std::uint32_t number)
    : index_(index), name_(std::move(interfaceName)), queues_(std::move(queues)), number_(number) {
    reopen();
}

std::unique_ptr<LivePort> XdpPort::queue(std::uint32_t number) {
    if (!queues_ || isQueue() || number >= queues_->count) {
        return nullptr;
    }
    return std::unique_ptr<LivePort>(new XdpPort(index_, name_, queues_, number));
}

bool XdpPort::reopen() {
    shut({});
    try {
        isQueue() ? openQueue() : open();
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
    const std::uint32_t received = receiveQueues(name);
    program_ =
        std::make_shared<XdpProgram>(interfaceIndex_, macOfInterface(name), received, intake_);
    if (queues_) {
        sender_.open(interfaceIndex_);
        sender_.intakeIs(intake_);
    } else {
        sockets_.open(name, *program_, 0, 1);
    }
    circuit_.intakeIs(interfaceIndex_, intake_);
    if (queues_) {
        queues_->interface.valueIs({interfaceIndex_, program_});
    }
}

std::uint32_t XdpPort::receiveQueues(const std::string& name) const {
    const std::uint32_t found = receiveQueuesOfInterface(name);
    const std::uint32_t needed = queues_ ? queues_->count : 1;
    if (found < needed) {
        throw std::runtime_error("has " + std::to_string(found) + " receive queues for " +
                                 std::to_string(needed) + " workers: more of them (ethtool -L " +
                                 name + " combined " + std::to_string(needed) +
                                 ") or fewer workers are needed");
    }
    return found;
}

void XdpPort::openQueue() {
    const Interface taken = queues_->interface.value(takenVersion_);
    if (taken.index == 0) {
        return;
    }
    interfaceIndex_ = taken.index;
    program_ = taken.program;
    sockets_.open(nameOfInterface(interfaceIndex_, name_), *program_, *number_, queues_->count);
}

void XdpPort::intakeIs(PacketIntake intake) {
    if (intake == intake_) {
        return;
    }
    intake_ = intake;
    if (!isOpen() || !program_ || isQueue()) {
        return;
    }
    try {
        program_->intakeIs(intake);
        sender_.intakeIs(intake);
        circuit_.intakeIs(interfaceIndex_, intake);
    } catch (const std::runtime_error& refused) {
        shut(name_ + ": " + refused.what());
    }
}

// The sockets stay as they are: what they have received is still fetched.
void XdpPort::stopIntake() {
    if (program_ && !isQueue()) {
        program_->detach();
    }
}

void XdpPort::shut(std::string problem) {
    if (sockets_.isOpen()) {
        counts();
        counts_.add(LiveEvent::sent, sockets_.first().takeSent());
        counts_.add(LiveEvent::interfaceGone, sockets_.first().queued());
    }
    circuit_.leave();
    stopIntake();
    if (queues_ && !isQueue() && program_) {
        queues_->interface.valueIs({});
    }
    program_.reset();
    sockets_.close();
    dropsCounted_ = 0;
    sender_.close();
    claim_.reset();
    problem_ = std::move(problem);
}

std::size_t XdpPort::receive(const BurstVisitor& visitor, std::size_t budget) {
    if (isQueue() && queues_->interface.version() != takenVersion_) {
        reopen();
    }
    std::array<WritableFrame, burstFrames> frames;
    std::size_t received = 0;
    for (std::size_t dry = 0; received < budget && dry < sockets_.size();) {
        const std::size_t most = std::min(frames.size(), budget - received);
        XdpSocket& socket = sockets_.next();
        const std::span<WritableFrame> burst(frames.data(), socket.receive({frames.data(), most}));
        dry = burst.size() == most ? 0 : dry + 1;
        if (!burst.empty()) {
            hand(socket, burst, visitor);
            received += burst.size();
        }
    }
    wasDown_ = wasDown_ && received == 0;
    if (isOpen() && received == 0) {
        checkSocket();
    }
    return received;
}

void XdpPort::hand(XdpSocket& socket, std::span<WritableFrame> burst, const BurstVisitor& visitor) {
    const CaptureTime time = timeNow();
    for (WritableFrame& frame : burst) {
        frame.port = index_;
        frame.time = time;
    }
    counts_.addReceived(burst);
    isLent_ = true;
    visitor(burst);
    isLent_ = false;
    socket.release();
}

// While frames are lent, their memory must stay: the next call to receive will find the error.
void XdpPort::checkSocket() {
    if (isLent_) {
        return;
    }
    const bool mayHaveFailed =
        sockets_.isOpen() ? sockets_.takeError() : !isInterface(interfaceIndex_);
    if (hasInterfaceGone(interfaceIndex_, mayHaveFailed, wasDown_, counts_)) {
        shut(name_ + ": the interface was removed");
    }
}

void XdpPort::transmit(const Frame& frame) {
    if (!sockets_.isOpen()) {
        sender_.push(frame.bytes);
        return;
    }
    if (frame.bytes.size() > XdpSocket::maxFrame) {
        counts_.add(LiveEvent::tooLong);
        return;
    }
    std::uint8_t* buffer = sockets_.first().sendBuffer();
    if (buffer == nullptr) {
        flush();
        buffer = sockets_.isOpen() ? sockets_.first().sendBuffer() : nullptr;
    }
    if (buffer == nullptr) {
        counts_.add(LiveEvent::queueFull);
        return;
    }
    std::copy(frame.bytes.begin(), frame.bytes.end(), buffer);
    sockets_.first().queue(frame.bytes.size());
}

// The kernel accepts a few dozen frames per call and returns EAGAIN for more.
void XdpPort::flush() {
    sender_.flush();
    while (sockets_.isOpen() && sockets_.first().queued() > 0) {
        const int error = sockets_.first().kick();
        const std::uint64_t sent = sockets_.first().takeSent();
        counts_.add(LiveEvent::sent, sent);
        if (!continuesAfter(error, sent > 0)) {
            break;
        }
    }
    if (sockets_.isOpen()) {
        sockets_.first().reclaim();
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
    if (sockets_.isOpen()) {
        const std::uint64_t drops = sockets_.drops();
        counts_.add(LiveEvent::ringFull, drops - dropsCounted_);
        dropsCounted_ = drops;
    }
    return counts_;
}

} // namespace OvixAgent
