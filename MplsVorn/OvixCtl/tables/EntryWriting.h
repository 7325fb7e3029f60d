#pragma once

#include "Published/TablePublisher.h"
#include "tables/TableView.h"

namespace OvixCtl {

// All are part of the publisher's batch, and throw std::exception for what the tables refuse.

/// Writes an entry as it is, whatever other tables hold.
void entryIs(Mpls::TablePublisher& publisher, const Entry& entry);

// As an operator changes one entry: what depends on it follows, `now` being the tables before.

/// A transit route is programmed along with it. Refuses a route through an adjacency that is not
/// there, and another content for the adjacency of a transit route.
Tessel::Result<void> changeEntry(Mpls::TablePublisher& publisher, const TableView& now,
                                 const Entry& entry);
/// Removes an entry that is no label route; programs the transit route of a label that loses the
/// platform's own one. Refuses an adjacency in use, and a hardware route that belongs to a transit
/// route. Throws std::length_error.
Tessel::Result<void> removeEntry(Mpls::TablePublisher& publisher, const TableView& now,
                                 Mpls::TableId table, std::uint32_t key);

} // namespace OvixCtl
