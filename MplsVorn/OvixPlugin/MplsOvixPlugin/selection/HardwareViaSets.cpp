// Via sets from the routes and adjacencies that the platform has programmed.

#include "FrameEvents.h"
#include "MplsOvixPlugin.h"
#include "Ovix/trace/RoadNotes.h"
#include "Ovix/viaset/ViaSets.h"
#include "Tables/Corruptions.h"

namespace Ovix {

namespace {

constexpr FrameEvent noAdjacency{FrameCategory::exceptional, "No adjacency for label %s"};
constexpr FrameEvent noValidVias{FrameCategory::exceptional,
                                 "No valid vias adjacency for label %s"};

void noteAsked(Mpls::RouteKey key, std::string_view found, std::uint64_t adjacency = 0) {
    if (RoadNotes::isOn()) [[unlikely]] {
        RoadNotes::add("table", field("table", "hardware"), field("label", key.topLabel()),
                       field("found", found), field("adjacency", adjacency));
    }
}

} // namespace

Ptr<OvixMplsViaSet>
MplsOvixPlugin::viaSetFromHwStatus(const Ptr<RoutingContext>& context,
                                   const Ptr<const Mpls::Hardware::Status>& status,
                                   Mpls::RouteKey key) const {
    if (!status) {
        return nullptr;
    }
    // Absent and unprogrammed are normal while the platform works on a route: traced, not counted.
    const Mpls::Hardware::Route route = readOrDefault(status, [&] { return status->route(key); });
    if (route.isEq(Mpls::Hardware::Route())) {
        traceFrame(*context, "No route in hw status for ", key);
        noteAsked(key, "no");
        return nullptr;
    }
    if (route.unprogrammed) {
        traceFrame(*context, "Route is unprogrammed for label ", key.topLabel());
        noteAsked(key, "unprogrammed", route.adjacencyKey);
        return nullptr;
    }
    const Ptr<const Mpls::Hardware::Adjacency>& adjacency = readOrDefault(
        status, [&]() -> const auto& { return status->adjacency(route); });
    if (!adjacency) {
        report(*context, noAdjacency, key.topLabel());
        noteAsked(key, "no adjacency", route.adjacencyKey);
        return nullptr;
    }
    auto viaSet =
        Tessel::make<OvixHwViaSet>(adjacency, hwStatusViaHelper_, adjacency->useBackups());
    if (viaSet->useBackups()) { // marked so, or because no via is usable
        traceFrame(*context, "Reading backups from adjacency for ", key.topLabel());
    }
    if (!viaSet->hasValidVia()) {
        report(*context, noValidVias, key.topLabel());
        noteAsked(key, "no usable via", route.adjacencyKey);
        return nullptr;
    }
    noteAsked(key, viaSet->useBackups() ? "backups" : "yes", route.adjacencyKey);
    return viaSet;
}

} // namespace Ovix
