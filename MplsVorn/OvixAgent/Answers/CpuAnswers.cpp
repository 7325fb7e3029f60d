#include "Answers/CpuAnswers.h"

#include <algorithm>
#include <array>
#include <cassert>
#include <chrono>

#include "Answers/IcmpError.h"
#include "Answers/LspEcho.h"

namespace OvixAgent {

namespace {

constexpr std::size_t maxQueued = 256;

OwnAddresses addressesOf(const PortConfig& port) {
    OwnAddresses own;
    for (const InterfaceAddress& address : port.addresses) {
        Lumo::IpGenAddr& ofFamily =
            address.address.family() == Lumo::IpFamily::ipv4 ? own.ipv4 : own.ipv6;
        if (std::all_of(ofFamily.bytes().begin(), ofFamily.bytes().end(),
                        [](std::uint8_t byte) { return byte == 0; })) {
            ofFamily = address.address;
        }
    }
    return own;
}

/// A route that drops does so silently.
std::optional<Unreachable> unreachableBy(std::string_view reason) noexcept {
    static constexpr std::array<std::pair<std::string_view, Unreachable>, 5> all{
        {{Reason::noRoute, Unreachable::noRoute},
         {Reason::noNeighbour, Unreachable::noNeighbour},
         {Reason::notOneNeighbour, Unreachable::noNeighbour},
         {Reason::unreachableRoute, Unreachable::byRoute},
         {Reason::prohibitedRoute, Unreachable::prohibited}}};
    const auto found = std::find_if(all.begin(), all.end(),
                                    [&](const auto& entry) { return entry.first == reason; });
    return found != all.end() ? std::optional(found->second) : std::nullopt;
}

std::uint64_t monotonicNanoseconds() {
    return static_cast<std::uint64_t>(std::chrono::steady_clock::now().time_since_epoch() /
                                      std::chrono::nanoseconds(1));
}

} // namespace

CpuAnswers::CpuAnswers(TransmitPort& cpu, const AgentConfig& config, ForwardingTables& forwarding,
                       const Mpls::PublishedTables& tables)
    : cpu_(&cpu), forwarding_(&forwarding), lookup_(config, forwarding, tables),
      rate_(config.answers) {
    configure(config);
}

void CpuAnswers::configure(const AgentConfig& config) {
    lookup_.configure(config);
    rate_.configure(config.answers);
    own_.clear();
    for (const PortConfig& port : config.ports) {
        own_.push_back(addressesOf(port));
    }
}

void CpuAnswers::transmit(const OvixAgent::Frame& frame) {
    cpu_->transmit(frame);
    if (frame.isOwn) {
        return; // an answer about an answer would never end (RFC 1122 section 3.2.2)
    }
    if (const auto packet = readLabelledPacket(frame.bytes)) {
        answer(frame, *packet);
    }
}

void CpuAnswers::answer(const OvixAgent::Frame& frame, const LabelledPacket& packet) {
    if (isMplsEcho(packet.ip)) {
        answerEcho(frame, packet);
        return;
    }
    const bool isExpired = packet.labels.empty() ? packet.ip.ttl() <= 1 && !isOwn(frame, packet)
                                                 : isLabelExpired(packet);
    if (isExpired) {
        reportError(AnswerReason::timeExceeded, frame, packet,
                    [&](const OwnAddresses& own) { return icmpTimeExceeded(packet, own); });
    } else if (isEchoRequest(packet.ip)) {
        countSilence(EchoSilence::notToLoopback);
    } else if (isEchoReply(packet.ip)) {
        passOn(frame, packet);
    }
}

/// A router alert label stops a packet at each router, and the label beneath says where it goes
/// from there (RFC 3032 section 2.1). Others than echo replies end here.
void CpuAnswers::passOn(const OvixAgent::Frame& frame, const LabelledPacket& packet) {
    auto labels = labelEntries(packet.labels);
    if (labels.size() < 2 || labels.front().label() != Lumo::routerAlert || packet.isToGroup ||
        !mayAnswer(AnswerReason::lspEcho, frame, packet)) {
        return;
    }
    labels.erase(labels.begin());
    rate_.take(AnswerReason::lspEcho, frame.port, packet.ip.source());
    const Answer onward{{packet.ip.bytes.begin(), packet.ip.bytes.end()}, std::move(labels)};
    const Lumo::EthAddr& mac = forwarding_->ports.ports()[frame.port].mac;
    answers_.push_back({frame.port, onward.frame(mac, packet.tags), false, true});
    ++passedOn_;
}

/// A frame to a group of stations is for all of them only by the label of a multicast tree.
void CpuAnswers::answerEcho(const OvixAgent::Frame& frame, const LabelledPacket& packet) {
    assert(frame.port < own_.size());
    if (!mayAnswer(AnswerReason::lspEcho, frame, packet)) {
        return;
    }
    if (packet.isToGroup && !isOfTree(packet)) {
        countSilence(EchoSilence::toGroup);
        return;
    }
    EchoAnswer reply = lspEchoReply(packet, frame.port, frame.time, lookup_, own_[frame.port],
                                    mtuToSource(frame, packet));
    if (reply.silence != EchoSilence::none) {
        countSilence(reply.silence);
    } else if (queue(AnswerReason::lspEcho, frame, packet, std::move(reply.packet),
                     reply.alertsRouters)) {
        leftOut_ += reply.leftOut;
    } else {
        countSilence(EchoSilence::noPath);
    }
}

void CpuAnswers::tooBig(const OvixAgent::Frame& received, std::span<const std::uint8_t> leaving,
                        std::uint32_t mtu) {
    if (!mayAnswerAny(AnswerReason::tooBig)) {
        return;
    }
    const auto before = readLabelledPacket(received.bytes);
    const auto after = readLabelledPacket(leaving);
    if (before && after) {
        reportError(AnswerReason::tooBig, received, *before,
                    [&](const OwnAddresses& own) { return icmpTooBig(*after, mtu, own); });
    }
}

void CpuAnswers::undelivered(const OvixAgent::Frame& received, std::string_view reason) {
    const std::optional<Unreachable> why = unreachableBy(reason);
    if (!why || !mayAnswerAny(AnswerReason::unreachable)) {
        return;
    }
    if (const auto packet = readLabelledPacket(received.bytes)) {
        reportError(AnswerReason::unreachable, received, *packet,
                    [&](const OwnAddresses& own) { return icmpUnreachable(*packet, *why, own); });
    }
}

/// Floods cost little: their packets are read only when an answer may be sent.
bool CpuAnswers::mayAnswerAny(AnswerReason reason) {
    const bool may = answers_.size() < maxQueued && rate_.mayAdmit(reason, monotonicNanoseconds());
    if (!may) {
        counts_.suppressed(reason);
    }
    return may;
}

/// Asked before an answer is made, since that is what costs.
bool CpuAnswers::mayAnswer(AnswerReason reason, const OvixAgent::Frame& frame,
                           const LabelledPacket& packet) {
    const bool may = answers_.size() < maxQueued &&
                     rate_.mayAdmit(reason, frame.port, packet.ip.source(), monotonicNanoseconds());
    if (!may) {
        counts_.suppressed(reason);
    }
    return may;
}

template <typename Make>
void CpuAnswers::reportError(AnswerReason reason, const OvixAgent::Frame& frame,
                             const LabelledPacket& packet, const Make& make) {
    assert(frame.port < own_.size());
    if (mayReportError(frame, packet) && mayAnswer(reason, frame, packet)) {
        queue(reason, frame, packet, make(own_[frame.port]));
    }
}

/// False when there is no answer, or no way for it.
bool CpuAnswers::queue(AnswerReason reason, const OvixAgent::Frame& frame,
                       const LabelledPacket& packet, std::vector<std::uint8_t> bytes,
                       bool alertsRouters) {
    const bool isRoutedHere = reason == AnswerReason::lspEcho || !mayBeOfVpn(packet);
    const auto isRoutable = [&](const Lumo::IpGenAddr& address) {
        return isRoutedHere && forwarding_->vrfs->fibOfPort(frame.port).find(address) != nullptr;
    };
    const auto answer = answerTo(packet, std::move(bytes), isRoutable);
    if (!answer) {
        return false;
    }
    rate_.take(reason, frame.port, packet.ip.source());
    counts_.sent(reason);
    const Lumo::EthAddr& mac = forwarding_->ports.ports()[frame.port].mac;
    answers_.push_back({frame.port, answer->frame(mac, packet.tags), true, alertsRouters});
    return true;
}

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
/// too. Entropy labels and their indicators have none (RFC 6790 section 4.2).
bool CpuAnswers::isLabelExpired(const LabelledPacket& packet) const {
    bool isEntropy = false;
    for (const Lumo::MplsLabelEntry entry : labelEntries(packet.labels)) {
        const Lumo::MplsLabel label = entry.label();
        if (isEntropy || label == Lumo::entropyLabelIndicator) {
            isEntropy = !isEntropy;
            continue;
        }
        const bool endsHere =
            label.isExplicitNull() || lookup_.label(label).use == EchoLabel::Use::popped;
        if (entry.ttl() <= 1 || !endsHere) {
            return entry.ttl() <= 1;
        }
    }
    return false;
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

std::vector<std::pair<std::string, std::uint64_t>> CpuAnswers::counts() const {
    auto all = counts_.named();
    for (std::size_t i = 0; i < silences_.size(); ++i) {
        if (silences_[i] != 0) {
            all.emplace_back(std::string("LSP echo unanswered: ") + echoSilenceNames[i],
                             silences_[i]);
        }
    }
    if (leftOut_ != 0) {
        all.emplace_back("LSP echo: mappings or other TLVs left out", leftOut_);
    }
    if (passedOn_ != 0) {
        all.emplace_back("LSP echo: replies passed on", passedOn_);
    }
    return all;
}

std::vector<CpuAnswers::Frame> CpuAnswers::take() {
    std::vector<Frame> taken;
    taken.swap(answers_);
    taken_ += taken.size();
    return taken;
}

} // namespace OvixAgent
