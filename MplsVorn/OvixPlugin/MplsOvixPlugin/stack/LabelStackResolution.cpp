// From a label stack to the via sets that hold its labels.

#include "FrameEvents.h"
#include "MplsOvixPlugin.h"
#include "stack/SpecialLabels.h"

namespace Ovix {

Ptr<OvixMplsViaSetStack>
MplsOvixPlugin::resolveViaSetsForLabelStack(const Ptr<RoutingContext>& context,
                                            const Ptr<MplsHeaderData>& labels) const {
    auto stack = Tessel::make<OvixMplsViaSetStack>();
    EntropyLabelTracker entropyLabel;
    Lumo::MplsStackEntryIndex position(Lumo::MplsStackEntryIndex::min);
    for (auto at = labels->begin(); at != labels->end();) {
        const Lumo::MplsLabelEntry entry = *at;
        traceFrame(*context, "Mpls processing label ", entry.label());
        if (isPoppedWithoutLookup(entry.label())) {
            stack->addViaSetForLabel(position, entry, nullptr);
            if (entry.label() == Lumo::entropyLabelIndicator) {
                entropyLabel.indicatorSeen();
            }
        } else if (entropyLabel.expected()) {
            stack->addViaSetForLabel(position, entry, nullptr);
            entropyLabel.entropyLabelSeen();
        } else if (updateViaSetStack(context, position, stack, entry)) {
            return stack;
        }
        // The position moves on even behind the last label, so that a stack which fills every
        // position is refused rather than taken for one that fits.
        ++position;
        ++at;
    }
    return stack;
}

bool MplsOvixPlugin::updateViaSetStack(const Ptr<RoutingContext>& context,
                                       Lumo::MplsStackEntryIndex position,
                                       const Ptr<OvixMplsViaSetStack>& stack,
                                       Lumo::MplsLabelEntry entry) const {
    Ptr<OvixMplsViaSet> viaSet = findOvixMplsViaSet(context, entry);
    if (!viaSet) {
        traceFrame(*context, "No viaSet for label ", entry.label());
        return true;
    }
    stack->addViaSetForLabel(position, entry, std::move(viaSet));
    return false;
}

Ptr<OvixMplsViaSet> MplsOvixPlugin::findOvixMplsViaSet(const Ptr<RoutingContext>& context,
                                                       Lumo::MplsLabelEntry entry) const {
    const Mpls::RouteKey key = Mpls::RouteKey::fromLabel(entry.label());
    // The transit LFIB is left out on purpose: transit labels are forwarded as the platform has
    // programmed them, which is what the hardware status tells.
    const MplsLfibTables& tables = *lfibTables_;
    for (const MplsLfibTables::Lfib* lfib :
         {&tables.decapLfib(), &tables.evpnEthernetSegmentFilterLfib(), &tables.pseudowireLfib(),
          &tables.evpnEtreeLeafLabelLfib()}) {
        if (Ptr<OvixMplsViaSet> viaSet = viaSetFromLfibStatus(context, *lfib, key)) {
            return viaSet;
        }
    }
    return viaSetFromHwStatus(context, tables.hardwareStatus(), key);
}

} // namespace Ovix
