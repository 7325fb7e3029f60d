#include "Live/ports/XdpSockets.h"

#include <sys/epoll.h>

#include "Posix/SystemError.h"

namespace OvixAgent {

void XdpSockets::open(const std::string& interfaceName, const XdpProgram& program,
                      std::uint32_t first, std::uint32_t step) {
    close();
    try {
        for (std::uint32_t queue = first; queue < program.queues(); queue += step) {
            sockets_.push_back(std::make_unique<XdpSocket>(interfaceName, queue));
            program.socketIs(queue, sockets_.back()->descriptor());
        }
        if (sockets_.size() > 1) {
            watchAll();
        }
    } catch (...) {
        close();
        throw;
    }
}

void XdpSockets::close() noexcept {
    watch_ = Posix::FileDescriptor();
    sockets_.clear();
    turn_ = 0;
}

void XdpSockets::watchAll() {
    watch_ = Posix::FileDescriptor(epoll_create1(EPOLL_CLOEXEC));
    for (const auto& socket : sockets_) {
        epoll_event input{};
        input.events = EPOLLIN;
        if (epoll_ctl(watch_.value(), EPOLL_CTL_ADD, socket->descriptor(), &input) != 0) {
            Posix::fail("watching the queues of the interface");
        }
    }
}

int XdpSockets::descriptor() const noexcept {
    if (!isOpen()) {
        return -1;
    }
    return watch_.isOpen() ? watch_.value() : sockets_.front()->descriptor();
}

XdpSocket& XdpSockets::next() noexcept {
    XdpSocket& socket = *sockets_[turn_];
    turn_ = turn_ + 1 == sockets_.size() ? 0 : turn_ + 1;
    return socket;
}

std::uint64_t XdpSockets::drops() const noexcept {
    std::uint64_t all = 0;
    for (const auto& socket : sockets_) {
        all += socket->drops();
    }
    return all;
}

bool XdpSockets::takeError() noexcept {
    bool any = false;
    for (const auto& socket : sockets_) {
        any = socket->takeError() != 0 || any;
    }
    return any;
}

} // namespace OvixAgent
