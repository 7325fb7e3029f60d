#pragma once

#include "Mpls/LfibRecords.h"
#include "Ovix/viaset/OvixMplsViaSet.h"
#include "Tessel/Slab.h"

namespace Ovix {

/// The tail of a multicast LSP: its first via is the lookup, whose interface is that of the VRF.
/// Where the LSP branches at its tail (a bud node, RFC 6388 section 1.3) the record's further
/// members follow: IP vias, read from the table that the record came from.
class OvixMulticastDecapViaSet final : public OvixMplsViaSet,
                                       public Tessel::Slabbed<OvixMulticastDecapViaSet> {
  public:
    OvixMulticastDecapViaSet(const Mpls::LfibViaSet& record,
                             const Mpls::LfibMulticastIpLookupVia& via)
        : record_(record), via_(via) {}

    std::uint32_t numVias() const noexcept override {
        return record_.members.empty() ? 1 : record_.members.size();
    }
    Mpls::LfibViaType viaType(std::uint32_t index) const noexcept override {
        return index == 0 ? Mpls::LfibViaType::multicastIpLookup : Mpls::LfibViaType::ip;
    }
    std::uint32_t weight(std::uint32_t index) const noexcept override {
        return index == 0 ? 1 : record_.members[index].weight;
    }
    /// The first one is invalid when the record of the lookup is the default one.
    OvixMplsVia via(std::uint32_t index) const override {
        return index == 0 ? tail() : branch(index);
    }
    Mpls::LfibViaSetType type() const noexcept override { return record_.type; }
    const Mpls::LfibMulticastIpLookupVia& lookupVia() const noexcept { return via_; }

  private:
    OvixMplsVia tail() const noexcept {
        OvixMplsVia via;
        via.intfId =
            Lumo::IntfId::fromValue((std::uint64_t{via_.intfIdHigh} << 32U) | via_.intfIdLow);
        via.payloadType = via_.payloadType;
        return via;
    }
    OvixMplsVia branch(std::uint32_t index) const {
        return record_.source ? record_.source->ipVia(record_.members[index]) : OvixMplsVia();
    }

    Mpls::LfibViaSet record_;
    Mpls::LfibMulticastIpLookupVia via_;
};

} // namespace Ovix

extern template class Tessel::Slabbed<Ovix::OvixMulticastDecapViaSet>;
