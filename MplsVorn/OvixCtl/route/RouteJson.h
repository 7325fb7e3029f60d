#pragma once

#include <string>
#include <string_view>

#include "route/RoutePrinting.h"

namespace OvixCtl {

/// An entry as JSON on one line; `ovixctl lfib show --help` lists the keys. Bytes of a name that
/// are not UTF-8 are replaced.
std::string routeJson(const Entry& entry, const IntfText& interfaces);
/// {"table", KEY}: the table and the key of an entry.
std::string routeKeyJson(Mpls::TableId table, std::uint32_t key);
/// The text as a JSON string, likewise.
std::string jsonText(std::string_view text);

} // namespace OvixCtl
