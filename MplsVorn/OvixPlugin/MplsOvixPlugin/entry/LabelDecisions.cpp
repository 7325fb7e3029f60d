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

/// Of a stack whose top label has the via set, with a next hop to be filled.
Ptr<MplsContext> contextFor(const Ptr<RoutingContext>& model, Lumo::MplsLabelEntry entry,
                            const Ptr<OvixMplsViaSet>& viaSet) {
    auto nexthops = Tessel::make<RoutingNexthops>();
    nexthops->nexthopEnq(Tessel::make<RoutingNexthop>(Lumo::IntfId()));
    auto stack = Tessel::make<OvixMplsViaSetStack>();
    const Lumo::MplsStackEntryIndex top(Lumo::MplsStackEntryIndex::min);
    stack->addViaSetForLabel(top, entry, viaSet);
    return Tessel::make<MplsContext>(model, entry, model->packetContext()->parsedPkt().header(1),
                                     viaSet, stack, top, nexthops);
}

} // namespace

bool MplsRoutingHandler::decide(Lumo::MplsLabel label, Beneath beneath, LabelDecision& decision) {
    assert(!label.isSpecialPurpose());
    if (!plugin_->mplsRoutingInfo()->mplsRoutingEnabled()) {
        return false;
    }
    const Lumo::MplsLabelEntry entry(label, 0, beneath != Beneath::label, modelTtl);
    const auto model =
        Tessel::make<RoutingContext>(std::uint64_t{0}, modelPacket(entry, beneath), modelEvents_);
    modelEvents_->forgetLast();
    const Ptr<OvixMplsViaSet> viaSet = plugin_->findOvixMplsViaSet(model, entry);
    decision.modelBytes = static_cast<std::uint32_t>(model->packetContext()->pkt()->bytes());
    decision.isFound = viaSet != nullptr;
    decision.lookup = taken(*modelEvents_);
    decision.isLookupKnown = true;
    decision.choices.clear();
    decision.isMulticast = false;
    if (viaSet) {
        return choose(model, entry, viaSet, decision);
    }
    report(*model, nothingResolved);
    decision.choices.push_back({1, DecidedBy::label, taken(*modelEvents_), nullptr, false});
    return true;
}

bool MplsRoutingHandler::choose(const Ptr<RoutingContext>& model, Lumo::MplsLabelEntry entry,
                                const Ptr<OvixMplsViaSet>& viaSet, LabelDecision& decision) {
    const Ptr<MplsContext> first = contextFor(model, entry, viaSet);
    if (viaSet->numVias() == 0 || !allDecide(first)) {
        return false;
    }
    if (viaSet->isMulticast()) {
        return replicate(first, decision);
    }
    for (std::uint32_t i = 0; i < viaSet->numVias(); ++i) {
        decision.choices.emplace_back();
        if (!chooseVia(contextFor(model, entry, viaSet), i, decision.choices.back())) {
            return false;
        }
    }
    return true;
}

const Ptr<MplsViaTypeHandler>& MplsRoutingHandler::handlerOf(const OvixMplsViaSet& viaSet,
                                                             std::uint32_t index) const {
    return plugin_->mplsViaTypeHandlerRegistry()->handler(viaSet.viaType(index));
}

/// Whether every handler has said that its outcome may be kept. One that has not is not run.
bool MplsRoutingHandler::allDecide(const Ptr<MplsContext>& context) const {
    for (std::uint32_t i = 0; i < context->viaSet()->numVias(); ++i) {
        const Ptr<MplsViaTypeHandler>& handler = handlerOf(*context->viaSet(), i);
        context->viaIndexIs(i);
        if (!handler || handler->decidedBy(*context) == DecidedBy::frame) {
            return false;
        }
    }
    return true;
}

/// The front next hop is the frame's own and stays unresolved; each via adds a replica.
bool MplsRoutingHandler::replicate(const Ptr<MplsContext>& context, LabelDecision& decision) {
    for (std::uint32_t i = 0; i < context->viaSet()->numVias(); ++i) {
        if (plugin_->handleVia(context, i) != frameDealtWith) {
            return false;
        }
    }
    for (const Ptr<RoutingNexthop>& nexthop : *context->nexthops()) {
        if (!nexthop->unresolved()) {
            const DecidedBy by = exposesPayload(*nexthop) ? DecidedBy::beneath : DecidedBy::label;
            decision.choices.push_back({1, by, {}, nexthop, false});
        }
    }
    if (decision.choices.empty() || context->routingContext()->terminatePopped() > 0) {
        return false;
    }
    // What lies beneath another frame's label may not keep a via from its replica.
    if (decision.choices.size() < context->viaSet()->numVias()) {
        decision.choices.front().by = DecidedBy::beneath;
    }
    decision.choices.front().events = taken(*modelEvents_);
    decision.isMulticast = true;
    return true;
}

bool MplsRoutingHandler::chooseVia(const Ptr<MplsContext>& context, std::uint32_t index,
                                   LabelDecision::Choice& choice) {
    const Ptr<OvixMplsViaSet>& viaSet = context->viaSet();
    context->viaIndexIs(index);
    choice.by = handlerOf(*viaSet, index)->decidedBy(*context);
    if (plugin_->handleVia(context, index) != frameDealtWith) {
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
