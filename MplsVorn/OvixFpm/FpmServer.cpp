#include "FpmServer.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <netinet/in.h>
#include <poll.h>
#include <stdexcept>
#include <sys/socket.h>
#include <system_error>
#include <unistd.h>

#include "RouteText.h"

namespace OvixFpm {

namespace {

// A change of an IP route comes as a withdrawal and a new route, and a re-route as many messages:
// what follows each other within the first time is published at once, and nothing waits longer than
// the second.
constexpr std::chrono::milliseconds quietBeforeCommit{1};
constexpr std::chrono::milliseconds longestBeforeCommit{20};

[[noreturn]] void fail(const std::string& what) {
    throw std::system_error(errno, std::generic_category(), what);
}

} // namespace

FpmServer::FpmServer(RoutePublisher& routes, Settings settings, Log log)
    : routes_(&routes), settings_(std::move(settings)), log_(std::move(log)) {
    const std::string where = settings_.address + ":" + std::to_string(settings_.port);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(settings_.port);
    if (inet_pton(AF_INET, settings_.address.c_str(), &address.sin_addr) != 1) {
        errno = EINVAL;
        fail("cannot listen at " + where);
    }
    listener_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    const int on = 1;
    setsockopt(listener_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    if (bind(listener_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        listen(listener_, 1) != 0) {
        const int reason = errno;
        close(listener_);
        errno = reason;
        fail("cannot listen at " + where);
    }
    log_("listening at " + where);
}

FpmServer::~FpmServer() {
    if (connection_ >= 0) {
        close(connection_);
    }
    close(listener_);
}

void FpmServer::run(int stop) {
    for (;;) {
        std::array<pollfd, 3> waiting{
            {{stop, POLLIN, 0}, {listener_, POLLIN, 0}, {connection_, POLLIN, 0}}};
        if (poll(waiting.data(), waiting.size(), timeoutMs()) < 0 && errno != EINTR) {
            fail("cannot wait for zebra");
        }
        if (waiting[0].revents != 0) {
            routes_->commit();
            return;
        }
        if (waiting[2].revents != 0) {
            receive();
        }
        if (waiting[1].revents != 0) {
            accept();
        }
        commitWhenQuiet();
    }
}

int FpmServer::timeoutMs() const {
    if (firstUncommitted_) {
        return static_cast<int>(quietBeforeCommit.count());
    }
    return sweepDue_ ? static_cast<int>(settings_.sweepAfter.count()) : -1;
}

void FpmServer::accept() {
    const int accepted = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (accepted < 0) {
        return;
    }
    if (connection_ >= 0) {
        disconnect("zebra has connected anew");
    }
    connection_ = accepted;
    decoder_ = FpmDecoder();
    routes_->markStale();
    sweepDue_ = true;
    heardAt_ = connectedAt_ = Clock::now();
    log_("zebra is connected; " + std::to_string(routes_->staleRoutes()) +
         " routes wait to be confirmed");
}

void FpmServer::receive() {
    constexpr int piecesPerTurn = 16; // whoever sends without end lets others have their turn
    std::array<std::uint8_t, 65536> bytes;
    for (int i = 0; i < piecesPerTurn; ++i) {
        const ssize_t got = recv(connection_, bytes.data(), bytes.size(), 0);
        if (got > 0) {
            heardAt_ = Clock::now();
            decoder_.take({bytes.data(), static_cast<std::size_t>(got)});
            takeEvents();
            if (decoder_.lost()) {
                disconnect("what zebra says cannot be followed any more");
                return;
            }
        } else if (got < 0 && errno == EINTR) {
            continue;
        } else if (got < 0 && errno == EAGAIN) {
            return;
        } else {
            disconnect("zebra has gone; its routes stay");
            return;
        }
    }
}

void FpmServer::disconnect(const std::string& why) {
    close(connection_);
    connection_ = -1;
    sweepDue_ = false; // what was not confirmed may be so by the next connection
    const MessageCounts& now = decoder_.counts();
    counts_.newRoutes += now.newRoutes;
    counts_.withdrawals += now.withdrawals;
    counts_.nextHopGroups += now.nextHopGroups;
    counts_.others += now.others;
    counts_.refused += now.refused;
    log_(why);
}

void FpmServer::takeEvents() {
    while (const auto event = decoder_.next()) {
        if (const auto* refused = std::get_if<Refused>(&*event)) {
            log_(refused->text());
            continue;
        }
        const auto& change = std::get<RouteChange>(*event);
        if (settings_.tellsOfRoutes) {
            log_(text(change));
        }
        if (const std::string reason = routes_->apply(change); !reason.empty()) {
            log_(text(change) + ": " + reason);
        }
        if (!firstUncommitted_) {
            firstUncommitted_ = Clock::now();
        }
    }
}

void FpmServer::commitWhenQuiet() {
    const Clock::time_point now = Clock::now();
    try {
        // Routes that change all the time do not keep the stale ones for ever.
        const bool isQuiet = now - heardAt_ >= settings_.sweepAfter ||
                             now - connectedAt_ >= 10 * settings_.sweepAfter;
        if (sweepDue_ && connection_ >= 0 && isQuiet) {
            sweepDue_ = false;
            if (const std::size_t swept = routes_->sweep(); swept > 0) {
                log_(std::to_string(swept) + " routes were not confirmed, and are gone");
                firstUncommitted_ = firstUncommitted_.value_or(now);
            }
        }
        if (firstUncommitted_ && (now - heardAt_ >= quietBeforeCommit ||
                                  now - *firstUncommitted_ >= longestBeforeCommit)) {
            firstUncommitted_.reset();
            routes_->commit();
        }
    } catch (const std::length_error& full) {
        log_(std::string(full.what()) + "; what has changed is not visible yet");
    }
}

} // namespace OvixFpm
