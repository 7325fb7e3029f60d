#pragma once

#include "Mpls/Hardware/Status.h"
#include "Mpls/LfibStatus.h"
#include "Tessel/Ptr.h"

namespace Ovix {

/// The label tables that the plugin reads. A slot is empty until its table has been mounted.
class MplsLfibTables : public Tessel::Counted {
  public:
    using Lfib = Ptr<const Mpls::LfibStatus>;

    const Lfib& decapLfib() const noexcept { return decap_; }
    void decapLfibIs(Lfib table) { decap_ = std::move(table); }

    const Lfib& evpnEthernetSegmentFilterLfib() const noexcept { return evpnEsFilter_; }
    void evpnEthernetSegmentFilterLfibIs(Lfib table) { evpnEsFilter_ = std::move(table); }

    const Lfib& transitLfib() const noexcept { return transit_; }
    void transitLfibIs(Lfib table) { transit_ = std::move(table); }

    const Lfib& pseudowireLfib() const noexcept { return pseudowire_; }
    void pseudowireLfibIs(Lfib table) { pseudowire_ = std::move(table); }

    const Lfib& evpnEtreeLeafLabelLfib() const noexcept { return evpnEtreeLeaf_; }
    void evpnEtreeLeafLabelLfibIs(Lfib table) { evpnEtreeLeaf_ = std::move(table); }

    /// Whichever of the five a via set was read from; empty for any other source.
    Lfib tableOf(const Mpls::LfibViaSource* source) const noexcept {
        for (const Lfib* table :
             {&decap_, &evpnEsFilter_, &pseudowire_, &evpnEtreeLeaf_, &transit_}) {
            if (*table && table->get() == source) {
                return *table;
            }
        }
        return nullptr;
    }

    const Ptr<const Mpls::Hardware::Status>& hardwareStatus() const noexcept { return hardware_; }
    void hardwareStatusIs(Ptr<const Mpls::Hardware::Status> status) {
        hardware_ = std::move(status);
    }

  private:
    Lfib decap_;
    Lfib evpnEsFilter_;
    Lfib transit_;
    Lfib pseudowire_;
    Lfib evpnEtreeLeaf_;
    Ptr<const Mpls::Hardware::Status> hardware_;
};

} // namespace Ovix
