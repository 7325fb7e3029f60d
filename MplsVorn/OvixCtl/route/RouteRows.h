#pragma once

#include "route/IntfText.h"
#include "route/RouteView.h"
#include "route/TextTable.h"

namespace OvixCtl {

/// The columns of tables for people.
std::vector<TextTable::Column> routeColumns();

/// An entry as lines of them, one per via.
std::vector<TextTable::Cells> routeRows(const RouteView& route, const IntfText& interfaces);

} // namespace OvixCtl
