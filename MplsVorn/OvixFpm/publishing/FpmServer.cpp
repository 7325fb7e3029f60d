#include "publishing/FpmServer.h"

#include <algorithm>
#include <array>
#include <cassert>
#include <cerrno>
#include <stdexcept>
#include <sys/socket.h>
#include <system_error>
#include <thread>
#include <utility>

#include "Tessel/Exceptions.h"

namespace OvixFpm {

namespace {

// A change of an IP route comes as a withdrawal and a new route, and a reroute as many messages:
// changes with shorter pauses than the first time are one batch, and no change waits longer than
// the second.
constexpr std::chrono::milliseconds quietBeforeCommit{1};
constexpr std::chrono::milliseconds longestBeforeCommit{20};

/// How long it may take until removed tables are missed while zebra is quiet.
constexpr std::chrono::milliseconds tablesLookedAtEvery{1000};

constexpr std::chrono::milliseconds retryUnusable{100};

} // namespace

Tessel::Result<std::chrono::milliseconds> sweepTime(double seconds) {
    constexpr double longest = 3600;
    const bool isInRange = seconds >= 0 && seconds <= longest; // NaN is not
    if (!isInRange) {
        return Tessel::Refused{"the time must be from 0 to 3600 seconds"};
    }
    return std::chrono::milliseconds(static_cast<long>(seconds * 1000));
}

FpmServer::FpmServer(RoutePublisher& routes, Settings settings, Log log, Companions companions)
    : routes_(&routes), companions_(std::move(companions)), settings_(std::move(settings)),
      log_(std::move(log)), listener_(settings_.listenAt.listen()), waiting_(log_) {
    assert(companions_.size() <= mostCompanions);
    log_({}, "listening at " + settings_.listenAt.text());
}

void FpmServer::run(int stop) {
    for (;;) {
        if (settings_.turn) {
            settings_.turn(Clock::now(), connection_.isOpen());
        }
        std::array<pollfd, 3 + mostCompanions + WaitingConnections::most> places{
            {{stop, POLLIN, 0}, {listener_.value(), POLLIN, 0}, {connection_.value(), POLLIN, 0}}};
        pollCompanions(std::span(places).subspan<3, mostCompanions>());
        const auto waiting = std::span(places).subspan<3 + mostCompanions>();
        waiting_.pollIn(waiting);
        if (poll(places.data(), places.size(), timeoutMs()) < 0 && errno != EINTR) {
            throw std::system_error(errno, std::generic_category(), "cannot wait for zebra");
        }
        if (places[0].revents != 0) {
            routes_->commit();
            return;
        }
        if (places[2].revents != 0 && beginBatch()) {
            receive();
        }
        const auto isReady = [](const pollfd& place) { return place.revents != 0; };
        if (std::any_of(waiting.begin(), waiting.end(), isReady) && beginBatch()) {
            receiveFromWaiting();
        }
        if (places[1].revents != 0) {
            accept();
        }
        commitWhenQuiet();
        serveCompanions();
        if (routes_->wereReplaced()) {
            disconnect("the tables have been replaced; zebra has to announce its routes again");
        }
        noteState();
    }
}

void FpmServer::pollCompanions(std::span<pollfd, mostCompanions> places) const {
    for (std::size_t i = 0; i < mostCompanions; ++i) {
        places[i] = {i < companions_.size() ? companions_[i]->descriptor() : -1, POLLIN, 0};
    }
}

void FpmServer::serveCompanions() {
    for (const auto& companion : companions_) {
        if (!firstUncommitted_) {
            companion->serve();
        }
    }
}

/// False while other writers have the tables, or they cannot be used.
bool FpmServer::beginBatch() {
    try {
        routes_->begin();
        isHeldUp_ = false;
        return true;
    } catch (const Tessel::TablesBusy& busy) {
        if (!std::exchange(isHeldUp_, true)) {
            log_("busy tables", std::string(busy.what()) + "; zebra's routes wait");
        }
    } catch (const std::runtime_error& unusable) { // until they are repaired, or made anew
        if (!std::exchange(isHeldUp_, true)) {
            log_("unusable tables", std::string(unusable.what()) + "; zebra's routes wait");
        }
        std::this_thread::sleep_for(retryUnusable);
    }
    return false;
}

int FpmServer::timeoutMs() const {
    int timeout = ownTimeoutMs();
    if (!firstUncommitted_) {
        for (const auto& companion : companions_) {
            timeout = std::min(timeout, companion->timeoutMs());
        }
    }
    return timeout;
}

int FpmServer::ownTimeoutMs() const {
    if (firstUncommitted_) {
        return static_cast<int>(quietBeforeCommit.count());
    }
    const bool willSweep = firstRouteAt_ && !hasSwept_;
    return static_cast<int>(
        (willSweep ? std::min(settings_.sweepAfter, tablesLookedAtEvery) : tablesLookedAtEvery)
            .count());
}

void FpmServer::accept() {
    Posix::FileDescriptor accepted(
        accept4(listener_.value(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (!accepted.isOpen()) {
        return;
    }
    if (const auto why = settings_.peers.refusal(accepted)) {
        log_("strangers", "a connection is closed: " + *why);
        return;
    }
    if (connection_.isOpen()) {
        waiting_.add(std::move(accepted));
    } else {
        connectionIs(std::move(accepted));
    }
}

void FpmServer::connectionIs(Posix::FileDescriptor connection) {
    assert(connection.isOpen() && !connection_.isOpen());
    connection_ = std::move(connection);
    decoder_ = FpmDecoder();
    routes_->markStale();
    firstRouteAt_.reset();
    hasSwept_ = false;
    {
        const std::lock_guard lock(stateMutex_);
        ++state_.connections;
        state_.connectedAt = std::chrono::system_clock::now();
    }
    log_("connections", "zebra is connected; " + std::to_string(routes_->staleRoutes()) +
                            " routes are stale until confirmed");
}

void FpmServer::receive() {
    constexpr int piecesPerTurn = 16; // so that a peer that never pauses cannot stop the loop
    std::array<std::uint8_t, 65536> bytes;
    for (int i = 0; i < piecesPerTurn && connection_.isOpen(); ++i) {
        const ssize_t got = recv(connection_.value(), bytes.data(), bytes.size(), 0);
        if (got > 0) {
            take({bytes.data(), static_cast<std::size_t>(got)});
        } else if (got < 0 && errno == EINTR) {
            continue;
        } else if (got < 0 && errno == EAGAIN) {
            return;
        } else {
            disconnect("zebra has disconnected; its routes stay");
        }
    }
}

void FpmServer::receiveFromWaiting() {
    auto heard = waiting_.receive();
    if (!heard) {
        return;
    }
    if (connection_.isOpen()) {
        disconnect("zebra has connected again");
    }
    connectionIs(std::move(heard->connection));
    take(heard->bytes);
}

void FpmServer::take(Bytes bytes) {
    heardAt_ = Clock::now();
    {
        const std::lock_guard lock(stateMutex_);
        state_.heardAt = std::chrono::system_clock::now();
    }
    decoder_.take(bytes);
    takeEvents();
    if (decoder_.lost()) {
        disconnect("lost sync with the FPM stream");
    }
}

void FpmServer::disconnect(const std::string& why) {
    connection_ = Posix::FileDescriptor();
    firstRouteAt_.reset(); // the next connection may confirm stale routes
    const MessageCounts& now = decoder_.counts();
    counts_ += now;
    decoder_ = FpmDecoder();
    log_("connections", why);
}

void FpmServer::noteState() {
    const std::lock_guard lock(stateMutex_);
    state_.isConnected = connection_.isOpen();
    state_.counts = counts_;
    state_.counts += decoder_.counts();
    state_.staleRoutes = routes_->staleRoutes();
}

FpmState FpmServer::state() const {
    const std::lock_guard lock(stateMutex_);
    return state_;
}

void FpmServer::takeEvents() {
    while (const auto event = decoder_.next()) {
        if (*event) {
            takeChange(event->value());
        } else {
            log_("invalid messages", event->refused().what);
        }
    }
}

void FpmServer::takeChange(const RouteChange& change) {
    if (settings_.isVerbose) {
        log_({}, text(change));
    }
    if (const Tessel::Result<void> applied = routes_->apply(change); !applied) {
        log_("refused routes", text(change) + ": " + applied.refused().what);
    }
    firstRouteAt_ = firstRouteAt_.value_or(heardAt_);
    firstUncommitted_ = firstUncommitted_.value_or(heardAt_);
}

void FpmServer::sweepWhenQuiet(Clock::time_point now) {
    if (!firstRouteAt_ || hasSwept_) {
        return;
    }
    // Routes that keep changing do not keep the stale ones for ever.
    if (now - heardAt_ < settings_.sweepAfter && now - *firstRouteAt_ < 10 * settings_.sweepAfter) {
        return;
    }
    if (!beginBatch()) {
        return;
    }
    hasSwept_ = true;
    if (const std::size_t swept = routes_->sweep(); swept > 0) {
        log_({}, std::to_string(swept) + " routes were not confirmed and are removed");
        firstUncommitted_ = firstUncommitted_.value_or(now);
    }
}

void FpmServer::commitWhenQuiet() {
    const Clock::time_point now = Clock::now();
    try {
        if (now - tablesSeenAt_ >= tablesLookedAtEvery) {
            tablesSeenAt_ = now;
            if (!routes_->areNamed()) {
                beginBatch();
            }
        }
        sweepWhenQuiet(now);
        if (firstUncommitted_ && (now - heardAt_ >= quietBeforeCommit ||
                                  now - *firstUncommitted_ >= longestBeforeCommit)) {
            firstUncommitted_.reset();
            routes_->commit();
        } else if (!firstUncommitted_) {
            routes_->commit(); // ends a batch without changes
        }
    } catch (const std::length_error& full) {
        routes_->abandon();
        disconnect(std::string(full.what()) + "; zebra has to announce its routes again");
    }
}

} // namespace OvixFpm
