#pragma once

#include "Mpls/LfibRecords.h"
#include "Ovix/OvixMplsViaSet.h"
#include "Tessel/Slab.h"

namespace Ovix {

/// The one via at the tail of a multicast LSP: its interface is that of the lookup.
class OvixMulticastDecapViaSet : public OvixMplsViaSet,
                                 public Tessel::Slabbed<OvixMulticastDecapViaSet> {
  public:
    OvixMulticastDecapViaSet(const Mpls::LfibViaSet& record,
                             const Mpls::LfibMulticastIpLookupVia& via)
        : record_(record), via_(via) {}

    std::uint32_t numVias() const noexcept override { return 1; }
    Mpls::LfibViaType viaType(std::uint32_t) const noexcept override {
        return Mpls::LfibViaType::multicastIpLookup;
    }
    std::uint32_t weight(std::uint32_t) const noexcept override { return 1; }
    /// Invalid when the record of the lookup is the default one.
    OvixMplsVia via(std::uint32_t) const override {
        OvixMplsVia via;
        via.intfId =
            Lumo::IntfId::fromValue((std::uint64_t{via_.intfIdHigh} << 32U) | via_.intfIdLow);
        via.payloadType = via_.payloadType;
        return via;
    }
    Mpls::LfibViaSetType type() const noexcept override { return record_.type; }
    const Mpls::LfibMulticastIpLookupVia& lookupVia() const noexcept { return via_; }

  private:
    Mpls::LfibViaSet record_;
    Mpls::LfibMulticastIpLookupVia via_;
};

} // namespace Ovix

extern template class Tessel::Slabbed<Ovix::OvixMulticastDecapViaSet>;
