// The labels beneath the top one: what looking them up counts.

#include "FastPath/LabelForwarding.h"
#include "Wire/LabelStack.h"

namespace OvixAgent {

/// Labels beneath one that was found are looked up, too, down to the first that is not found.
bool LabelForwarding::lookUpInner(const PacketWork& work, Counted& counted) {
    // The walk has positions for so many labels (Lumo::MplsStackEntryIndex).
    std::size_t left = Lumo::MplsStackEntryIndex::nullValue - 1;
    bool isFound = true;
    Wire::LabelWalk walk(work.bytes().subspan(Lumo::MplsLabelEntry::size));
    for (Lumo::MplsLabelEntry entry; walk.next(entry); --left) {
        const std::uint32_t label = labelOf(entry);
        if (label < firstOrdinaryLabel || left == 0) {
            return false;
        }
        if (!isFound) {
            continue;
        }
        const Decision& decision = decisions_->at(label);
        if (!decisions_->isValid(decision)) {
            if (label == decided_->traced.leftOut || !mayReplace(decision)) {
                return false;
            }
            decide(label, Ovix::Beneath::label);
        }
        if (!decision.isLookupKnown || counted.isFull()) {
            return false;
        }
        counted.add(decision.lookup);
        isFound = decision.isFound;
    }
    return walk.isAtBottom();
}

} // namespace OvixAgent
