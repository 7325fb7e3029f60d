#pragma once

#include "FrameEvents.h"
#include "Ovix/plugin/OvixPlugin.h"

namespace Ovix {

/// The trace source of the mLDP input step and the multicast IP-lookup handler.
inline TraceSource& multicastTrace() {
    static TraceSource& source = TraceSource::named("MplsMulticast", "Ovix::MplsMulticast");
    return source;
}

/// Whether this device forwards multicast VPN traffic in software: the toggle "MvpnSfe" of
/// "MvpnLib.json", on by default. Read when first asked for and kept.
inline bool toggleMvpnSfeEnabled() {
    static const bool enabled =
        ToggleService::instance().toggleEnabled("MvpnLib.json", "MvpnSfe", true);
    return enabled;
}

namespace FrameEventDetail {

template <typename... Args>
[[gnu::noinline, gnu::cold]] void writeMulticast(std::uint64_t packetId, const Args&... args) {
    multicastTrace().trace(0, "Pkt ", packetId, ": ", args...);
}

template <typename... Values>
[[gnu::noinline, gnu::cold]] void
writeMulticastEvent(std::uint64_t packetId, const FrameEvent& event, const Values&... values) {
    TraceLine message;
    fillIn(message, event.text(), values...);
    writeMulticast(packetId, message.view());
}

} // namespace FrameEventDetail

/// Writes one message about a frame at level 0.
template <typename... Args>
inline void traceMulticast(std::uint64_t packetId, const Args&... args) {
    if (TraceSource::anyEverOn()) [[unlikely]] {
        FrameEventDetail::writeMulticast(packetId, args...);
    }
}

/// Counts the event when there are counters, and traces it with its values filled in.
template <typename... Values>
inline void reportMulticast(OvixNamedCounters* counters, std::uint64_t packetId,
                            const FrameEvent& event, const Values&... values) {
    if (counters != nullptr) {
        counters->count(event.key);
    }
    if (TraceSource::anyEverOn()) [[unlikely]] {
        FrameEventDetail::writeMulticastEvent(packetId, event, values...);
    }
}

} // namespace Ovix
