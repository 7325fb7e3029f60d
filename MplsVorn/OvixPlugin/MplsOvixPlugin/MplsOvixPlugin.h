#pragma once

#include "Mpls/Hardware/Capability.h"
#include "Mpls/Hardware/Status.h"
#include "Mpls/LfibStatus.h"
#include "Mpls/RoutingInfo.h"
#include "Ovix/plugin/OvixPlugin.h"
#include "Ovix/viaset/MplsContext.h"
#include "Ovix/viaset/MplsLfibTables.h"
#include "Ovix/viaset/MplsViaTypeHandler.h"
#include "Ovix/viaset/ViaSets.h"
#include "State/EthIntfStatusDir.h"
#include "State/MvpnIntfStatus.h"
#include "State/OvixLfibCounterCollection.h"

namespace Ovix {

// What the main object owns includes this header, so they are only declared here.
class ClearLfibCountersSm;
class MplsLfibStatusSm;
class MplsMldpInputStep;
class MplsMtuExceptionHandler;
class MplsRoutingHandler;
class MplsRoutingSupportedReactor;

/// The plugin's main object, the entity "Mpls": owns everything the plugin builds, and decides
/// where MPLS frames go. Lifecycle calls come from the agent's main thread, frames from its packet
/// thread once `activeInit` has run.
class MplsOvixPlugin : public OvixPlugin {
  public:
    static constexpr std::string_view entityTypeName = "MplsOvixPlugin";

    /// Published under these when they change, in order of declaration.
    enum Attr : Tessel::AttrId {
        lfibCounterCollectionAttr,
        mplsRoutingHandlerAttr,
        mplsMtuExceptionHandlerAttr,
        hwStatusViaHelperAttr,
        routingSupportedReactorAttr,
        mplsMldpInputStepAttr,
        mvpnIntfStatusAttr,
        mplsRoutingInfoAttr,
        mplsHardwareCapabilityAttr,
        ethIntfStatusDirAttr,
        lfibTablesAttr,
        mplsViaTypeHandlerRegistryAttr,
        lfibStatusSmAttr,
        clearLfibCountersSmAttr,
    };

    /// Builds the LFIB tables holder and the counter collection "LfibCounters".
    explicit MplsOvixPlugin(std::string name);
    ~MplsOvixPlugin() override;
    std::string_view typeName() const noexcept override { return entityTypeName; }

    // Lifecycle

    /// Fetches the state that the plugin reads and mounts the shared tables. What is absent or of
    /// another type stays empty.
    void mountsComplete(const Ptr<Tessel::EntityManager>& entityManager) override;
    /// Finds or creates the process-wide registry of via-type handlers.
    void setupPluginManager() override;
    /// Builds what handles frames and hooks it into the agent.
    void activeInit() override;
    /// Builds this plugin's via-type handlers and registers them, replacing earlier ones.
    void doRegisterMplsViaTypeHandlers();
    /// Binds the type names of rewrite and counter-action records to what implements them.
    static void addRewriteMaps(const Ptr<RewriteInfoImplMap>& map);

    // Attributes. An instantiating setter returns what is held when that was built from the same
    // arguments; a clearer returns what it removed.

    const Ptr<Counter::OvixLfibCounterCollection>& lfibCounterCollection() const noexcept {
        return lfibCounterCollection_;
    }
    Ptr<Counter::OvixLfibCounterCollection> lfibCounterCollectionIs(const std::string& name);
    Ptr<Counter::OvixLfibCounterCollection> lfibCounterCollectionDel();

    Ptr<const MplsRoutingHandler> mplsRoutingHandler() const noexcept;
    Ptr<MplsRoutingHandler> mplsRoutingHandler() noexcept;
    Ptr<MplsRoutingHandler> mplsRoutingHandlerIs(MplsOvixPlugin* plugin);
    Ptr<MplsRoutingHandler> mplsRoutingHandlerDel();

    const Ptr<MplsMtuExceptionHandler>& mplsMtuExceptionHandler() const noexcept {
        return mplsMtuExceptionHandler_;
    }
    Ptr<MplsMtuExceptionHandler> mplsMtuExceptionHandlerIs();
    Ptr<MplsMtuExceptionHandler> mplsMtuExceptionHandlerDel();

    const Ptr<HwStatusViaHelper>& hwStatusViaHelper() const noexcept { return hwStatusViaHelper_; }
    Ptr<HwStatusViaHelper>
    hwStatusViaHelperIs(const Ptr<const Interface::EthIntfStatusDir>& ethIntfStatusDir,
                        const Ptr<const Routing::Multicast::MvpnIntfStatus>& mvpnIntfStatus);
    Ptr<HwStatusViaHelper> hwStatusViaHelperDel();

