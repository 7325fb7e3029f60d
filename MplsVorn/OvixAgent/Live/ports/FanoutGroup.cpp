#include "Live/ports/FanoutGroup.h"

#include <cerrno>
#include <linux/filter.h>
#include <linux/if_packet.h>
#include <sys/socket.h>
#include <vector>

#include "Live/ports/FlowProgram.h"
#include "Posix/SystemError.h"

namespace OvixAgent {

namespace {

/// Since Linux 6.2; before, the filters of the sockets have to drop what this host sends.
constexpr int ignoreOutgoing = 0x4000;

bool hasJoined(int socket, int number, int flags) noexcept {
    const int group = number | (PACKET_FANOUT_CBPF | flags) << 16;
    return setsockopt(socket, SOL_PACKET, PACKET_FANOUT, &group, sizeof group) == 0;
}

int numberOf(int socket) {
    int group = 0;
    socklen_t size = sizeof group;
    if (getsockopt(socket, SOL_PACKET, PACKET_FANOUT, &group, &size) != 0) {
        Posix::fail("reading the number of the port's fanout group");
    }
    return group & 0xffff;
}

void attachProgram(int socket) {
    std::vector<sock_filter> program = flowProgram();
    const sock_fprog attached{static_cast<unsigned short>(program.size()), program.data()};
    if (setsockopt(socket, SOL_PACKET, PACKET_FANOUT_DATA, &attached, sizeof attached) != 0) {
        Posix::fail("attaching the program that tells flows apart");
    }
}

} // namespace

// A number may be another's once the last member has left.
void FanoutGroup::join(int socket) {
    const std::lock_guard lock(mutex_);
    const bool isFirst = members_ == 0;
    const int number = isFirst ? 0 : number_;
    const int flags = isFirst ? PACKET_FANOUT_FLAG_UNIQUEID : 0;
    if (!hasJoined(socket, number, flags | ignoreOutgoing) && !hasJoined(socket, number, flags)) {
        Posix::fail("joining the port's fanout group");
    }
    if (isFirst) {
        number_ = numberOf(socket);
        attachProgram(socket);
    }
    ++members_;
}

void FanoutGroup::leave(Posix::FileDescriptor& socket) noexcept {
    const std::lock_guard lock(mutex_);
    socket = Posix::FileDescriptor();
    --members_;
}

} // namespace OvixAgent
