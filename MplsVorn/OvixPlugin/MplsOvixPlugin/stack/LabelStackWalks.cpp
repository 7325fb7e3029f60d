// The two walks over a label stack: from its labels to the via sets that hold them, and down the
// via sets until the frame's fate is settled.

#include <cassert>

#include "FrameEvents.h"
#include "Mpls/TableDirectory.h"
#include "MplsOvixPlugin.h"
#include "Ovix/trace/RoadNotes.h"

namespace Ovix {

namespace {

constexpr FrameEvent ttlSpent{FrameCategory::exceptional, "ttl for label %s is <= 1, trapping"};

/// Whether a label is popped without a lookup: the explicit nulls 0 and 2 (RFC 3032) and the
/// entropy label indicator 7 (RFC 6790).
constexpr bool isPoppedWithoutLookup(Lumo::MplsLabel label) noexcept {
    constexpr std::uint32_t labels = (1U << 0U) | (1U << 2U) | (1U << 7U);
    return label.value() <= 7 && ((labels >> label.value()) & 1U) != 0;
}

/// Follows a walk down a label stack and knows which entry is an entropy label: the first one
/// behind an indicator that is not itself popped without a lookup.
class EntropyLabelTracker {
  public:
    void indicatorSeen() noexcept { expected_ = true; }
    bool expected() const noexcept { return expected_; }
    void entropyLabelSeen() noexcept { expected_ = false; }

  private:
    bool expected_ = false;
};

void noteAsked(Mpls::TableId table, Mpls::RouteKey key, bool isFound) {
    if (RoadNotes::isOn()) [[unlikely]] {
        RoadNotes::add("table", field("table", Tessel::wordOf(table)),
                       field("label", key.topLabel()), field("found", isFound ? "yes" : "no"));
    }
}

} // namespace

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
    assert(position.value() == stack->size());
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
    // programmed them, which is in the hardware status.
    assert(lfibTables_);
    const MplsLfibTables& tables = *lfibTables_;
    using enum Mpls::TableId;
    for (const auto& [id, lfib] :
         {std::pair(decapLfib, &tables.decapLfib()),
          std::pair(evpnEthernetSegmentFilterLfib, &tables.evpnEthernetSegmentFilterLfib()),
          std::pair(pseudowireLfib, &tables.pseudowireLfib()),
          std::pair(evpnEtreeLeafLabelLfib, &tables.evpnEtreeLeafLabelLfib())}) {
        Ptr<OvixMplsViaSet> viaSet = viaSetFromLfibStatus(context, *lfib, key);
        noteAsked(id, key, viaSet != nullptr);
        if (viaSet) {
            return viaSet;
        }
    }
    return viaSetFromHwStatus(context, tables.hardwareStatus(), key);
}

void MplsOvixPlugin::processViaSetStack(const Ptr<RoutingContext>& context,
                                        const Ptr<RoutingNexthops>& nexthops,
                                        const Ptr<PacketHeader>& innerHeader,
                                        const Ptr<OvixMplsViaSetStack>& viaSets) const {
    assert(!nexthops->empty());
    EntropyLabelTracker entropyLabel;
    for (Lumo::MplsStackEntryIndex position(Lumo::MplsStackEntryIndex::min);
         position.value() < viaSets->size(); ++position) {
        const OvixMplsHdrAndViaSet& current = viaSets->at(position);
        const Lumo::MplsLabelEntry entry = current.entry;
        traceFrame(*context, "Processing viaSet for label ", entry.label());
        const Ptr<RoutingNexthop>& nexthop = nexthops->nexthopFront();
        if (nexthops->size() > 1) {
            report(*context, severalNexthops, nexthops->size());
        }
        // An entropy label has no TTL to spend, and its indicator only that of the tunnel's label
        // (RFC 6790 section 4.2), where it is tested; so they come before the test. An explicit
        // null has one of its own and comes behind it.
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
        } else if (entry.label().isExplicitNull() || !current.viaSet) {
            // Without a via set only an entropy label that a misplaced explicit null separated from
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
