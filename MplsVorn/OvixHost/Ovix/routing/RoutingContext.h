#pragma once

#include <cstdint>

#include "Lumo/IntfId.h"
#include "Ovix/packet/PacketContext.h"
#include "Ovix/routing/RoutingNexthop.h"
#include "Ovix/trace/NamedCounters.h"
#include "Tessel/Ptr.h"
#include "Tessel/Slab.h"

namespace Ovix {

/// Everything the agent knows about the frame being routed.
class RoutingContext final : public Tessel::Counted, public Tessel::Slabbed<RoutingContext> {
  public:
    /// `counters` may be empty: then nothing is counted. `ingress` is the interface that the frame
    /// came in on.
    RoutingContext(std::uint64_t packetId, Ptr<PacketContext> packetContext,
                   Ptr<OvixNamedCounters> counters, Lumo::IntfId ingress = {}) noexcept
        : packetId_(packetId), packetContext_(std::move(packetContext)),
          namedCounters_(std::move(counters)), ingress_(ingress) {}

    /// Names the frame in trace lines.
    std::uint64_t packetId() const noexcept { return packetId_; }
    const Ptr<PacketContext>& packetContext() const noexcept { return packetContext_; }
    const Ptr<OvixNamedCounters>& namedCounters() const noexcept { return namedCounters_; }
    Lumo::IntfId ingressIntfId() const noexcept { return ingress_; }

    /// Notes pops of labels that have others beneath them, from the top. A plugin that ends with
    /// them, without a next hop or an event after them, leaves the rest of the stack to another
    /// pass of the agent: the labels end at this router, which is its own next hop (RFC 3031
    /// section 3.10).
    void popIsPending(const RewriteInfos& pop);
    /// Makes the pending pops part of the frame's rewrites, before those of any next hop. Returns
    /// how many there were.
    std::size_t terminatePopped();

    /// Whether the label on top lies right beneath one that has ended at this router.
    bool isBeneathTerminated() const noexcept { return terminated_ && !pending_; }

    /// The pops of the labels that have ended at this router; null: none.
    const Ptr<RewriteInfos>& terminated() const noexcept { return terminated_; }
    void terminatedAre(const Ptr<RewriteInfos>& pops) noexcept { terminated_ = pops; }

  private:
    std::uint64_t packetId_;
    Ptr<PacketContext> packetContext_;
    Ptr<OvixNamedCounters> namedCounters_;
    Lumo::IntfId ingress_;
    Ptr<RewriteInfos> pending_;
    Ptr<RewriteInfos> terminated_;
};

/// The result of routing one frame: no next hop drops it, a CPU-trap next hop punts it.
class RoutingOutput final : public Tessel::Counted, public Tessel::Slabbed<RoutingOutput> {
  public:
    RoutingOutput() : nexthops_(Tessel::make<RoutingNexthops>()) {}

    const Ptr<RoutingNexthops>& nexthops() const noexcept { return nexthops_; }

  private:
    Ptr<RoutingNexthops> nexthops_;
};

/// The root of the agent's VRF routing tables.
class RoutingVrfRoot : public Tessel::Counted {};

} // namespace Ovix

extern template class Tessel::Slabbed<Ovix::RoutingContext>;
extern template class Tessel::Slabbed<Ovix::RoutingOutput>;
