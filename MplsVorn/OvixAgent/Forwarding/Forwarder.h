#pragma once

#include "Forwarding/PluginHost.h"
#include "Forwarding/Sender.h"
#include "Ovix/plugin/PluginManager.h"
#include "State/Fate.h"
#include "State/ForwardingTables.h"
#include "State/Frame.h"
#include "State/LinkHeader.h"
#include "Summary/Summary.h"

namespace OvixAgent {

/// Takes frames one at a time down the road: parsed, routed by the plugin, rewritten, sent. Every
/// frame ends in one fate and is counted once; one bad frame never stops the next.
class Forwarder {
  public:
    /// The plugins behind `manager` must be active. The tables and `cpu`, which takes punted
    /// frames, must outlive the forwarder.
    Forwarder(const Ptr<Ovix::PluginManager>& manager, ForwardingTables& tables, TransmitPort& cpu);

    /// Throws CaptureError when an output cannot be written, and Tessel::SnapshotLost when the
    /// label tables have to be refreshed first; then the frame has not been taken.
    void receive(const Frame& frame);

    /// Adds what has been counted: frames, fates and their reasons, ports and named counters.
    void addTo(Summary& summary) const;

    const Ptr<Ovix::OvixNamedCounters>& namedCounters() const noexcept { return counters_; }

  private:
    Fate process(const Frame& received);
    Fate takeIn(const Frame& frame, const Ptr<Ovix::PacketContext>& packet);
    void takeUp(const Ovix::PacketContext& modified);
    Fate route(const Frame& frame, const Ptr<Ovix::PacketContext>& packet, const ReceivedLink& link,
               const Ptr<Ovix::RoutingHandler>& handler);
    Fate routeIp(const Frame& frame, const Ptr<Ovix::PacketContext>& packet,
                 const ReceivedLink& link, const Ptr<Ovix::RoutingHandler>& handler);
    Fate sendOverPseudowire(const Frame& frame, const Ptr<Ovix::PacketContext>& packet,
                            Pseudowire& pseudowire);
    Fate sendToAll(const Frame& frame, const Ptr<Ovix::RoutingContext>& context,
                   const ReceivedLink& link, const Ovix::RoutingNexthops& nexthops);
    Fate send(const Frame& frame, const Ptr<Ovix::RoutingContext>& context,
              const ReceivedLink& link, const Ovix::RoutingNexthop& nexthop);
    void countDelivered(std::size_t nexthops);
    Fate byWhatWasCounted(FateKind kind, std::string_view otherwise) const noexcept;
    void account(const Fate& fate, const Frame& frame);
    Ptr<Ovix::PacketContext> takeBytes(const Frame& frame) const;
    Ptr<Ovix::RoutingContext> copyOf(const Ovix::RoutingContext& context, const Frame& frame) const;

    Ptr<Ovix::RoutingHandler> mplsHandler_;
    Ptr<Ovix::RoutingHandler> ipv4Handler_;
    Ptr<Ovix::RoutingHandler> ipv6Handler_;
    Sender sender_;
    Ptr<Ovix::AllGenericPipelineSteps> inputSteps_;
    Ptr<Lumo::PktManager> packets_;
    ForwardingTables* tables_;
    TransmitPort* cpu_;
    FrameInHand inHand_;
    Frame modified_; ///< in hand once an input step has put another packet in the frame's place
    std::vector<std::uint8_t> modifiedBytes_;

    Ptr<Ovix::OvixNamedCounters> counters_; ///< what the plugin counts
    Ptr<Ovix::OvixNamedCounters> fates_;    ///< one count per fate and reason
    Traffic in_;
    std::uint64_t replicas_ = 0;
};

} // namespace OvixAgent
