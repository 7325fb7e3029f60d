#include "lifecycle/MplsRoutingSupportedReactor.h"

#include <cassert>

namespace Ovix {

MplsRoutingSupportedReactor::MplsRoutingSupportedReactor(
    Ptr<Mpls::Hardware::Capability> capability, Ptr<const RoutingCapabilities> routingCapabilities)
    : Reactor(routingCapabilities, RoutingCapabilities::routingSupportedAttr),
      capability_(std::move(capability)), routingCapabilities_(std::move(routingCapabilities)) {
    assert(capability_ && routingCapabilities_);
    hasNotificationActiveIs(true);
    handleRoutingSupported();
}

Ptr<MplsRoutingSupportedReactor> MplsRoutingSupportedReactor::MplsRoutingSupportedReactorIs(
    const Ptr<Mpls::Hardware::Capability>& capability,
    const Ptr<const RoutingCapabilities>& routingCapabilities) {
    return Tessel::make<MplsRoutingSupportedReactor>(capability, routingCapabilities);
}

Ptr<MplsRoutingSupportedReactor>
mplsRoutingSupportedReactorFactory(const Ptr<Mpls::Hardware::Capability>& capability,
                                   const Ptr<const RoutingCapabilities>& routingCapabilities) {
    return MplsRoutingSupportedReactor::MplsRoutingSupportedReactorIs(capability,
                                                                      routingCapabilities);
}

void MplsRoutingSupportedReactor::handleRoutingSupported() {
    if (!routingCapabilities_->routingSupported()) {
        return;
    }
    capability_->mplsSupportedIs(true);
    capability_->mplsIntfCfgSupportedIs(true);
    capability_->mplsForwardIntoNexthopGroupSupportedIs(true);
    capability_->mplsEntropyLabelSupportedIs(true);
    capability_->mplsMultiLabelTerminationSupportedIs(true);
    capability_->mplsMulticastSupportedIs(true);
    capability_->mplsMvpnSupportedIs(true);
    capability_->mplsStaticVrfLabelSupportedIs(true);
}

} // namespace Ovix
