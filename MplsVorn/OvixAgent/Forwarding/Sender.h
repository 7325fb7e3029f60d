#pragma once

#include <functional>

#include "Forwarding/EgressLookup.h"
#include "Forwarding/WaitingPackets.h"
#include "Ip/IpFragments.h"
#include "Ovix/plugin/PluginManager.h"
#include "Recorder/FrameRecorder.h"
#include "State/Fate.h"
#include "State/Frame.h"
#include "State/LinkHeader.h"

namespace OvixAgent {

struct Outgoing;

/// The sending half of the path: the next hop's rewrites, the egress, the MTU, the link header, the
/// port, and the counter actions of what was sent. A packet whose neighbour is being resolved
/// waits. An IPv4 packet that exceeds the egress MTU is fragmented unless it has DF set, also one
/// whose labels were popped here (RFC 1812 section 4.2.2.7).
class Sender {
  public:
    using Clock = std::chrono::steady_clock;
    /// Is given the fate of a packet that has waited, and the frame that it was received in.
    using Settled = std::function<void(const Fate& fate, const Frame& frame)>;

    /// The plugins behind `manager` must be active.
    Sender(const Ptr<Ovix::PluginManager>& manager, EgressLookup egress, Settled settled);

    /// The packet of `context` starts behind the link header of the received `frame`; `tags` are
    /// that header's. A packet that waits counts as forwarded until it is settled. Throws
    /// CaptureError when an output cannot be written.
    Fate send(const Frame& frame, const Ptr<Ovix::RoutingContext>& context, const VlanTags& tags,
              const Ovix::RoutingNexthop& nexthop);

    /// Sends the packets whose neighbours are known by now, and drops those whose neighbours have
    /// failed or are overdue.
    void settleWaiting(Clock::time_point now);

    /// Where the packet sent last would leave, as far as that was found.
    const RecordedVia& via() const noexcept { return via_; }
    void forgetVia() noexcept { via_ = {}; }

    std::size_t waiting() const noexcept { return waiting_.size(); }
    std::size_t wantedNeighbours() const noexcept { return waiting_.neighbours(); }

    /// Fragments beyond the first of each packet, all of which are counted as forwarded.
    std::uint64_t furtherFragments() const noexcept { return furtherFragments_; }

  private:
    static Fate applyIpHop(const Outgoing& outgoing);
    Fate find(Outgoing& outgoing);
    RecordedVia viaOf(const Egress& egress) const noexcept;
    Fate rewrite(const Outgoing& outgoing) const;
    Fate apply(const Ovix::RewriteInfos& rewrites, const Ptr<Ovix::RoutingContext>& context) const;
    Fate wait(const Outgoing& outgoing);
    Solicits::Verdict want(const Outgoing& outgoing) const;
    Fate settle(const WaitingPacket& packet);
    void reportIfUndelivered(const Frame& frame, const Egress& egress, const Fate& fate) const;
    Fate transmit(const Outgoing& outgoing);
    static bool fitsWithoutTrailer(const Outgoing& outgoing, std::uint32_t mtu);
    Fate transmitTooBig(const Outgoing& outgoing, std::uint32_t mtu);
    Fate transmitFragments(const Outgoing& outgoing, const IpFragments& fragments);
    Fate dropTooBig(const Outgoing& outgoing, std::uint32_t mtu) const;
    void runCounterActions(const Outgoing& outgoing) const;

    Ptr<Ovix::RewriteInfoImplMap> rewrites_;
    Ptr<Ovix::MtuExceptionHandler> mplsMtuExceptions_;
    EgressLookup egress_;
    Settled settled_;
    WaitingPackets waiting_;
    RecordedVia via_;
    std::uint64_t furtherFragments_ = 0;
};

} // namespace OvixAgent
