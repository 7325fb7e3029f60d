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

/// Writes the entries that a swap or push leaves for one with this top entry, from `at` on.
[[gnu::always_inline]] inline void imposeLabels(const DecidedRewrite& rewrite, std::uint32_t top,
                                                std::uint8_t* at) noexcept {
    constexpr unsigned tcShift = 9;
    constexpr std::uint32_t tcMask = 0xe00;
    constexpr std::uint32_t bottom = 0x100;
    constexpr std::uint32_t ttlMask = 0xff;
    const std::uint32_t ttl = (top & ttlMask) - 1;
    const auto tcOf = [](std::uint8_t tc, std::uint32_t otherwise) noexcept {
        return tc != DecidedRewrite::keep ? std::uint32_t{tc} << tcShift : otherwise;
    };
    const std::uint32_t tc = tcOf(rewrite.tc, top & tcMask);
    const bool isPush = rewrite.kind == DecidedRewrite::Kind::push;
    const std::size_t pushed = isPush ? rewrite.labels : rewrite.labels - 1U;
    if (pushed > 0) {
        const std::uint32_t above =
            (isPush ? tc : tcOf(rewrite.pushedTc, tc)) | (rewrite.isUniform ? ttl : rewrite.ttl);
        for (std::size_t i = 0; i < pushed; ++i, at += Lumo::MplsLabelEntry::size) {
            Lumo::NetU32(rewrite.label[i] | above).store(at);
        }
    }
    Lumo::NetU32(isPush ? (top & ~ttlMask) | ttl
                        : rewrite.label[pushed] | tc | (top & bottom) | ttl)
        .store(at);
}

/// Rewrites a packet whose top label has a TTL above 1; what lies beneath must be what the rewrite
/// was made for, and there must be room.
void applyRewrite(const DecidedRewrite& rewrite, PacketWork& work);

} // namespace OvixAgent
