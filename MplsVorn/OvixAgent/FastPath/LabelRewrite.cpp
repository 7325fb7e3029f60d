#include "FastPath/LabelRewrite.h"

#include <cassert>

#include "Ovix/packet/FlowHash.h"
#include "Ovix/packet/TtlBytes.h"

namespace OvixAgent {

namespace {

/// A push with labels that name the flow (RFC 6790).
void pushFlowLabels(const DecidedRewrite& rewrite, PacketWork& work) {
    const auto top = Lumo::MplsLabelEntry::load(work.packet);
    const auto ttl = static_cast<std::uint8_t>(top.ttl() - 1);
    const std::uint8_t tc = rewrite.tc != DecidedRewrite::keep ? rewrite.tc : top.tc();
    const auto& record = static_cast<const Ovix::MplsIpPushRewriteInfo&>(*rewrite.record);
    const std::uint32_t hash = work.isHashed ? work.hash : Ovix::flowHash(work.type, work.bytes());
    work.packet[Lumo::MplsLabelEntry::ttlAt] = ttl;
    work.packet -= rewrite.grows;
    record.labels.write({work.packet, static_cast<std::size_t>(rewrite.grows)}, tc,
                        rewrite.isUniform ? ttl : rewrite.ttl, hash, true);
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
    if (rewrite.kind == DecidedRewrite::Kind::pop) {
        pop(rewrite, work);
    } else if (rewrite.record) {
        pushFlowLabels(rewrite, work);
    } else {
        assert(rewrite.labels > 0);
        const std::uint32_t top = Lumo::NetU32::load(work.packet).value();
        work.packet -= rewrite.grows;
        imposeLabels(rewrite, top, work.packet);
    }
    work.length =
        static_cast<std::uint32_t>(static_cast<std::int32_t>(work.length) + rewrite.grows);
}

} // namespace OvixAgent
