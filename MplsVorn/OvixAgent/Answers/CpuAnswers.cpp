#include "Answers/CpuAnswers.h"

#include <algorithm>
#include <chrono>

#include "Answers/IcmpError.h"
#include "Answers/LspEcho.h"
#include "Ip/IpScope.h"

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

/// The answer in a frame addressed to the port, as a neighbour would send it with these tags.
std::vector<std::uint8_t> frameOf(const Answer& answer, const Lumo::EthAddr& port,
                                  std::span<const std::uint8_t> tags) {
    std::vector<std::uint8_t> bytes(port.begin(), port.end());
    bytes.insert(bytes.end(), 6, 0);
    bytes.insert(bytes.end(), tags.begin(), tags.end());
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
    : cpu_(&cpu), forwarding_(&forwarding), lookup_(forwarding, tables) {
    configure(config);
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
        queue(AnswerReason::lspEcho, frame, packet, lspEchoReply(packet, frame.time, lookup_, own));
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
    if (reason != AnswerReason::lspEcho && !mayBeToldOf(frame, packet)) {
        return;
    }
    const bool isRouters = reason == AnswerReason::lspEcho || !mayBeOfVpn(packet);
    const auto isRoutable = [&](const Lumo::IpGenAddr& address) {
        return isRouters && forwarding_->vrfs->fibOfPort(frame.port).find(address) != nullptr;
    };
    const auto answer = answerTo(packet, std::move(bytes), isRoutable);
    if (!answer) {
        return;
    }
    if (answers_.size() == maxWaiting || !rate_.admit(reason, monotonicNanoseconds())) {
        counts_.suppressed(reason);
        return;
    }
    counts_.sent(reason);
    const Lumo::EthAddr& mac = forwarding_->ports.ports()[frame.port].mac;
    answers_.push_back({frame.port, frameOf(*answer, mac, packet.tags)});
}

/// Whether its source may hear of an error of the packet's, as far as the port's VRF can tell: no
/// broadcast address of a subnet is in it (RFC 1122 section 3.2.2, RFC 1812 section 4.3.2.7), and
/// what is sent to a link-local address stays on the link (RFC 4291 section 2.5.6).
bool CpuAnswers::mayBeToldOf(const OvixAgent::Frame& frame, const LabelledPacket& packet) const {
    const Fib& fib = forwarding_->vrfs->fibOfPort(frame.port);
    const IpRoute* there = fib.find(packet.ip.destination());
    const IpRoute* back = fib.find(packet.ip.source());
    if ((there != nullptr && there->isBroadcast()) || (back != nullptr && back->isBroadcast())) {
        return false;
    }
    if (ipScope(packet.ip.source()) != IpScope::linkLocal) {
        return true;
    }
    const auto staysOnLink = [&](const IpRouteVia& via) {
        return via.onLink && via.port == frame.port;
    };
    return packet.labels.empty() && back != nullptr &&
           std::all_of(back->vias().begin(), back->vias().end(), staysOnLink);
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
           (!labels.empty() && lookup_.label(labels.front().label()).use == EchoLabel::Use::popped);
}

std::vector<CpuAnswers::Frame> CpuAnswers::take() {
    std::vector<Frame> taken;
    taken.swap(answers_);
    return taken;
}

} // namespace OvixAgent
