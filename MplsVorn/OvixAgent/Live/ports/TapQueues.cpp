#include "Live/ports/TapQueues.h"

#include <bpf/libbpf.h>
#include <cerrno>
#include <cstdarg>
#include <fcntl.h>
#include <linux/if.h>
#include <linux/if_tun.h>
#include <memory>
#include <sys/ioctl.h>
#include <system_error>

#include "Live/ports/InterfaceControl.h"
#include "Posix/SystemError.h"

namespace OvixAgent {

namespace {

// FlowHash.bpf.c, compiled for the kernel when the agent was built.
constexpr unsigned char flowHashObject[] = {
#include <FlowHash.inc>
};

/// The device keeps the program.
void spreadFlows(int file) {
    libbpf_set_print([](libbpf_print_level, const char*, va_list) { return 0; });
    const std::unique_ptr<bpf_object, decltype(&bpf_object__close)> object(
        bpf_object__open_mem(flowHashObject, sizeof flowHashObject, nullptr), &bpf_object__close);
    if (!object) {
        Posix::fail("opening the program that spreads flows");
    }
    if (const int error = bpf_object__load(object.get()); error != 0) {
        Posix::fail("loading the program that spreads flows", -error);
    }
    int program = bpf_program__fd(bpf_object__find_program_by_name(object.get(), "flowHash"));
    if (ioctl(file, TUNSETSTEERINGEBPF, &program) != 0) {
        Posix::fail("attaching the program that spreads flows");
    }
}

} // namespace

TapQueues::TapQueues(const std::string& device, std::uint32_t queues) {
    open(device, queues > 0);
    if (queues < 2) {
        return;
    }
    try {
        spreadFlows(files_.front().value());
    } catch (const std::system_error& refused) {
        problem_ = std::string("all flows come to one queue: ") + refused.what();
        return;
    }
    while (files_.size() < queues) {
        open(device, true);
    }
}

void TapQueues::open(const std::string& device, bool isOneOfSeveral) {
    ifreq request{};
    if (device.empty() || device.size() >= sizeof request.ifr_name) {
        Posix::fail("naming the device", ENODEV);
    }
    device.copy(request.ifr_name, device.size());
    request.ifr_flags =
        static_cast<short>(IFF_TAP | IFF_NO_PI | (isOneOfSeveral ? IFF_MULTI_QUEUE : 0));
    Posix::FileDescriptor file(::open("/dev/net/tun", O_RDWR | O_NONBLOCK | O_CLOEXEC));
    if (!file.isOpen()) {
        Posix::fail("opening /dev/net/tun");
    }
    if (ioctl(file.value(), TUNSETIFF, &request) != 0) {
        const int error = errno;
        const bool exists = files_.empty() && isInterface(device);
        Posix::fail(!exists ? "creating the TAP device"
                    : isOneOfSeveral
                        ? "using the TAP device by several queues (ip tuntap add mode "
                          "tap multi_queue makes one of them)"
                        : "creating the TAP device (there is an interface of this name, "
                          "which is none or is in use)",
                    error);
    }
    files_.push_back(std::move(file));
}

} // namespace OvixAgent