    const Ptr<MplsRoutingSupportedReactor>& routingSupportedReactor() const noexcept {
        return routingSupportedReactor_;
    }
    Ptr<MplsRoutingSupportedReactor>
    routingSupportedReactorIs(const Ptr<Mpls::Hardware::Capability>& capability,
                              const Ptr<const RoutingCapabilities>& routingCapabilities);
    Ptr<MplsRoutingSupportedReactor> routingSupportedReactorDel();

    const Ptr<MplsMldpInputStep>& mplsMldpInputStep() const noexcept { return mplsMldpInputStep_; }
    Ptr<MplsMldpInputStep>
    mplsMldpInputStepIs(const Ptr<const Routing::Multicast::MvpnIntfStatus>& mvpnIntfStatus,
                        const Ptr<Ports>& ports, const Ptr<PacketParser>& packetParser);
    Ptr<MplsMldpInputStep> mplsMldpInputStepDel();

    const Ptr<const Routing::Multicast::MvpnIntfStatus>& mvpnIntfStatus() const noexcept {
        return mvpnIntfStatus_;
    }
    void mvpnIntfStatusIs(const Ptr<const Routing::Multicast::MvpnIntfStatus>& status);

    const Ptr<const Mpls::RoutingInfo>& mplsRoutingInfo() const noexcept {
        return mplsRoutingInfo_;
    }
    void mplsRoutingInfoIs(const Ptr<const Mpls::RoutingInfo>& info);

    const Ptr<Mpls::Hardware::Capability>& mplsHardwareCapability() const noexcept {
        return mplsHardwareCapability_;
    }
    void mplsHardwareCapabilityIs(const Ptr<Mpls::Hardware::Capability>& capability);

    const Ptr<const Interface::EthIntfStatusDir>& ethIntfStatusDir() const noexcept {
        return ethIntfStatusDir_;
    }
    void ethIntfStatusDirIs(const Ptr<const Interface::EthIntfStatusDir>& directory);

    const Ptr<MplsLfibTables>& lfibTables() const noexcept { return lfibTables_; }
    Ptr<MplsLfibTables> lfibTablesIs();
    Ptr<MplsLfibTables> lfibTablesDel();

    const Ptr<MplsViaTypeHandlerRegistry>& mplsViaTypeHandlerRegistry() const noexcept {
        return mplsViaTypeHandlerRegistry_;
    }
    void mplsViaTypeHandlerRegistryIs(const Ptr<MplsViaTypeHandlerRegistry>& registry);

    const Ptr<MplsLfibStatusSm>& lfibStatusSm() const noexcept { return lfibStatusSm_; }
    Ptr<MplsLfibStatusSm>
    lfibStatusSmIs(const Ptr<const Mpls::LfibStatus>& lfibStatus,
                   const Ptr<Counter::OvixLfibCounterCollection>& counterCollection);
    Ptr<MplsLfibStatusSm> lfibStatusSmDel();

    const Ptr<ClearLfibCountersSm>& clearLfibCountersSm() const noexcept {
        return clearLfibCountersSm_;
    }
    Ptr<ClearLfibCountersSm>
    clearLfibCountersSmIs(const Ptr<Counter::OvixLfibCounterCollection>& counterCollection,
                          const Ptr<Counter::ClearCountersRequests>& requests);
    Ptr<ClearLfibCountersSm> clearLfibCountersSmDel();

    // The road of one frame, in the order in which it is taken

    /// Leaves the decision in the output's next hops: to forward, to punt, or (none) to drop.
    void handleMplsFrame(const Ptr<RoutingOutput>& output, const Ptr<RoutingContext>& context,
                         const Ptr<PacketHeader>& header, const Ptr<RoutingVrfRoot>& vrfRoot) const;

    /// Whether the frame is an MPLS OAM packet: a router-alert label with nothing but explicit
    /// nulls above it, or nothing but explicit nulls over an LSP ping (RFC 8029).
    bool checkForOam(const Ptr<RoutingContext>& context, const Ptr<PacketHeader>& mplsHeader,
                     const Ptr<MplsHeaderData>& labels) const;
    /// Whether the header starts an IP packet to a loopback address and UDP port 3503; `header` may
    /// be empty.
    bool checkForOamMaybeUdpHdr(const Ptr<RoutingContext>& context,
                                const Ptr<PacketHeader>& header) const;

