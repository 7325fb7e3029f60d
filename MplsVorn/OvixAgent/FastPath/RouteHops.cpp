#include "FastPath/RouteHops.h"

#include <algorithm>
#include <utility>

#include "Ovix/rewrite/MplsRewrites.h"

namespace OvixAgent {

void RouteHops::refresh(bool decides) {
    VrfRoot& vrfs = *tables_->vrfs;
    ofVrf_.resize(vrfs.size());
    for (std::uint32_t i = 0; i < vrfs.size(); ++i) {
        Fib& fib = vrfs.fibAt(i);
        std::vector<RouteHop>& hops = ofVrf_[i].hops;
        fib.takeChanged([&](std::uint32_t route) {
            if (route < hops.size()) {
                forget(hops[route]);
            }
            changed_.push_back(route);
        });
        hops.resize(fib.numbers());
        ofVrf_[i].fib = &fib;
        const bool wasAhead = std::exchange(ofVrf_[i].count, hops.size()) == ofVrf_[i].ahead;
        for (std::size_t at = 0; decides && at < changed_.size(); ++at) {
            decide(i, changed_[at]);
        }
        if (decides && wasAhead) {
            ofVrf_[i].ahead = hops.size();
        }
        changed_.clear();
    }
}

void RouteHops::restart() noexcept {
    for (Vrf& vrf : ofVrf_) {
        vrf.hops.clear();
        vrf.ahead = 0;
    }
    choices_ = {};
}

bool RouteHops::areAwaited() const noexcept {
    return std::any_of(ofVrf_.begin(), ofVrf_.end(),
                       [](const Vrf& vrf) { return vrf.ahead < vrf.count; });
}

// Packets wait meanwhile, so a few at a time.
void RouteHops::decideSome() {
    constexpr std::size_t atOnce = 4096;
    std::size_t decided = 0;
    for (std::uint32_t i = 0; i < ofVrf_.size(); ++i) {
        for (std::size_t& at = ofVrf_[i].ahead; at < ofVrf_[i].count && decided < atOnce;
             ++at, ++decided) {
            decide(i, static_cast<std::uint32_t>(at));
        }
    }
}

void RouteHops::decide(std::uint32_t vrf, std::uint32_t route) {
    assert(vrf < ofVrf_.size() && route < ofVrf_[vrf].hops.size());
    RouteHop& hop = ofVrf_[vrf].hops[route];
    if (hop.kind == RouteHop::Kind::undecided) {
        decide(hop, ofVrf_[vrf].fib->route(route));
    }
}

const RouteHop& RouteHops::ofFlow(std::uint32_t vrf, std::uint32_t route, Ovix::PktHdrType type,
                                  Wire::Bytes packet) const {
    assert(vrf < ofVrf_.size() && route < ofVrf_[vrf].hops.size());
    const RouteHop& hop = ofVrf_[vrf].hops[route];
    if (hop.kind != RouteHop::Kind::choice) {
        return hop;
    }
    const Choice& several = choices_[hop.egress];
    const std::uint32_t hash = Ovix::flowHash(type, packet);
    const RouteHop& member = several.members[several.shares.chosen(hash)];
    if (member.kind != RouteHop::Kind::line || (*lines_)[member.egress].port->isUp) [[likely]] {
        return member;
    }
    return several.members[ofVrf_[vrf].fib->route(route).choose(hash, tables_->ports.ports())];
}

void RouteHops::forget(RouteHop& hop) {
    if (hop.kind == RouteHop::Kind::choice) {
        choices_.release(hop.egress);
    }
    hop = {};
}

void RouteHops::decide(RouteHop& hop, const IpRoute& route) {
    if (route.isLocal() || route.drops()) {
        hop.kind = RouteHop::Kind::forwarder;
        return;
    }
    if (route.vias().size() == 1) {
        hop = hopOf(route.vias().front());
        return;
    }
    Choice choice;
    for (const IpRouteVia& via : route.vias()) {
        choice.shares.add(via.weight);
        choice.members.push_back(hopOf(via));
    }
    hop.kind = RouteHop::Kind::choice;
    hop.egress = choices_.add(std::move(choice));
}

RouteHop RouteHops::hopOf(const IpRouteVia& via) {
    constexpr unsigned labelShift = 12;
    constexpr std::uint32_t bottom = 0x100;
    RouteHop hop;
    hop.kind = RouteHop::Kind::forwarder;
    if (tables_->pseudowires.isCircuit(via.port)) {
        return hop;
    }
    hop.kind = RouteHop::Kind::via;
    if (via.nexthop.family() == Lumo::IpFamily::none) {
        return hop;
    }
    if (via.push) {
        const auto& info = static_cast<const Ovix::MplsIpPushRewriteImpl&>(*via.push).pushed();
        const Lumo::UnboundedMplsLabelOperation pushed = info.labels.operation();
        const bool isUniform = info.ttlMode == Mpls::TtlMode::uniform;
        if (info.labels.namesFlow() || pushed.depth() > RouteHop::maxLabels ||
            (!isUniform && pushed.ttl == 0)) {
            return hop;
        }
        hop.labels = static_cast<std::uint8_t>(pushed.depth());
        hop.ttl = isUniform ? std::uint8_t{0} : pushed.ttl;
        hop.tc = pushed.tc.value_or(DecidedRewrite::keep);
        for (std::size_t i = 0; i < hop.labels; ++i) {
            hop.label[i] =
                pushed.label(i).value() << labelShift | (i + 1 == hop.labels ? bottom : 0);
        }
    }
    hop.kind = RouteHop::Kind::line;
    hop.egress = lines_->numberOf({via.port, 0, 0, false, via.nexthop});
    return hop;
}

} // namespace OvixAgent
