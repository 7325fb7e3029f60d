#pragma once

#include "Mpls/LfibRecords.h"
#include "Ovix/viaset/OvixMplsViaSet.h"
#include "Tessel/Slab.h"

namespace Ovix {

/// The vias of an LFIB via set: the members of the record, each a via of its one key's type. A via
/// is read from the table that the record came from when it is asked for.
class OvixLfibViaSet final : public OvixMplsViaSet, public Tessel::Slabbed<OvixLfibViaSet> {
  public:
    OvixLfibViaSet(const Mpls::LfibViaSet& record, const Mpls::LfibViaKey& key)
        : record_(record), key_(key) {}

    std::uint32_t numVias() const noexcept override { return record_.members.size(); }
    Mpls::LfibViaType viaType(std::uint32_t) const noexcept override { return key_.viaType; }
    std::uint32_t weight(std::uint32_t index) const noexcept override {
        return record_.members[index].weight;
    }
    OvixMplsVia via(std::uint32_t index) const override {
        return record_.source ? record_.source->ipVia(record_.members[index]) : OvixMplsVia();
    }
    Mpls::LfibViaSetType type() const noexcept override { return record_.type; }
    Mpls::LfibViaKey viaKey(std::uint32_t index) const noexcept override {
        Mpls::LfibViaKey key = key_;
        key.index = record_.members[index].viaIndex;
        key.check = record_.members[index].check;
        return key;
    }
    const Mpls::LfibViaSource* source() const noexcept override { return record_.source.get(); }
    const Mpls::LfibViaSet& record() const noexcept { return record_; }

  private:
    Mpls::LfibViaSet record_;
    Mpls::LfibViaKey key_;
};

} // namespace Ovix

extern template class Tessel::Slabbed<Ovix::OvixLfibViaSet>;
