#include "nexthops/NextHopWatch.h"

#include <algorithm>
#include <utility>

#include "Tessel/Exceptions.h"
#include "nexthops/RouteAnswers.h"

namespace OvixFpm {

namespace {

constexpr std::size_t atOnce = 64;

} // namespace

NextHopWatch::NextHopWatch(RoutePublisher& routes, Settings settings, Log log)
    : routes_(&routes), settings_(std::move(settings)), log_(std::move(log)) {
    routes.missingAreAsked();
}

int NextHopWatch::timeoutMs() const {
    constexpr int whileEnding = 20;
    constexpr int whileRunning = 1000;
    if (run_) {
        return run_->descriptor() < 0 ? whileEnding : whileRunning;
    }
    if (!routes_->missing().isWaiting()) {
        return whileRunning;
    }
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(nextAt_ - Clock::now());
    return static_cast<int>(std::max<std::chrono::milliseconds::rep>(left.count(), 0));
}

void NextHopWatch::serve() {
    if (!run_ && routes_->missing().isWaiting() && Clock::now() >= nextAt_) {
        start();
    }
    if (!run_) {
        return;
    }
    if (const auto printed = run_->receive()) {
        run_.reset();
        take(*printed);
    }
}

void NextHopWatch::start() {
    asked_ = routes_->missing().waiting(last_, atOnce);
    if (asked_.empty()) { // all behind it are known by now
        last_.reset();
        asked_ = routes_->missing().waiting(last_, atOnce);
    }
    std::vector<std::string> command{settings_.vtysh, "-d", "zebra"};
    if (!settings_.socketDirectory.empty()) {
        command.insert(command.end(), {"--vty_socket", settings_.socketDirectory});
    }
    for (const L3::RouteKey& key : asked_) {
        const auto vrf = routes_->vrfOf(key.table); // unset: there is nothing to be had
        command.insert(command.end(), {"-c", routeQuestion(key, vrf ? vrf->view() : "default")});
    }
    run_.emplace(command, settings_.patience);
}

void NextHopWatch::take(const Tessel::Result<std::string>& printed) {
    const auto hops = printed
                          ? readRouteAnswers(printed.value(), asked_.size())
                          : Tessel::Result<std::vector<std::vector<NextHop>>>(printed.refused());
    if (!hops) {
        fail(hops.refused().what);
        return;
    }
    if (!std::exchange(answers_, true)) {
        log_({}, "zebra answers again");
    }
    try {
        routes_->begin();
        for (std::size_t i = 0; i < asked_.size(); ++i) {
            if (const auto done = routes_->nextHopsAre(asked_[i], hops.value()[i]); !done) {
                log_("next hops", text(Destination(asked_[i])) + ": " + done.refused().what);
            }
        }
        routes_->commit();
    } catch (const Tessel::TablesBusy& busy) {
        fail(busy.what());
        return;
    }
    last_ = asked_.back();
    if (routes_->missing().waiting(last_, 1).empty()) {
        last_.reset();
        nextAt_ = Clock::now() + settings_.every;
    }
}

void NextHopWatch::fail(const std::string& why) {
    nextAt_ = Clock::now() + settings_.every;
    if (std::exchange(answers_, false)) {
        log_("next hops", why + "; packets of IPv6 routes with labels need a link with one "
                                "neighbour until zebra says where they go");
    }
}

} // namespace OvixFpm
