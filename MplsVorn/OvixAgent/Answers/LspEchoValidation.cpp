#include "Answers/LspEchoValidation.h"

#include <algorithm>
#include <utility>

namespace OvixAgent {

namespace {

using Labels = std::span<const Lumo::MplsLabelEntry>;

/// The label at a depth that is counted from the bottom, which is 1; beyond the top there are
/// implicit nulls.
Lumo::MplsLabel labelAt(Labels labels, std::size_t depth) noexcept {
    return depth <= labels.size() ? labels[labels.size() - depth].label() : Lumo::implicitNull;
}

EchoLabel lookUp(Lumo::MplsLabel label, const EchoTables& tables) {
    if (label.isExplicitNull() || label == Lumo::routerAlert) {
        return {EchoLabel::Use::popped, {}};
    }
    return tables.label(label);
}

/// A depth beyond what the field tells is told as the most.
EchoVerdict verdict(EchoReturnCode code, std::size_t depth) {
    constexpr std::size_t most = 255;
    return {code, static_cast<std::uint8_t>(std::min(depth, most)), {}};
}

/// RFC 8029 section 4.4.1. `labelDepth` is that of the FEC's label, and passes on to the next FEC's
/// when this one had a label of its own.
EchoReturnCode checkFec(const EchoFec& fec, Labels labels, std::size_t& labelDepth,
                        const EchoTables& tables) {
    const Lumo::MplsLabel label = labelAt(labels, labelDepth);
    if (fec.isNil()) {
        ++labelDepth;
        const bool suits = label.isExplicitNull() || label == Lumo::routerAlert;
        return suits ? EchoReturnCode::egress : EchoReturnCode::mappingDiffers;
    }
    const std::optional<Lumo::MplsLabel> mapped = tables.egressLabel(fec.prefix, fec.length);
    if (!mapped) {
        return EchoReturnCode::noMapping;
    }
    if (*mapped == Lumo::implicitNull) {
        return EchoReturnCode::egress;
    }
    ++labelDepth;
    return *mapped == label ? EchoReturnCode::egress : EchoReturnCode::mappingDiffers;
}

bool leadsTo(const EchoDownstream& way, const std::vector<EchoDownstream>& downstreams) {
    return std::any_of(downstreams.begin(), downstreams.end(), [&](const EchoDownstream& one) {
        return one.port == way.port && one.nexthop == way.nexthop && one.labels == way.labels;
    });
}

/// Whether a label that is switched is its FEC's: this router sends the FEC the same way (RFC 8029
/// section 4.4.1). Labels above the FEC stack have no FEC to be checked.
EchoReturnCode checkTransit(const LspEchoRequest& request, std::size_t depth,
                            const EchoLabel& label, const EchoTables& tables) {
    if (!request.validatesFecs || depth > request.fecs.size()) {
        return EchoReturnCode::switched;
    }
    const EchoFec& fec = request.fecs[request.fecs.size() - depth];
    if (fec.isNil()) {
        return EchoReturnCode::mappingDiffers;
    }
    const auto ways = tables.ways(fec.prefix, fec.length);
    if (!ways) {
        return EchoReturnCode::noMapping;
    }
    const bool isMapped = std::any_of(ways->begin(), ways->end(), [&](const EchoDownstream& way) {
        return leadsTo(way, label.downstreams);
    });
    return isMapped ? EchoReturnCode::switched : EchoReturnCode::mappingDiffers;
}

/// All labels end here: so must all FECs, from the bottom up.
EchoVerdict validateEgress(const LspEchoRequest& request, Labels labels, const EchoTables& tables) {
    std::size_t labelDepth = 1;
    EchoVerdict result;
    for (std::size_t depth = 1; depth <= request.fecs.size(); ++depth) {
        const EchoFec& fec = request.fecs[request.fecs.size() - depth];
        result = verdict(checkFec(fec, labels, labelDepth, tables), depth);
        if (result.code != EchoReturnCode::egress) {
            return result;
        }
    }
    return result;
}

} // namespace

EchoVerdict validateEcho(const LspEchoRequest& request, Labels labels, const EchoTables& tables) {
    if (request.fault == LspEchoRequest::Fault::malformed) {
        return verdict(EchoReturnCode::malformed, 0);
    }
    if (request.fault == LspEchoRequest::Fault::notUnderstood) {
        return verdict(EchoReturnCode::tlvNotUnderstood, 0);
    }
    for (std::size_t depth = labels.size(); depth > 0; --depth) {
        EchoLabel entry = lookUp(labelAt(labels, depth), tables);
        if (entry.use == EchoLabel::Use::unknown) {
            return verdict(EchoReturnCode::noLabelEntry, depth);
        }
        if (entry.use == EchoLabel::Use::switched) {
            EchoVerdict result = verdict(checkTransit(request, depth, entry, tables), depth);
            if (result.code == EchoReturnCode::switched) {
                result.downstreams = std::move(entry.downstreams);
            }
            return result;
        }
    }
    return validateEgress(request, labels, tables);
}

} // namespace OvixAgent
