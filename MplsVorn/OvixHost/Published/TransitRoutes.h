#pragma once

#include <span>

#include "Mpls/RouteKey.h"
#include "Mpls/WeightedRecord.h"
#include "Published/TablePublisher.h"

namespace Mpls {

/// A label that is switched on to a next hop, as a control plane publishes it where there is no
/// platform beside it: in the transit LFIB and, since that is what is forwarded by, programmed in
/// the hardware status, with an adjacency whose key is the label. Part of the publisher's batch.
/// Throws as the tables' writers do.
void transitRouteIs(TablePublisher& tables, RouteKey label, std::span<const WeightedRecord> vias);

/// The same, for a route of the transit LFIB. Refused when the tables' writers refuse it; then the
/// batch is to be discarded.
Tessel::Result<void> transitRouteIs(TablePublisher& tables, const LabelRoute& route);

/// False when the transit LFIB has no such route.
bool transitRouteDel(TablePublisher& tables, RouteKey label);

} // namespace Mpls
