#include "Mpls/LabelRoute.h"

#include <algorithm>

#include "Tessel/Exceptions.h"

namespace Mpls {

using Tessel::Refused;
using Tessel::Result;

namespace {

/// Reads the record that the via key names. It is the set's first member, too.
Result<void> readKeyedVia(const LfibStatus& lfib, const LfibViaKey& key, LabelRoute& route) {
    if (key.viaType == LfibViaType::multicastIpLookup) {
        route.tail = lfib.multicastIpLookupVia(key);
        return {};
    }
    const LfibIpLookupVia lookup = lfib.ipLookupVia(key);
    const auto via = Via::popAndLookUp(lookup.vrfName, lookup.payloadType);
    if (!via) {
        return via.refused();
    }
    route.vias.push_back({via.value(), 1});
    return {};
}

Result<void> readMembers(const LfibStatus& lfib, std::span<const LfibWeightedVia> members,
                         LabelRoute& route) {
    for (const LfibWeightedVia& member : members) {
        const auto via = Via::fromRecord(lfib.readIpVia(member));
        if (!via) {
            return via.refused();
        }
        route.vias.push_back({via.value(), member.weight});
    }
    return {};
}

Result<LabelRoute> read(const LfibStatus& lfib, TableId table, Lumo::MplsLabel label) {
    LabelRoute route;
    route.label = label;
    route.table = table;
    const LfibViaSet set = lfib.viaSet(lfib.route(route.key()).viaSetKey);
    const LfibViaKey key = set.viaKeys.empty() ? LfibViaKey() : set.viaKeys[0];
    route.viaType = key.viaType;
    route.setType = set.type;
    route.owner = RouteOwner{set.owner};
    route.preference = set.preference;
    route.flags = set.flags;
    const bool isKeyed = key.index != 0;
    const auto keyed = isKeyed ? readKeyedVia(lfib, key, route) : Result<void>();
    if (!keyed) {
        return keyed.refused();
    }
    const auto members = set.members.view();
    const std::size_t first = isKeyed && !members.empty() ? 1 : 0;
    if (const auto rest = readMembers(lfib, members.subspan(first), route); !rest) {
        return rest.refused();
    }
    return route;
}

LfibViaType typeOf(const Via& via) noexcept {
    return via.isLookUp()   ? LfibViaType::ipLookup
           : via.fec() != 0 ? LfibViaType::externalFec
                            : LfibViaType::ip;
}

} // namespace

Result<void> checkRouteLabel(Lumo::MplsLabel label) {
    if (label == Lumo::implicitNull) {
        return Refused{"label 3 (implicit null) never stands in a frame (RFC 3032 section 2.1)"};
    }
    if (label.isSpecialPurpose()) {
        return Refused{"label " + label.prettyString() +
                       " is a special-purpose label, and no table holds labels 0 to 15 (RFC 7274)"};
    }
    return {};
}

LfibViaType impliedType(std::span<const WeightedVia> vias, bool hasTail) noexcept {
    return hasTail        ? LfibViaType::multicastIpLookup
           : vias.empty() ? LfibViaType::ip
                          : typeOf(vias.front().via);
}

Result<void> checkType(LfibViaType type, std::span<const WeightedVia> vias, bool hasTail) {
    if (Tessel::wordOf(type).empty() && !hasTail) {
        return {};
    }
    if (hasTail != (type == LfibViaType::multicastIpLookup)) {
        return Refused{"type multicast-ip-lookup goes with tail"};
    }
    const LfibViaType wanted = hasTail               ? LfibViaType::ip
                               : Mpls::looksUp(type) ? LfibViaType::ipLookup
                                                     : type;
    for (const WeightedVia& via : vias) {
        const LfibViaType found = typeOf(via.via);
        const bool isBesideFec = type == LfibViaType::externalFec && found == LfibViaType::ip;
        if (found != wanted && !isBesideFec) { // without a FEC the via's own interface is taken
            return Refused{"a route of type " + std::string(Tessel::wordOf(type)) +
                           " has no via of type " + std::string(Tessel::wordOf(found))};
        }
    }
    return {};
}

Result<void> checkTable(const LabelRoute& route) {
    const bool endsHere =
        route.tail || std::any_of(route.vias.begin(), route.vias.end(),
                                  [](const auto& via) { return via.via.isLookUp(); });
    if (route.table == TableId::transitLfib && endsHere) {
        return Refused{"a route with " + std::string(route.tail ? "tail" : "vrf") +
                       " ends here and cannot be in table transit"};
    }
    return {};
}

Result<LabelRoute> readLabelRoute(const LfibStatus& lfib, TableId table, Lumo::MplsLabel label) {
    try {
        return read(lfib, table, label);
    } catch (const Tessel::CorruptionDetected& corruption) {
        return Refused{corruption.what()};
    } catch (const Tessel::RangeError& range) {
        return Refused{range.what()};
    }
}

} // namespace Mpls
