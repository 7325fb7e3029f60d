#pragma once

#include "Ovix/packet/FlowHash.h"
#include "Ovix/packet/PacketContext.h"
#include "Ovix/plugin/InputPipelineStep.h"
#include "Ovix/plugin/Ports.h"
#include "Ovix/rewrite/RewriteImpl.h"
#include "Ovix/routing/Handlers.h"
#include "Ovix/routing/RoutingCapabilities.h"
#include "State/ClearCounters.h"
#include "State/OvixLfibCounterCollection.h"
#include "Tessel/EntityManager.h"

namespace Ovix {

/// Where shared tables are mounted from.
class ShmEntitySource : public Tessel::Counted {
  public:
    explicit ShmEntitySource(Ptr<Tessel::ShmEntityManager> manager)
        : entityManager_(std::move(manager)) {}
    const Ptr<Tessel::ShmEntityManager>& entityManager() const noexcept { return entityManager_; }

  private:
    Ptr<Tessel::ShmEntityManager> entityManager_;
};

/// Objects that the agent shares with its plugins by what they are.
class SharedObjectDirectory : public Tessel::Counted {
  public:
    const Ptr<RewriteInfoImplMap>& rewriteInfoImplMap() const noexcept {
        return rewriteInfoImplMap_;
    }

  private:
    Ptr<RewriteInfoImplMap> rewriteInfoImplMap_ = Tessel::make<RewriteInfoImplMap>();
};

/// Fetches the rewrite map from the directory.
struct RewriteInfoImplMapSharedObject {
    static const Ptr<RewriteInfoImplMap>& getMap(const Ptr<SharedObjectDirectory>& directory) {
        return directory->rewriteInfoImplMap();
    }
};

/// What the agent offers its plugins to hook into. Every list exists from the start; the source of
/// shared tables only when the agent has one.
class PluginManager : public Tessel::Counted {
  public:
    const Ptr<ShmEntitySource>& shmEntitySource() const noexcept { return shmEntitySource_; }
    void shmEntitySourceIs(Ptr<ShmEntitySource> source) { shmEntitySource_ = std::move(source); }

    const Ptr<RoutingHandlers>& routingHandlers() const noexcept { return routingHandlers_; }
    const Ptr<MtuExceptionHandlers>& mtuExceptionHandlers() const noexcept {
        return mtuExceptionHandlers_;
    }
    const Ptr<RoutingCapabilities>& routingCapabilities() const noexcept {
        return routingCapabilities_;
    }
    const Ptr<Counter::PktCounterCollectionHolder>& pktCounterCollectionHolder() const noexcept {
        return pktCounterCollectionHolder_;
    }
    const Ptr<Ports>& ports() const noexcept { return ports_; }
    const Ptr<PacketParser>& packetParser() const noexcept { return packetParser_; }
    const Ptr<PacketHashers>& packetHashers() const noexcept { return packetHashers_; }
    const Ptr<AllGenericPipelineSteps>& genericPipelineSteps() const noexcept {
        return genericPipelineSteps_;
    }
    const Ptr<Counter::ClearCountersRequests>& clearCountersRequests() const noexcept {
        return clearCountersRequests_;
    }
    const Ptr<SharedObjectDirectory>& sharedObjects() const noexcept { return sharedObjects_; }

  private:
    Ptr<ShmEntitySource> shmEntitySource_;
    Ptr<RoutingHandlers> routingHandlers_ = Tessel::make<RoutingHandlers>();
    Ptr<MtuExceptionHandlers> mtuExceptionHandlers_ = Tessel::make<MtuExceptionHandlers>();
    Ptr<RoutingCapabilities> routingCapabilities_ = Tessel::make<RoutingCapabilities>();
    Ptr<Counter::PktCounterCollectionHolder> pktCounterCollectionHolder_ =
        Tessel::make<Counter::PktCounterCollectionHolder>();
    Ptr<Ports> ports_ = Tessel::make<Ports>();
    Ptr<PacketParser> packetParser_ = Tessel::make<PacketParser>();
    Ptr<PacketHashers> packetHashers_ = Tessel::make<PacketHashers>();
    Ptr<AllGenericPipelineSteps> genericPipelineSteps_ = Tessel::make<AllGenericPipelineSteps>();
    Ptr<Counter::ClearCountersRequests> clearCountersRequests_ =
        Tessel::make<Counter::ClearCountersRequests>();
    Ptr<SharedObjectDirectory> sharedObjects_ = Tessel::make<SharedObjectDirectory>();
};

} // namespace Ovix
