#pragma once

#include "Ovix/viaset/MplsLfibTables.h"
#include "Ovix/viaset/MplsViaTypeHandler.h"
#include "State/OvixLfibCounterCollection.h"

namespace Ovix {

/// Forwards a labelled frame to an IP next hop with a label operation: swap, push, or pop. Drops
/// with "No via" when the chosen via holds nothing and with "no rewrite" when its operation cannot
/// be done; otherwise fills the frame's next hop and has the incoming label counted.
///
/// Of a multicast set it is called for every via, and each adds a next hop of its own: one replica
/// of the frame, which carries what was already done to the frame and its own label operation
/// behind it. A via whose operation cannot be done ("no rewrite for multicast, skipping via") costs
/// its own replica only. From the second replica on there are several next hops, of which the first
/// is the frame's own, and "Exceptional" / "Using first nexthop, but %s nexthops found" says so.
class MplsIpViaTypeHandler : public MplsViaTypeHandler {
  public:
    MplsIpViaTypeHandler(Mpls::LfibViaType viaType, const Ptr<MplsLfibTables>& lfibTables,
                         const Ptr<Counter::OvixLfibCounterCollection>& counterCollection);

    static Ptr<MplsIpViaTypeHandler>
    MplsIpViaTypeHandlerIs(Mpls::LfibViaType viaType, const Ptr<MplsLfibTables>& lfibTables,
                           const Ptr<Counter::OvixLfibCounterCollection>& counterCollection);

    ProcessingResult processMplsVia(const Ptr<MplsContext>& context) override;
    DecidedBy decidedBy(const MplsContext&) const override { return DecidedBy::beneath; }
    ProcessingResult doProcessMplsVia(const Ptr<MplsContext>& context);
    /// Adds the replica of one via of a multicast set.
    ProcessingResult doProcessMplsMulticastVia(const Ptr<MplsContext>& context);

    /// The label rewrite of one via followed by the counter action of the incoming label; empty
    /// when the operation cannot be done. `multicast` is set for a replica.
    static Ptr<RewriteInfos> createRewrites(const Ptr<MplsContext>& context, const OvixMplsVia& via,
                                            bool multicast);

    const Ptr<MplsLfibTables>& lfibTables() const noexcept { return lfibTables_; }
    const Ptr<Counter::OvixLfibCounterCollection>& counterCollection() const noexcept {
        return counterCollection_;
    }

  private:
    Ptr<MplsLfibTables> lfibTables_;
    Ptr<Counter::OvixLfibCounterCollection> counterCollection_;
};

Ptr<MplsIpViaTypeHandler>
mplsIpViaTypeHandlerFactory(Mpls::LfibViaType viaType, const Ptr<MplsLfibTables>& lfibTables,
                            const Ptr<Counter::OvixLfibCounterCollection>& counterCollection);

} // namespace Ovix
