#include "Answers/LspEchoValidation.h"

#include <algorithm>
#include <cassert>
#include <utility>

namespace OvixAgent {

namespace {

/// What a request is validated against.
struct Arrived {
    const LspEchoRequest& request;
    PortIndex port;
    std::span<const Lumo::MplsLabelEntry> labels;
    const EchoTables& tables;

    /// The label at a depth counted from the bottom, which is 1; implicit null above the top.
    Lumo::MplsLabel labelAt(std::size_t depth) const noexcept {
        assert(depth > 0);
        return depth <= labels.size() ? labels[labels.size() - depth].label() : Lumo::implicitNull;
    }
    const EchoFec& fecAt(std::size_t depth) const noexcept {
        assert(depth > 0 && depth <= request.fecs.size());
        return request.fecs[request.fecs.size() - depth];
    }
    /// A Nil FEC on top hides what is validated (RFC 8029 section 4.4.1).
    bool hidesFecs() const noexcept { return request.fecs.front().kind == EchoFec::Kind::nil; }
};

EchoLabel lookUp(Lumo::MplsLabel label, const EchoTables& tables) {
    if (label.isExplicitNull() || label == Lumo::routerAlert) {
        return {EchoLabel::Use::popped, {}};
    }
    return tables.label(label);
}

/// The field of the depth is one octet.
EchoVerdict verdict(EchoReturnCode code, std::size_t depth) {
    constexpr std::size_t deepest = 255;
    return {code, static_cast<std::uint8_t>(std::min(depth, deepest))};
}

/// Whether the mapping is of the port and the label stack that the request came in with. The
/// interface's number at the router before means nothing here.
bool agrees(const EchoMapping& mapping, const Arrived& arrived) {
    const bool hasAddress = mapping.address.family() != Lumo::IpFamily::none;
    const bool isNumbered = mapping.interface.family() != Lumo::IpFamily::none;
    if ((hasAddress && !arrived.tables.isOwn(mapping.address) &&
         !arrived.tables.isOfPort(mapping.address, arrived.port)) ||
        (isNumbered && !arrived.tables.isOfPort(mapping.interface, arrived.port))) {
        return false;
    }
    if (!mapping.labels) {
        return true;
    }
    std::vector<Lumo::MplsLabel> sent = *mapping.labels;
    sent.erase(std::remove(sent.begin(), sent.end(), Lumo::implicitNull), sent.end());
    return std::equal(sent.begin(), sent.end(), arrived.labels.begin(), arrived.labels.end(),
                      [](Lumo::MplsLabel one, const Lumo::MplsLabelEntry& entry) {
                          return one == entry.label();
                      });
}

bool mustAgree(const std::optional<EchoMapping>& mapping) noexcept {
    return mapping && !mapping->isOfUnknownAddress() && !mapping->isToAllRouters();
}

/// With PHP the label of the adjacency is gone: this router is at its other end (RFC 8287 section
/// 7.4). Without an interface, as one of several links, it must name this router itself, or none
/// (section 5.3).
EchoReturnCode checkAdjacency(const EchoFec& fec, const Arrived& arrived) {
    const bool isNumbered = fec.remote.family() != Lumo::IpFamily::none;
    const bool namesRouter = fec.receiver.family() != Lumo::IpFamily::none;
    const bool isKnown =
        isNumbered ? arrived.tables.isOfPort(fec.remote, arrived.port)
                   : fec.namesNoRouter || (namesRouter && arrived.tables.isOwn(fec.receiver));
    return isKnown ? EchoReturnCode::egress : EchoReturnCode::notOfInterface;
}

/// RFC 8029 section 4.4.1. `labelDepth` is the depth of the FEC's label; it moves up when the FEC
/// has a label of its own.
EchoReturnCode checkFec(const EchoFec& fec, const Arrived& arrived, std::size_t& labelDepth) {
    const Lumo::MplsLabel label = arrived.labelAt(labelDepth);
    if (fec.kind == EchoFec::Kind::adjacency) {
        return checkAdjacency(fec, arrived);
    }
    if (fec.kind == EchoFec::Kind::nil) {
        ++labelDepth;
        const bool isNilLabel = label.isExplicitNull() || label == Lumo::routerAlert;
        return isNilLabel ? EchoReturnCode::egress : EchoReturnCode::mappingDiffers;
    }
    const std::optional<Lumo::MplsLabel> mapped =
        arrived.tables.egressLabel(fec.prefix, fec.length);
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

/// Whether a label leads along the link of an adjacency of this router.
bool leadsAlong(const EchoLabel& label, const EchoFec& adjacency, const EchoTables& tables) {
    if (adjacency.remote.family() == Lumo::IpFamily::none) {
        return true;
    }
    return std::any_of(label.downstreams.begin(), label.downstreams.end(),
                       [&](const EchoDownstream& downstream) {
                           return downstream.nexthop == adjacency.remote && downstream.port &&
                                  tables.isOfPort(adjacency.local, *downstream.port);
                       });
}

/// The depth in the FEC stack of a label at a depth in the label stack, whose mapping agrees (RFC
/// 8029 section 4.4 step 4): implicit nulls, which only the mapping shows, have FECs, and entropy
/// labels have none.
std::size_t fecDepthOf(const Arrived& arrived, std::size_t depth) {
    const std::optional<EchoMapping>& mapping = arrived.request.mapping;
    std::size_t fecs = 0;
    std::size_t entropyLabels = 0;
    const auto count = [&](Lumo::MplsLabel label) {
        ++fecs;
        entropyLabels += label == Lumo::entropyLabelIndicator ? 2 : 0; // and the one beneath
    };
    if (mustAgree(mapping) && mapping->labels) {
        std::size_t labels = 0;
        for (auto label = mapping->labels->rbegin(); labels < depth; ++label) {
            assert(label != mapping->labels->rend());
            count(*label);
            labels += *label != Lumo::implicitNull ? 1 : 0;
        }
    } else {
        for (std::size_t at = 1; at <= depth; ++at) {
            count(arrived.labelAt(at));
        }
    }
    return fecs - entropyLabels;
}

/// A switched label is its FEC's when this router forwards the FEC to the same next hop (RFC 8029
/// section 4.4.1). Labels above the FEC stack have no FEC to validate. The flag alone asks for it,
/// with a mapping or without (section 3).
EchoReturnCode checkTransit(const Arrived& arrived, std::size_t depth, const EchoLabel& label) {
    if (!arrived.request.validatesFecs || depth > arrived.request.fecs.size() ||
        arrived.hidesFecs() ||
        (arrived.request.mapping && arrived.request.mapping->isToAllRouters())) {
        return EchoReturnCode::switched;
    }
    const EchoFec& fec = arrived.fecAt(depth);
    if (fec.kind == EchoFec::Kind::nil) {
        return EchoReturnCode::mappingDiffers;
    }
    if (fec.kind == EchoFec::Kind::adjacency) {
        return leadsAlong(label, fec, arrived.tables) ? EchoReturnCode::switched
                                                      : EchoReturnCode::mappingDiffers;
    }
    const auto nexthops = arrived.tables.nexthops(fec.prefix, fec.length);
    if (!nexthops) {
        return EchoReturnCode::noMapping;
    }
    const bool isMapped =
        std::any_of(nexthops->begin(), nexthops->end(), [&](const EchoDownstream& nexthop) {
            return contains(label.downstreams, nexthop);
        });
    return isMapped ? EchoReturnCode::switched : EchoReturnCode::mappingDiffers;
}

/// The label stack as the next router would get it: the labels beneath stay.
void addLabelsBeneath(std::vector<EchoDownstream>& downstreams, const Arrived& arrived,
                      std::size_t depth) {
    for (EchoDownstream& downstream : downstreams) {
        for (std::size_t beneath = depth - 1; beneath > 0; --beneath) {
            downstream.labels.push_back(arrived.labelAt(beneath));
        }
    }
}

EchoVerdict validateTransit(const Arrived& arrived, std::size_t depth, EchoLabel label) {
    const std::optional<EchoMapping>& mapping = arrived.request.mapping;
    if (mustAgree(mapping) && !agrees(*mapping, arrived)) {
        return verdict(EchoReturnCode::downstreamMismatch, 0);
    }
    if (std::any_of(label.downstreams.begin(), label.downstreams.end(),
                    [](const EchoDownstream& downstream) { return !downstream.isMpls; })) {
        return verdict(EchoReturnCode::noMplsForwarding, depth);
    }
    const std::size_t fecDepth = fecDepthOf(arrived, depth);
    EchoVerdict result = verdict(checkTransit(arrived, fecDepth, label), fecDepth);
    if (result.code == EchoReturnCode::switched) {
        result = verdict(result.code, depth);
        if (mapping && mapping->isOfUnknownAddress()) {
            result = verdict(EchoReturnCode::unknownUpstream, 0);
        }
        result.downstreams = std::move(label.downstreams);
        addLabelsBeneath(result.downstreams, arrived, depth);
        const std::size_t fecs = arrived.request.fecs.size();
        result.endedFecs = fecs - std::min(fecs, fecDepth);
    }
    return result;
}

/// This router is the egress of every label, and so must be of every FEC, from the bottom up.
EchoVerdict validateEgress(const Arrived& arrived) {
    const std::optional<EchoMapping>& mapping = arrived.request.mapping;
    if (mustAgree(mapping) && !agrees(*mapping, arrived)) {
        return verdict(EchoReturnCode::downstreamMismatch, 0);
    }
    std::size_t labelDepth = 1;
    EchoVerdict result = verdict(EchoReturnCode::egress, 1);
    const std::size_t fecs = arrived.hidesFecs() ? 0 : arrived.request.fecs.size();
    for (std::size_t depth = 1; depth <= fecs; ++depth) {
        result = verdict(checkFec(arrived.fecAt(depth), arrived, labelDepth), depth);
        if (result.code != EchoReturnCode::egress) {
            return result;
        }
    }
    return result;
}

} // namespace

EchoVerdict validateEcho(const LspEchoRequest& request, PortIndex port,
                         std::span<const Lumo::MplsLabelEntry> labels, const EchoTables& tables) {
    if (request.fault == LspEchoRequest::Fault::malformed) {
        return verdict(EchoReturnCode::malformed, 0);
    }
    if (request.fault == LspEchoRequest::Fault::notUnderstood) {
        return verdict(EchoReturnCode::tlvNotUnderstood, 0);
    }
    assert(!request.fecs.empty());
    const Arrived arrived{request, port, labels, tables};
    for (std::size_t depth = labels.size(); depth > 0; --depth) {
        if (arrived.labelAt(depth) == Lumo::entropyLabelIndicator) {
            depth -= depth > 1 ? 1 : 0; // the entropy label beneath has no entry (RFC 6790)
            continue;
        }
        EchoLabel entry = lookUp(arrived.labelAt(depth), tables);
        if (entry.use == EchoLabel::Use::unknown) {
            return verdict(EchoReturnCode::noLabelEntry, depth);
        }
        if (entry.use == EchoLabel::Use::switched) {
            return validateTransit(arrived, depth, std::move(entry));
        }
    }
    return validateEgress(arrived);
}

} // namespace OvixAgent
