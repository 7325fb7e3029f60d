#pragma once

#include <array>

#include "Mpls/Hardware/Adjacency.h"
#include "Ovix/viaset/HwStatusViaHelper.h"
#include "Ovix/viaset/OvixMplsViaSet.h"
#include "Tessel/Slab.h"

namespace Ovix {

/// The usable vias of a hardware adjacency, or of its backups; these also when none of its vias is
/// usable, so that they take over at once when a link goes down. What is not usable is left out of
/// the set, so that its share goes to the others by their weights.
class OvixHwViaSet final : public OvixMplsViaSet, public Tessel::Slabbed<OvixHwViaSet> {
  public:
    OvixHwViaSet(Ptr<const Mpls::Hardware::Adjacency> adjacency,
                 const Ptr<HwStatusViaHelper>& helper, bool useBackups);

    /// At least one usable via, and not all of them of weight 0.
    bool hasValidVia() const noexcept { return totalWeight_ > 0; }
    bool useBackups() const noexcept { return useBackups_; }

    std::uint32_t numVias() const noexcept override { return count_; }
    Mpls::LfibViaType viaType(std::uint32_t) const noexcept override {
        return adjacency_->viaType();
    }
    std::uint32_t weight(std::uint32_t index) const noexcept override {
        return adjacency_->entries(useBackups_)[usable_[index]].weight;
    }
    OvixMplsVia via(std::uint32_t index) const override {
        return adjacency_->via(useBackups_, usable_[index]);
    }
    Mpls::LfibViaSetType type() const noexcept override { return adjacency_->setType(); }

  private:
    void takeUsable(const Ptr<HwStatusViaHelper>& helper);

    Ptr<const Mpls::Hardware::Adjacency> adjacency_;
    std::uint64_t totalWeight_ = 0;
    std::uint32_t count_ = 0;
    bool useBackups_;
    std::array<std::uint16_t, Mpls::LfibViaSet::capacity> usable_; ///< the first count_ are set
};

} // namespace Ovix

extern template class Tessel::Slabbed<Ovix::OvixHwViaSet>;
