#include "Live/ports/TapPort.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <linux/if.h>
#include <linux/if_tun.h>
#include <sys/ioctl.h>
#include <system_error>
#include <utility>

#include "Live/ports/InterfaceControl.h"
#include "Posix/SystemError.h"
#include "Wire/Ethernet.h"

namespace OvixAgent {

namespace {

/// The largest MTU and an Ethernet header with tags.
constexpr std::size_t longestFrame =
    65535 + Wire::Ethernet::size + Wire::Tag::maxTags * Wire::Tag::size;

} // namespace

TapPort::TapPort(PortIndex index, std::string deviceName, std::optional<Likeness> likeness)
    : index_(index), name_(std::move(deviceName)), likeness_(likeness),
      burst_(2 * FrameBurst::memoryFor(longestFrame)) {
    reopen();
}

bool TapPort::reopen() {
    if (isOpen() && isInterface(interfaceIndex_)) {
        return true;
    }
    shut({});
    try {
        open();
    } catch (const std::system_error& refused) {
        shut(name_ + ": " + refused.what());
    }
    return isOpen();
}

void TapPort::open() {
    ifreq request{};
    if (name_.empty() || name_.size() >= sizeof request.ifr_name) {
        Posix::fail("naming the device", ENODEV);
    }
    name_.copy(request.ifr_name, name_.size());
    request.ifr_flags = static_cast<short>(IFF_TAP | IFF_NO_PI);
    device_ = Posix::FileDescriptor(::open("/dev/net/tun", O_RDWR | O_NONBLOCK | O_CLOEXEC));
    if (!device_.isOpen()) {
        Posix::fail("opening /dev/net/tun");
    }
    if (ioctl(device_.value(), TUNSETIFF, &request) != 0) {
        Posix::fail("creating the TAP device");
    }
    interfaceIndex_ = indexOfInterface(name_);
    if (likeness_) {
        setMacOfInterface(name_, likeness_->mac);
        setMtuOfInterface(name_, likeness_->mtu);
    }
    bringUp(name_);
}

void TapPort::shut(std::string problem) {
    device_ = Posix::FileDescriptor();
    problem_ = std::move(problem);
}

std::size_t TapPort::receive(const BurstVisitor& visitor, std::size_t budget) {
    std::size_t received = 0;
    for (bool hasMore = true; isOpen() && received < budget && hasMore;) {
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
        const ssize_t size = read(device_.value(), room, longestFrame);
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
    while ((size = write(device_.value(), frame.bytes.data(), frame.bytes.size())) < 0 &&
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
    ioctl(device_.value(), TUNSETCARRIER, &carrier);
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
