#pragma once

#include "Lumo/MplsLabel.h"
#include "Ovix/OvixMplsViaSet.h"
#include "Tessel/Ptr.h"
#include "Tessel/Slab.h"

#include <array>
#include <cstdint>

namespace Ovix {

/// A label entry as received with the via set found for it; none for the labels that are popped
/// without a lookup.
struct OvixMplsHdrAndViaSet {
    Lumo::MplsLabelEntry entry;
    Ptr<OvixMplsViaSet> viaSet;
};

/// What the walk over one packet's label stack found, by stack position from the top.
class OvixMplsViaSetStack : public Tessel::Counted, public Tessel::Slabbed<OvixMplsViaSetStack> {
  public:
    static constexpr std::size_t positions = Lumo::MplsStackEntryIndex::nullValue + std::size_t{1};

    /// Positions are added in order from 0.
    void addViaSetForLabel(Lumo::MplsStackEntryIndex position, Lumo::MplsLabelEntry entry,
                           Ptr<OvixMplsViaSet> viaSet) noexcept {
        entries_[position.value()] = {entry, std::move(viaSet)};
        count_ = position.value() + 1U;
    }

    std::uint32_t size() const noexcept { return count_; }
    bool empty() const noexcept { return count_ == 0; }
    const OvixMplsHdrAndViaSet& at(Lumo::MplsStackEntryIndex position) const noexcept {
        return entries_[position.value()];
    }

  private:
    std::array<OvixMplsHdrAndViaSet, positions> entries_{};
    std::uint32_t count_ = 0;
};

} // namespace Ovix

extern template class Tessel::Slabbed<Ovix::OvixMplsViaSetStack>;
