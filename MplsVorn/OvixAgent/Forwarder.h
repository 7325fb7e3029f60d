#pragma once

#include "Fate.h"
#include "Frame.h"
#include "LinkHeader.h"
#include "Neighbours.h"
#include "Ovix/PluginManager.h"
#include "PortTable.h"
#include "Summary.h"

namespace OvixAgent {

/// Takes frames one at a time down the road: parsed, routed by the plugin, rewritten, sent. Every
/// frame ends in one fate and is counted once; one bad frame never stops the next.
class Forwarder {
  public:
    /// The plugins behind `manager` must be active. Ports, neighbours and `cpu`, which takes punted
    /// frames, must outlive the forwarder.
    Forwarder(const Ptr<Ovix::PluginManager>& manager, PortTable& ports,
              const Neighbours& neighbours, TransmitPort& cpu);

    /// Throws CaptureError when an output cannot be written.
    void receive(const Frame& frame);

    /// Adds what has been counted: frames, fates and their reasons, ports and named counters.
    void addTo(Summary& summary) const;

    const Ptr<Ovix::OvixNamedCounters>& namedCounters() const noexcept { return counters_; }

  private:
    struct Egress {
        Port* port = nullptr;
        Lumo::EthAddr mac{};
    };

    Fate process(const Frame& frame);
    Fate route(const Frame& frame, const Ptr<Ovix::PacketContext>& packet,
               const ReceivedLink& link);
    Fate sendToAll(const Frame& frame, const Ptr<Ovix::RoutingContext>& context,
                   const ReceivedLink& link, const Ovix::RoutingNexthops& nexthops);
    Fate send(const Frame& frame, const Ptr<Ovix::RoutingContext>& context,
              const ReceivedLink& link, const Ovix::RoutingNexthop& nexthop);
    Fate rewrite(const Ptr<Ovix::RoutingContext>& context, const Ovix::RewriteInfos& infos) const;
    Fate findEgress(Ovix::PacketContext& packet, const Ovix::RoutingNexthop& nexthop,
                    Egress& egress);
    Fate transmit(const Frame& frame, const Ptr<Ovix::RoutingContext>& context,
                  const ReceivedLink& link, const Ovix::RoutingNexthop& nexthop,
                  const Egress& egress);
    void runCounterActions(const Ptr<Ovix::RoutingContext>& context,
                           const Ovix::RewriteInfos& infos) const;
    Fate byWhatWasCounted(FateKind kind, std::string_view otherwise) const noexcept;
    void account(const Fate& fate, const Frame& frame);
    Ptr<Ovix::PacketContext> takeBytes(const Frame& frame) const;

    Ptr<Ovix::RoutingHandler> mplsHandler_;
    Ptr<Ovix::RewriteInfoImplMap> rewrites_;
    Ptr<Ovix::RoutingVrfRoot> vrfRoot_;
    Ptr<Lumo::PktManager> packets_;
    PortTable* ports_;
    const Neighbours* neighbours_;
    TransmitPort* cpu_;

    Ptr<Ovix::OvixNamedCounters> counters_; ///< what the plugin counts
    Ptr<Ovix::OvixNamedCounters> fates_;    ///< one count per fate and reason
    Traffic in_;
    std::uint64_t replicas_ = 0;
};

} // namespace OvixAgent