    /// Walks the stack from the top to the first label that resolves nowhere. A stack that fills
    /// all 14 positions throws Tessel::RangeError.
    Ptr<OvixMplsViaSetStack> resolveViaSetsForLabelStack(const Ptr<RoutingContext>& context,
                                                         const Ptr<MplsHeaderData>& labels) const;
    /// True: the label resolves nowhere and the walk stops.
    bool updateViaSetStack(const Ptr<RoutingContext>& context, Lumo::MplsStackEntryIndex position,
                           const Ptr<OvixMplsViaSetStack>& stack, Lumo::MplsLabelEntry entry) const;
    /// Empty when no table holds the label.
    Ptr<OvixMplsViaSet> findOvixMplsViaSet(const Ptr<RoutingContext>& context,
                                           Lumo::MplsLabelEntry entry) const;
    /// Empty, and the frame counted under "Drop", when the table holds nothing usable for the key.
    Ptr<OvixMplsViaSet> viaSetFromLfibStatus(const Ptr<RoutingContext>& context,
                                             const Ptr<const Mpls::LfibStatus>& lfib,
                                             Mpls::RouteKey key) const;
    /// Empty when the platform has no usable route for the key.
    Ptr<OvixMplsViaSet> viaSetFromHwStatus(const Ptr<RoutingContext>& context,
                                           const Ptr<const Mpls::Hardware::Status>& status,
                                           Mpls::RouteKey key) const;

    /// Decides for each label of the resolved stack: trapped (TTL spent), popped, or handed to its
    /// vias; ends when the frame's fate is settled.
    void processViaSetStack(const Ptr<RoutingContext>& context,
                            const Ptr<RoutingNexthops>& nexthops,
                            const Ptr<PacketHeader>& innerHeader,
                            const Ptr<OvixMplsViaSetStack>& viaSets) const;
    /// Pops a label that is never looked up; at the bottom of the stack it points the next hop at
    /// the payload's IP destination.
    void handleReservedLabel(const Ptr<RoutingContext>& context, const Ptr<RoutingNexthop>& nexthop,
                             const Ptr<PacketHeader>& innerHeader,
                             Lumo::MplsLabelEntry entry) const;

    /// One via of the set by weighted hash, or every via of a multicast set.
    ProcessingResult handleViaSet(const Ptr<MplsContext>& context) const;
    /// The index of the via that owns the flow's residue; the set must not be empty.
    std::uint32_t pickUcmpVia(const Ptr<MplsContext>& context,
                              const Ptr<OvixMplsViaSet>& viaSet) const;
    /// Hands the via to the handler of its type.
    ProcessingResult handleVia(const Ptr<MplsContext>& context, std::uint32_t viaIndex) const;

  private:
    /// Puts a reactor in place; the one that it replaces is switched off, whoever holds it.
    template <typename Reactor>
    const Ptr<Reactor>& reactorIs(Ptr<Reactor>& held, const Ptr<Reactor>& made,
                                  Tessel::AttrId attribute);
    template <typename Reactor>
    Ptr<Reactor> reactorDel(Ptr<Reactor>& held, Tessel::AttrId attribute);
    void defaultInit();
    void takeSharedTables();
    ProcessingResult handleEveryVia(const Ptr<MplsContext>& context) const;
    std::uint64_t flowHash(const MplsContext& context) const;
    static Ptr<PacketHeader> headerAfter(const RoutingContext& context, const PacketHeader& header);
    static bool settled(ProcessingResult result) noexcept { return result != 0; }

    Ptr<Counter::OvixLfibCounterCollection> lfibCounterCollection_;
    Ptr<MplsRoutingHandler> mplsRoutingHandler_;
    Ptr<MplsMtuExceptionHandler> mplsMtuExceptionHandler_;
    Ptr<HwStatusViaHelper> hwStatusViaHelper_;
    Ptr<MplsRoutingSupportedReactor> routingSupportedReactor_;
    Ptr<MplsMldpInputStep> mplsMldpInputStep_;
    Ptr<const Routing::Multicast::MvpnIntfStatus> mvpnIntfStatus_;
    Ptr<const Mpls::RoutingInfo> mplsRoutingInfo_;
    Ptr<Mpls::Hardware::Capability> mplsHardwareCapability_;
    Ptr<const Interface::EthIntfStatusDir> ethIntfStatusDir_;
    Ptr<MplsLfibTables> lfibTables_;
    Ptr<MplsViaTypeHandlerRegistry> mplsViaTypeHandlerRegistry_;
    Ptr<MplsLfibStatusSm> lfibStatusSm_;
    Ptr<ClearLfibCountersSm> clearLfibCountersSm_;
};

Ptr<MplsOvixPlugin> mplsOvixPluginFactory(const std::string& name);

} // namespace Ovix
