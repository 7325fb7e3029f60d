#pragma once

#include <map>
#include <optional>
#include <vector>

#include "decoding/Routes.h"

namespace OvixFpm {

/// The next hops that zebra leaves out of its messages: the IPv4 ones of IPv6 routes with labels
/// (RFC 4798, RFC 4659). What is known of a route is kept for when it is announced again.
class MissingNextHops {
  public:
    /// The route with the next hops that are known. When it lacks some, they are to be asked for,
    /// also where some are known: they may be other ones by now.
    Route completed(const L3::RouteKey& key, const Route& route);
    /// The route with what zebra shows as its next hops: they have the interface and the labels of
    /// those that it lacks. Unset when it is not waited for, or when they are known already.
    std::optional<Route> shown(const L3::RouteKey& key, const std::vector<NextHop>& hops);

    /// The first routes behind a key, or of all, that are waited for.
    std::vector<L3::RouteKey> waiting(const std::optional<L3::RouteKey>& behind,
                                      std::size_t most) const;
    bool isWaiting() const noexcept { return !waiting_.empty(); }

    /// The route is withdrawn.
    void forget(const L3::RouteKey& key);
    /// All routes are announced again before they are asked for.
    void waitForNone() noexcept { waiting_.clear(); }

  private:
    std::map<L3::RouteKey, Route> waiting_; ///< as zebra has announced them
    std::map<L3::RouteKey, std::vector<NextHop>> known_;
};

} // namespace OvixFpm
