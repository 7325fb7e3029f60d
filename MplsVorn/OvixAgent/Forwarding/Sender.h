#pragma once

#include "Forwarding/EgressLookup.h"
#include "Ip/IpFragments.h"
#include "Ovix/plugin/PluginManager.h"
#include "State/Fate.h"
#include "State/Frame.h"
#include "State/LinkHeader.h"

namespace OvixAgent {

/// The sending half of the path: the next hop's rewrites, the egress, the MTU, the link header, the
/// port, and the counter actions of what was sent. An unlabelled IPv4 packet that exceeds the
/// egress MTU is fragmented unless it has DF set.
class Sender {
  public:
    /// The plugins behind `manager` must be active.
    Sender(const Ptr<Ovix::PluginManager>& manager, EgressLookup egress);

    /// The packet of `context` starts behind the link header of the received `frame`; `tags` are
    /// that header's. Throws CaptureError when an output cannot be written.
    Fate send(const Frame& frame, const Ptr<Ovix::RoutingContext>& context, const VlanTags& tags,
              const Ovix::RoutingNexthop& nexthop);

    /// Fragments beyond the first of each packet, all of which are counted as forwarded.
    std::uint64_t furtherFragments() const noexcept { return furtherFragments_; }

  private:
    struct Outgoing;

    static Fate applyIpHop(const Outgoing& outgoing);
    Fate rewrite(const Outgoing& outgoing) const;
    Fate transmit(const Outgoing& outgoing);
    Fate transmitTooBig(const Outgoing& outgoing, std::uint32_t mtu);
    Fate transmitFragments(const Outgoing& outgoing, const IpFragments& fragments);
    Fate dropTooBig(const Outgoing& outgoing, std::uint32_t mtu) const;
    void runCounterActions(const Outgoing& outgoing) const;

    Ptr<Ovix::RewriteInfoImplMap> rewrites_;
    Ptr<Ovix::MtuExceptionHandler> mplsMtuExceptions_;
    EgressLookup egress_;
    std::uint64_t furtherFragments_ = 0;
};

} // namespace OvixAgent
