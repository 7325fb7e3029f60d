#pragma once

#include <vector>

#include "Config/ConfigTypes.h"
#include "State/IpRoute.h"
#include "State/PrefixTable.h"

namespace OvixAgent {

/// The IP routes of one VRF, of both families. The longest prefix that matches is found by asking
/// one hash table per prefix length in use, the longest first. A route that has been learned goes
/// before the configured one of its prefix, as long as there is one.
class Fib {
  public:
    /// Adds a configured route. False, with nothing done, when the prefix has a route already.
    bool insert(const IpPrefix& prefix, IpRoute route);
    /// Adds a learned route, in the place of the one learned before.
    void routeIs(const IpPrefix& prefix, IpRoute route);
    /// Takes the learned route away. False when there is none.
    bool routeDel(const IpPrefix& prefix);

    /// The route of the longest prefix that the address lies in; null when there is none, as for an
    /// address of no family. Good until the next insertion.
    const IpRoute* find(const Lumo::IpGenAddr& address) const noexcept;
    /// The route of the very prefix that has this length and the address lies in, likewise.
    const IpRoute* find(const Lumo::IpGenAddr& address, unsigned length) const noexcept;

  private:
    struct Place {
        IpRoute route;
        bool isConfigured;
        std::uint32_t covered; ///< place of the configured route that a learned one is before
    };

    std::uint32_t place(Place made);
    void giveBack(std::uint32_t at);

    using Lengths = std::vector<PrefixTable>; ///< longest first

    PrefixTable& tableOf(const IpPrefix& prefix);

    Lengths ipv4_;
    Lengths ipv6_;
    std::vector<Place> routes_;
    std::vector<std::uint32_t> free_; ///< places among the routes
};

} // namespace OvixAgent
