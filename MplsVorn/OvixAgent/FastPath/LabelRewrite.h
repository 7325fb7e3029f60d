#pragma once

#include "FastPath/Decision.h"
#include "FastPath/PacketWork.h"

namespace OvixAgent {

/// A swap or push that imposes the labels, at most `maxLabels`, in 20 bits each; of a swap the last
/// one replaces the label.
DecidedRewrite imposing(DecidedRewrite::Kind kind, const Lumo::UnboundedMplsLabelOperation& labels,
                        Mpls::TtlMode mode);

/// Writes the entries that a swap or push leaves for one with this top entry, whose TTL is above 1,
/// from `at` on.
[[gnu::always_inline]] inline void imposeLabels(const DecidedRewrite& rewrite, std::uint32_t top,
                                                std::uint8_t* at) noexcept {
    const std::uint32_t left = top - 1; // the TTL
    const std::uint32_t above = left & rewrite.keptAbove;
    const std::uint32_t* entry = rewrite.entries.data();
    for (const std::uint8_t* const last = at + rewrite.grows; at != last;
         at += Lumo::MplsLabelEntry::size) {
        Lumo::NetU32(*entry++ | above).store(at);
    }
    Lumo::NetU32(*entry | (left & rewrite.kept)).store(at);
}

/// Rewrites a packet whose top label has a TTL above 1; what lies beneath must be what the rewrite
/// was made for, and there must be room.
void applyRewrite(const DecidedRewrite& rewrite, PacketWork& work);

} // namespace OvixAgent
