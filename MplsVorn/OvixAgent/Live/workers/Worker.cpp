#include "Live/workers/Worker.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <sys/eventfd.h>
#include <unistd.h>
#include <utility>

#include "Posix/SystemError.h"

namespace OvixAgent {

// No two threads write one cache line.
static_assert(alignof(Worker) == 64 && alignof(ForwardingGate::Place) == 64 &&
              alignof(OwnPorts::Own) == 64);

namespace {

/// The most frames of one port before the others are served.
constexpr std::size_t framesPerTurn = 256;

} // namespace

Worker::Worker(DecidedTables& decided, int wake, std::function<bool()> hasLinkFallen)
    : decided_(&decided), wake_(wake), hasLinkFallen_(std::move(hasLinkFallen)),
      place_(&decided.tables->gate.addPlace()), own_(decided.tables->ports),
      labels_(Tessel::make<Counter::OvixLfibCounterCollection>("worker")),
      road_(decided, nullptr, accounts_, &own_),
      visitor_([this](std::span<WritableFrame> burst) { forward(burst); }),
      lanes_(decided.tables->ports.ports().size()),
      called_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (!called_.isOpen()) {
        Posix::fail("cannot make an event descriptor");
    }
    road_.labels().labelCountersAre(labels_.get());
}

void Worker::portIs(PortIndex index, LivePort& port) {
    own_.all()[index].out = &port;
    arePolled_ = arePolled_ || port.isPolled();
}

void Worker::open() {
    place_->enter();
    reopenClosed();
    for (const auto& port : ports_) {
        port->receive(visitor_, 0);
    }
    place_->leave();
}

// What the packet thread changes it changes between two calls of a port's `receive`.
bool Worker::turn() {
    bool hasMore = false;
    place_->enter();
    if (hasLinkFallen_ && hasLinkFallen_()) {
        place_->leave();
        awaitCall();
        place_->enter();
    }
    if (servesAll_) {
        reopenClosed();
    }
    for (std::size_t i = 0; i < ports_.size(); ++i) {
        const bool isDue =
            servesAll_ || !ports_[i]->isOpen() || (i < waiting_.size() && waiting_[i].revents != 0);
        std::size_t taken = 0;
        for (std::size_t received = burstFrames;
             isDue && received == burstFrames && taken < framesPerTurn; taken += received) {
            if (place_->isToLeave()) { // what comes of the next frames may change
                flush();
                place_->leave();
                place_->enter();
            }
            received = ports_[i]->receive(visitor_, burstFrames);
        }
        hasMore = hasMore || taken >= framesPerTurn;
    }
    flush();
    waiting_.clear();
    for (const auto& port : ports_) {
        waiting_.push_back({port->descriptor(), POLLIN, 0});
    }
    place_->leave();
    return hasMore;
}

void Worker::flush() {
    for (const auto& port : ports_) {
        port->flush();
    }
}

/// What kept a queue from being opened, such as a link that was down, may be over.
void Worker::reopenClosed() {
    const auto now = AdaptivePoll::Clock::now();
    if (now - reopenedAt_ < std::chrono::seconds(1)) {
        return;
    }
    reopenedAt_ = now;
    for (const auto& port : ports_) {
        if (!port->isOpen()) {
            port->reopen();
        }
    }
}

void Worker::wait(int milliseconds) {
    const std::size_t ports = waiting_.size();
    waiting_.push_back({called_.value(), POLLIN, 0});
    const bool isReady = poll_.wait(waiting_, arePolled_ ? 0 : milliseconds);
    std::uint64_t calls = 0;
    const bool isCalled =
        waiting_.back().revents != 0 && read(called_.value(), &calls, sizeof calls) > 0;
    // Not every port is ready when its interface has gone, or when it is to take in something else.
    constexpr std::uint32_t oneOf = 64;
    const std::uint32_t turn = turns() + 1;
    turns_.store(turn, std::memory_order_relaxed);
    servesAll_ = arePolled_ || !isReady || isCalled || milliseconds == 0 || turn % oneOf == 0;
    waiting_.resize(ports);
}

void Worker::call() noexcept {
    constexpr std::uint64_t one = 1;
    // It fails only when it is readable anyway.
    [[maybe_unused]] const ssize_t written = write(called_.value(), &one, sizeof one);
}

void Worker::forward(std::span<WritableFrame> burst) {
    if (!decided_->isUsable) {
        for (const WritableFrame& frame : burst) {
            leave(frame);
        }
        return;
    }
    const bool looks = decided_->traced.looksAtFrames && searched_.hasNext(burst.size());
    if (burst.size() > 1) {
        road_.loadAhead(burst);
    }
    while (!burst.empty()) {
        const std::size_t fast = road_.forward(looks ? beforeTraced(burst) : burst);
        fast_ += fast;
        if (fast < burst.size()) {
            leave(burst[fast]);
        }
        burst = burst.subspan(std::min(fast + 1, burst.size()));
    }
    road_.settle();
}

/// The frames before the first that a trace asks for.
std::span<WritableFrame> Worker::beforeTraced(std::span<WritableFrame> burst) const {
    const auto traced =
        std::find_if(burst.begin(), burst.end(), [this](const WritableFrame& frame) {
            return decided_->traced.filter.matches(frame.frame(), decided_->tables->ports);
        });
    return burst.first(static_cast<std::size_t>(traced - burst.begin()));
}

void Worker::leave(const WritableFrame& frame) {
    FrameRing& lane =
        isUrgent({frame.bytes, frame.size}) ? lanes_.urgent : *lanes_.ofPorts[frame.port];
    switch (lane.push(frame)) {
    case FrameRing::Push::first:
        wakeOthers();
        break;
    case FrameRing::Push::another:
        break;
    case FrameRing::Push::refused:
        if (full_.counter == nullptr) {
            full_ = accounts_.logOf(drop(Reason::workerQueueFull));
        }
        accounts_.passed({1, frame.size});
        ++full_.counter->count;
        accounts_.recorder().record(*full_.frames, frame, frame.port);
        break;
    }
}

void Worker::wakeOthers() const noexcept {
    constexpr std::uint64_t one = 1;
    // It fails only when it is readable anyway.
    [[maybe_unused]] const ssize_t written = write(wake_, &one, sizeof one);
}

/// Frames that come meanwhile are kept by their ports: they would be lost where the link is down.
void Worker::awaitCall() const {
    constexpr int longestMs = 50; // the packet thread may be held up
    wakeOthers();
    pollfd called{called_.value(), POLLIN, 0};
    poll(&called, 1, longestMs);
}

} // namespace OvixAgent
