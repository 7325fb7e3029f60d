#pragma once

#include <cstdint>
#include <vector>

#include "Lumo/MplsLabel.h"
#include "Ovix/routing/RoutingNexthop.h"
#include "Ovix/trace/NamedCounters.h"

namespace Ovix {

/// What a frame has right beneath the label on its top, as the parser finds it: another label, an
/// IP header, or what it takes for an Ethernet header.
enum class Beneath : std::uint8_t { label, ipv4, ipv6, ethernet };

inline constexpr std::size_t beneathKinds = 4;

/// What the outcome of a label depends on beside the label tables.
enum class DecidedBy : std::uint8_t {
    frame,       ///< on more than can be said in advance
    label,       ///< on the label alone
    beneath,     ///< also on what lies beneath it
    destination, ///< likewise, and the next hop's address is the payload's IP destination
};

/// What a routing handler does with frames by the label on their top.
struct LabelDecision {
    /// Events in the order in which they are counted. The handler's own counters, which only name
    /// them; they live as long as the handler.
    using Events = std::vector<const OvixNamedCounters::Counter*>;

    /// Of several choices a flow has one, by the weights and its hash (FlowHash.h).
    struct Choice {
        std::uint32_t weight = 1;
        DecidedBy by = DecidedBy::frame;
        Events events;               ///< counted when it is chosen
        Ptr<RoutingNexthop> nexthop; ///< null: the frame goes no further
        /// The label ends at this router in the pipe model (RFC 3443): it is popped, and the rest
        /// of the stack is routed again. There is no next hop.
        bool terminates = false;
    };

    std::uint32_t modelBytes = 0; ///< the frame that counter actions are about
    bool isLookupKnown = false;   ///< `isFound` and `lookup` are set, whatever else is known
    bool isFound = false;         ///< only then the labels beneath are looked up, too
    Events lookup;                ///< counted whenever the label is looked up, wherever it stands
    std::vector<Choice> choices;  ///< at least one
    /// All of the choices are taken, each by a replica of its own, the last by the frame itself.
    /// What they count is with the first.
    bool isMulticast = false;
};

} // namespace Ovix
