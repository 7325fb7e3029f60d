// The resolved stack, label by label from the top, until the frame's fate is settled.

#include "FrameEvents.h"
#include "MplsOvixPlugin.h"
#include "stack/SpecialLabels.h"

namespace Ovix {

namespace {

constexpr FrameEvent ttlSpent{FrameCategory::exceptional, "ttl for label %s is <= 1, trapping"};

} // namespace

void MplsOvixPlugin::processViaSetStack(const Ptr<RoutingContext>& context,
                                        const Ptr<RoutingNexthops>& nexthops,
                                        const Ptr<PacketHeader>& innerHeader,
                                        const Ptr<OvixMplsViaSetStack>& viaSets) const {
    EntropyLabelTracker entropyLabel;
    for (Lumo::MplsStackEntryIndex position(Lumo::MplsStackEntryIndex::min);
         position.value() < viaSets->size(); ++position) {
        const OvixMplsHdrAndViaSet& current = viaSets->at(position);
        const Lumo::MplsLabelEntry entry = current.entry;
        traceFrame(*context, "Processing viaSet for label ", entry.label());
        const Ptr<RoutingNexthop>& nexthop = nexthops->nexthopFront();
        if (nexthops->size() > 1) {
            reportWithValues(*context, severalNexthops, nexthops->size());
        }
        // Entropy labels and their indicators carry no TTL to spend (RFC 6790 section 4.2), so
        // they come before the test; an explicit null carries one and comes behind it.
        if (entry.label() == Lumo::entropyLabelIndicator) {
            handleReservedLabel(context, nexthop, innerHeader, entry);
            entropyLabel.indicatorSeen();
        } else if (entropyLabel.expected()) {
            handleReservedLabel(context, nexthop, innerHeader, entry);
            entropyLabel.entropyLabelSeen();
        } else if (entry.ttl() <= 1) {
            reportWithValues(*context, ttlSpent, entry.label());
            nexthop->setCpuTrapNexthop();
            return;
        } else if (!current.viaSet) {
            // An explicit null, or an entropy label that a misplaced explicit null parted from
            // its indicator.
            handleReservedLabel(context, nexthop, innerHeader, entry);
        } else if (settled(handleViaSet(Tessel::make<MplsContext>(context, entry, innerHeader,
                                                                  current.viaSet, viaSets, position,
                                                                  nexthops)))) {
            return;
        }
    }
}

} // namespace Ovix
