#include "whatif/Wires.h"

#include <algorithm>

#include "Tessel/Exceptions.h"

namespace OvixCtl {

namespace {

/// Whether a via is a tunnel: it pushes labels, or leads to the other end itself. Anybody else
/// would take the pseudowire's label for one of its own.
bool isTunnel(const L2::Pseudowire& wire, const Mpls::Via& via) {
    const auto& adjacent = wire.adjacent;
    return !via.labels().empty() || via.nexthop().family() == Lumo::IpFamily::none ||
           via.nexthop() == wire.neighbour ||
           std::find(adjacent.begin(), adjacent.end(), via.nexthop()) != adjacent.end();
}

} // namespace

Wires::Wires(const Tessel::TableReader& tables, const std::vector<Configured>& configured) {
    for (const Configured& wire : configured) {
        wires_.push_back({wire.name, wire.circuit, wire.tunnel, {}});
    }
    std::vector<L2::Pseudowire> published;
    try {
        published = L2::Pseudowires::read(tables);
    } catch (const Tessel::CorruptionDetected&) {
        return; // they carry nothing before and after
    }
    for (L2::Pseudowire& wire : published) {
        const Lumo::IntfId circuit(wire.circuit);
        const bool isTaken =
            std::any_of(configured.begin(), configured.end(),
                        [&](const Configured& other) { return other.circuit == circuit; });
        if (wire.isUp() && !isTaken) {
            routes_.try_emplace(wire.neighbour);
            wires_.push_back({wire.name, circuit, {}, std::move(wire)});
        }
    }
}

void Wires::take(const L3::Route& route) {
    if (!route.vrf.view().empty()) {
        return;
    }
    const Lumo::IpGenPrefix range = route.key.range();
    for (auto end = routes_.lower_bound(route.key.prefix);
         end != routes_.end() && range.contains(end->first); ++end) {
        auto& longest = end->second;
        if (!longest || longest->key.length < route.key.length) {
            longest = route;
        }
    }
}

const L3::Route* Wires::routeOf(const Wire& wire) const {
    if (wire.tunnel) {
        return &*wire.tunnel;
    }
    const auto found = routes_.find(wire.published->neighbour);
    const bool leads =
        found != routes_.end() && found->second && found->second->kind == L3::Route::Kind::forward;
    return leads ? &*found->second : nullptr;
}

Way Wires::toOtherEnd(const Wire& wire, const Ways& ways) const {
    const L3::Route* const route = routeOf(wire);
    if (route == nullptr || !ways.isUp(wire.circuit)) {
        return {};
    }
    Way way =
        wire.tunnel ? ways.ofPrefix(*route) : ways.ofPrefix(*route, [&](const Mpls::Via& via) {
            return isTunnel(*wire.published, via);
        });
    return way.isLost() ? Way() : way;
}

bool Wires::concerns(const Wire& wire, const Ways& ways) const {
    const L3::Route* const route = routeOf(wire);
    return !ways.isUp(wire.circuit) || (route != nullptr && ways.concerns(*route));
}

} // namespace OvixCtl
