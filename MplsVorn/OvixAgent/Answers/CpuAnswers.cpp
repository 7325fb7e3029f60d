#include "Answers/CpuAnswers.h"

#include <algorithm>
#include <chrono>

#include "Answers/IcmpTimeExceeded.h"
#include "Answers/IcmpTooBig.h"
#include "Answers/LspEcho.h"

namespace OvixAgent {

namespace {

constexpr std::size_t maxWaiting = 256;

OwnAddresses addressesOf(const PortConfig& port) {
    OwnAddresses own;
    for (const IpInterfaceAddress& address : port.addresses) {
        Lumo::IpGenAddr& of =
            address.address.family == IpAddress::Family::ipv4 ? own.ipv4 : own.ipv6;
        if (std::all_of(of.bytes().begin(), of.bytes().end(),
                        [](std::uint8_t byte) { return byte == 0; })) {
            of = toIpGenAddr(address.address);
        }
    }
    return own;
}

std::uint64_t monotonicNanoseconds() {
    return static_cast<std::uint64_t>(std::chrono::steady_clock::now().time_since_epoch() /
                                      std::chrono::nanoseconds(1));
}

/// The answer in a frame addressed to the port, as a neighbour would send it.
std::vector<std::uint8_t> frameOf(const Answer& answer, const Lumo::EthAddr& port) {
    std::vector<std::uint8_t> bytes(port.begin(), port.end());
    bytes.insert(bytes.end(), 6, 0);
    const std::uint16_t type = !answer.labels.empty()        ? 0x8847
                               : answer.packet[0] >> 4U == 4 ? 0x0800
                                                             : 0x86dd;
    bytes.push_back(static_cast<std::uint8_t>(type >> 8U));
    bytes.push_back(static_cast<std::uint8_t>(type));
    for (const Lumo::MplsLabelEntry& entry : answer.labels) {
        const std::size_t at = bytes.size();
        bytes.resize(at + 4);
        entry.store(bytes.data() + at);
    }
    bytes.insert(bytes.end(), answer.packet.begin(), answer.packet.end());
    return bytes;
}

} // namespace

CpuAnswers::CpuAnswers(TransmitPort& cpu, const AgentConfig& config, ForwardingTables& forwarding,
                       const Mpls::PublishedTables& tables)
    : cpu_(&cpu), forwarding_(&forwarding), tables_(&tables) {
    configure(config);
    echoTables_.label = [this](Lumo::MplsLabel label) { return labelUse(label); };
    echoTables_.egressLabel = [this](const Lumo::IpGenAddr& prefix,
                                     std::uint8_t) -> std::optional<Lumo::MplsLabel> {
        constexpr std::uint32_t implicitNull = 3; // RFC 3032: the router before pops
        const IpRoute* route = forwarding_->vrfs->fib({})->find(prefix);
        const bool ends = route != nullptr &&
                          (route->isLocal() || (!route->vias().empty() && route->vias()[0].onLink));
        return ends ? std::optional(Lumo::MplsLabel(implicitNull)) : std::nullopt;
    };
}

void CpuAnswers::configure(const AgentConfig& config) {
    own_.clear();
    for (const PortConfig& port : config.ports) {
        own_.push_back(addressesOf(port));
    }
}

void CpuAnswers::transmit(const OvixAgent::Frame& frame) {
    cpu_->transmit(frame);
    if (const auto packet = readLabelledPacket(frame.bytes)) {
        answer(frame, *packet);
    }
}

void CpuAnswers::answer(const OvixAgent::Frame& frame, const LabelledPacket& packet) {
    const OwnAddresses& own = own_[frame.port];
    if (isLspEcho(packet)) {
        queue(AnswerReason::lspEcho, frame, packet,
              lspEchoReply(packet, frame.time, echoTables_, own));
        return;
    }
    const auto labels = labelEntries(packet.labels);
    const bool spent =
        labels.empty() ? packet.ip.ttl() <= 1 && !isOwn(frame, packet) : labels.front().ttl() <= 1;
    if (spent) {
        queue(AnswerReason::timeExceeded, frame, packet, icmpTimeExceeded(packet, own));
    }
}

void CpuAnswers::tooBig(const OvixAgent::Frame& received, std::span<const std::uint8_t> leaving,
                        std::uint32_t mtu) {
    const auto before = readLabelledPacket(received.bytes);
    const auto after = readLabelledPacket(leaving);
    if (before && after) {
        queue(AnswerReason::tooBig, received, *before,
              icmpTooBig(*after, mtu, own_[received.port]));
    }
}

void CpuAnswers::queue(AnswerReason reason, const OvixAgent::Frame& frame,
                       const LabelledPacket& packet, std::vector<std::uint8_t> bytes) {
    if (bytes.empty() || answers_.size() == maxWaiting ||
        !rate_.admit(reason, monotonicNanoseconds())) {
        return;
    }
    const bool isRouters = reason == AnswerReason::lspEcho || !mayBeOfVpn(packet);
    const auto isRoutable = [&](const Lumo::IpGenAddr& address) {
        return isRouters && forwarding_->vrfs->fibOfPort(frame.port).find(address) != nullptr;
    };
    if (const auto answer = answerTo(packet, std::move(bytes), isRoutable)) {
        answers_.push_back(
            {frame.port, frameOf(*answer, forwarding_->ports.ports()[frame.port].mac)});
    }
}

/// Whether the packet is for this device.
bool CpuAnswers::isOwn(const OvixAgent::Frame& frame, const LabelledPacket& packet) const {
    const IpRoute* route = forwarding_->vrfs->fibOfPort(frame.port).find(packet.ip.destination());
    return route != nullptr && route->isLocal();
}

/// Whether the addresses of a labelled packet may be a VPN's (RFC 4364), and not those that are
/// routed by here: below the outermost label stands another, or the label leads into a VRF.
bool CpuAnswers::mayBeOfVpn(const LabelledPacket& packet) const {
    const auto labels = labelEntries(packet.labels);
    return labels.size() > 1 ||
           (!labels.empty() && labelUse(labels.front().label()).use == EchoLabel::Use::popped);
}

EchoLabel CpuAnswers::labelUse(Lumo::MplsLabel label) const {
    const Mpls::RouteKey key = Mpls::RouteKey::fromLabel(label);
    if (tables_->lfib(Mpls::TableId::decapLfib)->route(key) != Mpls::LfibRoute()) {
        return {EchoLabel::Use::popped, {}};
    }
    const Mpls::Hardware::Route route = tables_->hardware()->route(key);
    if (route.isEq(Mpls::Hardware::Route())) {
        return {};
    }
    EchoLabel use{EchoLabel::Use::switched, {}};
    const auto& adjacency = tables_->hardware()->adjacency(route);
    const std::size_t vias = adjacency ? adjacency->entries(adjacency->useBackups()).size() : 0;
    for (std::uint32_t i = 0; i < vias; ++i) {
        const Ovix::OvixMplsVia& via = adjacency->via(adjacency->useBackups(), i);
        const Port* port = forwarding_->ports.byIntfId(via.intfId);
        EchoDownstream& downstream = use.downstreams.emplace_back();
        downstream.nexthop = via.nexthop;
        downstream.mtu = static_cast<std::uint16_t>(port != nullptr ? port->mtu : 0);
        const auto operation = via.labelOperation();
        for (std::size_t at = 0; at < operation.depth(); ++at) {
            downstream.labels.push_back(operation.label(at));
        }
        if (downstream.labels.empty()) {
            downstream.labels.emplace_back(3U);
        }
    }
    return use;
}

std::vector<CpuAnswers::Frame> CpuAnswers::take() {
    std::vector<Frame> taken;
    taken.swap(answers_);
    return taken;
}

} // namespace OvixAgent
