#pragma once

#include "Forwarding/FrameAccounts.h"
#include "Forwarding/FrameIntake.h"
#include "Forwarding/PluginHost.h"
#include "Forwarding/Sender.h"
#include "Ovix/plugin/PluginManager.h"
#include "State/ForwardingTables.h"
#include "State/Frame.h"
#include "State/LinkHeader.h"

namespace OvixAgent {

/// Processes frames one at a time: parses them, has them routed by the plugin, rewrites and sends
/// them. Every frame has one fate and is counted once; a bad frame never stops the next.
class Forwarder {
  public:
    /// The plugins behind `manager` must be active. The tables and `cpu`, which punted frames are
    /// sent to, must outlive the forwarder.
    Forwarder(const Ptr<Ovix::PluginManager>& manager, ForwardingTables& tables, TransmitPort& cpu);

    /// Throws CaptureError when an output cannot be written, and Tessel::SnapshotLost when the
    /// tables must be refreshed first; the frame is then to be passed again.
    void receive(const Frame& frame);

    /// Sends or drops packets that have waited for a neighbour; to be called between frames. At the
    /// end of time it drops all that are left.
    void settleWaiting(Sender::Clock::time_point now) { sender_.settleWaiting(now); }

    /// Is called with the fate of each packet that has waited, and its frame.
    void settledIs(Sender::Settled listener) { settled_ = std::move(listener); }

    /// Neighbours that packets wait for.
    std::size_t wantedNeighbours() const noexcept { return sender_.wantedNeighbours(); }

    /// Sets frames, fates and their reasons, ports and named counters.
    void addTo(Summary& summary) const;

    /// What has been counted of frames, for the growth of it.
    struct Counts {
        std::uint64_t in = 0;
        std::uint64_t replicas = 0;
        Traffic forwarded;
        std::vector<std::uint64_t> fates;
    };
    Counts counts() const;
    /// Frames, replicas, fates and their reasons since the counts were these; forwarded ones of all
    /// ports together.
    Summary growthSince(const Counts& before) const;

    const FrameRecorder& recorder() const noexcept { return accounts_.recorder(); }
    FrameAccounts& accounts() noexcept { return accounts_; }
    /// Of the frame received last, or of a copy of it: the last one that was not forwarded.
    const Fate& lastFate() const noexcept { return lastFate_; }

    const Ptr<Ovix::OvixNamedCounters>& namedCounters() const noexcept {
        return accounts_.counters();
    }

  private:
    Fate process(const Frame& received);
    Fate dispatch(const Frame& frame, const Ptr<Ovix::PacketContext>& packet);
    Fate route(const Frame& frame, const Ptr<Ovix::PacketContext>& packet, const ReceivedLink& link,
               const Ptr<Ovix::RoutingHandler>& handler);
    /// Has the labels beneath those that end here routed, pass by pass.
    void routeBeneath(const Ptr<Ovix::RoutingOutput>& output,
                      const Ptr<Ovix::RoutingContext>& context, Ptr<Ovix::PacketHeader> labels,
                      Ovix::RoutingHandler& handler);
    Fate withoutNexthop(const Ovix::RoutingContext& context) const noexcept;
    Fate routeLabels(const Frame& frame, const Ptr<Ovix::PacketContext>& packet,
                     const ReceivedLink& link);
    Fate routeIp(const Frame& frame, const Ptr<Ovix::PacketContext>& packet,
                 const ReceivedLink& link, const Ptr<Ovix::RoutingHandler>& handler);
    Fate sendOverPseudowire(const Frame& frame, const Ptr<Ovix::PacketContext>& packet,
                            Pseudowire& pseudowire);
    Fate sendToAll(const Frame& frame, const Ptr<Ovix::RoutingContext>& context,
                   const ReceivedLink& link, const Ovix::RoutingNexthops& nexthops);
    Fate send(const Frame& frame, const Ptr<Ovix::RoutingContext>& context,
              const ReceivedLink& link, const Ovix::RoutingNexthop& nexthop);
    void account(const Fate& fate, const Frame& frame);
    Fate count(const Fate& fate, const Frame& frame);
    Ptr<Ovix::PacketContext> newPacket(const Frame& frame) const;
    Ptr<Ovix::RoutingContext> contextOf(const Frame& frame,
                                        const Ptr<Ovix::PacketContext>& packet) const;
    Ptr<Ovix::RoutingContext> copyOf(const Ovix::RoutingContext& context, const Frame& frame) const;

    FrameIntake intake_;
    Ptr<Ovix::RoutingHandler> mplsHandler_;
    Ptr<Ovix::RoutingHandler> ipv4Handler_;
    Ptr<Ovix::RoutingHandler> ipv6Handler_;
    Sender sender_;
    Sender::Settled settled_ = [](const Fate&, const Frame&) {};
    InputSteps inputSteps_;
    Ptr<Lumo::PktManager> packets_;
    ForwardingTables* tables_;
    TransmitPort* cpu_;
    CurrentFrame current_;
    Fate lastFate_;
    FrameAccounts accounts_;
};

} // namespace OvixAgent
