#pragma once

#include "Ovix/viaset/MplsLfibTables.h"
#include "Ovix/viaset/MplsViaTypeHandler.h"

namespace Ovix {

/// Forwards a labelled frame, its label swapped or more labels pushed, toward the interface that
/// means a forwarding equivalence class (FEC) of the unicast forwarding table, or, without a
/// FEC, toward the via's own interface. Drops with "More than 1 via", "Invalid label action N" and
/// "no rewrite". The incoming label is not counted.
class MplsExternalFecViaTypeHandler : public MplsViaTypeHandler {
  public:
    MplsExternalFecViaTypeHandler(Mpls::LfibViaType viaType, const Ptr<MplsLfibTables>& lfibTables);

    static Ptr<MplsExternalFecViaTypeHandler>
    MplsExternalFecViaTypeHandlerIs(Mpls::LfibViaType viaType,
                                    const Ptr<MplsLfibTables>& lfibTables);

    ProcessingResult processMplsVia(const Ptr<MplsContext>& context) override;
    DecidedBy decidedBy(const MplsContext&) const override { return DecidedBy::label; }

    const Ptr<MplsLfibTables>& lfibTables() const noexcept { return lfibTables_; }

  private:
    Ptr<MplsLfibTables> lfibTables_;
};

Ptr<MplsExternalFecViaTypeHandler>
mplsExternalFecViaTypeHandlerFactory(Mpls::LfibViaType viaType,
                                     const Ptr<MplsLfibTables>& lfibTables);

} // namespace Ovix
