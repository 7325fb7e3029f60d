#include "nexthops/NextHopWatch.h"

#include <utility>

#include "Tessel/Exceptions.h"
#include "nexthops/RouteAnswers.h"

namespace OvixFpm {

namespace {

constexpr std::size_t atOnce = 64;

} // namespace

NextHopWatch::NextHopWatch(RoutePublisher& routes, Settings settings, Log log)
    : VtyshWatch("zebra", std::move(settings)), routes_(&routes), log_(std::move(log)) {
    routes.missingAreAsked();
}

std::vector<std::string> NextHopWatch::questions() {
    asked_ = routes_->missing().waiting(last_, atOnce);
    if (asked_.empty()) { // all behind it are known by now
        last_.reset();
        asked_ = routes_->missing().waiting(last_, atOnce);
    }
    std::vector<std::string> questions;
    for (const L3::RouteKey& key : asked_) {
        const auto vrf = routes_->vrfOf(key.table); // unset: there is nothing to be had
        questions.push_back(routeQuestion(key, vrf ? vrf->view() : "default"));
    }
    return questions;
}

void NextHopWatch::take(const Tessel::Result<std::string>& printed) {
    if (!printed) {
        fail(printed.refused().what);
        return;
    }
    const auto hops = readRouteAnswers(printed.value(), asked_.size());
    if (!hops) {
        fail(hops.refused().what);
        return;
    }
    if (!std::exchange(answers_, true)) {
        log_({}, "zebra answers again");
    }
    try {
        publish(hops.value());
    } catch (const Tessel::TablesBusy& busy) {
        log_("next hops", busy.what()); // asked for again before long
    } catch (const std::exception& refused) {
        routes_->discard();
        log_("next hops", std::string(refused.what()) + "; the routes stay as they are");
    }
}

void NextHopWatch::publish(const std::vector<std::vector<NextHop>>& hops) {
    routes_->begin();
    for (std::size_t i = 0; i < asked_.size(); ++i) {
        if (const auto done = routes_->nextHopsAre(asked_[i], hops[i]); !done) {
            log_("next hops", text(Destination(asked_[i])) + ": " + done.refused().what);
        }
    }
    routes_->commit();
    last_ = asked_.back();
    if (routes_->missing().waiting(last_, 1).empty()) {
        last_.reset();
    } else {
        askAtOnce();
    }
}

void NextHopWatch::fail(const std::string& why) {
    if (std::exchange(answers_, false)) {
        log_("next hops", why + "; packets of IPv6 routes with labels need a link with one "
                                "neighbour until zebra says where they go");
    }
}

} // namespace OvixFpm
