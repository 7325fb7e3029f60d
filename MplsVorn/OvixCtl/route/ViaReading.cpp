#include "route/ViaReading.h"

#include "Tessel/Exceptions.h"

namespace OvixCtl {

using Mpls::LfibViaType;
using Tessel::CorruptionDetected;

namespace {

/// What a record of the right check may still say wrongly.
void checkVia(const Ovix::OvixMplsVia& via) {
    if (via.labelsInterned) {
        throw CorruptionDetected("the label stack of a via is another process's own");
    }
    const auto operation = via.labelOperation();
    if (operation.packed().size() % operation.packedLabelSize != 0) {
        throw CorruptionDetected("the label stack of a via ends within a label");
    }
    for (std::size_t i = 0; i < operation.depth(); ++i) {
        static_cast<void>(operation.label(i)); // throws for more than 20 bits
    }
}

/// The table handles a damaged via itself and only tells its hook.
Ovix::OvixMplsVia readVia(const Mpls::LfibStatus& lfib, const Mpls::LfibWeightedVia& member) {
    const std::uint64_t before = lfib.corruptionsDetected();
    const Ovix::OvixMplsVia via = lfib.ipVia(member);
    if (lfib.corruptionsDetected() != before) {
        throw CorruptionDetected(lfib.lastCorruption());
    }
    checkVia(via);
    return via;
}

std::vector<Mpls::WeightedRecord> viasOf(const Mpls::Hardware::Adjacency& adjacency, bool backups) {
    std::vector<Mpls::WeightedRecord> vias;
    const auto entries = adjacency.entries(backups);
    vias.reserve(entries.size());
    for (std::uint32_t i = 0; i < entries.size(); ++i) {
        vias.push_back({adjacency.via(backups, i), entries[i].weight});
        checkVia(vias.back().via);
    }
    return vias;
}

/// Reads what the via key names, if it names something; true when it stands among the members.
bool readKeyedVia(const Mpls::LfibStatus& lfib, const Mpls::LfibViaKey& key, LfibRouteView& view) {
    if (key.index == 0) {
        return false;
    }
    if (key.viaType == LfibViaType::multicastIpLookup) {
        view.tail = lfib.multicastIpLookupVia(key);
        return true;
    }
    const Mpls::LfibIpLookupVia lookup = lfib.ipLookupVia(key);
    view.lookup = LookupView{lookup.vrfName, lookup.payloadType};
    return true;
}

} // namespace

LfibRouteView readLfibRoute(const Mpls::LfibStatus& lfib, std::uint32_t label) {
    const auto route = lfib.route(Mpls::RouteKey::fromLabel(Lumo::MplsLabel(label)));
    const Mpls::LfibViaSet set = lfib.viaSet(route.viaSetKey);
    LfibRouteView view;
    view.setType = set.type;
    view.origin = set.origin;
    view.flags = set.flags;
    bool keyed = false;
    if (!set.viaKeys.empty()) {
        view.type = set.viaKeys[0].viaType;
        keyed = readKeyedVia(lfib, set.viaKeys[0], view);
    }
    const auto members = set.members.view();
    for (std::size_t i = keyed ? 1 : 0; i < members.size(); ++i) {
        view.vias.push_back({readVia(lfib, members[i]), members[i].weight});
    }
    return view;
}

AdjacencyView readAdjacency(const Mpls::Hardware::Adjacency& adjacency) {
    return {adjacency.viaType(), adjacency.setType(), adjacency.useBackups(),
            viasOf(adjacency, false), viasOf(adjacency, true)};
}

} // namespace OvixCtl
