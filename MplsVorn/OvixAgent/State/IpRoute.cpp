#include "State/IpRoute.h"

#include <algorithm>

#include "Ovix/rewrite/MplsRewrites.h"

namespace OvixAgent {

namespace {

IpRouteVia resolveVia(const Mpls::WeightedVia& weighted, PortIndex port,
                      const Neighbours* configured) {
    const Mpls::Via& via = weighted.via;
    IpRouteVia resolved;
    resolved.port = port;
    resolved.nexthop = via.nexthop();
    resolved.onLink = via.nexthop().family() == Lumo::IpFamily::none;
    if (configured != nullptr && !resolved.onLink) {
        resolved.mac = configured->findConfigured(via.nexthop(), port);
    }
    resolved.weight = weighted.weight;
    if (via.action() == Lumo::MplsLabelAction::push) {
        resolved.push = pushRewrite(via.record().labelOperation(), via.record().ttl());
    }
    return resolved;
}

} // namespace

IpRoute resolve(const L3::Route& route, const PortTable& ports, const Neighbours* configured) {
    switch (route.kind) {
    case L3::Route::Kind::forward:
        break;
    case L3::Route::Kind::local:
        return IpRoute::local();
    case L3::Route::Kind::drop:
        return IpRoute::drop();
    case L3::Route::Kind::unreachable:
        return IpRoute::drop(Reason::unreachableRoute);
    case L3::Route::Kind::prohibit:
        return IpRoute::drop(Reason::prohibitedRoute);
    }
    std::vector<IpRouteVia> vias;
    for (const Mpls::WeightedVia& via : route.vias) {
        if (const Port* port = ports.byIntfId(via.via.intf())) {
            vias.push_back(resolveVia(via, ports.indexOf(*port), configured));
        }
    }
    const bool hasWeight =
        std::any_of(vias.begin(), vias.end(), [](const IpRouteVia& via) { return via.weight > 0; });
    if (!vias.empty() && !hasWeight) {
        vias.front().weight = 1;
    }
    return vias.empty() ? IpRoute::local() : IpRoute::forward(std::move(vias));
}

Ptr<Ovix::RewriteImpl> pushRewrite(const Lumo::UnboundedMplsLabelOperation& operation,
                                   Mpls::TtlMode ttl) {
    return Ovix::MplsIpPushRewriteImpl::fromInfo(
        Tessel::make<Ovix::MplsIpPushRewriteInfo>(operation, ttl));
}

Lumo::UnboundedMplsLabelOperation pushedLabels(const Ovix::RewriteImpl& push) {
    const Ptr<const Ovix::RewriteInfo> info = push.baseInfo();
    return static_cast<const Ovix::MplsIpPushRewriteInfo&>(*info).labels.operation();
}

} // namespace OvixAgent
