#include "FastPath/LabelRewrite.h"

#include <cassert>

#include "Ovix/packet/FlowHash.h"
#include "Ovix/packet/TtlBytes.h"

namespace OvixAgent {

namespace {

constexpr unsigned tcShift = 9;

/// The bits of an entry beside its label.
constexpr std::uint32_t restOf(std::uint8_t tc, bool isBottom, std::uint8_t ttl) noexcept {
    return std::uint32_t{tc} << tcShift | (isBottom ? 0x100U : 0U) | ttl;
}

void swap(const DecidedRewrite& rewrite, PacketWork& work) noexcept {
    const auto top = Lumo::MplsLabelEntry::load(work.packet);
    const std::size_t pushed = rewrite.labels - 1U;
    const auto ttl = static_cast<std::uint8_t>(top.ttl() - 1);
    const std::uint8_t tc = rewrite.tc != DecidedRewrite::keep ? rewrite.tc : top.tc();
    const std::uint8_t above = rewrite.pushedTc != DecidedRewrite::keep ? rewrite.pushedTc : tc;
    const std::uint32_t rest = restOf(above, false, rewrite.isUniform ? ttl : rewrite.ttl);
    std::uint8_t* const front = work.packet - pushed * Lumo::MplsLabelEntry::size;
    for (std::size_t i = 0; i < pushed; ++i) {
        Lumo::NetU32(rewrite.label[i] | rest).store(front + i * Lumo::MplsLabelEntry::size);
    }
    Lumo::NetU32(rewrite.label[pushed] | restOf(tc, top.bos(), ttl)).store(work.packet);
    work.packet = front;
}

void pushFlowLabels(const DecidedRewrite& rewrite, std::uint8_t tc, std::uint8_t ttl,
                    PacketWork& work) {
    const auto& record = static_cast<const Ovix::MplsIpPushRewriteInfo&>(*rewrite.record);
    const std::uint32_t hash = work.isHashed ? work.hash : Ovix::flowHash(work.type, work.bytes());
    const std::size_t bytes = rewrite.labels * Lumo::MplsLabelEntry::size;
    work.packet -= bytes;
    record.labels.write({work.packet, bytes}, tc, ttl, hash, true);
}

void push(const DecidedRewrite& rewrite, PacketWork& work) {
    const auto top = Lumo::MplsLabelEntry::load(work.packet);
    const auto ttl = static_cast<std::uint8_t>(top.ttl() - 1);
    work.packet[Lumo::MplsLabelEntry::ttlAt] = ttl;
    const std::uint8_t tc = rewrite.tc != DecidedRewrite::keep ? rewrite.tc : top.tc();
    const std::uint8_t pushedTtl = rewrite.isUniform ? ttl : rewrite.ttl;
    if (rewrite.record) [[unlikely]] {
        pushFlowLabels(rewrite, tc, pushedTtl, work);
        return;
    }
    const std::uint32_t rest = restOf(tc, false, pushedTtl);
    work.packet -= rewrite.labels * Lumo::MplsLabelEntry::size;
    for (std::size_t i = 0; i < rewrite.labels; ++i) {
        Lumo::NetU32(rewrite.label[i] | rest).store(work.packet + i * Lumo::MplsLabelEntry::size);
    }
}

void pop(const DecidedRewrite& rewrite, PacketWork& work) noexcept {
    const auto top = Lumo::MplsLabelEntry::load(work.packet);
    const Wire::WritableBytes beneath = work.bytes().subspan(Lumo::MplsLabelEntry::size);
    if (rewrite.isUniform) {
        Ovix::TtlBytes::ttlIs(rewrite.exposed, beneath, static_cast<std::uint8_t>(top.ttl() - 1));
    }
    if (rewrite.exposesTc) {
        Ovix::trafficClassIs(rewrite.exposed, beneath, top.tc());
    }
    work.packet += Lumo::MplsLabelEntry::size;
    work.type = rewrite.exposed;
}

} // namespace

void applyRewrite(const DecidedRewrite& rewrite, PacketWork& work) {
    switch (rewrite.kind) {
    case DecidedRewrite::Kind::swap:
        assert(rewrite.labels > 0);
        swap(rewrite, work);
        break;
    case DecidedRewrite::Kind::push:
        push(rewrite, work);
        break;
    case DecidedRewrite::Kind::pop:
        pop(rewrite, work);
        break;
    }
    work.length =
        static_cast<std::uint32_t>(static_cast<std::int32_t>(work.length) + rewrite.grows);
}

} // namespace OvixAgent
