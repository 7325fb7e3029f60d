// From the plugin's main object to one that forwards: state fetched, tables mounted, hooks set.

#include <array>

#include "FrameEvents.h"
#include "MplsOvixMulticast/MplsMldpInputStep.h"
#include "MplsOvixMulticast/MulticastEvents.h"
#include "MplsOvixPlugin.h"
#include "counting/LfibCounterAction.h"
#include "counting/LfibReactors.h"
#include "entry/MplsRoutingHandler.h"
#include "handlers/MplsMtuExceptionHandler.h"
#include "lifecycle/MplsRoutingSupportedReactor.h"

namespace Ovix {

namespace {

constexpr std::string_view routingInfoPath = "routing/mpls/routingInfo/status";
constexpr std::string_view hardwareCapabilityPath = "routing/hardware/mpls/capability";
constexpr std::string_view hardwareStatusPath = "routing/hardware/mpls/status";
constexpr std::string_view ethIntfStatusPath = "interface/status/eth/intf";

constexpr std::string_view decapLfib = "mpls/decapLfib";
constexpr std::string_view evpnEthernetSegmentFilterLfib = "mpls/evpnEthernetSegmentFilterLfib";
constexpr std::string_view evpnEtreeLeafLabelLfib = "mpls/evpnEtreeLeafLabelLfib";
constexpr std::string_view pseudowireLfib = "mpls/pseudowireLfib";
constexpr std::string_view transitLfib = "mpls/transitLfib";

constexpr std::array lfibMounts = {decapLfib, evpnEthernetSegmentFilterLfib, evpnEtreeLeafLabelLfib,
                                   pseudowireLfib, transitLfib};

} // namespace

void MplsOvixPlugin::mountsComplete(const Ptr<Tessel::EntityManager>& entityManager) {
    mainTrace().trace(0, static_cast<const char*>(__PRETTY_FUNCTION__));
    mplsRoutingInfoIs(entityManager->fetch<Mpls::RoutingInfo>(routingInfoPath).entity);
    mplsHardwareCapabilityIs(
        entityManager->fetch<Mpls::Hardware::Capability>(hardwareCapabilityPath).entity);
    lfibTables_->hardwareStatusIs(
        entityManager->fetch<Mpls::Hardware::Status>(hardwareStatusPath).entity);
    ethIntfStatusDirIs(entityManager->fetch<Interface::EthIntfStatusDir>(ethIntfStatusPath).entity);

    const auto tables =
        Tessel::ShmEntityManager::ofSystem(entityManager->systemName(), entityManager->local());
    for (const std::string_view path : lfibMounts) {
        tables->mount(path, Mpls::LfibStatus::entityTypeName, Tessel::MountKind::reading);
    }
    tables->mount(Routing::Multicast::MvpnIntfStatus::mountPath,
                  Routing::Multicast::MvpnIntfStatus::entityTypeName, Tessel::MountKind::reading);
}

// The routing handler joins the agent's list only when everything that it needs exists, so that no
// frame sees a half-built plugin.
void MplsOvixPlugin::activeInit() {
    mainTrace().trace(0, static_cast<const char*>(__PRETTY_FUNCTION__));
    assert(mplsHardwareCapability_);
    doRegisterMplsViaTypeHandlers();
    mplsHardwareCapability_->mplsFragNeededIcmpTunnelingSupportedIs(true);
    mplsHardwareCapability_->mplsStaticVrfLabelSupportedIs(true);
    mplsHardwareCapability_->mplsMvpnSupportedIs(true);
    mplsHardwareCapability_->mplsSupportedIs(true);
    if (manager()->shmEntitySource()) {
        takeSharedTables();
    }
    mplsRoutingHandlerIs(this);
    mplsMtuExceptionHandlerIs();
    hwStatusViaHelperIs(ethIntfStatusDir_, mvpnIntfStatus_);
    lfibStatusSmIs(lfibTables_->transitLfib(), lfibCounterCollection_);
    manager()->routingHandlers()->handlerIs(mplsRoutingHandler_);
    manager()->mtuExceptionHandlers()->handlerIs(mplsMtuExceptionHandler_);
    manager()->pktCounterCollectionHolder()->collectionIs(lfibCounterCollection_);
    if (toggleMvpnSfeEnabled()) {
        manager()->genericPipelineSteps()->addStep(
            mplsMldpInputStepIs(mvpnIntfStatus_, manager()->ports(), manager()->packetParser()));
    }
    routingSupportedReactorIs(mplsHardwareCapability_, manager()->routingCapabilities());
    clearLfibCountersSmIs(lfibCounterCollection_, manager()->clearCountersRequests());
    addRewriteMaps(RewriteInfoImplMapSharedObject::getMap(manager()->sharedObjects()));
    setStaticLfibCounterCollection(lfibCounterCollection_);
}

void MplsOvixPlugin::takeSharedTables() {
    const Ptr<Tessel::ShmEntityManager>& tables = manager()->shmEntitySource()->entityManager();
    const auto lfib = [&](std::string_view path) {
        return tables->fetch<Mpls::LfibStatus>(path).entity;
    };
    lfibTables_->decapLfibIs(lfib(decapLfib));
    lfibTables_->evpnEthernetSegmentFilterLfibIs(lfib(evpnEthernetSegmentFilterLfib));
    lfibTables_->pseudowireLfibIs(lfib(pseudowireLfib));
    lfibTables_->transitLfibIs(lfib(transitLfib));
    lfibTables_->evpnEtreeLeafLabelLfibIs(lfib(evpnEtreeLeafLabelLfib));
    mvpnIntfStatusIs(tables
                         ->fetch<Routing::Multicast::MvpnIntfStatus>(
                             Routing::Multicast::MvpnIntfStatus::mountPath)
                         .entity);
}

} // namespace Ovix
