#include "Live/LiveRun.h"

#include <cassert>
#include <cerrno>
#include <csignal>
#include <sys/signalfd.h>
#include <system_error>
#include <thread>
#include <utility>

#include "Tessel/Exceptions.h"

namespace OvixAgent {

namespace {

/// The most frames of one port before the others are served.
constexpr std::size_t framesPerTurn = 256;
constexpr int idleMs = 100;
/// While nothing comes, cards are asked this often: less than their rings take to fill.
constexpr std::chrono::microseconds cardRest{20};

/// What is waited for; behind these are the ports.
enum : std::size_t { signalAt, linkAt, requestAt, reloadAt, workersAt, portsAt };

int signalDescriptor() {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        sigaddset(&signals, signal);
    }
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    const int descriptor = signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK);
    if (descriptor < 0) {
        throw std::system_error(errno, std::generic_category(), "cannot receive signals");
    }
    return descriptor;
}

} // namespace

LiveRun::LiveRun(const Parts& parts) : parts_(parts), signals_(signalDescriptor()) {
    if (parts_.workers != nullptr) {
        parts_.fastPath->settleIs([this] { settleLeft(); });
    }
}

LiveRun::~LiveRun() {
    parts_.fastPath->settleIs({});
}

void LiveRun::run(const std::function<void(const std::string&)>& report) {
    do {
        wait();
        const auto now = LinkSync::Clock::now();
        if (parts_.links->checkCarriers(now) && // before frames that have waited
            parts_.workers != nullptr) {
            parts_.workers->call(); // who wait for that
        }
        parts_.forwarder->settleWaiting(now); // before later frames to the same neighbours
        if (takeFrames() == 0 && parts_.ports->arePolled() && parts_.workers == nullptr) {
            std::this_thread::sleep_for(cardRest);
        }
        refresh();
        serveWorkers();
        settle(report);
    } while (takeSignals());
    parts_.service->isStopping();
    if (parts_.workers != nullptr) {
        if (hasBegun_) {
            parts_.workers->start([this] { settleLeft(); }); // for what has come so far
        }
        for (const auto& port : parts_.ports->all()) {
            port->stopIntake();
        }
        parts_.workers->stop();
        while (takeLeft(framesPerTurn) > 0) {
        }
        parts_.workers->collect();
        parts_.workers->collectLabels();
    }
    drain();
    anotherSignalEnds();
    parts_.forwarder->settleWaiting(LinkSync::Clock::time_point::max());
    parts_.ports->flush();
}

void LiveRun::drain() {
    for (const auto& port : parts_.ports->all()) {
        port->stopIntake();
    }
    const auto end = LinkSync::Clock::now() + std::chrono::seconds(1);
    servesAll_ = true;
    while (takeFrames() > 0 && LinkSync::Clock::now() < end) {
    }
}

void LiveRun::wait() {
    waiting_.resize(portsAt);
    waiting_[signalAt] = {signals_.value(), POLLIN, 0};
    waiting_[linkAt] = {parts_.links->descriptor(), POLLIN, 0};
    waiting_[requestAt] = {answersRequests() ? parts_.control->descriptor() : -1, POLLIN, 0};
    waiting_[reloadAt] = {parts_.reloading->descriptor(), POLLIN, 0};
    waiting_[workersAt] = {parts_.workers != nullptr ? parts_.workers->descriptor() : -1, POLLIN,
                           0};
    for (const auto& port : parts_.ports->all()) {
        waiting_.push_back({port->descriptor(), POLLIN, 0});
    }
    const bool isAnswering = answersRequests() && parts_.control->isBusy();
    const bool arePolled = parts_.ports->arePolled() && parts_.workers == nullptr;
    const bool isReady = poll_.wait(waiting_, hasMore_ || isAnswering || arePolled ? 0 : idleMs);
    // Not every port is ready when its interface has gone.
    servesAll_ = arePolled || hasMore_ || !isReady || waiting_[linkAt].revents != 0;
    hasMore_ = false;
    if (answersRequests() && (waiting_[requestAt].revents != 0 || !isReady || isAnswering)) {
        parts_.control->serve();
    }
    if (waiting_[linkAt].revents != 0) {
        parts_.links->receive();
        if (parts_.workers != nullptr) {
            parts_.workers->call();
        }
        knowsLinks_ = knowsLinks_ || parts_.links->isComplete();
    }
    if (waiting_[reloadAt].revents != 0) {
        const bool wasUnderWay = parts_.reloading->isUnderWay();
        parts_.reloading->finish();
        if (wasUnderWay && !parts_.reloading->isUnderWay()) {
            parts_.service->hasReloaded();
        }
    }
}

// Who gets an answer may send frames: each has a ring that it waits in.
bool LiveRun::answersRequests() const {
    return parts_.control != nullptr && knowsLinks_ && takesAllFrames();
}

bool LiveRun::takesAllFrames() const {
    return parts_.workers == nullptr || parts_.workers->haveStarted();
}

