#pragma once

#include <functional>
#include <gtest/gtest.h>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "ConfigTesting.h"
#include "Forwarding/Forwarder.h"
#include "FrameBytes.h"
#include "Ovix/rewrite/MplsRewrites.h"

namespace OvixAgent::Testing {

using namespace TestSupport::Raw;

using Frames = std::vector<Bytes>;

/// Keeps what it is given.
class MemoryPort : public TransmitPort {
  public:
    void transmit(const Frame& frame) override {
        frames.emplace_back(frame.bytes.begin(), frame.bytes.end());
        times.push_back(frame.time);
        originalLengths.push_back(frame.originalLength);
    }

    Frames frames;
    std::vector<CaptureTime> times;
    std::vector<std::uint32_t> originalLengths;
};

using Decide = std::function<void(const Ptr<Ovix::RoutingContext>&, Ovix::RoutingNexthops&)>;

/// Decides as the test says.
class ScriptedHandler : public Ovix::RoutingHandler {
  public:
    ScriptedHandler() : RoutingHandler("Mpls") {}
    void processPacket(const Ptr<Ovix::RoutingOutput>& output,
                       const Ptr<Ovix::RoutingContext>& context, const Ptr<Ovix::PacketHeader>&,
                       const Ptr<Ovix::RoutingVrfRoot>&) override {
        decide(context, *output->nexthops());
    }

    Decide decide;
};

inline Ptr<Ovix::RoutingNexthop> nexthop(const std::string& port, const std::string& address) {
    auto made = Tessel::make<Ovix::RoutingNexthop>(Lumo::IntfId(port));
    made->addressIs(Lumo::IpGenAddr::fromText(address));
    return made;
}

inline Ptr<Ovix::RoutingNexthop> cpuTrap() {
    auto made = nexthop("", "");
    made->setCpuTrapNexthop();
    return made;
}

inline Ptr<Ovix::RoutingNexthop> withRewrite(Ptr<Ovix::RoutingNexthop> made,
                                             Ptr<Ovix::RewriteInfo> info) {
    made->rewriteInfos().rewriteInfoEnq(std::move(info));
    return made;
}

inline Ptr<Ovix::RewriteInfo> popInfo() {
    return Tessel::make<Ovix::MplsPopRewriteInfo>(Mpls::PayloadType::automatic,
                                                  Mpls::TtlMode::uniform);
}

inline Ptr<Ovix::RewriteInfo> swapInfo(std::uint16_t label) {
    const Bytes packed{0, static_cast<std::uint8_t>(label >> 8U), static_cast<std::uint8_t>(label)};
    return Tessel::make<Ovix::MplsSwapRewriteInfo>(Lumo::UnboundedMplsLabelOperation(packed),
                                                   Mpls::TtlMode::uniform);
}

/// Sends every frame on to one next hop.
inline Decide always(Ptr<Ovix::RoutingNexthop> to) {
    return [to = std::move(to)](const auto&, Ovix::RoutingNexthops& nexthops) {
        nexthops.nexthopEnq(to);
    };
}

inline const std::string testConfig = R"(
ports:
  - {name: west, mac: "02:00:00:00:00:01", addresses: [10.0.1.1/24]}
  - {name: east, mac: "02:00:00:00:00:02", mtu: 100, addresses: [10.0.2.1/24]}
  - {name: dark, mac: "02:00:00:00:00:03", status: down}
  - {name: plain, mac: "02:00:00:00:00:04", tagging: none}
neighbours:
  - {address: 10.0.1.2, port: west, mac: "02:00:00:00:01:02"}
  - {address: 10.0.2.2, port: east, mac: "02:00:00:00:02:02"}
  - {address: "2001:db8::2", port: east, mac: "02:00:00:00:02:02"}
  - {address: 10.0.3.2, port: dark, mac: "02:00:00:00:03:02"}
  - {address: 10.0.4.2, port: plain, mac: "02:00:00:00:04:02"}
)";

/// A forwarder with four memory ports and a scripted routing handler in the place of a plugin.
class ForwarderFixture : public ::testing::Test {
  protected:
    enum PortNumber : std::uint32_t { west, east, dark, plain };

    explicit ForwarderFixture(const std::string& text = testConfig)
        : config(configOf(text)), tables(config), out(config.ports.size()) {
        for (std::size_t i = 0; i < out.size(); ++i) {
            ports.ports()[i].out = &out[i];
        }
        manager->routingHandlers()->handlerIs(handler);
        Ovix::RewriteInfoImplMap& rewrites = *manager->sharedObjects()->rewriteInfoImplMap();
        rewrites.mapIs("MplsSwap", Ovix::MplsSwapRewriteImpl::fromInfo);
        rewrites.mapIs("MplsPop", Ovix::MplsPopRewriteImpl::fromInfo);
        forwarder.emplace(manager, tables, cpu);
    }

    void receive(const Bytes& frame, std::size_t snapped = 0) {
        forwarder->receive(
            {west, CaptureTime{1, 2}, frame, static_cast<std::uint32_t>(frame.size() + snapped)});
    }
    void receive(const Bytes& frame, Decide decide, std::size_t snapped = 0) {
        handler->decide = std::move(decide);
        receive(frame, snapped);
    }

    Summary summary() const {
        Summary counted;
        forwarder->addTo(counted);
        EXPECT_TRUE(counted.isBalanced());
        return counted;
    }
    using ReasonCounts = std::map<std::string, std::uint64_t>;
    ReasonCounts dropped() const { return summary().dropped.counts(); }

    static Bytes labelled(const std::vector<Entry>& entries = {{100}}) {
        return join({eth(ethMpls), stack(entries), packet()});
    }
    static Bytes packet(std::uint32_t destination = 0x0a000202) {
        Ipv4 fields;
        fields.destination = destination;
        return ipv4(fields, udp());
    }
    /// The Ethernet header of what leaves the east port for its neighbour.
    static Bytes eastHeader(std::uint16_t etherType) {
        return join({{2, 0, 0, 0, 2, 2, 2, 0, 0, 0, 0, 2}, u16(etherType)});
    }

    AgentConfig config;
    ForwardingTables tables;
    PortTable& ports = tables.ports;
    std::vector<MemoryPort> out;
    MemoryPort cpu;
    Ptr<Ovix::PluginManager> manager = Tessel::make<Ovix::PluginManager>();
    Ptr<ScriptedHandler> handler = Tessel::make<ScriptedHandler>();
    std::optional<Forwarder> forwarder;
};

} // namespace OvixAgent::Testing
