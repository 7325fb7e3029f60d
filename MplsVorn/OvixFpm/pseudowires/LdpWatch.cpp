#include "pseudowires/LdpWatch.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "Tessel/Exceptions.h"
#include "pseudowires/LdpReading.h"

namespace OvixFpm {

using L2::Pseudowire;
using Mpls::TableId;

namespace {

/// The route of a pseudowire's own label.
Tessel::Result<Mpls::LabelRoute> routeOf(const Pseudowire& pseudowire,
                                         Mpls::TablePublisher& tables) {
    Mpls::ViaOptions options;
    options.intf = tables.interfaces().intfId(pseudowire.circuit);
    options.payload = Mpls::PayloadType::ethernet;
    options.controlWord = pseudowire.controlWord;
    const auto via = Mpls::Via::pop(options);
    if (!via) {
        return via.refused();
    }
    Mpls::LabelRoute route;
    route.table = TableId::pseudowireLfib;
    route.label = Lumo::MplsLabel(pseudowire.localLabel);
    route.owner = Mpls::RouteOwner::pseudowires;
    route.vias = {{via.value(), 1}};
    return route;
}

const Pseudowire* named(const std::vector<Pseudowire>& all, const std::string& name) {
    const auto found = std::find_if(all.begin(), all.end(),
                                    [&](const Pseudowire& other) { return other.name == name; });
    return found != all.end() ? &*found : nullptr;
}

} // namespace

LdpWatch::LdpWatch(RoutePublisher& routes, const Settings& settings, Log log)
    : VtyshWatch("ldpd", settings), routes_(&routes), keptFor_(settings.keptFor),
      log_(std::move(log)) {}

std::vector<std::string> LdpWatch::questions() {
    return ldpQuestions();
}

void LdpWatch::take(const Tessel::Result<std::string>& printed) {
    if (!printed) {
        takeFailure(printed.refused().what);
        return;
    }
    const auto all = readLdp(printed.value());
    if (!all) {
        takeFailure(all.refused().what);
        return;
    }
    answeredAt_ = Clock::now();
    if (!std::exchange(answers_, true)) {
        log_({}, "ldpd answers again");
    }
    withTables([&] { publish(confirmed(all.value())); });
}

/// While its tunnel moves, either end calls a pseudowire down for some milliseconds, though its
/// labels stand and agents know of the tunnel from the routes. So one that was up has to be down in
/// two answers.
std::vector<Pseudowire> LdpWatch::confirmed(std::vector<Pseudowire> all) {
    constexpr std::chrono::milliseconds soon{200};
    const std::vector<Pseudowire> before = routes_->tables().pseudowires().all();
    const std::vector<std::string> wereDoubted = std::exchange(doubted_, {});
    for (Pseudowire& pseudowire : all) {
        const Pseudowire* const was = named(before, pseudowire.name);
        if (pseudowire.state == Pseudowire::State::down && was != nullptr && was->isUp() &&
            was->localLabel == pseudowire.localLabel &&
            was->remoteLabel == pseudowire.remoteLabel &&
            std::find(wereDoubted.begin(), wereDoubted.end(), pseudowire.name) ==
                wereDoubted.end()) {
            doubted_.push_back(pseudowire.name);
            pseudowire = *was;
        }
    }
    if (!doubted_.empty()) {
        askWithin(soon);
    }
    return all;
}

/// When other writers have the tables, ldpd is asked again before long.
void LdpWatch::withTables(const std::function<void()>& change) {
    try {
        routes_->begin();
        change();
        routes_->commit();
    } catch (const Tessel::TablesBusy& busy) {
        log_("pseudowires", busy.what());
    } catch (const std::exception& refused) {
        routes_->discard();
        log_("pseudowires", std::string(refused.what()) + "; the pseudowires stay as they are");
    }
}

/// A daemon that is restarted soon keeps its pseudowires meanwhile, as its routes are kept.
void LdpWatch::takeFailure(const std::string& why) {
    if (std::exchange(answers_, false)) {
        log_("pseudowires", why + "; the pseudowires stay as they are");
    }
    if (Clock::now() - answeredAt_ < keptFor_) {
        return;
    }
    withTables([&] {
        std::vector<Pseudowire> all = routes_->tables().pseudowires().all();
        for (Pseudowire& pseudowire : all) {
            pseudowire.state = Pseudowire::State::noDaemon;
            pseudowire.why = why.substr(0, Pseudowire::maxText);
        }
        publish(all);
    });
}

void LdpWatch::publish(const std::vector<Pseudowire>& all) {
    const std::vector<Pseudowire> before = routes_->tables().pseudowires().all();
    if (all != before) {
        publishLabels(before, all);
        routes_->tables().pseudowires().pseudowiresAre(all);
        report(before, all);
    }
}

void LdpWatch::publishLabels(const std::vector<Pseudowire>& before,
                             const std::vector<Pseudowire>& after) {
    Mpls::LabelRoutes& routes = routes_->tables().labelRoutes();
    for (const Pseudowire& gone : before) {
        if (gone.isUp() && gone.localLabel <= Lumo::MplsLabel::max) {
            routes.routeDel(TableId::pseudowireLfib, Lumo::MplsLabel(gone.localLabel),
                            Mpls::RouteOwner::pseudowires);
        }
    }
    for (const Pseudowire& pseudowire : after) {
        if (!pseudowire.isUp()) {
            continue;
        }
        const auto route = routeOf(pseudowire, routes_->tables());
        const auto done = route ? routes.routeIs(route.value()) : route.refused();
        if (!done) {
            throw std::runtime_error(pseudowire.name + ": " + done.refused().what);
        }
    }
}

void LdpWatch::report(const std::vector<Pseudowire>& before,
                      const std::vector<Pseudowire>& after) const {
    for (const Pseudowire& pseudowire : after) {
        const Pseudowire* const was = named(before, pseudowire.name);
        if (was == nullptr || was->state != pseudowire.state ||
            was->remoteLabel != pseudowire.remoteLabel) {
            log_("pseudowires", "pseudowire " + pseudowire.name + " to " +
                                    pseudowire.neighbour.text() + ": " +
                                    Tessel::textOf(pseudowire.state) +
                                    (pseudowire.why.empty() ? "" : " (" + pseudowire.why + ")"));
        }
    }
    for (const Pseudowire& pseudowire : before) {
        if (named(after, pseudowire.name) == nullptr) {
            log_("pseudowires", "pseudowire " + pseudowire.name + " is removed");
        }
    }
}

} // namespace OvixFpm
