#pragma once

#include <string_view>

#include "Ovix/routing/RoutingContext.h"
#include "Ovix/trace/NamedCounters.h"
#include "Ovix/trace/Trace.h"
#include "Ovix/trace/TraceFormat.h"
#include "Ovix/viaset/MplsContext.h"

namespace Ovix {

/// The trace source of everything but multicast.
inline TraceSource& mainTrace() {
    static TraceSource& source = TraceSource::named("Routing::Mpls", "Ovix::Routing::Mpls");
    return source;
}

namespace FrameCategory {
inline constexpr std::string_view drop = "Drop";               ///< the frame is discarded
inline constexpr std::string_view exceptional = "Exceptional"; ///< unexpected but handled
inline constexpr std::string_view action = "Action";           ///< deliberate special handling
} // namespace FrameCategory

/// Something that happens to a frame: how it is counted and what is traced, from one declaration.
/// Each "%s" of the text is replaced by a value; the counter keeps the "%s", so that one counter
/// collects every frame of the kind.
struct FrameEvent {
    static constexpr std::string_view module = "Routing::Mpls";

    constexpr FrameEvent(std::string_view category, std::string_view text) noexcept
        : key(category, module, text) {}

    constexpr std::string_view text() const noexcept { return key.reason; }

    CounterKey key;
};

namespace FrameEventDetail {

template <typename... Args>
[[gnu::noinline, gnu::cold]] void write(const RoutingContext& context, const Args&... args) {
    mainTrace().trace(0, "Pkt ", context.packetId(), ": ", args...);
}

} // namespace FrameEventDetail

/// Writes one message about a frame at level 0.
template <typename... Args>
inline void traceFrame(const RoutingContext& context, const Args&... args) {
    if (TraceSource::anyEverOn()) [[unlikely]] {
        FrameEventDetail::write(context, args...);
    }
}

namespace FrameEventDetail {

inline void fillIn(TraceLine& line, std::string_view text) {
    line << text;
}

template <typename Value, typename... Values>
void fillIn(TraceLine& line, std::string_view text, const Value& value, const Values&... values) {
    const std::size_t at = text.find("%s");
    if (at == std::string_view::npos) {
        line << text;
        return;
    }
    line << text.substr(0, at) << value;
    fillIn(line, text.substr(at + 2), values...);
}

} // namespace FrameEventDetail

namespace FrameEventDetail {

template <typename... Values>
[[gnu::noinline, gnu::cold]] void writeEvent(const RoutingContext& context, const FrameEvent& event,
                                             const Values&... values) {
    TraceLine message;
    fillIn(message, event.text(), values...);
    traceFrame(context, message.view());
}

} // namespace FrameEventDetail

/// Counts the event when the context has counters, and traces it with its values filled in.
template <typename... Values>
[[gnu::always_inline]] inline void report(const RoutingContext& context, const FrameEvent& event,
                                          const Values&... values) {
    if (context.namedCounters()) {
        context.namedCounters()->count(event.key);
    }
    if (TraceSource::anyEverOn()) [[unlikely]] {
        FrameEventDetail::writeEvent(context, event, values...);
    }
}

/// Like `report`, but the values are in the counter's reason too: these few events are counted by
/// their values, as long as those are not too many.
template <typename... Values>
void reportWithValues(const RoutingContext& context, const FrameEvent& event,
                      const Values&... values) {
    TraceLine message;
    FrameEventDetail::fillIn(message, event.text(), values...);
    if (context.namedCounters()) {
        context.namedCounters()->countValue(event.key, message.view());
    }
    traceFrame(context, message.view());
}

/// The frame goes on with the first of several next hops. Counted under one name however many there
/// are, wherever it happens: a set of hundreds of vias must not make hundreds of counters.
inline constexpr FrameEvent severalNexthops{FrameCategory::exceptional,
                                            "Using first nexthop, but %s nexthops found"};
/// A via record that holds nothing.
inline constexpr FrameEvent noVia{FrameCategory::drop, "No via"};
inline constexpr FrameEvent noRewrite{FrameCategory::drop, "no rewrite"};
inline constexpr FrameEvent nothingResolved{
    FrameCategory::drop, "No labels resolved to via sets, and nexthop not resolved"};
inline constexpr FrameEvent oamPacket{FrameCategory::action, "MPLS Oam packet"};

/// A set of several vias, or of none.
inline constexpr FrameEvent moreThanOneVia{FrameCategory::drop, "More than 1 via"};

/// The next hop to fill; that there are several is reported.
inline RoutingNexthop& firstNexthop(const MplsContext& context) {
    const RoutingNexthops& nexthops = *context.nexthops();
    if (nexthops.size() > 1) [[unlikely]] {
        report(*context.routingContext(), severalNexthops, nexthops.size());
    }
    return *nexthops.nexthopFront();
}

/// Whether the header starts an LSP ping (RFC 8029): an IP packet to a loopback address and UDP
/// port 3503. Completes the parse; `header` may be empty.
bool isLspPing(const RoutingContext& context, const Ptr<PacketHeader>& header);

} // namespace Ovix
