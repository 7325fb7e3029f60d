#pragma once

#include <vector>

#include "ConfigTypes.h"
#include "IpRoute.h"
#include "PrefixTable.h"

namespace OvixAgent {

/// The IP routes of one VRF, of both families. The longest prefix that matches is found by asking
/// one hash table per prefix length in use, the longest first.
class Fib {
  public:
    /// False, with nothing done, when the prefix has a route already.
    bool insert(const IpPrefix& prefix, IpRoute route);
    /// In the place of the prefix' route, if it has one.
    void routeIs(const IpPrefix& prefix, IpRoute route);
    /// False when there is no such route.
    bool routeDel(const IpPrefix& prefix);

    /// The route of the longest prefix that the address lies in; null when there is none, as for an
    /// address of no family. Good until the next insertion.
    const IpRoute* find(const Lumo::IpGenAddr& address) const noexcept;

  private:
    std::uint32_t place(IpRoute route);

    using Lengths = std::vector<PrefixTable>; ///< longest first

    static PrefixTable& tableOf(Lengths& lengths, unsigned length);

    Lengths ipv4_;
    Lengths ipv6_;
    std::vector<IpRoute> routes_;
    std::vector<std::uint32_t> free_; ///< places among the routes
};

} // namespace OvixAgent
