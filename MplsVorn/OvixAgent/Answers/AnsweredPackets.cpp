#include <algorithm>

#include "Answers/CpuAnswers.h"

namespace OvixAgent {

namespace {

/// The label stack without entropy labels and their indicators, which lead nowhere (RFC 6790
/// section 4.2).
std::vector<Lumo::MplsLabelEntry> forwardingEntries(const LabelledPacket& packet) {
    std::vector<Lumo::MplsLabelEntry> entries = labelEntries(packet.labels);
    auto end = entries.begin();
    bool isEntropy = false;
    for (const Lumo::MplsLabelEntry entry : entries) {
        if (isEntropy || entry.label() == Lumo::entropyLabelIndicator) {
            isEntropy = !isEntropy;
        } else {
            *end++ = entry;
        }
    }
    entries.erase(end, entries.end());
    return entries;
}

} // namespace

// What tables and ports say about a packet that may be answered.

/// The longest IP packet that leaves whole for the source of one: by its route, or along the LSP.
std::size_t CpuAnswers::mtuToSource(const OvixAgent::Frame& frame,
                                    const LabelledPacket& packet) const {
    constexpr std::size_t leastOfIpv6 = 1280; // RFC 8200 section 5
    constexpr std::size_t none = 65535;
    std::size_t mtu = none;
    const auto limit = [&mtu](std::size_t ofPort, std::size_t labels) {
        const std::size_t stack = labels * Lumo::MplsLabelEntry::size;
        mtu = std::min(mtu, ofPort - std::min(ofPort, stack));
    };
    const IpRoute* const route = forwarding_->vrfs->fibOfPort(frame.port).find(packet.ip.source());
    if (route != nullptr) {
        for (const IpRouteVia& via : route->vias()) {
            limit(forwarding_->ports.ports()[via.port].mtu,
                  via.push ? pushedLabels(*via.push).depth() : 0);
        }
        return mtu;
    }
    const auto labels = labelEntries(packet.labels);
    if (!labels.empty()) {
        for (const EchoDownstream& next : lookup_.label(labels.front().label()).downstreams) {
            limit(next.mtu, next.labels.size() + labels.size());
        }
    }
    return mtu == none ? leastOfIpv6 : mtu;
}

/// Whether the first label that is not a router alert is that of a multicast tree.
bool CpuAnswers::isOfTree(const LabelledPacket& packet) const {
    const auto labels = labelEntries(packet.labels);
    const auto first = std::find_if(labels.begin(), labels.end(), [](Lumo::MplsLabelEntry entry) {
        return entry.label() != Lumo::routerAlert;
    });
    return first != labels.end() && lookup_.isOfTree(first->label());
}

/// Whether a label's TTL ends here: that of the top one, or of one beneath labels that end here
/// too. Entropy labels have none, and their indicators that of the tunnel's label (RFC 6790 section
/// 4.2).
bool CpuAnswers::isLabelExpired(const LabelledPacket& packet) const {
    for (const Lumo::MplsLabelEntry entry : forwardingEntries(packet)) {
        const Lumo::MplsLabel label = entry.label();
        const bool endsHere =
            label.isExplicitNull() || lookup_.label(label).use == EchoLabel::Use::popped;
        if (entry.ttl() <= 1 || !endsHere) {
            return entry.ttl() <= 1;
        }
    }
    return false;
}

/// Whether an answer with the packet's labels leaves along the LSP; or, where the LSP ends here,
/// whether the VRF that its labels lead to has a route to the source.
bool CpuAnswers::leadsToSource(const OvixAgent::Frame& frame, const LabelledPacket& packet) const {
    const Fib* fib = &forwarding_->vrfs->fibOfPort(frame.port);
    for (const Lumo::MplsLabelEntry entry : forwardingEntries(packet)) {
        const Lumo::MplsLabel label = entry.label();
        if (label == Lumo::routerAlert || label.isExplicitNull()) {
            continue;
        }
        const EchoLabel found = lookup_.label(label);
        if (found.use != EchoLabel::Use::popped) {
            return found.use == EchoLabel::Use::switched;
        }
        fib = found.vrf ? forwarding_->vrfs->fib(*found.vrf) : fib;
    }
    return fib != nullptr && fib->find(packet.ip.source()) != nullptr;
}

/// Whether an ICMP error may be sent to the packet's source, by the routes of the port's VRF:
/// neither address is a subnet's broadcast (RFC 1122 section 3.2.2, RFC 1812 section 4.3.2.7), and
/// an error to a link-local source stays on the link (RFC 4291 section 2.5.6).
bool CpuAnswers::mayReportError(const OvixAgent::Frame& frame, const LabelledPacket& packet) const {
    const Fib& fib = forwarding_->vrfs->fibOfPort(frame.port);
    const IpRoute* toDestination = fib.find(packet.ip.destination());
    const IpRoute* toSource = fib.find(packet.ip.source());
    if ((toDestination != nullptr && toDestination->isBroadcast()) ||
        (toSource != nullptr && toSource->isBroadcast())) {
        return false;
    }
    if (ipScope(packet.ip.source()) != IpScope::linkLocal) {
        return true;
    }
    const auto staysOnLink = [&](const IpRouteVia& via) {
        return via.onLink && via.port == frame.port;
    };
    return packet.labels.empty() && toSource != nullptr &&
           std::all_of(toSource->vias().begin(), toSource->vias().end(), staysOnLink);
}

/// Whether the destination is an address of this device.
bool CpuAnswers::isOwn(const OvixAgent::Frame& frame, const LabelledPacket& packet) const {
    const IpRoute* route = forwarding_->vrfs->fibOfPort(frame.port).find(packet.ip.destination());
    return route != nullptr && route->isLocal();
}

/// Whether the addresses of a labelled packet may belong to a VPN (RFC 4364) instead of the port's
/// VRF: there is more than one label, or the label is popped into a VRF.
bool CpuAnswers::mayBeOfVpn(const LabelledPacket& packet) const {
    const auto labels = labelEntries(packet.labels);
    return labels.size() > 1 ||
           (!labels.empty() && lookup_.label(labels.front().label()).use == EchoLabel::Use::popped);
}

} // namespace OvixAgent
