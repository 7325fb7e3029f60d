#pragma once

#include <nlohmann/json_fwd.hpp>

#include "route/IntfText.h"
#include "route/RouteView.h"

namespace OvixCtl {

/// An entry as JSON. By table:
///   an LFIB    {"table", "label", "type", "multicast", "lookup": {"vrf", "payload"} or null,
///               "tail": {"interface"} or null, "vias": [VIA]}
///   hardware   {"table", "label", "adjacency", "unprogrammed"}
///   adjacency  {"table", "id", "type", "multicast", "useBackups", "vias": [VIA],
///               "backups": [VIA]}
///   mvpn       {"table", "vrfId", "interface"}
/// and instead of all behind the key, {"corrupt": TEXT} for what cannot be right. VIA is {"action",
/// "labels", "nexthop", "interface", "weight", "ttl", "tc", "pushTtl", "payload", "mtu", "vlan",
/// "fec", "vrf"}. Every key is always there; null stands for what is not told.
nlohmann::ordered_json routeJson(const RouteView& route, const IntfText& interfaces);

/// {"table", KEY}: what names an entry.
nlohmann::ordered_json routeKeyJson(Mpls::TableId table, std::uint32_t key);

} // namespace OvixCtl
