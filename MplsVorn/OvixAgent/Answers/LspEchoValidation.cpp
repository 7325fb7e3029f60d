#include "Answers/LspEchoValidation.h"

#include <algorithm>
#include <cassert>
#include <utility>

namespace OvixAgent {

namespace {

using Labels = std::span<const Lumo::MplsLabelEntry>;

/// The label at a depth counted from the bottom, which is 1; implicit null above the top.
Lumo::MplsLabel labelAt(Labels labels, std::size_t depth) noexcept {
    assert(depth > 0);
    return depth <= labels.size() ? labels[labels.size() - depth].label() : Lumo::implicitNull;
}

EchoLabel lookUp(Lumo::MplsLabel label, const EchoTables& tables) {
    if (label.isExplicitNull() || label == Lumo::routerAlert) {
        return {EchoLabel::Use::popped, {}};
    }
    return tables.label(label);
}

/// The field of the depth is one octet.
EchoVerdict verdict(EchoReturnCode code, std::size_t depth) {
    constexpr std::size_t deepest = 255;
    return {code, static_cast<std::uint8_t>(std::min(depth, deepest)), {}};
}

/// RFC 8029 section 4.4.1. `labelDepth` is the depth of the FEC's label; it moves up when the FEC
/// has a label of its own.
EchoReturnCode checkFec(const EchoFec& fec, Labels labels, std::size_t& labelDepth,
                        const EchoTables& tables) {
    const Lumo::MplsLabel label = labelAt(labels, labelDepth);
    if (fec.isNil()) {
        ++labelDepth;
        const bool isNilLabel = label.isExplicitNull() || label == Lumo::routerAlert;
        return isNilLabel ? EchoReturnCode::egress : EchoReturnCode::mappingDiffers;
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

bool contains(const std::vector<EchoDownstream>& downstreams, const EchoDownstream& sought) {
    return std::any_of(downstreams.begin(), downstreams.end(), [&](const EchoDownstream& one) {
        return one.port == sought.port && one.nexthop == sought.nexthop &&
               one.labels == sought.labels;
    });
}

/// A switched label is its FEC's when this router forwards the FEC to the same next hop (RFC 8029
/// section 4.4.1). Labels above the FEC stack have no FEC to validate.
EchoReturnCode checkTransit(const LspEchoRequest& request, std::size_t depth,
                            const EchoLabel& label, const EchoTables& tables) {
    if (!request.validatesFecs || depth > request.fecs.size()) {
        return EchoReturnCode::switched;
    }
    const EchoFec& fec = request.fecs[request.fecs.size() - depth];
    if (fec.isNil()) {
        return EchoReturnCode::mappingDiffers;
    }
    const auto nexthops = tables.nexthops(fec.prefix, fec.length);
    if (!nexthops) {
        return EchoReturnCode::noMapping;
    }
    const bool isMapped =
        std::any_of(nexthops->begin(), nexthops->end(), [&](const EchoDownstream& nexthop) {
            return contains(label.downstreams, nexthop);
        });
    return isMapped ? EchoReturnCode::switched : EchoReturnCode::mappingDiffers;
}

/// This router is the egress of every label, and so must be of every FEC, from the bottom up.
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
