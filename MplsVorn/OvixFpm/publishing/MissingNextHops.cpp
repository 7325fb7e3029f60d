#include "publishing/MissingNextHops.h"

#include <algorithm>

namespace OvixFpm {

namespace {

bool isMissing(const NextHop& hop) noexcept {
    return !hop.labels.empty() && !hop.hasGateway();
}

/// Whether all of them are known.
bool complete(std::vector<NextHop>& hops, const std::vector<NextHop>& known) {
    bool isWhole = true;
    for (NextHop& hop : hops) {
        if (!isMissing(hop)) {
            continue;
        }
        const auto same = std::find_if(known.begin(), known.end(), [&](const NextHop& other) {
            return other.interface == hop.interface && other.labels == hop.labels;
        });
        if (same != known.end()) {
            hop.gateway = same->gateway;
        }
        isWhole = isWhole && same != known.end();
    }
    return isWhole;
}

} // namespace

Route MissingNextHops::completed(const L3::RouteKey& key, const Route& route) {
    if (key.prefix.family() != Lumo::IpFamily::ipv6 ||
        std::none_of(route.nextHops.begin(), route.nextHops.end(), isMissing)) {
        forget(key);
        return route;
    }
    waiting_.insert_or_assign(key, route);
    Route made = route;
    if (const auto known = known_.find(key); known != known_.end()) {
        complete(made.nextHops, known->second);
    }
    return made;
}

std::optional<Route> MissingNextHops::shown(const L3::RouteKey& key,
                                            const std::vector<NextHop>& hops) {
    const auto found = waiting_.find(key);
    if (found == waiting_.end()) {
        return std::nullopt;
    }
    Route made = found->second;
    if (complete(made.nextHops, hops)) {
        waiting_.erase(found);
    }
    std::vector<NextHop>& known = known_[key];
    const bool isNew = known != made.nextHops;
    known = made.nextHops;
    return isNew ? std::optional(std::move(made)) : std::nullopt;
}

std::vector<L3::RouteKey> MissingNextHops::waiting(const std::optional<L3::RouteKey>& behind,
                                                   std::size_t most) const {
    std::vector<L3::RouteKey> keys;
    for (auto next = behind ? waiting_.upper_bound(*behind) : waiting_.begin();
         next != waiting_.end() && keys.size() < most; ++next) {
        keys.push_back(next->first);
    }
    return keys;
}

void MissingNextHops::forget(const L3::RouteKey& key) {
    waiting_.erase(key);
    known_.erase(key);
}

} // namespace OvixFpm
