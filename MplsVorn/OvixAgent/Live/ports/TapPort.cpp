#include "Live/ports/TapPort.h"

#include <algorithm>
#include <cerrno>
#include <linux/if_tun.h>
#include <sys/ioctl.h>
#include <system_error>
#include <utility>

#include "Live/ports/InterfaceControl.h"
#include "Wire/Ethernet.h"

namespace OvixAgent {

namespace {

/// The largest MTU and an Ethernet header with tags.
constexpr std::size_t longestFrame =
    65535 + Wire::Ethernet::size + Wire::Tag::maxTags * Wire::Tag::size;

} // namespace

TapPort::TapPort(PortIndex index, std::string deviceName, std::optional<Likeness> likeness,
                 std::uint32_t queues)
    : index_(index), name_(std::move(deviceName)), likeness_(likeness),
      queues_(queues > 0 ? std::make_shared<Queues>(queues) : nullptr),
      number_(queues > 0 ? noQueue : 0), burst_(2 * FrameBurst::memoryFor(longestFrame)) {
    reopen();
}

TapPort::TapPort(PortIndex index, std::string deviceName, std::shared_ptr<Queues> queues,
                 std::uint32_t number)
    : index_(index), name_(std::move(deviceName)), queues_(std::move(queues)), number_(number),
      burst_(2 * FrameBurst::memoryFor(longestFrame)) {
    reopen();
}

std::unique_ptr<LivePort> TapPort::queue(std::uint32_t number) {
    if (!queues_ || isQueue() || number == noQueue) {
        return nullptr;
    }
    return std::unique_ptr<LivePort>(new TapPort(index_, name_, queues_, number));
}

bool TapPort::reopen() {
    if (isQueue()) {
        shut({});
        device_ = queues_->device.value(takenVersion_);
        return isOpen();
    }
    if (isOpen() && isInterface(interfaceIndex_)) {
        return true;
    }
    if (std::chrono::steady_clock::now() < tryAgainAt_) {
        return false;
    }
    shut({});
    try {
        open();
    } catch (const std::system_error& refused) {
        if (device_) { // its coming and going is reported, and each report asks for another try
            constexpr std::chrono::milliseconds rest{500};
            tryAgainAt_ = std::chrono::steady_clock::now() + rest;
        }
        shut(name_ + ": " + refused.what());
    }
    return isOpen();
}

void TapPort::open() {
    device_ = std::make_shared<const TapQueues>(name_, queues_ ? queues_->count : 0);
    interfaceIndex_ = indexOfInterface(name_);
    if (likeness_) {
        setMacOfInterface(name_, likeness_->mac);
        setMtuOfInterface(name_, likeness_->mtu);
    }
    bringUp(name_);
    if (queues_) {
        queues_->device.valueIs(device_);
    }
}

void TapPort::keepLikeness() noexcept {
    try {
        if (isOpen() && likeness_ && macOfInterface(name_) != likeness_->mac) {
            setMacOfInterface(name_, likeness_->mac);
        }
    } catch (const std::system_error&) {
        // It has just gone, which the next frame notices.
    }
}

void TapPort::shut(std::string problem) {
    if (queues_ && !isQueue() && isOpen()) {
        queues_->device.valueIs(nullptr);
    }
    device_.reset();
    problem_ = std::move(problem);
}

int TapPort::sendingFile() const noexcept {
    const int own = device_->file(number_);
    return own >= 0 ? own : device_->file(0);
}

std::size_t TapPort::receive(const BurstVisitor& visitor, std::size_t budget) {
    if (isQueue() && queues_->device.version() != takenVersion_) {
        reopen();
    }
    if (isOpen() && number_ == noQueue && !isInterface(interfaceIndex_)) {
        countFailure(EBADFD);
    }
    std::size_t received = 0;
    for (bool hasMore = descriptor() >= 0; isOpen() && received < budget && hasMore;) {
        hasMore = gather(std::min(burstFrames, budget - received));
        const std::size_t count = burst_.frames().size();
        counts_.addReceived(burst_.frames());
        received += count;
        if (count > 0) {
            visitor(burst_.frames());
        }
    }
    return received;
}

/// Fills the burst, with `most` frames at the most. False when no more have come.
bool TapPort::gather(std::size_t most) {
    const CaptureTime time = timeNow();
    burst_.clear();
    while (burst_.frames().size() < most) {
        std::uint8_t* const room = burst_.room(longestFrame);
        if (room == nullptr) {
            return true;
        }
        const ssize_t size = read(descriptor(), room, longestFrame);
        if (size >= 0) {
            const auto length = static_cast<std::uint32_t>(size);
            burst_.addWritten(
                {.size = length, .originalLength = length, .port = index_, .time = time});
        } else if (errno == EINTR) {
            counts_.add(LiveEvent::interrupted);
        } else {
            if (errno != EAGAIN) {
                countFailure(errno);
            }
            return false;
        }
    }
    return true;
}

void TapPort::transmit(const Frame& frame) {
    if (!isOpen()) {
        counts_.add(LiveEvent::interfaceGone);
        return;
    }
    ssize_t size = -1;
    while ((size = write(sendingFile(), frame.bytes.data(), frame.bytes.size())) < 0 &&
           errno == EINTR) {
        counts_.add(LiveEvent::interrupted);
    }
    if (size >= 0) {
        counts_.add(LiveEvent::sent);
    } else {
        countFailure(errno);
    }
}

void TapPort::carrierIs(bool isUp) noexcept {
    int carrier = isUp ? 1 : 0;
    if (isOpen()) {
        ioctl(sendingFile(), TUNSETCARRIER, &carrier);
    }
}

// EBADFD: the device was deleted while its file is open.
void TapPort::countFailure(int error) {
    switch (error) {
    case EAGAIN:
        counts_.add(LiveEvent::queueFull);
        break;
    case ENOBUFS:
    case ENOMEM:
        counts_.add(LiveEvent::noBuffers);
        break;
    case EIO:
        counts_.add(LiveEvent::linkDown);
        break;
    case EBADFD:
        counts_.add(LiveEvent::interfaceGone);
        shut(name_ + ": the device was removed");
        break;
    default:
        counts_.add(LiveEvent::failed);
    }
}

} // namespace OvixAgent
