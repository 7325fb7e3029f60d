#pragma once

#include "Ovix/viaset/MplsLfibTables.h"
#include "Ovix/viaset/MplsViaTypeHandler.h"
#include "State/OvixLfibCounterCollection.h"

namespace Ovix {

/// Ends an LSP: pops the label, names the VRF in which the payload is routed, and points the next
/// hop at the payload's IP destination. The payload keeps its own TTL (the pipe model of RFC 3443),
/// so that the IP hop that follows in this router takes the one decrement. An LSP ping is punted;
/// what the label and the payload do not agree on is dropped, each case under a reason of its own.
class MplsIpLookupViaTypeHandler : public MplsViaTypeHandler {
  public:
    MplsIpLookupViaTypeHandler(Mpls::LfibViaType viaType, const Ptr<MplsLfibTables>& lfibTables,
                               const Ptr<Counter::OvixLfibCounterCollection>& counterCollection);

    static Ptr<MplsIpLookupViaTypeHandler>
    MplsIpLookupViaTypeHandlerIs(Mpls::LfibViaType viaType, const Ptr<MplsLfibTables>& lfibTables,
                                 const Ptr<Counter::OvixLfibCounterCollection>& counterCollection);

    ProcessingResult processMplsVia(const Ptr<MplsContext>& context) override;
    DecidedBy decidedBy(const MplsContext&) const override { return DecidedBy::destination; }

    /// Whether the label is the last one over an LSP ping (RFC 8029); only a via of payload type
    /// IPv4 or IPv6 looks.
    bool checkForOam(const Ptr<MplsContext>& context, const Mpls::LfibIpLookupVia& via) const;

    const Ptr<MplsLfibTables>& lfibTables() const noexcept { return lfibTables_; }
    const Ptr<Counter::OvixLfibCounterCollection>& counterCollection() const noexcept {
        return counterCollection_;
    }

  private:
    Mpls::LfibIpLookupVia viaOf(const OvixMplsViaSet& viaSet) const;

    Ptr<MplsLfibTables> lfibTables_;
    Ptr<Counter::OvixLfibCounterCollection> counterCollection_;
};

Ptr<MplsIpLookupViaTypeHandler>
mplsIpLookupViaTypeHandlerFactory(Mpls::LfibViaType viaType, const Ptr<MplsLfibTables>& lfibTables,
                                  const Ptr<Counter::OvixLfibCounterCollection>& counterCollection);

} // namespace Ovix
