#pragma once

#include <algorithm>
#include <cassert>
#include <optional>
#include <vector>

#include "Lumo/IpGenAddr.h"
#include "State/HostSet.h"
#include "State/IpRoute.h"
#include "State/Ipv4Lookup.h"
#include "State/Ipv6Lookup.h"
#include "State/PrefixTable.h"

namespace OvixAgent {

/// The IP routes of one VRF, of both families. The longest prefix that matches is found in a lookup
/// table per family; a hash table for each prefix length in use has the prefixes themselves. A
/// learned route precedes the configured one of its prefix.
class Fib {
  public:
    /// Adds a configured route. False, with nothing done, when the prefix has a route already.
    bool insert(const Lumo::IpGenPrefix& prefix, IpRoute route);
    /// Adds a learned route, replacing the one learned before.
    void routeIs(const Lumo::IpGenPrefix& prefix, IpRoute route);
    /// Removes the learned route. False when there is none.
    bool routeDel(const Lumo::IpGenPrefix& prefix);

    /// The route of the longest prefix that the address lies in; null when there is none, as for an
    /// address of no family. Valid until the next insertion.
    const IpRoute* find(const Lumo::IpGenAddr& address) const noexcept;
    /// The number of that route, `noPrefix` when there is none. Until it is removed a route keeps
    /// its number; numbers are below numbers().
    std::uint32_t numberOf(const Lumo::IpGenAddr& address) const noexcept;
    /// The same of an IPv4 address, in network byte order.
    [[gnu::always_inline]] std::uint32_t numberOfIpv4(const std::uint8_t* address) const noexcept {
        return ipv4_.find(address);
    }
    /// The same in two steps, between which the memory may be loaded: null where there are no
    /// routes.
    const PrefixValue* placeOfIpv4(const std::uint8_t* address) const noexcept {
        return ipv4_.place(address);
    }
    std::uint32_t numberAt(const PrefixValue* place, const std::uint8_t* address) const noexcept {
        return ipv4_.findAt(place, address);
    }
    const IpRoute& route(std::uint32_t number) const noexcept {
        assert(number < routes_.size());
        return routes_[number].route;
    }
    std::size_t numbers() const noexcept { return routes_.size(); }
    /// Visits the numbers whose routes have changed since the last call, perhaps others, too. For
    /// one caller, who keeps something for each route.
    template <typename Visit>
    void takeChanged(const Visit& visit) {
        if (changed_.size() < mostChanged) [[likely]] {
            std::for_each(changed_.begin(), changed_.end(), visit);
        } else {
            for (std::uint32_t number = 0; number < routes_.size(); ++number) {
                visit(number);
            }
        }
        changed_.clear();
    }

    /// The route of the prefix of exactly this length that the address lies in, likewise.
    const IpRoute* find(const Lumo::IpGenAddr& address, unsigned length) const noexcept;

    /// A route as it is in use.
    struct Shown {
        Lumo::IpGenPrefix prefix;
        const IpRoute* route;
        bool isConfigured;
    };
    /// The route of a number below numbers(); unset when none has it, or another precedes it.
    std::optional<Shown> shownAt(std::uint32_t number) const noexcept;
    std::size_t size() const noexcept { return routes_.size() - free_.size(); }

    /// The addresses of this router, which as sources of what comes in only a forger uses, and the
    /// broadcast addresses of its subnets, which no packet comes from (RFC 1812 section 5.3.7).
    const HostSet& ownHosts() const noexcept { return ownHosts_; }
    void ownHostIs(const Lumo::IpGenAddr& address) { ownHosts_.insert(address); }

    /// Bytes of the lookup tables of both families.
    std::size_t lookupMemory() const noexcept { return ipv4_.memory() + ipv6_.memory(); }

  private:
    struct Place {
        IpRoute route;
        bool isConfigured;
        std::uint32_t covered; ///< index of the configured route that a learned one precedes
    };

    /// So many are noted one by one.
    static constexpr std::size_t mostChanged = 4096;

    std::uint32_t add(const Lumo::IpGenPrefix& prefix, Place place);
    void noteChanged(std::uint32_t number);
    void release(std::uint32_t at);
    void publish(const Lumo::IpGenPrefix& prefix, std::uint32_t at);
    void withdraw(const Lumo::IpGenPrefix& prefix);

    using Lengths = std::vector<PrefixTable>; ///< longest first

    Lengths& lengthsOf(const Lumo::IpGenAddr& address) noexcept;
    const Lengths& lengthsOf(const Lumo::IpGenAddr& address) const noexcept;
    PrefixTable& tableOf(const Lumo::IpGenPrefix& prefix);

    Lengths ipv4Prefixes_;
    Lengths ipv6Prefixes_;
    Ipv4Lookup ipv4_;
    Ipv6Lookup ipv6_;
    std::vector<Place> routes_;
    std::vector<Lumo::IpGenPrefix> prefixes_; ///< by number; of no family: none has it
    std::vector<std::uint32_t> free_;         ///< indices into routes_
    std::vector<std::uint32_t> changed_;      ///< numbers; when full, all may have
    HostSet ownHosts_;
};

} // namespace OvixAgent
