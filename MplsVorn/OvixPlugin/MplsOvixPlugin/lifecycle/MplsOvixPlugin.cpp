#include "MplsOvixPlugin.h"

#include "MplsOvixMulticast/MplsMldpInputStep.h"
#include "counting/LfibReactors.h"
#include "entry/MplsRoutingHandler.h"
#include "handlers/MplsMtuExceptionHandler.h"
#include "lifecycle/MplsRoutingSupportedReactor.h"

namespace Ovix {

MplsOvixPlugin::MplsOvixPlugin(std::string name) : OvixPlugin(std::move(name)) {
    defaultInit();
}

void MplsOvixPlugin::defaultInit() {
    lfibTablesIs();
    lfibCounterCollectionIs("LfibCounters");
}

MplsOvixPlugin::~MplsOvixPlugin() {
    destroyingIs(true);
    lfibCounterCollectionDel();
    mplsRoutingHandlerDel();
    mplsMtuExceptionHandlerDel();
    hwStatusViaHelperDel();
    routingSupportedReactorDel();
    mplsMldpInputStepDel();
    lfibTablesDel();
    lfibStatusSmDel();
    clearLfibCountersSmDel();
}

Ptr<MplsOvixPlugin> mplsOvixPluginFactory(const std::string& name) {
    return Tessel::make<MplsOvixPlugin>(name);
}

Ptr<Counter::OvixLfibCounterCollection>
MplsOvixPlugin::lfibCounterCollectionIs(const std::string& name) {
    if (lfibCounterCollection_ && lfibCounterCollection_->name() == name) {
        return lfibCounterCollection_;
    }
    auto collection = Tessel::make<Counter::OvixLfibCounterCollection>(name);
    if (lfibCounterCollection_) {
        lfibCounterCollection_->parentIs(nullptr);
    }
    collection->parentIs(this);
    assignAndPublish(lfibCounterCollection_, collection, lfibCounterCollectionAttr);
    return collection;
}

Ptr<Counter::OvixLfibCounterCollection> MplsOvixPlugin::lfibCounterCollectionDel() {
    if (lfibCounterCollection_) {
        lfibCounterCollection_->parentIs(nullptr);
    }
    return clearAndPublish(lfibCounterCollection_, lfibCounterCollectionAttr);
}

Ptr<const MplsRoutingHandler> MplsOvixPlugin::mplsRoutingHandler() const noexcept {
    return mplsRoutingHandler_;
}

Ptr<MplsRoutingHandler> MplsOvixPlugin::mplsRoutingHandler() noexcept {
    return mplsRoutingHandler_;
}

Ptr<MplsRoutingHandler> MplsOvixPlugin::mplsRoutingHandlerIs(MplsOvixPlugin* plugin) {
    if (!mplsRoutingHandler_ || mplsRoutingHandler_->plugin() != plugin) {
        assignAndPublish(mplsRoutingHandler_, Tessel::make<MplsRoutingHandler>(plugin),
                         mplsRoutingHandlerAttr);
    }
    return mplsRoutingHandler_;
}

Ptr<MplsRoutingHandler> MplsOvixPlugin::mplsRoutingHandlerDel() {
    return clearAndPublish(mplsRoutingHandler_, mplsRoutingHandlerAttr);
}

Ptr<MplsMtuExceptionHandler> MplsOvixPlugin::mplsMtuExceptionHandlerIs() {
    if (!mplsMtuExceptionHandler_) {
        assignAndPublish(mplsMtuExceptionHandler_, Tessel::make<MplsMtuExceptionHandler>(),
                         mplsMtuExceptionHandlerAttr);
    }
    return mplsMtuExceptionHandler_;
}

Ptr<MplsMtuExceptionHandler> MplsOvixPlugin::mplsMtuExceptionHandlerDel() {
    return clearAndPublish(mplsMtuExceptionHandler_, mplsMtuExceptionHandlerAttr);
}

Ptr<HwStatusViaHelper> MplsOvixPlugin::hwStatusViaHelperIs(
    const Ptr<const Interface::EthIntfStatusDir>& ethIntfStatusDir,
    const Ptr<const Routing::Multicast::MvpnIntfStatus>& mvpnIntfStatus) {
    if (!hwStatusViaHelper_ || hwStatusViaHelper_->ethIntfStatusDir() != ethIntfStatusDir ||
        hwStatusViaHelper_->mvpnIntfStatus() != mvpnIntfStatus) {
        assignAndPublish(hwStatusViaHelper_,
                         Tessel::make<HwStatusViaHelper>(ethIntfStatusDir, mvpnIntfStatus),
                         hwStatusViaHelperAttr);
    }
    return hwStatusViaHelper_;
}

Ptr<HwStatusViaHelper> MplsOvixPlugin::hwStatusViaHelperDel() {
    return clearAndPublish(hwStatusViaHelper_, hwStatusViaHelperAttr);
}

template <typename Reactor>
const Ptr<Reactor>& MplsOvixPlugin::reactorIs(Ptr<Reactor>& held, const Ptr<Reactor>& made,
                                              Tessel::AttrId attribute) {
    if (held) {
        held->hasNotificationActiveIs(false);
    }
    assignAndPublish(held, made, attribute);
    held->hasNotificationActiveIs(true);
    return held;
}

template <typename Reactor>
Ptr<Reactor> MplsOvixPlugin::reactorDel(Ptr<Reactor>& held, Tessel::AttrId attribute) {
    if (held) {
        held->hasNotificationActiveIs(false);
    }
    return clearAndPublish(held, attribute);
}

Ptr<MplsRoutingSupportedReactor> MplsOvixPlugin::routingSupportedReactorIs(
    const Ptr<Mpls::Hardware::Capability>& capability,
    const Ptr<const RoutingCapabilities>& routingCapabilities) {
    if (!routingSupportedReactor_ || routingSupportedReactor_->capability() != capability ||
        routingSupportedReactor_->routingCapabilities() != routingCapabilities) {
        return reactorIs(routingSupportedReactor_,
                         Tessel::make<MplsRoutingSupportedReactor>(capability, routingCapabilities),
                         routingSupportedReactorAttr);
    }
    return routingSupportedReactor_;
}

Ptr<MplsRoutingSupportedReactor> MplsOvixPlugin::routingSupportedReactorDel() {
    return reactorDel(routingSupportedReactor_, routingSupportedReactorAttr);
}

Ptr<MplsMldpInputStep> MplsOvixPlugin::mplsMldpInputStepIs(
    const Ptr<const Routing::Multicast::MvpnIntfStatus>& mvpnIntfStatus, const Ptr<Ports>& ports,
    const Ptr<PacketParser>& packetParser) {
    if (!mplsMldpInputStep_ || mplsMldpInputStep_->mvpnIntfStatus() != mvpnIntfStatus ||
        mplsMldpInputStep_->ports() != ports ||
        mplsMldpInputStep_->packetParser() != packetParser) {
        assignAndPublish(mplsMldpInputStep_,
                         Tessel::make<MplsMldpInputStep>(mvpnIntfStatus, ports, packetParser),
                         mplsMldpInputStepAttr);
    }
    return mplsMldpInputStep_;
}

Ptr<MplsMldpInputStep> MplsOvixPlugin::mplsMldpInputStepDel() {
    return clearAndPublish(mplsMldpInputStep_, mplsMldpInputStepAttr);
}

void MplsOvixPlugin::mvpnIntfStatusIs(const Ptr<const Routing::Multicast::MvpnIntfStatus>& status) {
    assignAndPublish(mvpnIntfStatus_, status, mvpnIntfStatusAttr);
}

void MplsOvixPlugin::mplsRoutingInfoIs(const Ptr<const Mpls::RoutingInfo>& info) {
    assignAndPublish(mplsRoutingInfo_, info, mplsRoutingInfoAttr);
}

void MplsOvixPlugin::mplsHardwareCapabilityIs(const Ptr<Mpls::Hardware::Capability>& capability) {
    assignAndPublish(mplsHardwareCapability_, capability, mplsHardwareCapabilityAttr);
}

void MplsOvixPlugin::ethIntfStatusDirIs(const Ptr<const Interface::EthIntfStatusDir>& directory) {
    assignAndPublish(ethIntfStatusDir_, directory, ethIntfStatusDirAttr);
}

Ptr<MplsLfibTables> MplsOvixPlugin::lfibTablesIs() {
    if (!lfibTables_) {
        assignAndPublish(lfibTables_, Tessel::make<MplsLfibTables>(), lfibTablesAttr);
    }
    return lfibTables_;
}

Ptr<MplsLfibTables> MplsOvixPlugin::lfibTablesDel() {
    return clearAndPublish(lfibTables_, lfibTablesAttr);
}

void MplsOvixPlugin::mplsViaTypeHandlerRegistryIs(const Ptr<MplsViaTypeHandlerRegistry>& registry) {
    assignAndPublish(mplsViaTypeHandlerRegistry_, registry, mplsViaTypeHandlerRegistryAttr);
}

Ptr<MplsLfibStatusSm>
MplsOvixPlugin::lfibStatusSmIs(const Ptr<const Mpls::LfibStatus>& lfibStatus,
                               const Ptr<Counter::OvixLfibCounterCollection>& counterCollection) {
    if (!lfibStatusSm_ || lfibStatusSm_->lfibStatus() != lfibStatus ||
        lfibStatusSm_->counterCollection() != counterCollection) {
        return reactorIs(lfibStatusSm_,
                         Tessel::make<MplsLfibStatusSm>(lfibStatus, counterCollection),
                         lfibStatusSmAttr);
    }
    return lfibStatusSm_;
}

Ptr<MplsLfibStatusSm> MplsOvixPlugin::lfibStatusSmDel() {
    return reactorDel(lfibStatusSm_, lfibStatusSmAttr);
}

Ptr<ClearLfibCountersSm> MplsOvixPlugin::clearLfibCountersSmIs(
    const Ptr<Counter::OvixLfibCounterCollection>& counterCollection,
    const Ptr<Counter::ClearCountersRequests>& requests) {
    if (!clearLfibCountersSm_ || clearLfibCountersSm_->counterCollection() != counterCollection ||
        clearLfibCountersSm_->requests() != requests) {
        return reactorIs(clearLfibCountersSm_,
                         Tessel::make<ClearLfibCountersSm>(counterCollection, requests),
                         clearLfibCountersSmAttr);
    }
    return clearLfibCountersSm_;
}

Ptr<ClearLfibCountersSm> MplsOvixPlugin::clearLfibCountersSmDel() {
    return reactorDel(clearLfibCountersSm_, clearLfibCountersSmAttr);
}

} // namespace Ovix
