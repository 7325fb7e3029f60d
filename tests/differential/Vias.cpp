#include "Vias.h"

#include <fmt/format.h>

namespace Differential {

using Mpls::LfibViaType;
using Mpls::Via;
using Mpls::ViaOptions;
using Mpls::WeightedVia;

namespace {

std::vector<Lumo::MplsLabel> someLabels(Random& random, std::uint32_t most) {
    std::vector<Lumo::MplsLabel> labels;
    const std::uint32_t count = 1 + random.below(most);
    for (std::uint32_t i = 0; i < count; ++i) {
        // Explicit nulls may be written, too (RFC 3032).
        labels.emplace_back(random.chance(5) ? random.pick<std::uint32_t>({0, 2})
                                             : 16 + random.below(1048560));
    }
    return labels;
}

ViaOptions plainOptions(Random& random, const Network& network) {
    ViaOptions options;
    const OvixAgent::PortIndex port = network.anyEgress(random);
    options.intf = Lumo::IntfId(network.ports[port].name);
    options.nexthop = network.neighbour(random, port);
    return options;
}

/// Where the via leads, less plainly now and then.
ViaOptions someOptions(Random& random, const Network& network) {
    ViaOptions options = plainOptions(random, network);
    const std::uint32_t of = random.below(100);
    if (of < 4) {
        options.intf = Lumo::IntfId();
    } else if (of < 8) {
        options.nexthop = Lumo::IpGenAddr();
    } else if (of < 10) {
        options.intf = Lumo::IntfId("nowhere");
    }
    if (random.chance(30)) {
        options.ttl = Mpls::TtlMode::pipe;
    }
    if (random.chance(8)) {
        options.mtu = random.pick<std::uint32_t>({68, 80, 100, 1400, 1496, 9000});
    }
    if (random.chance(8)) {
        options.vlan = random.pick<std::uint16_t>({5, 20, 4094});
    }
    if (random.chance(40)) {
        options.payload = static_cast<Mpls::PayloadType>(random.below(6));
    }
    return options;
}

std::optional<std::uint8_t> someClass(Random& random) {
    return random.chance(25) ? std::optional(static_cast<std::uint8_t>(random.below(8)))
                             : std::nullopt;
}

void addLabelOptions(Random& random, ViaOptions& options) {
    options.tc = someClass(random);
    if (random.chance(30)) {
        options.pushTtl = static_cast<std::uint8_t>(random.pick({1, 2, 64, 255}));
    }
}

/// Until the options fit each other.
template <typename Make>
Via legal(const Make& make) {
    for (;;) {
        if (auto via = make()) {
            return via.value();
        }
    }
}

Via swapVia(Random& random, const Network& network, std::uint32_t mostLabels) {
    return legal([&] {
        ViaOptions options = someOptions(random, network);
        addLabelOptions(random, options);
        const auto labels = someLabels(random, mostLabels);
        options.pushTc = labels.size() > 1 ? someClass(random) : std::nullopt;
        return Via::swap(labels, options);
    });
}

Via pushVia(Random& random, const Network& network) {
    return legal([&] {
        ViaOptions options = someOptions(random, network);
        addLabelOptions(random, options);
        options.entropy = random.chance(10);
        return Via::push(someLabels(random, random.chance(95) ? 3 : 33), options);
    });
}

Via popVia(Random& random, const Network& network) {
    return legal([&] {
        ViaOptions options = someOptions(random, network);
        options.tcUniform = random.chance(20);
        options.controlWord = random.chance(3);
        return Via::pop(options);
    });
}

Via anyVia(Random& random, const Network& network) {
    const std::uint32_t of = random.below(10);
    return of < 5   ? swapVia(random, network, 1)
           : of < 8 ? popVia(random, network)
           : of < 9 ? pushVia(random, network)
                    : swapVia(random, network, 3);
}

/// Small weights, or such that the sum is near the largest one may be.
std::uint32_t someWeight(Random& random, bool isLarge, std::uint32_t vias) {
    return isLarge ? random.below((std::uint64_t{1} << 32U) / vias - 1) : random.below(6);
}

std::vector<WeightedVia> manyVias(Random& random, const Network& network) {
    std::vector<WeightedVia> vias;
    const std::uint32_t count = 2 + random.below(random.chance(90) ? 5 : 40);
    const bool isLarge = random.chance(20);
    for (std::uint32_t i = 0; i < count; ++i) {
        vias.push_back({anyVia(random, network), someWeight(random, isLarge, count)});
    }
    vias.back().weight += 1;
    return vias;
}

ViaSet lookupSet(Random& random) {
    ViaSet set;
    set.type = random.chance(80) ? LfibViaType::ipLookup : LfibViaType::ipLookupPerPrefix;
    const char* vrf = random.pick({"", "red", "blue", "green", "default", "unheard-of"});
    const auto payload = random.chance(60) ? Mpls::PayloadType::automatic
                                           : static_cast<Mpls::PayloadType>(random.below(6));
    set.vias = {{legal([&] {
                     auto via = Via::popAndLookUp(L3::VrfName(std::string_view(vrf)), payload);
                     return via ? via : Via::popAndLookUp({}, Mpls::PayloadType::automatic);
                 }),
                 1}};
    set.traffic = Traffic::lookup;
    return set;
}

ViaSet fecSet(Random& random) {
    ViaSet set;
    set.type = LfibViaType::externalFec;
    const std::uint32_t vias = random.chance(70) ? 1 : 3;
    for (std::uint32_t i = 0; i < vias; ++i) {
        const auto action =
            random.chance(70) ? Lumo::MplsLabelAction::swap : Lumo::MplsLabelAction::push;
        ViaOptions options;
        options.ttl = random.chance(30) ? Mpls::TtlMode::pipe : Mpls::TtlMode::uniform;
        options.tc = someClass(random);
        const std::uint64_t fec = 1 + random.below(5);
        set.vias.push_back(
            {Via::towardFec(fec, action, someLabels(random, 2), options).value(), 1});
    }
    set.traffic = Traffic::fec;
    return set;
}

ViaSet multicastSet(Random& random, const Network& network, bool mayEndHere) {
    ViaSet set;
    set.isMulticast = true;
    const std::uint32_t vias = 1 + random.below(5);
    for (std::uint32_t i = 0; i < vias; ++i) {
        set.vias.push_back({anyVia(random, network), random.below(3)});
    }
    set.vias.back().weight += 1;
    set.traffic = Traffic::multicast;
    if (mayEndHere && random.chance(30)) {
        set.type = LfibViaType::multicastIpLookup;
        set.tail = Mpls::LfibMulticastIpLookupVia::toward(Lumo::VlanIntfId::vlanIdToIntfId(100));
        set.traffic = Traffic::tail;
        if (random.chance(50)) {
            set.vias.clear();
        }
    }
    return set;
}

ViaSet setOf(Traffic traffic, Via via) {
    ViaSet set;
    set.vias = {{std::move(via), 1}};
    set.traffic = traffic;
    return set;
}

} // namespace

ViaSet makeViaSet(Random& random, const Network& network, bool mayEndHere) {
    const std::uint32_t of = random.below(100);
    if (of < 28) {
        return setOf(Traffic::swap, swapVia(random, network, 1));
    }
    if (of < 36) {
        return setOf(Traffic::swapToSeveral, swapVia(random, network, random.chance(95) ? 4 : 33));
    }
    if (of < 46) {
        return setOf(Traffic::push, pushVia(random, network));
    }
    if (of < 60) {
        return setOf(Traffic::pop, popVia(random, network));
    }
    if (of < 72 || (of < 82 && !mayEndHere)) {
        ViaSet set;
        set.vias = manyVias(random, network);
        set.traffic = Traffic::choice;
        return set;
    }
    if (of < 82) {
        return lookupSet(random);
    }
    if (of < 88) {
        return fecSet(random);
    }
    if (of < 97) {
        return multicastSet(random, network, mayEndHere);
    }
    ViaSet set = setOf(Traffic::other, swapVia(random, network, 1));
    set.type = static_cast<LfibViaType>(77); // no handler knows it
    return set;
}

namespace {

std::string nameOf(Lumo::IntfId intf) {
    for (const char* name : {"", "p0", "p1", "p2", "p3", "p4", "p1.7", "p1.8", "ce", "nowhere"}) {
        if (Lumo::IntfId(name) == intf) {
            return name;
        }
    }
    return fmt::format("{:#x}", intf.value());
}

std::string describe(const WeightedVia& weighted) {
    const Via& via = weighted.via;
    const ViaOptions options = via.options();
    std::string text = fmt::format("{{action {}", static_cast<unsigned>(via.action()));
    for (const Lumo::MplsLabel label : via.labels()) {
        text += fmt::format(" {}", label.value());
    }
    text += fmt::format(", interface \"{}\", nexthop \"{}\", weight {}", nameOf(via.intf()),
                        via.nexthop().text(), weighted.weight);
    text += fmt::format(", vrf \"{}\", fec {}, payload {}, ttl {}", options.vrf.view(), via.fec(),
                        Tessel::wordOf(options.payload), Tessel::wordOf(options.ttl));
    text += options.tc ? fmt::format(", tc {}", *options.tc) : "";
    text += options.pushTc ? fmt::format(", push-tc {}", *options.pushTc) : "";
    text += fmt::format("{}{}{}", options.tcUniform ? ", tc uniform" : "",
                        options.controlWord ? ", control word" : "",
                        options.entropy ? ", entropy" : "");
    return text + fmt::format(", push-ttl {}, mtu {}, vlan {}}}", options.pushTtl, options.mtu,
                              options.vlan);
}

std::string describe(const std::vector<WeightedVia>& vias) {
    std::string text;
    for (const WeightedVia& via : vias) {
        text += " " + describe(via);
    }
    return text;
}

} // namespace

std::string describe(const Mpls::LabelRoute& route) {
    return fmt::format("lfib {}: {} type {}, set {}{}:{}", Tessel::wordOf(route.table),
                       route.label.value(), static_cast<unsigned>(route.viaType),
                       Tessel::wordOf(route.setType), route.tail ? ", tail" : "",
                       describe(route.vias));
}

std::string describe(const Mpls::Hardware::AdjacencyVias& content) {
    return fmt::format("type {}, set {}, use-backups {}:{} backups:{}",
                       static_cast<unsigned>(content.viaType), Tessel::wordOf(content.setType),
                       content.useBackups, describe(content.vias), describe(content.backups));
}

} // namespace Differential
