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

DecidedRewrite imposing(DecidedRewrite::Kind kind, const Lumo::UnboundedMplsLabelOperation& labels,
                        Mpls::TtlMode mode) {
    constexpr std::uint32_t ttlMask = 0xff;
    constexpr std::uint32_t bottom = 0x100;
    constexpr std::uint32_t tcMask = 0xe00;
    constexpr unsigned tcShift = 9;
    constexpr unsigned labelShift = 12;
    assert(labels.depth() > 0 && labels.depth() <= DecidedRewrite::maxLabels);
    const bool isPush = kind == DecidedRewrite::Kind::push;
    const auto keepsTc = [](std::optional<std::uint8_t> tc) { return tc ? 0 : tcMask; };
    const auto withTc = [](std::optional<std::uint8_t> tc) {
        return std::uint32_t{tc.value_or(0)} << tcShift;
    };
    const std::optional<std::uint8_t> tcAbove =
        isPush || !labels.pushedTc ? labels.tc : labels.pushedTc;
    DecidedRewrite rewrite;
    rewrite.kind = kind;
    rewrite.isUniform = mode == Mpls::TtlMode::uniform;
    rewrite.ttl = labels.ttl;
    rewrite.tc = labels.tc.value_or(DecidedRewrite::keep);
    rewrite.keptAbove = keepsTc(tcAbove) | (rewrite.isUniform ? ttlMask : 0);
    const std::uint32_t above = withTc(tcAbove) | (rewrite.isUniform ? 0 : labels.ttl);
    for (std::size_t i = 0; i < labels.depth(); ++i) {
        rewrite.entries[i] = labels.value(i) << labelShift | above;
    }
    const std::size_t pushed = isPush ? labels.depth() : labels.depth() - 1;
    rewrite.entries[pushed] = isPush ? 0 : labels.value(pushed) << labelShift | withTc(labels.tc);
    rewrite.kept = isPush ? ~std::uint32_t{0} : bottom | ttlMask | keepsTc(labels.tc);
    rewrite.grows = static_cast<std::int8_t>(pushed * Lumo::MplsLabelEntry::size);
    return rewrite;
}

void applyRewrite(const DecidedRewrite& rewrite, PacketWork& work) {
    if (rewrite.kind == DecidedRewrite::Kind::pop) {
        pop(rewrite, work);
    } else if (rewrite.record) {
        pushFlowLabels(rewrite, work);
    } else {
        assert(rewrite.grows >= 0);
        const std::uint32_t top = Lumo::NetU32::load(work.packet).value();
        work.packet -= rewrite.grows;
        imposeLabels(rewrite, top, work.packet);
    }
    work.length =
        static_cast<std::uint32_t>(static_cast<std::int32_t>(work.length) + rewrite.grows);
}

} // namespace OvixAgent
