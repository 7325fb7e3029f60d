#pragma once

#include "FastPath/Decision.h"
#include "FastPath/PacketWork.h"

namespace OvixAgent {

/// How much longer the packet gets; negative for a pop.
constexpr std::int8_t growth(const DecidedRewrite& rewrite) noexcept {
    constexpr auto entry = static_cast<int>(Lumo::MplsLabelEntry::size);
    switch (rewrite.kind) {
    case DecidedRewrite::Kind::swap:
        return static_cast<std::int8_t>((rewrite.labels - 1) * entry);
    case DecidedRewrite::Kind::push:
        return static_cast<std::int8_t>(rewrite.labels * entry);
    default:
        return -entry;
    }
}

/// Rewrites a packet whose top label has a TTL above 1; what lies beneath must be what the rewrite
/// was made for, and there must be room.
void applyRewrite(const DecidedRewrite& rewrite, PacketWork& work);

} // namespace OvixAgent
