#pragma once

#include "Published/TablePublisher.h"
#include "route/RouteGrammar.h"
#include "tables/TableView.h"

namespace OvixCtl {

/// Removes an entry as `lfib del` does: of several owners' label routes that of the operator, or
/// else of a file, unless the name says whose. Part of the publisher's batch; `now` is the tables
/// before. Refuses what is not there or may not be removed.
Tessel::Result<void> removeNamed(Mpls::TablePublisher& publisher, const TableView& now,
                                 const EntryName& name);

/// Whether an entry is there already: of a label route, one of the same owner.
bool exists(const TableView& now, Mpls::TablePublisher& publisher, const Entry& entry);
/// Why `lfib add` refuses one that is.
Tessel::Refused mustReplace(const EntryName& name);

} // namespace OvixCtl
