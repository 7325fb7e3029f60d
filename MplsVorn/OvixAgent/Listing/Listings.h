#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "Control/ControlServer.h"
#include "Published/PublishedTables.h"
#include "Recorder/FrameRecorder.h"
#include "State/ForwardingTables.h"
#include "Summary/Summary.h"
#include "Tessel/Result.h"
#include "Trace/LiveTrace.h"

namespace OvixAgent {

// What an agent has, entry by entry as JSON objects, for requests at its control socket. Each
// entry is as it is when its turn comes. The tables must outlive a listing, and may change.

/// What only the ports of a live run know.
struct LiveState {
    bool isOpen = true;
    std::string problem; ///< why it is not open, or down
    Traffic received;
    double perSecond = 0;        ///< frames received, of late
    std::uint64_t ringDrops = 0; ///< frames for which there was no room
    std::size_t ringFrames = 0;  ///< that there is room for; 0: not known
    /// What came to a worker's queue of the port.
    struct Queue {
        std::uint64_t received = 0;
        double perSecond = 0;
        std::uint64_t ringDrops = 0;
    };
    std::vector<Queue> queues; ///< by worker; none without workers
};
/// Unset for a run on captures.
using LiveStateOf = std::function<LiveState(PortIndex)>;

/// {"name", "kind", "state", "problem", "mac", "mtu", "vrf", "addresses", "parent", "vlans",
///  "mpls", "received", "receivedBytes", "perSecond", "ring": {"frames", "drops"}, "queues":
///  [{"received", "perSecond", "drops"}], "sent": {"frames", "bytes"}}; the queues are those of
/// workers. "kind", "received", "receivedBytes", "perSecond" and "ring" are null in a run on
/// captures, the last four for sub-interfaces, whose parents have theirs, too.
Listing portListing(const ForwardingTables& tables, LiveStateOf live);

/// {"address", "port", "mac", "configured"}. One that is there all the time may come twice when
/// neighbours are added meanwhile.
Listing neighbourListing(const ForwardingTables& tables);

/// {"id", "nexthops": [{"nexthop", "port", "weight"}]}
Listing fecListing(const ForwardingTables& tables);

/// {"name", "routes", "ports"}
Listing vrfListing(const ForwardingTables& tables);

/// {"vrf", "prefix", "kind", "reason", "configured", "vias": [{"nexthop", "port", "weight",
///  "labels"}]} of one VRF, or of all for an empty name.
Listing routeListing(const ForwardingTables& tables, const std::string& vrf);

/// {"name", "circuit", "state", "why", "signalled", "neighbour", "id", "localLabel", "remoteLabel",
///  "controlWord", "localMtu", "remoteMtu", "tunnel": [{"port", "nexthop", "labels"}],
///  "sent", "delivered": {"frames", "bytes"}}; those that nothing is sent through, too.
Listing pseudowireListing(const ForwardingTables& tables);

/// The labels' traffic by label, {"label", "packets", "bytes"}; and those with most packets first.
/// What is counted meanwhile may be in it.
Listing labelListing(const Counter::PktCounterCollectionHolder& holder);
Listing topLabelListing(const Counter::PktCounterCollectionHolder& holder, std::size_t most);

/// The vias of the labels that have several, from a label on, {"label", "table", "multicast",
/// "vias": [{"port", "nexthop", "labels", "fec", "weight"}]}, at most `most` of them and of the
/// first 16,384 labels with a route that it meets; then {"next": LABEL} where there is more to be
/// looked at.
Listing weightedListing(const Mpls::PublishedTables& published, const PortTable& ports,
                        std::uint32_t from, std::size_t most);

/// The first entries of a list. Where several are made at once, as with neighbours, a few more.
Listing firstOf(Listing all, std::size_t most);

/// {"sequence", "time", "fate", "reason", "first", "port", "length", "bytes", "label", "via":
///  {"port", "nexthop"}, "generation"} of the frames that are kept, log by log, those recorded up
///  to
/// now and behind `after`. "time" is in nanoseconds since 1970, "bytes" in hex.
Listing recordedListing(const FrameRecorder& recorder, const PortTable& ports, std::uint64_t after);

/// The lines of a trace as texts, from number `after` on.
Listing traceListing(const LiveTrace& trace, std::uint64_t after);

/// What a request to start a trace asks for: {"port", "label", "prefix", "reason", "limit",
/// "seconds"}, each of which may be absent. Refused with the member and its value.
Tessel::Result<TraceFilter> requestedTrace(const std::string& request, const PortTable& ports);

/// {"port", "fate", "reason", "frames"}; the port of what this router has made is null.
Listing portFateListing(const FrameRecorder& recorder, const PortTable& ports);

/// {"label", "fate", "reason", "frames", "perSecond"} of the labels met most, by reason; at a time,
/// in seconds since 1970; 0: that of the last frame.
Listing labelFateListing(const FrameRecorder& recorder, std::int64_t second);

/// {"nexthop", "port", "frames", "perSecond"}: likewise, of the neighbours.
Listing unresolvedListing(const FrameRecorder& recorder, const PortTable& ports,
                          std::int64_t second);

} // namespace OvixAgent
