#include "Live/ports/InterfaceControl.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <linux/ethtool.h>
#include <linux/if.h>
#include <linux/sockios.h>
#include <net/if_arp.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <system_error>

#include "Posix/FileDescriptor.h"
#include "Posix/SystemError.h"

namespace OvixAgent {

namespace {

ifreq requestFor(const std::string& name) {
    ifreq request{};
    if (name.empty() || name.size() >= sizeof request.ifr_name) {
        Posix::fail("naming the interface", ENODEV);
    }
    name.copy(request.ifr_name, name.size());
    return request;
}

/// False with errno set when the kernel refuses.
bool isDone(unsigned long command, ifreq& request) noexcept {
    const Posix::FileDescriptor any(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    return any.isOpen() && ioctl(any.value(), command, &request) == 0;
}

void control(unsigned long command, ifreq& request, const char* step) {
    if (!isDone(command, request)) {
        Posix::fail(step);
    }
}

} // namespace

unsigned int indexOfInterface(const std::string& name) {
    ifreq request = requestFor(name);
    control(SIOCGIFINDEX, request, "finding the interface");
    return static_cast<unsigned int>(request.ifr_ifindex);
}

std::uint32_t mtuOfInterface(const std::string& name) {
    ifreq request = requestFor(name);
    control(SIOCGIFMTU, request, "reading the interface's MTU");
    return static_cast<std::uint32_t>(request.ifr_mtu);
}

Lumo::EthAddr macOfInterface(const std::string& name) {
    ifreq request = requestFor(name);
    control(SIOCGIFHWADDR, request, "reading the interface's MAC");
    Lumo::EthAddr mac{};
    if (request.ifr_hwaddr.sa_family == ARPHRD_ETHER) {
        std::copy_n(request.ifr_hwaddr.sa_data, mac.size(), mac.begin());
    }
    return mac;
}

std::uint32_t receiveQueuesOfInterface(const std::string& name) {
    ethtool_channels channels{};
    channels.cmd = ETHTOOL_GCHANNELS;
    ifreq request = requestFor(name);
    request.ifr_data = reinterpret_cast<char*>(&channels);
    try {
        control(SIOCETHTOOL, request, "reading the interface's queues");
    } catch (const std::system_error& refused) {
        if (refused.code().value() != EOPNOTSUPP) {
            throw;
        }
    }
    return std::max(1U, channels.rx_count + channels.combined_count);
}

bool isInterface(unsigned int index) noexcept {
    ifreq request{};
    request.ifr_ifindex = static_cast<int>(index);
    // Without a descriptor to ask by, it has not gone for that.
    return isDone(SIOCGIFNAME, request) || errno != ENODEV;
}

bool isInterface(const std::string& name) noexcept {
    ifreq request{};
    name.copy(request.ifr_name, sizeof request.ifr_name - 1);
    return name == request.ifr_name && isDone(SIOCGIFINDEX, request);
}

std::string nameOfInterface(unsigned int index, const std::string& portName) {
    ifreq request{};
    request.ifr_ifindex = static_cast<int>(index);
    return index != 0 && isDone(SIOCGIFNAME, request) ? request.ifr_name : portName;
}

bool hasInterfaceGone(unsigned int index, bool hasFailed, bool& wasDown,
                      LiveCounts& counts) noexcept {
    if (!hasFailed && !wasDown) {
        return false;
    }
    wasDown = isInterface(index);
    if (hasFailed || !wasDown) {
        counts.add(wasDown ? LiveEvent::linkDown : LiveEvent::interfaceGone);
    }
    return !wasDown;
}

InterfaceFlags::InterfaceFlags() noexcept
    : socket_(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {}

bool InterfaceFlags::isDown(const std::string& name) const noexcept {
    constexpr short up = IFF_UP | IFF_RUNNING;
    ifreq request{};
    name.copy(request.ifr_name, sizeof request.ifr_name - 1);
    return ioctl(socket_.value(), SIOCGIFFLAGS, &request) == 0 && (request.ifr_flags & up) != up;
}

void bringUp(const std::string& name) {
    ifreq request = requestFor(name);
    control(SIOCGIFFLAGS, request, "reading the interface's state");
    request.ifr_flags = static_cast<short>(request.ifr_flags | IFF_UP);
    control(SIOCSIFFLAGS, request, "bringing the interface up");
}

void setMacOfInterface(const std::string& name, const Lumo::EthAddr& mac) {
    ifreq request = requestFor(name);
    request.ifr_hwaddr.sa_family = ARPHRD_ETHER;
    std::copy(mac.begin(), mac.end(), request.ifr_hwaddr.sa_data);
    control(SIOCSIFHWADDR, request, "setting the interface's MAC");
}

void setMtuOfInterface(const std::string& name, std::uint32_t mtu) {
    ifreq request = requestFor(name);
    request.ifr_mtu = static_cast<int>(mtu);
    control(SIOCSIFMTU, request, "setting the interface's MTU");
}

} // namespace OvixAgent
