#pragma once

#include "Mpls/LabelRoute.h"
#include "Published/TablePublisher.h"

namespace Mpls {

// Frames are forwarded by the hardware status, not by the transit LFIB. Where no platform programs
// the one from the other, whoever publishes a transit route does: the label's hardware route is
// then `derived`, and has an adjacency of its own, whose id is the label, or the highest free one
// when that id is taken. A route that the hardware status has for itself wins: the label is
// forwarded by it, whatever the transit LFIB says.
//
// All are part of the publisher's batch.

/// Puts a route into the transit LFIB, and programs it. Refused for a route that ends at this
/// device (a lookup in a VRF, a tail), and when the tables' writers refuse it; the batch is then
/// to be discarded.
Tessel::Result<void> transitRouteIs(TablePublisher& tables, const LabelRoute& route);

/// Removes a route of the transit LFIB, and what was programmed along with it. False when there is
/// no such route.
bool transitRouteDel(TablePublisher& tables, RouteKey label);

/// Gives the hardware status a route of its own, which wins over a derived one.
void platformRouteIs(TablePublisher& tables, const Hardware::Route& route);
/// Removes it, and programs the route that the transit LFIB has for the label, if there is one.
/// Throws std::length_error.
void platformRouteDel(TablePublisher& tables, RouteKey label);

/// Gives the hardware status an adjacency of its own. A derived one that has the id gets another.
/// Throws std::length_error.
void platformAdjacencyIs(TablePublisher& tables, std::uint32_t id,
                         const Hardware::Adjacency& adjacency);

} // namespace Mpls
