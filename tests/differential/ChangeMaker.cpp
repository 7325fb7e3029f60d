#include "ChangeMaker.h"

#include <fmt/format.h>

#include "Hooks.h"
#include "Router.h"

namespace Differential {

using Lumo::IpGenAddr;
using Lumo::IpGenPrefix;

namespace {

IpGenPrefix somePrefix(Random& random) {
    if (random.chance(70)) {
        const IpGenAddr address = IpGenAddr::fromText(
            fmt::format("10.{}.{}.{}", 64 + random.below(16), random.pick({0, 1, 128, 255}),
                        random.pick({0, 1, 64, 128, 255})));
        return IpGenPrefix::of(address,
                               random.pick<std::uint8_t>({0, 8, 10, 16, 22, 24, 25, 26, 31, 32}));
    }
    const IpGenAddr address = IpGenAddr::fromText(fmt::format(
        "2001:db8:{:x}:{:x}::{:x}", 64 + random.below(16), random.below(3), random.below(3)));
    return IpGenPrefix::of(address,
                           random.pick<std::uint8_t>({0, 32, 44, 48, 56, 64, 65, 127, 128}));
}

Mpls::ViaOptions leadingTo(Random& random, const Network& network, Lumo::IpFamily family) {
    Mpls::ViaOptions options;
    const OvixAgent::PortIndex port = network.anyEgress(random);
    options.intf = Lumo::IntfId(random.chance(97) ? network.ports[port].name : "nowhere");
    if (!random.chance(10)) {
        options.nexthop =
            random.chance(85)
                ? IpGenAddr::fromText(network.address(port, family, 2 + random.below(3)))
                : network.neighbour(random, port);
    }
    return options;
}

Mpls::Via ipVia(Random& random, const Network& network, Lumo::IpFamily family) {
    Mpls::ViaOptions options = leadingTo(random, network, family);
    if (random.chance(45)) {
        return Mpls::Via::forward(options).value();
    }
    options.ttl = random.chance(40) ? Mpls::TtlMode::pipe : Mpls::TtlMode::uniform;
    options.entropy = random.chance(20);
    if (random.chance(30)) {
        options.tc = static_cast<std::uint8_t>(random.below(8));
    }
    if (random.chance(30) && options.ttl == Mpls::TtlMode::pipe) {
        options.pushTtl = 64;
    }
    std::vector<Lumo::MplsLabel> labels;
    const std::uint32_t count = 1 + random.below(random.chance(95) ? 3 : 33);
    for (std::uint32_t i = 0; i < count; ++i) {
        labels.emplace_back(16 + random.below(1048560));
    }
    return Mpls::Via::push(labels, options).value();
}

L3::Route::Kind someKind(Random& random) {
    using enum L3::Route::Kind;
    return random.chance(85) ? forward : random.pick({local, drop, unreachable, prohibit});
}

} // namespace

Step makeIpRouteChange(Random& random, Network& network) {
    L3::Route route;
    const bool isKnown = random.chance(30);
    const IpGenPrefix prefix = isKnown ? random.pick(network.prefixes) : somePrefix(random);
    const std::uint32_t vrf = random.below(4);
    route.key = {L3::RouteKey::mainTable + vrf, prefix.address(), prefix.length()};
    route.vrf = L3::VrfName(std::string_view(vrf == 0   ? ""
                                             : vrf == 1 ? "red"
                                             : vrf == 2 ? "blue"
                                                        : "green"));
    const std::string name =
        fmt::format("route {}/{} of VRF {}", prefix.address().text(), prefix.length(), vrf);
    if (isKnown && random.chance(50)) {
        return {name + ": del",
                [route](Router& router) { router.publisher().ipRoutes().routeDel(route.key); }};
    }
    network.prefixes.push_back(prefix);
    route.kind = someKind(random);
    const std::uint32_t vias = route.kind != L3::Route::Kind::forward ? 0
                               : random.chance(70)                    ? 1
                                                                      : 2 + random.below(3);
    std::string text;
    for (std::uint32_t i = 0; i < vias; ++i) {
        const Mpls::Via via = ipVia(random, network, prefix.address().family());
        route.vias.push_back({via, 1 + random.below(4)});
        text += fmt::format(" {{interface {:#x}, nexthop {}, {} labels, ttl {}, weight {}}}",
                            via.intf().value(), via.nexthop().text(), via.labels().size(),
                            Tessel::wordOf(via.options().ttl), route.vias.back().weight);
    }
    return {fmt::format("{}: {}{}", name, Tessel::wordOf(route.kind), text),
            [route](Router& router) { router.publisher().ipRoutes().routeIs(route); }};
}

Step makeNeighbourChange(Random& random, const Network& network) {
    const OvixAgent::PortIndex port = network.anyEgress(random);
    const IpGenAddr address = network.neighbour(random, port);
    const std::string name =
        fmt::format("neighbour {} at {}", address.text(), network.ports[port].name);
    const std::uint32_t of = random.below(10);
    if (of < 7) {
        const Lumo::EthAddr mac{2, 0, 0, 1, static_cast<std::uint8_t>(port), random.byte()};
        return {
            fmt::format("{}: at :{:02x}", name, mac.back()), [address, port, mac](Router& router) {
                router.change([&](auto& tables) { tables.neighbours.learn(address, port, mac); });
            }};
    }
    if (of < 9) {
        return {name + ": forgotten", [address, port](Router& router) {
                    router.change([&](auto& tables) { tables.neighbours.forget(address, port); });
                }};
    }
    return {name + ": fails, and waiting packets are settled", [address, port](Router& router) {
                router.change([&](auto& tables) { tables.neighbours.fail(address, port); });
                router.settleWaiting(false);
                router.change([&](auto& tables) { tables.neighbours.clearFailed(); });
            }};
}

namespace {

Step portChange(Random& random, Network& network) {
    const OvixAgent::PortIndex port = random.below(network.ports.size());
    const std::string& name = network.ports[port].name;
    const std::uint32_t of = random.below(8);
    if (of < 2) {
        const auto mtu = random.pick<std::uint32_t>({68, 90, 100, 576, 1500, 9000, 65535});
        return {fmt::format("port {}: mtu {}", name, mtu), [port, mtu](Router& router) {
                    router.change([&](auto& tables) { tables.ports.mtuIs(port, mtu); });
                }};
    }
    if (of < 4) {
        const Lumo::EthAddr mac{2, 0, 0, 2, static_cast<std::uint8_t>(port), random.byte()};
        network.ports[port].mac = mac;
        return {fmt::format("port {}: mac :{:02x}", name, mac.back()), [port, mac](Router& router) {
                    router.change([&](auto& tables) { tables.ports.macIs(port, mac); });
                }};
    }
    const bool isUp = of < 7;
    return {fmt::format("port {}: {}", name, isUp ? "up" : "down"),
            [port, isUp](Router& router) { router.portUpIs(port, isUp); }};
}

/// A pseudowire is signalled, in the place of those before, or none is.
Step pseudowireChange(Random& random, const Network& network) {
    if (random.chance(60)) {
        return {"no pseudowires", [](Router& router) {
                    router.change([&](auto& tables) { tables.signalledAre({}); });
                }};
    }
    L2::Pseudowire pseudowire;
    pseudowire.name = "signalled";
    pseudowire.circuit = network.ports[random.below(network.ports.size())].name;
    pseudowire.neighbour = random.chance(70) ? random.pick(network.prefixes).address()
                                             : network.neighbour(random, network.anyEgress(random));
    pseudowire.adjacent = {network.neighbour(random, network.anyEgress(random))};
    pseudowire.remoteLabel = random.chance(95) ? 16 + random.below(1048560) : 3;
    pseudowire.controlWord = random.chance(50);
    pseudowire.state = random.chance(85) ? L2::Pseudowire::State::up : L2::Pseudowire::State::down;
    return {fmt::format("pseudowire at {}: label {} to {}, control word {}, {}", pseudowire.circuit,
                        pseudowire.remoteLabel, pseudowire.neighbour.text(), pseudowire.controlWord,
                        Tessel::wordOf(pseudowire.state)),
            [pseudowire](Router& router) {
                router.change([&](auto& tables) { tables.signalledAre({pseudowire}); });
            }};
}

Step mvpnChange(Random& random) {
    const Vrf::VrfIdMap::VrfId vrf{7 + random.below(3)};
    const std::uint16_t vlan = random.pick<std::uint16_t>({0, 7, 20, 100});
    const Lumo::IntfId intf =
        vlan == 0 ? Lumo::IntfId("p0") : Lumo::VlanIntfId::vlanIdToIntfId(vlan);
    return {fmt::format("mvpn {}: vlan {}", vrf.value, vlan),
            [vrf, intf](Router& router) { router.publisher().mvpn().vrfIntfIdIs(vrf, intf); }};
}

Step settingChange(Random& random, const Script& script) {
    const std::uint32_t of = random.below(20);
    if (of < 4) {
        const std::uint32_t config = random.below(script.configs.size());
        return {fmt::format("configuration {}", config),
                [config](Router& router) { router.configure(config); }};
    }
    if (of < 7) {
        const bool on = random.chance(90);
        return {fmt::format("mpls-routing {}", on),
                [on](Router& router) { router.mplsRoutingIs(on); }};
    }
    if (of < 10) {
        return {"counters are cleared", [](Router& router) { router.clearCounters(); }};
    }
    if (of < 13) {
        const bool on = random.chance(85);
        return {fmt::format("fast path {}", on ? "on" : "off"),
                [on](Router& router) { router.fastPathIs(on); }};
    }
    if (of < 14) {
        const bool on = random.chance(30);
        return {fmt::format("trace {}", on ? "on" : "off"),
                [on](Router& router) { router.traceIs(on); }};
    }
    const bool atTheEnd = random.chance(30);
    return {fmt::format("waiting packets are settled{}", atTheEnd ? " for good" : ""),
            [atTheEnd](Router& router) { router.settleWaiting(atTheEnd); }};
}

} // namespace

Step makeOtherChange(Random& random, Network& network, const Script& script) {
    const std::uint32_t of = random.below(100);
    return of < 30   ? makeIpRouteChange(random, network)
           : of < 60 ? makeNeighbourChange(random, network)
           : of < 75 ? portChange(random, network)
           : of < 80 ? pseudowireChange(random, network)
           : of < 83 ? mvpnChange(random)
           : of < 85 ? makeHookChange(random)
                     : settingChange(random, script);
}

} // namespace Differential
