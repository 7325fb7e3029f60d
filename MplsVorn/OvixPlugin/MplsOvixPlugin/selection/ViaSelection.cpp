// Which via or vias of a label's set the frame takes, and who handles them.

#include <cassert>

#include "FrameEvents.h"
#include "MplsOvixPlugin.h"
#include "Ovix/trace/RoadNotes.h"
#include "Tessel/Assert.h"
#include "Tessel/WeightedChoice.h"

namespace Ovix {

namespace {

constexpr FrameEvent noVias{FrameCategory::drop, "No vias"};
constexpr FrameEvent inconsistentResult{
    FrameCategory::exceptional,
    "Handler for multicast via %s returned inconsistent processing result"};
constexpr FrameEvent handlerNotFound{FrameCategory::exceptional, "Via type %s handler not found"};

/// No via has been handled; never leaves this file.
constexpr ProcessingResult noResultYet = 255;

/// What the flow's hash has chosen, counted from 1: the residue of the weights' sum, and whose
/// share it lies in.
[[gnu::noinline, gnu::cold]] void noteChoice(const MplsContext& context, std::uint64_t hash,
                                             std::uint32_t total, std::uint32_t chosen) {
    const OvixMplsViaSet& viaSet = *context.viaSet();
    std::string weights;
    for (std::uint32_t i = 0; i < viaSet.numVias(); ++i) {
        weights += (i > 0 ? ":" : "") + std::to_string(viaSet.weight(i));
    }
    RoadNotes::add("choice", field("label", context.entry().label()), field("via", chosen + 1),
                   field("vias", viaSet.numVias()), field("hash", hash), field("total", total),
                   field("weights", weights));
}

} // namespace

ProcessingResult MplsOvixPlugin::handleViaSet(const Ptr<MplsContext>& context) const {
    const OvixMplsViaSet& viaSet = *context->viaSet();
    const Mpls::LfibViaSetType type = viaSet.type();
    const std::uint32_t vias = viaSet.numVias();
    traceFrame(*context->routingContext(), "ViaSet type: ", type, ", via count: ", vias);
    if (vias == 0) {
        report(*context->routingContext(), noVias);
        return frameDealtWith;
    }
    if (type == Mpls::LfibViaSetType::multicast) {
        return handleEveryVia(context);
    }
    return handleVia(context, vias > 1 ? pickUcmpVia(context, context->viaSet()) : 0);
}

ProcessingResult MplsOvixPlugin::handleEveryVia(const Ptr<MplsContext>& context) const {
    ProcessingResult running = noResultYet;
    for (std::uint32_t i = 0; i < context->viaSet()->numVias(); ++i) {
        const ProcessingResult result = handleVia(context, i);
        if (running == noResultYet || result == running) {
            running = result;
        } else {
            report(*context->routingContext(), inconsistentResult, i);
            running = frameDealtWith;
        }
    }
    return running == noResultYet ? frameDealtWith : running;
}

std::uint32_t MplsOvixPlugin::pickUcmpVia(const Ptr<MplsContext>& context,
                                          const Ptr<OvixMplsViaSet>& viaSet) const {
    const std::uint32_t vias = viaSet->numVias();
    Tessel::hardAssert(vias > 0, "viaSet->numVias()");
    std::uint32_t totalWeight = 0;
    for (std::uint32_t i = 0; i < vias; ++i) {
        totalWeight += viaSet->weight(i);
    }
    assert(totalWeight > 0); // tables with other weights read as damaged
    const std::uint64_t hash = flowHash(*context);
    const std::uint64_t residue = hash % totalWeight;
    traceFrame(*context->routingContext(), " pktHash/totalWeight is ", residue, " / ", totalWeight);
    const auto chosen =
        static_cast<std::uint32_t>(Tessel::weightedChoice(residue, vias, [&](std::size_t i) {
            return viaSet->weight(static_cast<std::uint32_t>(i));
        }));
    if (RoadNotes::isOn()) [[unlikely]] {
        noteChoice(*context, hash, totalWeight, chosen);
    }
    return chosen;
}

std::uint64_t MplsOvixPlugin::flowHash(const MplsContext& context) const {
    PacketContext& packet = *context.routingContext()->packetContext();
    const Ptr<PacketHeader> mpls = packet.parsedPkt().firstHeaderOfType(PktHdrType::mpls);
    if (mpls) {
        const MplsHeaderData* labels = mplsHeaderData(*mpls);
        assert(labels != nullptr);
        if (labels->hashingFlag()) {
            return manager()->packetHashers()->hasher(PktHdrType::mpls)->hash(*mpls);
        }
    }
    return packet.hash();
}

ProcessingResult MplsOvixPlugin::handleVia(const Ptr<MplsContext>& context,
                                           std::uint32_t viaIndex) const {
    assert(mplsViaTypeHandlerRegistry_);
    const Mpls::LfibViaType type = context->viaSet()->viaType(viaIndex);
    assert(viaIndex < context->viaSet()->numVias());
    context->viaIndexIs(viaIndex);
    const Ptr<MplsViaTypeHandler> handler = mplsViaTypeHandlerRegistry_->handler(type);
    if (handler) {
        return handler->processMplsVia(context);
    }
    report(*context->routingContext(), handlerNotFound, type);
    return frameDealtWith;
}

} // namespace Ovix
