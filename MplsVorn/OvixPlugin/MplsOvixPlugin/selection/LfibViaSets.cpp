// Via sets from the label tables that the control plane publishes.

#include "FrameEvents.h"
#include "MplsOvixPlugin.h"
#include "Ovix/viaset/ViaSets.h"
#include "Tables/Corruptions.h"

namespace Ovix {

namespace {

constexpr FrameEvent noViaSet{FrameCategory::drop, "No via set in lfib %s for %s"};
constexpr FrameEvent noViaKeys{FrameCategory::drop, "No via keys in lfib %s for %s"};
constexpr FrameEvent severalViaKeys{FrameCategory::drop, "More than 1 via key in lfib %s for %s"};

Ptr<OvixMplsViaSet> fromOneKey(const Ptr<const Mpls::LfibStatus>& lfib,
                               const Mpls::LfibViaSet& viaSet) {
    const Mpls::LfibViaKey key = viaSet.viaKeys[0];
    if (key.viaType == Mpls::LfibViaType::multicastIpLookup) {
        const auto via = readOrDefault(lfib, [&] { return lfib->multicastIpLookupVia(key); });
        return Tessel::make<OvixMulticastDecapViaSet>(viaSet, via);
    }
    return Tessel::make<OvixLfibViaSet>(viaSet, key);
}

[[gnu::noinline]] Ptr<OvixMplsViaSet> viaSetOfRoute(const RoutingContext& context,
                                                    const Ptr<const Mpls::LfibStatus>& lfib,
                                                    Mpls::RouteKey key,
                                                    Mpls::LfibViaSetKey viaSetKey) {
    const Mpls::LfibViaSet viaSet = readOrDefault(lfib, [&] { return lfib->viaSet(viaSetKey); });
    if (viaSet.viaKeys.size() == 1) {
        return fromOneKey(lfib, viaSet);
    }
    if (!viaSet.viaKeys.empty()) {
        report(context, severalViaKeys, viaSetKey, key);
    } else if (viaSet.isEq(Mpls::LfibViaSet(Mpls::LfibViaSetKey()))) {
        report(context, noViaSet, viaSetKey, key);
    } else {
        report(context, noViaKeys, viaSetKey, key);
    }
    return nullptr;
}

} // namespace

Ptr<OvixMplsViaSet> MplsOvixPlugin::viaSetFromLfibStatus(const Ptr<RoutingContext>& context,
                                                         const Ptr<const Mpls::LfibStatus>& lfib,
                                                         Mpls::RouteKey key) const {
    if (!lfib) {
        return nullptr; // not mounted: holding no label is normal, so nothing is counted
    }
    const Mpls::LfibViaSetKey viaSetKey =
        readOrDefault(lfib, [&] { return lfib->route(key); }).viaSetKey;
    // An absent route names the default key, which names no via set: no need to go and see.
    if (viaSetKey == Mpls::LfibViaSetKey()) [[likely]] {
        report(*context, noViaSet, viaSetKey, key);
        return nullptr;
    }
    return viaSetOfRoute(*context, lfib, key, viaSetKey);
}

} // namespace Ovix
