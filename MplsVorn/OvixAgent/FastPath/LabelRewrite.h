#pragma once

#include "FastPath/Decision.h"
#include "FastPath/PacketWork.h"

namespace OvixAgent {

/// How much longer the packet gets; negative for a pop.
constexpr std::int32_t growth(const DecidedRewrite& rewrite) noexcept {
    constexpr auto entry = static_cast<std::int32_t>(Lumo::MplsLabelEntry::size);
    switch (rewrite.kind) {
    case DecidedRewrite::Kind::swap:
        return (rewrite.labels - 1) * entry;
    case DecidedRewrite::Kind::push:
        return rewrite.labels * entry;
    default:
        return -entry;
    }
}

/// Rewrites a packet whose top label has a TTL above 1; what lies beneath must be what the rewrite
/// was made for, and there must be room.
void applyRewrite(const DecidedRewrite& rewrite, PacketWork& work);

} // namespace OvixAgent
