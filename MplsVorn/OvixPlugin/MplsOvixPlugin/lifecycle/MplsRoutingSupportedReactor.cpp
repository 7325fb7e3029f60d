#include "lifecycle/MplsRoutingSupportedReactor.h"

namespace Ovix {

MplsRoutingSupportedReactor::MplsRoutingSupportedReactor(
    Ptr<Mpls::Hardware::Capability> capability, Ptr<const RoutingCapabilities> routingCapabilities)
    : capability_(std::move(capability)), routingCapabilities_(std::move(routingCapabilities)) {
    hasNotificationActiveIs(true);
    handleRoutingSupported();
}

MplsRoutingSupportedReactor::~MplsRoutingSupportedReactor() {
    hasNotificationActiveIs(false);
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

void MplsRoutingSupportedReactor::hasNotificationActiveIs(bool active) {
    active_ = active;
    if (active) {
        routingCapabilities_->subscribe(*this);
    } else {
        routingCapabilities_->unsubscribe(*this);
    }
}

void MplsRoutingSupportedReactor::attributeChanged(const Tessel::Entity&, Tessel::AttrId attribute,
                                                   std::uint64_t) {
    routingCapabilitiesDispatch(attribute);
}

void MplsRoutingSupportedReactor::routingCapabilitiesDispatch(Tessel::AttrId attribute) {
    if (!zombie_ && attribute == RoutingCapabilities::routingSupportedAttr) {
        handleRoutingSupported();
    }
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
