#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>

#include "Lumo/MplsLabel.h"
#include "Ovix/viaset/OvixMplsViaSet.h"
#include "Tessel/Ptr.h"
#include "Tessel/Slab.h"

namespace Ovix {

/// A label entry as received with the via set found for it; none for the labels that are popped
/// without a lookup.
struct OvixMplsHdrAndViaSet {
    Lumo::MplsLabelEntry entry;
    Ptr<OvixMplsViaSet> viaSet;
};

/// What the walk over one packet's label stack found, by stack position from the top.
class OvixMplsViaSetStack final : public Tessel::Counted,
                                  public Tessel::Slabbed<OvixMplsViaSetStack> {
  public:
    static constexpr std::size_t positions = Lumo::MplsStackEntryIndex::nullValue + std::size_t{1};

    OvixMplsViaSetStack() noexcept {} // positions not yet added are left unset on purpose
    ~OvixMplsViaSetStack() override {
        for (std::uint32_t i = 0; i < count_; ++i) {
            std::destroy_at(entries() + i);
        }
    }

    /// Positions are added in order from 0, each once.
    void addViaSetForLabel(Lumo::MplsStackEntryIndex position, Lumo::MplsLabelEntry entry,
                           Ptr<OvixMplsViaSet> viaSet) noexcept {
        new (entries() + position.value()) OvixMplsHdrAndViaSet{entry, std::move(viaSet)};
        count_ = position.value() + 1U;
    }

    std::uint32_t size() const noexcept { return count_; }
    bool empty() const noexcept { return count_ == 0; }
    const OvixMplsHdrAndViaSet& at(Lumo::MplsStackEntryIndex position) const noexcept {
        return entries()[position.value()];
    }

  private:
    OvixMplsHdrAndViaSet* entries() noexcept {
        return reinterpret_cast<OvixMplsHdrAndViaSet*>(storage_.data());
    }
    const OvixMplsHdrAndViaSet* entries() const noexcept {
        return reinterpret_cast<const OvixMplsHdrAndViaSet*>(storage_.data());
    }

    std::uint32_t count_ = 0;
    alignas(OvixMplsHdrAndViaSet)
        std::array<std::byte, positions * sizeof(OvixMplsHdrAndViaSet)> storage_;
};

} // namespace Ovix

extern template class Tessel::Slabbed<Ovix::OvixMplsViaSetStack>;
