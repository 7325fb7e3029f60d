#include "publishing/WaitingConnections.h"

#include <array>
#include <cassert>
#include <cerrno>
#include <sys/socket.h>
#include <utility>

namespace OvixFpm {

void WaitingConnections::add(Posix::FileDescriptor connection) {
    assert(connection.isOpen());
    if (all_.size() == most) {
        all_.erase(all_.begin());
        log_("connections", "too many connections wait beside zebra's; the oldest is closed");
    }
    all_.push_back({std::move(connection), {}, {}});
}

void WaitingConnections::pollIn(std::span<pollfd, most> places) const noexcept {
    assert(all_.size() <= most);
    for (std::size_t i = 0; i < most; ++i) {
        places[i] = {i < all_.size() ? all_[i].connection.value() : -1, POLLIN, 0};
    }
}

std::optional<WaitingConnections::Heard> WaitingConnections::receive() {
    for (auto waiting = all_.begin(); waiting != all_.end();) {
        const State state = receiveFrom(*waiting);
        if (state == State::waits) {
            ++waiting;
            continue;
        }
        Heard heard{std::move(waiting->connection), std::move(waiting->bytes)};
        waiting = all_.erase(waiting);
        if (state == State::isZebra) {
            return heard;
        }
    }
    return std::nullopt;
}

WaitingConnections::State WaitingConnections::receiveFrom(Waiting& waiting) {
    std::array<std::uint8_t, 65536> piece;
    const ssize_t got = recv(waiting.connection.value(), piece.data(), piece.size(), 0);
    if (got <= 0) {
        const bool isEmpty = got < 0 && (errno == EAGAIN || errno == EINTR);
        return isEmpty ? State::waits : State::hasEnded;
    }
    const Bytes bytes{piece.data(), static_cast<std::size_t>(got)};
    waiting.bytes.insert(waiting.bytes.end(), bytes.begin(), bytes.end());
    waiting.stream.take(bytes);
    const auto first = waiting.stream.next();
    if (!first) {
        return State::waits;
    }
    if (!*first) {
        log_("connections", "a connection beside zebra's is closed: " + first->refused().what);
        return State::hasEnded;
    }
    return State::isZebra;
}

} // namespace OvixFpm
