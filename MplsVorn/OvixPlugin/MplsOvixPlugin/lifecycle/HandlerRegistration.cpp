// What the plugin registers with the agent: its via-type handlers and the names of its rewrites.

#include "MplsOvixMulticast/MplsMulticastIpLookupViaTypeHandler.h"
#include "MplsOvixMulticast/MulticastEvents.h"
#include "MplsOvixPlugin.h"
#include "Ovix/rewrite/MplsRewrites.h"
#include "Tessel/Singletons.h"
#include "counting/LfibCounterAction.h"
#include "handlers/MplsExternalFecViaTypeHandler.h"
#include "handlers/MplsIpLookupViaTypeHandler.h"
#include "handlers/MplsIpViaTypeHandler.h"
#include "handlers/PseudowireRewrites.h"

namespace Ovix {

void MplsOvixPlugin::setupPluginManager() {
    constexpr std::string_view type = MplsViaTypeHandlerRegistry::entityTypeName;
    Tessel::Singletons& singletons = Tessel::Singletons::instance();
    Ptr<Tessel::Entity> registry = singletons.find(type);
    if (!registry) {
        registry = singletons.create(type);
    }
    mplsViaTypeHandlerRegistryIs(Tessel::ptrCast<MplsViaTypeHandlerRegistry>(registry));
}

// The handlers keep the tables and the collection that they are built with: a later change of the
// plugin's attributes reaches only handlers registered after it.
void MplsOvixPlugin::doRegisterMplsViaTypeHandlers() {
    const Ptr<MplsViaTypeHandlerRegistry> registry = mplsViaTypeHandlerRegistry_;
    assert(registry);
    const Ptr<Counter::OvixLfibCounterCollection> counters = lfibCounterCollection_;
    const Ptr<MplsLfibTables> tables = lfibTables_;
    registry->doRegisterMplsViaTypeHandler(
        MplsIpViaTypeHandler::MplsIpViaTypeHandlerIs(Mpls::LfibViaType::ip, tables, counters));
    for (const auto type : {Mpls::LfibViaType::ipLookup, Mpls::LfibViaType::ipLookupPerPrefix}) {
        registry->doRegisterMplsViaTypeHandler(
            MplsIpLookupViaTypeHandler::MplsIpLookupViaTypeHandlerIs(type, tables, counters));
    }
    registry->doRegisterMplsViaTypeHandler(
        MplsExternalFecViaTypeHandler::MplsExternalFecViaTypeHandlerIs(
            Mpls::LfibViaType::externalFec, tables));
    if (toggleMvpnSfeEnabled()) {
        registry->doRegisterMplsViaTypeHandler(
            MplsMulticastIpLookupViaTypeHandler::MplsMulticastIpLookupViaTypeHandlerIs(
                Mpls::LfibViaType::multicastIpLookup, tables, manager()->ports()));
    }
}

void MplsOvixPlugin::addRewriteMaps(const Ptr<RewriteInfoImplMap>& map) {
    map->mapIs("EthOverMplsRewriteInfo", EthOverMplsRewriteImpl::fromInfo);
    map->mapIs("ControlWordPushRewriteInfo", ControlWordPushRewriteImpl::fromInfo);
    map->counterMapIs("LfibCounterActionInfo", LfibCounterActionImpl::fromInfo);
    map->mapIs("MplsSwap", MplsSwapRewriteImpl::fromInfo);
    map->mapIs("MplsPop", MplsPopRewriteImpl::fromInfo);
    map->mapIs("MplsIpPush", MplsIpPushRewriteImpl::fromInfo);
    map->mapIs("MplsTtl", MplsTtlRewriteImpl::fromInfo);
}

} // namespace Ovix