/// Returns the number of frames.
std::size_t LiveRun::takeFrames() {
    std::size_t taken = 0;
    const BurstVisitor visitor = [this](std::span<WritableFrame> burst) { forward(burst); };
    const auto& ports = parts_.ports->all();
    assert(waiting_.size() == portsAt + ports.size());
    for (std::size_t i = 0; i < ports.size(); ++i) {
        const bool isDue = hasBegun_ && (servesAll_ || waiting_[portsAt + i].revents != 0);
        const std::size_t received =
            isDue && ports[i]->isOpen() ? ports[i]->receive(visitor, framesPerTurn) : 0;
        assert(received <= framesPerTurn);
        hasMore_ = hasMore_ || received == framesPerTurn;
        taken += received;
    }
    if (parts_.workers != nullptr) {
        taken += takeLeft(framesPerTurn);
    }
    for (const CpuAnswers::Frame& answer : parts_.answers->take()) {
        const auto size = static_cast<std::uint32_t>(answer.bytes.size());
        forward({answer.port, timeNow(), answer.bytes, size, answer.isOwn, answer.alertsRouters});
    }
    parts_.ports->flush();
    return taken;
}

void LiveRun::forward(std::span<WritableFrame> burst) {
    while (!burst.empty()) {
        parts_.tables->refresh();
        burst = burst.subspan(parts_.fastPath->receive(burst));
    }
}

void LiveRun::forward(const Frame& frame) {
    for (;;) {
        parts_.tables->refresh();
        try {
            parts_.forwarder->receive(frame);
            return;
        } catch (const Tessel::SnapshotLost&) {
            // The generation was overwritten while it was read: refresh and try again.
        }
    }
}

/// What workers have left, which the forwarder processes.
std::size_t LiveRun::takeLeft(std::size_t budget) {
    const auto visitor = [this](const WritableFrame& frame) {
        parts_.tables->refresh();
        return parts_.fastPath->receiveLeft(frame);
    };
    const std::size_t taken = parts_.workers->takeLeft(visitor, budget);
    hasMore_ = hasMore_ || taken >= budget;
    return taken;
}

/// What workers may forward from now on they forward when all that they have left has been sent:
/// nobody's frames are overtaken by their own successors. They start once the labels are decided
/// that there are, after a second at the latest, and have their queues from then on.
void LiveRun::serveWorkers() {
    if (parts_.workers == nullptr || !hasBegun_) {
        return;
    }
    const bool hasMore = parts_.fastPath->decideAhead();
    hasMore_ = hasMore_ || hasMore;
    constexpr std::chrono::seconds longest{1};
    if (!hasMore || LinkSync::Clock::now() - begunAt_ >= longest) {
        parts_.workers->start([this] {
            settleLeft();
            followNeighbours(); // which frames that have come meanwhile may wait for
        });
    }
}

void LiveRun::followNeighbours() {
    parts_.links->solicit();
    parts_.links->receive();
    parts_.forwarder->settleWaiting(LinkSync::Clock::now());
}

/// Sends all that workers have left.
void LiveRun::settleLeft() {
    parts_.forwarder->settleWaiting(LinkSync::Clock::now()); // before later ones
    while (takeLeft(framesPerTurn) > 0) {
    }
    parts_.ports->flush();
}

void LiveRun::refresh() {
    parts_.betweenBursts();
    parts_.tables->refresh();
    if (parts_.pseudowires != nullptr) {
        parts_.pseudowires->refresh();
    }
    if (!refreshRoutes()) {
        hasMore_ = true;
        return;
    }
    hasRoutes_ = true;
}

/// Whether all of them have been taken over.
bool LiveRun::refreshRoutes() {
    if (parts_.ipRoutes == nullptr || parts_.ipRoutes->isUpToDate()) {
        return true;
    }
    const ForwardingGate::Closed closed(*parts_.gate);
    return parts_.ipRoutes->refresh();
}

void LiveRun::settle(const std::function<void(const std::string&)>& report) {
    const auto now = LinkSync::Clock::now();
    parts_.links->solicit();
    const bool mayBegin = hasRoutes_ && parts_.links->isComplete();
    const bool wasReady = std::exchange(isReady_, mayBegin && takesAllFrames());
    if (mayBegin && !hasBegun_) {
        hasBegun_ = true;
        begunAt_ = now;
        hasMore_ = true; // what has come before
    }
    if (now - checkedAt_ >= std::chrono::seconds(1) || isReady_ > wasReady) {
        checkedAt_ = now;
        parts_.ports->reopen();
        if (answersRequests()) {
            parts_.control->serve(); // clients that no descriptor was left for cause no event
        }
        if (isReady_ && parts_.carrier != nullptr) {
            parts_.carrier->hold();
        }
        const ForwardingGate::Closed closed(*parts_.gate);
        for (const std::string& news : parts_.ports->news()) {
            report(news);
        }
        parts_.service->statusIs(isReady_ ? parts_.status() : "waiting for links and tables");
        if (isReady_) {
            parts_.service->isReady();
        }
    }
    if (parts_.service->isDue(now) && (parts_.workers == nullptr || parts_.workers->haveTurned())) {
        parts_.service->feed(now);
    }
}

/// Whoever reads the numbers may take none: the next signal is not waited for.
void LiveRun::anotherSignalEnds() {
    signalfd_siginfo taken{};
    while (read(signals_.value(), &taken, sizeof taken) == ssize_t{sizeof taken}) {
    }
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    sigprocmask(SIG_UNBLOCK, &signals, nullptr);
}

/// False when the run ends.
bool LiveRun::takeSignals() {
    signalfd_siginfo taken{};
    while (waiting_[signalAt].revents != 0 &&
           read(signals_.value(), &taken, sizeof taken) == ssize_t{sizeof taken}) {
        if (taken.ssi_signo != SIGHUP) {
            return false;
        }
        parts_.service->isReloading();
        parts_.reloading->start();
    }
    return true;
}

} // namespace OvixAgent
