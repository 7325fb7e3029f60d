#pragma once

#include <algorithm>
#include <array>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

#include "FrameBytes.h"
#include "LocalTables.h"
#include "Mpls/Hardware/Capability.h"
#include "Mpls/RoutingInfo.h"
#include "MplsOvixMulticast/MplsMldpInputStep.h"
#include "MplsOvixPlugin.h"
#include "Ovix/plugin/OvixPlugin.h"
#include "Ovix/trace/Trace.h"
#include "State/EthIntfStatusDir.h"
#include "Tessel/EntityManager.h"
#include "counting/LfibReactors.h"
#include "entry/MplsRoutingHandler.h"
#include "handlers/MplsMtuExceptionHandler.h"
#include "lifecycle/MplsRoutingSupportedReactor.h"

namespace TestSupport {

using Bytes = std::vector<std::uint8_t>;

/// A label stack entry of traffic class 0.
struct Entry {
    std::uint32_t label;
    std::uint8_t ttl = 64;
};

/// An Ethernet frame of a label stack and what lies beneath it.
inline Bytes mplsFrame(const std::vector<Entry>& stack, const Bytes& payload) {
    std::vector<Raw::Entry> entries;
    for (const Entry& entry : stack) {
        entries.push_back({entry.label, 0, entry.ttl});
    }
    return Raw::join({Raw::eth(Raw::ethMpls), Raw::stack(entries), payload});
}

inline Bytes udpPacket(std::uint32_t destination, std::uint16_t port = 9,
                       std::uint8_t protocol = Raw::protocolUdp,
                       std::uint32_t source = 0x0a010001) {
    return Raw::ipv4({.source = source, .destination = destination, .protocol = protocol},
                     Raw::udp(1024, port));
}

/// Hears which attributes of an entity change.
class Listener : public Tessel::Subscriber {
  public:
    void attributeChanged(const Tessel::Entity&, Tessel::AttrId attribute, std::uint64_t) override {
        heard.push_back(attribute);
    }
    std::vector<Tessel::AttrId> heard;
};

/// An active plugin on the real host runtime, with empty tables, and the means to send it frames.
class PluginFixture : public ::testing::Test {
  protected:
    static constexpr std::array<const char*, 5> paths = {
        "mpls/decapLfib", "mpls/evpnEthernetSegmentFilterLfib", "mpls/pseudowireLfib",
        "mpls/evpnEtreeLeafLabelLfib", "mpls/transitLfib"};
    static constexpr std::array<Mpls::TableId, 5> tableIds = {
        Mpls::TableId::decapLfib, Mpls::TableId::evpnEthernetSegmentFilterLfib,
        Mpls::TableId::pseudowireLfib, Mpls::TableId::evpnEtreeLeafLabelLfib,
        Mpls::TableId::transitLfib};
    enum Table : std::size_t { decap, evpnEs, pseudowire, evpnLeaf, transit };

    PluginFixture() : PluginFixture("test") {}
    explicit PluginFixture(const std::string& systemName)
        : entities(Tessel::make<Tessel::EntityManager>(systemName, true)),
          shared(Tessel::ShmEntityManager::ofSystem(systemName, true)),
          manager(Tessel::make<Ovix::PluginManager>()) {
        routingInfo->mplsRoutingEnabledIs(true);
        entities->entityIs("routing/mpls/routingInfo/status", routingInfo);
        entities->entityIs("routing/hardware/mpls/capability", capability);
        entities->entityIs("routing/hardware/mpls/status", hardware);
        entities->entityIs("interface/status/eth/intf", interfaces);
        interfaces->intfStatusIs(Lumo::IntfId("east"), true);
        for (std::size_t i = 0; i < paths.size(); ++i) {
            writers[i] = std::make_unique<LocalLfib>(tableIds[i], labelTables);
            shared->tableIs(paths[i], writers[i]->status());
        }
        shared->tableIs(Routing::Multicast::MvpnIntfStatus::mountPath, mvpn);
        manager->shmEntitySourceIs(Tessel::make<Ovix::ShmEntitySource>(shared));
        manager->packetHashers()->hasherIs(Ovix::PktHdrType::mpls,
                                           Tessel::make<Ovix::MplsHasher>());
        pluginContext = Tessel::make<Ovix::PluginContext>(entities, manager);
        plugin = Ovix::mplsOvixPluginFactory("Mpls");
        plugin->pluginCtxIs(pluginContext);
        plugin->savePluginRef(entities);
        Ovix::TraceOutput::instance().textSinkIs(
            [this](std::string_view, unsigned, std::string_view line) {
                trace.emplace_back(line);
            });
    }
    ~PluginFixture() override {
        Ovix::TraceOutput::instance().textLevelOfAllIs(Ovix::TraceSource::off);
        Ovix::TraceOutput::instance().textSinkIs(
            [](std::string_view, unsigned, std::string_view) {});
    }

