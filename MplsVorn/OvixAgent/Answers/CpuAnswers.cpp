#include "Answers/CpuAnswers.h"

#include <algorithm>
#include <array>
#include <cassert>
#include <chrono>

#include "Answers/IcmpError.h"
#include "Answers/LspEcho.h"
#include "Ovix/trace/RoadNotes.h"

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
                       const Mpls::PublishedTables& tables, Purpose purpose)
    : cpu_(&cpu), purpose_(purpose),
      notes_(purpose == Purpose::trialOfCaptures ? "live runs only" : ""), forwarding_(&forwarding),
      lookup_(config, forwarding, tables), rate_(config.answers) {
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
    if (frame.isOwn || isIdle()) {
        return; // an answer about an answer would never end (RFC 1122 section 3.2.2)
    }
    if (const auto packet = readLabelledPacket(frame.bytes)) {
        answer(frame, *packet);
    } else {
        notes_.unread(frame);
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
    push(frame, packet, onward, false, true);
    ++passedOn_;
    notes_.passedOn();
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
        notes_.sent(reply.finding);
    } else {
        countSilence(EchoSilence::noPath);
    }
}

void CpuAnswers::tooBig(const OvixAgent::Frame& received, std::span<const std::uint8_t> leaving,
                        std::uint32_t mtu) {
    if (isIdle() || !mayAnswerAny(AnswerReason::tooBig)) {
        return;
    }
    const auto before = readLabelledPacket(received.bytes);
    const auto after = readLabelledPacket(leaving);
    if (before && after) {
        reportError(AnswerReason::tooBig, received, *before,
                    [&](const OwnAddresses& own) { return icmpTooBig(*after, mtu, own); });
    } else {
        notes_.unread(received);
    }
}

void CpuAnswers::undelivered(const OvixAgent::Frame& received, std::string_view reason) {
    const std::optional<Unreachable> why = unreachableBy(reason);
    if (!why || isIdle() || !mayAnswerAny(AnswerReason::unreachable)) {
        return;
    }
    if (const auto packet = readLabelledPacket(received.bytes)) {
        reportError(AnswerReason::unreachable, received, *packet,
                    [&](const OwnAddresses& own) { return icmpUnreachable(*packet, *why, own); });
    } else {
        notes_.unread(received);
    }
}

/// In a trial that nobody looks at, nothing has to be answered.
bool CpuAnswers::isIdle() const noexcept {
    return purpose_ != Purpose::answer && !Ovix::RoadNotes::isOn();
}

/// Floods cost little: their packets are read only when an answer may be sent.
bool CpuAnswers::mayAnswerAny(AnswerReason reason) {
    const bool may =
        purpose_ != Purpose::answer
            ? !rate_.isOff(reason)
            : answers_.size() < maxQueued && rate_.mayAdmit(reason, monotonicNanoseconds());
    if (!may) {
        counts_.suppressed(reason);
        notes_.suppressed(reason);
    }
    return may;
}

/// Asked before an answer is made, since that is what costs.
bool CpuAnswers::mayAnswer(AnswerReason reason, const OvixAgent::Frame& frame,
                           const LabelledPacket& packet) {
    if (purpose_ != Purpose::answer) {
        return mayAnswerAny(reason);
    }
    const bool may = answers_.size() < maxQueued &&
                     rate_.mayAdmit(reason, frame.port, packet.ip.source(), monotonicNanoseconds());
    if (!may) {
        counts_.suppressed(reason);
        notes_.suppressed(reason);
    }
    return may;
}

template <typename Make>
void CpuAnswers::reportError(AnswerReason reason, const OvixAgent::Frame& frame,
                             const LabelledPacket& packet, const Make& make) {
    assert(frame.port < own_.size());
    if (!mayReportError(frame, packet)) {
        notes_.notSent(reason, "an address is a broadcast or link-local one");
    } else if (mayAnswer(reason, frame, packet)) {
        const OwnAddresses& own = own_[frame.port];
        std::vector<std::uint8_t> error = make(own);
        const char* const why = own.of(packet.ip.type).empty() ? "the port has no address"
                                : error.empty()                ? "none is due about such a packet"
                                                               : "there is no path to the source";
        if (queue(reason, frame, packet, std::move(error))) {
            notes_.sent(reason);
        } else {
            notes_.notSent(reason, why);
        }
    }
}

void CpuAnswers::countSilence(EchoSilence why) {
    ++silences_[static_cast<std::size_t>(why)];
    notes_.silent(why);
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
    if (!answer || (!answer->labels.empty() && !leadsToSource(frame, packet))) {
        return false;
    }
    rate_.take(reason, frame.port, packet.ip.source());
    counts_.sent(reason);
    push(frame, packet, *answer, true, alertsRouters);
    return true;
}

void CpuAnswers::push(const OvixAgent::Frame& frame, const LabelledPacket& packet,
                      const Answer& answer, bool isOwn, bool alertsRouters) {
    if (purpose_ != Purpose::trialOfCaptures) {
        const Lumo::EthAddr& mac = forwarding_->ports.ports()[frame.port].mac;
        answers_.push_back({frame.port, answer.frame(mac, packet.tags), isOwn, alertsRouters});
    }
}

std::vector<std::pair<std::string, std::uint64_t>> CpuAnswers::counts() const {
    auto all = counts_.named();
    for (std::size_t i = 0; i < silences_.size(); ++i) {
        if (silences_[i] != 0) {
            all.emplace_back(nameOf(static_cast<EchoSilence>(i)), silences_[i]);
        }
    }
    if (leftOut_ != 0) {
        all.emplace_back("LSP echo: mappings or other TLVs left out", leftOut_);
    }
    if (passedOn_ != 0) {
        all.emplace_back(echoPassedOnName, passedOn_);
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
