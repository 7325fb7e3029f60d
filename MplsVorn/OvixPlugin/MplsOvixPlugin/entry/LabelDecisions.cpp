// What would become of frames by the label on their top: the road's own functions are run with a
// model frame, once, and what they leave is the answer.

#include <array>
#include <cassert>

#include "FrameEvents.h"
#include "MplsOvixPlugin.h"
#include "Ovix/packet/TtlBytes.h"
#include "Ovix/rewrite/MplsRewrites.h"
#include "Ovix/viaset/ViaSets.h"
#include "Wire/Ip.h"
#include "entry/MplsRoutingHandler.h"

namespace Ovix {

namespace {

constexpr std::uint8_t modelTtl = 64;
constexpr std::size_t entrySize = Lumo::MplsLabelEntry::size;

/// An IPv4 packet without payload, to a documentation address (RFC 5737).
constexpr std::array<std::uint8_t, Wire::Ipv4::size> modelIpv4{
    0x45, 0, 0, Wire::Ipv4::size, 0, 0, 0, 0, modelTtl, 253, 0, 0, 192, 0, 2, 1, 192, 0, 2, 2};
/// The same of IPv6 (RFC 3849).
constexpr std::array<std::uint8_t, Wire::Ipv6::size> modelIpv6{
    0x60, 0, 0, 0, 0,    0, 253,  modelTtl, 0x20, 1, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0,
    0,    0, 0, 1, 0x20, 1, 0x0d, 0xb8,     0,    0, 0,    0,    0, 0, 0, 0, 0, 0, 0, 2};
constexpr std::array<std::uint8_t, Wire::Ethernet::size> modelEthernet{};
constexpr std::array<std::uint8_t, entrySize> modelLabel{0, 1, 1, modelTtl};

Wire::Bytes modelOf(Beneath beneath) noexcept {
    switch (beneath) {
    case Beneath::label:
        return modelLabel;
    case Beneath::ipv4:
        return modelIpv4;
    case Beneath::ipv6:
        return modelIpv6;
    default:
        return modelEthernet;
    }
}

/// A packet of the label's entry and what lies beneath.
Ptr<PacketContext> modelPacket(Lumo::MplsLabelEntry entry, Beneath beneath) {
    const Wire::Bytes payload = modelOf(beneath);
    Ptr<Lumo::Pkt> packet = Lumo::globalPktManager()->newPkt();
    const Wire::WritableBytes bytes = packet->newSharedHeadData(entrySize + payload.size());
    entry.store(bytes.data());
    std::copy(payload.begin(), payload.end(), bytes.begin() + entrySize);
    return Tessel::make<PacketContext>(packet, PktHdrType::mpls);
}

/// Whether a rewrite depends on what lies beneath the label: a pop alone does.
bool exposesPayload(const RoutingNexthop& nexthop) noexcept {
    for (const Ptr<RewriteInfo>& info : nexthop.rewriteInfos().rewrites()) {
        if (info->typeName() == MplsPopRewriteInfo::infoTypeName) {
            return true;
        }
    }
    return false;
}

/// Whether the one label that has ended did so in the pipe model.
bool endsInPipe(const RoutingContext& context) noexcept {
    const RewriteInfo& info = *context.terminated()->rewrites().front();
    return info.typeName() == MplsPopRewriteInfo::infoTypeName &&
           static_cast<const MplsPopRewriteInfo&>(info).ttlMode == Mpls::TtlMode::pipe;
}

/// Says by what the choice was really decided. False when it was by more of the frame than the kind
/// of header beneath the label: a header of another family than the via's has something else, or
/// nothing, in the destination's place.
bool narrow(const MplsContext& context, LabelDecision::Choice& choice) {
    if (choice.terminates) {
        choice.by = DecidedBy::beneath;
    } else if (choice.by == DecidedBy::destination) {
        const Ptr<PacketHeader>& payload = context.packetHeader();
        return choice.nexthop && payload && !choice.nexthop->address().empty() &&
               choice.nexthop->address() == ipDestination(*payload);
    } else if (choice.by == DecidedBy::beneath && choice.nexthop &&
               !exposesPayload(*choice.nexthop)) {
        choice.by = DecidedBy::label;
    }
    return true;
}

LabelDecision::Events taken(OvixNamedCounters& counters) {
    LabelDecision::Events events(counters.ofFrame().begin(), counters.ofFrame().end());
    counters.forgetLast();
    return events;
}

} // namespace

bool MplsRoutingHandler::decide(Lumo::MplsLabel label, Beneath beneath, LabelDecision& decision) {
    assert(!label.isSpecialPurpose());
    if (!plugin_->mplsRoutingInfo()->mplsRoutingEnabled()) {
        return false;
    }
    const Lumo::MplsLabelEntry entry(label, 0, beneath != Beneath::label, modelTtl);
    const auto model = Tessel::make<RoutingContext>(0, modelPacket(entry, beneath), modelEvents_);
    modelEvents_->forgetLast();
    const Ptr<OvixMplsViaSet> viaSet = plugin_->findOvixMplsViaSet(model, entry);
    decision.modelBytes = static_cast<std::uint32_t>(model->packetContext()->pkt()->bytes());
    decision.isFound = viaSet != nullptr;
    decision.lookup = taken(*modelEvents_);
    decision.isLookupKnown = true;
    decision.choices.clear();
    if (viaSet) {
        return choose(model, entry, viaSet, decision);
    }
    report(*model, nothingResolved);
    decision.choices.push_back({1, DecidedBy::label, taken(*modelEvents_), nullptr});
    return true;
}

bool MplsRoutingHandler::choose(const Ptr<RoutingContext>& model, Lumo::MplsLabelEntry entry,
                                const Ptr<OvixMplsViaSet>& viaSet, LabelDecision& decision) {
    if (viaSet->isMulticast() || viaSet->numVias() == 0) {
        return false;
    }
    const Ptr<PacketHeader> inner = model->packetContext()->parsedPkt().header(1);
    for (std::uint32_t i = 0; i < viaSet->numVias(); ++i) {
        auto nexthops = Tessel::make<RoutingNexthops>();
        nexthops->nexthopEnq(Tessel::make<RoutingNexthop>(Lumo::IntfId()));
        auto stack = Tessel::make<OvixMplsViaSetStack>();
        const Lumo::MplsStackEntryIndex top(Lumo::MplsStackEntryIndex::min);
        stack->addViaSetForLabel(top, entry, viaSet);
        const auto context =
            Tessel::make<MplsContext>(model, entry, inner, viaSet, stack, top, nexthops);
        decision.choices.emplace_back();
        if (!chooseVia(context, i, decision.choices.back())) {
            return false;
        }
    }
    return true;
}

bool MplsRoutingHandler::chooseVia(const Ptr<MplsContext>& context, std::uint32_t index,
                                   LabelDecision::Choice& choice) {
    const Ptr<OvixMplsViaSet>& viaSet = context->viaSet();
    const Ptr<MplsViaTypeHandler>& handler =
        plugin_->mplsViaTypeHandlerRegistry()->handler(viaSet->viaType(index));
    context->viaIndexIs(index);
    choice.by = handler ? handler->decidedBy(*context) : DecidedBy::frame;
    if (choice.by == DecidedBy::frame || plugin_->handleVia(context, index) != frameDealtWith) {
        return false;
    }
    choice.weight = viaSet->weight(index);
    choice.events = taken(*modelEvents_);
    const Ptr<RoutingNexthop>& nexthop = context->nexthops()->nexthopFront();
    choice.nexthop = nexthop->unresolved() ? nullptr : nexthop;
    const std::size_t popped = context->routingContext()->terminatePopped();
    choice.terminates = popped == 1 && !choice.nexthop && endsInPipe(*context->routingContext());
    return context->nexthops()->size() == 1 && (popped == 0 || choice.terminates) &&
           narrow(*context, choice);
}

std::uint64_t MplsRoutingHandler::decisionVersion() const noexcept {
    const Ptr<HwStatusViaHelper>& helper = plugin_->hwStatusViaHelper();
    const bool hasStatus = helper && helper->ethIntfStatusDir();
    return plugin_->changes() + plugin_->mplsRoutingInfo()->changes() +
           plugin_->mplsViaTypeHandlerRegistry()->changes() +
           (hasStatus ? helper->ethIntfStatusDir()->changes() : 0);
}

} // namespace Ovix
