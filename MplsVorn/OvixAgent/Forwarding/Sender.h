#pragma once

#include "Forwarding/EgressLookup.h"
#include "Ip/IpFragments.h"
#include "Ovix/plugin/PluginManager.h"
#include "State/Fate.h"
#include "State/Frame.h"
#include "State/LinkHeader.h"

namespace OvixAgent {

/// The sending half of the road: the next hop's rewrites, the way out, the MTU, the link header,
/// the port, and the counter actions of what has left. What came as an IPv4 packet and is too big
/// for its way out leaves in fragments, if its source lets it.
class Sender {
  public:
    /// The plugins behind `manager` must be active.
    Sender(const Ptr<Ovix::PluginManager>& manager, EgressLookup egress);

    /// The packet of `context` starts behind the link header that `frame` came with, of which
    /// `tags` are left. Throws CaptureError when an output cannot be written.
    Fate send(const Frame& frame, const Ptr<Ovix::RoutingContext>& context, const VlanTags& tags,
              const Ovix::RoutingNexthop& nexthop);

    /// Fragments beyond the first of their packet, each of which is counted as forwarded.
    std::uint64_t furtherFragments() const noexcept { return furtherFragments_; }

  private:
    static Fate takeIpHop(const Ptr<Ovix::RoutingContext>& context, const Egress& egress);
    Fate rewrite(const Ptr<Ovix::RoutingContext>& context, const Ovix::RewriteInfos& infos) const;
    Fate refuseTooBig(const Frame& frame, const Ptr<Ovix::RoutingContext>& context,
                      const VlanTags& tags, const Ovix::RoutingNexthop& nexthop,
                      const Egress& egress, std::uint32_t mtu) const;
    Fate transmit(const Frame& frame, const Ptr<Ovix::RoutingContext>& context,
                  const VlanTags& tags, const Ovix::RoutingNexthop& nexthop, const Egress& egress);
    Fate transmitTooBig(const Frame& frame, const Ptr<Ovix::RoutingContext>& context,
                        const VlanTags& tags, const Ovix::RoutingNexthop& nexthop,
                        const Egress& egress, std::uint32_t mtu);
    Fate transmitFragments(const Frame& frame, const Ovix::PacketContext& whole,
                           const VlanTags& tags, const Ovix::RoutingNexthop& nexthop,
                           const Egress& egress, const IpFragments& fragments);
    void runCounterActions(const Ptr<Ovix::RoutingContext>& context,
                           const Ovix::RewriteInfos& infos) const;

    Ptr<Ovix::RewriteInfoImplMap> rewrites_;
    Ptr<Ovix::MtuExceptionHandler> mplsMtuExceptions_;
    EgressLookup egress_;
    std::uint64_t furtherFragments_ = 0;
};

} // namespace OvixAgent