    void SetUp() override { activate(); }
    void activate() {
        plugin->mountsComplete(entities);
        plugin->setupPluginManager();
        plugin->activeInit();
        Ovix::TraceOutput::instance().textLevelOfAllIs(0);
        trace.clear();
    }

    static Mpls::RouteKey key(std::uint32_t label) {
        return Mpls::RouteKey::fromLabel(Lumo::MplsLabel(label));
    }
    static Ovix::OvixMplsVia swapVia(std::uint32_t label) {
        Ovix::OvixMplsVia via;
        via.labelAction = static_cast<std::uint32_t>(Lumo::MplsLabelAction::swap);
        via.intfId = Lumo::IntfId("east");
        via.nexthop = Lumo::IpGenAddr::fromText("10.0.2.2");
        const std::array<std::uint8_t, 3> packed = {static_cast<std::uint8_t>(label >> 16U),
                                                    static_cast<std::uint8_t>(label >> 8U),
                                                    static_cast<std::uint8_t>(label)};
        via.labelsIs(packed);
        return via;
    }
    void swapRoute(Table table, std::uint32_t label, std::uint32_t out) {
        const Mpls::WeightedRecord via{swapVia(out), 1};
        writers[table]->routeIs(key(label), Mpls::LfibViaType::ip, Mpls::LfibViaSetType::unicast,
                                {&via, 1});
    }

    Ptr<Ovix::RoutingContext> contextOf(const Bytes& frame, bool counting = true) {
        return Tessel::make<Ovix::RoutingContext>(
            7U, Tessel::make<Ovix::PacketContext>(Lumo::globalPktManager()->newPkt(frame)),
            counting ? counters : nullptr);
    }
    /// The next hops that routing the frame leaves.
    Ptr<Ovix::RoutingOutput> routeFrame(const Bytes& frame, bool counting = true) {
        const auto context = contextOf(frame, counting);
        const auto output = Tessel::make<Ovix::RoutingOutput>();
        manager->routingHandlers()->handler("Mpls")->processPacket(
            output, context, context->packetContext()->parsedPkt().header(1),
            Tessel::make<Ovix::RoutingVrfRoot>());
        return output;
    }

    std::uint64_t counted(const std::string& category, const std::string& reason) const {
        return counters->value(category, "Routing::Mpls", reason);
    }
    bool traced(const std::string& line) const {
        return std::find(trace.begin(), trace.end(), "Pkt 7: " + line) != trace.end();
    }

    Ptr<Mpls::RoutingInfo> routingInfo = Tessel::make<Mpls::RoutingInfo>();
    Ptr<Mpls::Hardware::Capability> capability = Tessel::make<Mpls::Hardware::Capability>();
    std::shared_ptr<LocalTables> labelTables = std::make_shared<LocalTables>();
    LocalHardware hardware{labelTables};
    Ptr<Interface::EthIntfStatusDir> interfaces = Tessel::make<Interface::EthIntfStatusDir>();
    LocalMvpn mvpn{labelTables};
    Ptr<Tessel::EntityManager> entities;
    Ptr<Tessel::ShmEntityManager> shared;
    Ptr<Ovix::PluginManager> manager;
    Ptr<Ovix::PluginContext> pluginContext;
    std::array<std::unique_ptr<LocalLfib>, 5> writers;
    Ptr<Ovix::OvixNamedCounters> counters = Tessel::make<Ovix::OvixNamedCounters>();
    std::vector<std::string> trace;
    Ptr<Ovix::MplsOvixPlugin> plugin;
};

} // namespace TestSupport
