#include "Forwarding/LabelVrf.h"

#include "Wire/Ethernet.h"
#include "Wire/LabelStack.h"

namespace OvixAgent {

VrfSource VrfSource::of(Wire::Bytes frame) noexcept {
    if (frame.size() < Wire::Ethernet::size) {
        return {Kind::lastLabel, {}};
    }
    const Wire::TagWalk tags = Wire::behindTags(frame);
    if (!Wire::EtherType::isMpls(tags.etherType())) {
        return {};
    }
    VrfSource source;
    bool isEntropyNext = false;
    bool isPassed = true;
    Lumo::MplsLabelEntry entry;
    for (Wire::LabelWalk stack(tags.rest()); stack.next(entry);) {
        isPassed = isEntropyNext || entry.label().isExplicitNull() ||
                   entry.label() == Lumo::entropyLabelIndicator;
        if (!isPassed) {
            source = {Kind::labelAbove, entry.label()};
        }
        isEntropyNext = entry.label() == Lumo::entropyLabelIndicator ||
                        (isEntropyNext && entry.label().isExplicitNull());
    }
    return isPassed && entry.bos() ? source : VrfSource{Kind::lastLabel, {}};
}

std::optional<L3::VrfName> LabelVrfs::of(Lumo::MplsLabel label) const {
    if (!decap_) {
        return std::nullopt;
    }
    const Mpls::LfibRoute route = decap_->route(Mpls::RouteKey::fromLabel(label));
    const Mpls::LfibViaSet set = decap_->viaSet(route.viaSetKey);
    if (set.viaKeys.empty() || set.viaKeys[0].viaType != Mpls::LfibViaType::ipLookup) {
        return std::nullopt;
    }
    return decap_->ipLookupVia(set.viaKeys[0]).vrfName;
}

} // namespace OvixAgent
