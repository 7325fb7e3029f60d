#include "FastPath/FastPath.h"

#include <algorithm>
#include <cassert>

#include "FastPath/LabelRewrite.h"
#include "Ovix/packet/FlowHash.h"
#include "Ovix/trace/Trace.h"
#include "Tessel/Exceptions.h"
#include "Wire/LabelStack.h"

namespace OvixAgent {

namespace {

using Ovix::Beneath;
using Ovix::PktHdrType;

constexpr std::uint32_t firstOrdinaryLabel = 16;
/// A decision costs about as much as routing so many frames; what the forwarder does for those pays
/// for it, so that frames of labels never met before cost little more than without decisions.
constexpr std::uint32_t costOfDecision = 8;
constexpr std::uint32_t mostCredit = 64 * costOfDecision;

std::uint32_t labelOf(Lumo::MplsLabelEntry entry) noexcept {
    return entry.word().value() >> 12U;
}

/// What lies beneath the top label of a packet, as far as decisions distinguish it.
std::optional<Beneath> beneathTop(Wire::Bytes packet) noexcept {
    const Wire::Bytes rest = packet.subspan(Lumo::MplsLabelEntry::size);
    if (!Lumo::MplsLabelEntry::load(packet.data()).bos()) {
        return rest.size() >= Lumo::MplsLabelEntry::size ? std::optional(Beneath::label)
                                                         : std::nullopt;
    }
    const PktHdrType type = Ovix::PacketParser::beneathLabels(rest);
    if (type == PktHdrType::eth) {
        return rest.size() >= Wire::Ethernet::size ? std::optional(Beneath::ethernet)
                                                   : std::nullopt;
    }
    if (Ovix::PacketParser::ipHeaderLength(type, rest) == 0) {
        return std::nullopt;
    }
    return type == PktHdrType::ipv4 ? Beneath::ipv4 : Beneath::ipv6;
}

} // namespace

FastPath::FastPath(Forwarder& forwarder, const Ptr<Ovix::PluginManager>& manager,
                   ForwardingTables& tables, Mpls::PublishedTables& published)
    : forwarder_(&forwarder), tables_(&tables), inputSteps_(manager->genericPipelineSteps()),
      events_(forwarder.namedCounters()), lines_(tables), decisions_(published),
      decider_(manager, tables, decisions_, lines_, events_), ipHop_(tables), credit_(mostCredit) {}

std::size_t FastPath::receive(std::span<WritableFrame> burst) {
    const bool isFast = isReady();
    std::size_t done = 0;
    try {
        for (; done < burst.size(); ++done) {
            if (isFast) {
                prefetch(burst, done);
                if (forward(burst[done])) {
                    ++counts_.fast;
                    continue;
                }
            }
            sent_.flush();
            current_ = burst[done].frame();
            forwarder_->receive(current_);
            ++counts_.slow;
            credit_ = std::min(credit_ + 1, mostCredit);
        }
    } catch (const Tessel::SnapshotLost&) {
        // The caller refreshes the tables and passes the rest again.
    }
    sent_.flush();
    return done;
}

/// Whether decisions may be used for the frames at hand.
bool FastPath::isReady() {
    if (!isOn_ || Ovix::TraceSource::anyOn() || !decisions_.refresh()) {
        return false;
    }
    if (const std::uint64_t version = decider_.version(); version != version_) [[unlikely]] {
        version_ = version;
        decisions_.voidAll();
        lines_.resolveAll();
        readPorts();
    }
    lines_.refresh();
    return true;
}

void FastPath::readPorts() {
    const auto isIgnored = [&](std::uint16_t etherType) {
        const auto& steps = inputSteps_->steps();
        return std::all_of(steps.begin(), steps.end(),
                           [&](const auto& step) { return step->ignores(etherType); });
    };
    const bool ignoresLabels = isIgnored(Wire::EtherType::mpls);
    const bool ignoresIp = isIgnored(Wire::EtherType::ipv4) && isIgnored(Wire::EtherType::ipv6);
    const std::vector<Port>& ports = tables_->ports.ports();
    intakes_.assign(ports.size(), {});
    for (PortIndex i = 0; i < ports.size(); ++i) {
        const bool isPlain = !tables_->ports.hasVlans(i) && !tables_->pseudowires.isCircuit(i);
        const auto fib = tables_->vrfs->number(ports[i].vrf.view());
        intakes_[i] = {isPlain && ignoresLabels, isPlain && ignoresIp && fib, fib.value_or(0)};
    }
}

/// Loads what the frames behind will need.
void FastPath::prefetch(std::span<const WritableFrame> burst, std::size_t at) const noexcept {
    constexpr std::size_t headersAhead = 16;
    constexpr std::size_t labelsAhead = 8;
    if (at + headersAhead < burst.size()) {
        __builtin_prefetch(burst[at + headersAhead].bytes);
    }
    if (at + labelsAhead < burst.size() &&
        burst[at + labelsAhead].size >= Wire::Ethernet::size + Lumo::MplsLabelEntry::size) {
        const auto entry =
            Lumo::MplsLabelEntry::load(burst[at + labelsAhead].bytes + Wire::Ethernet::size);
        __builtin_prefetch(decisions_.place(labelOf(entry)));
    }
}

/// A frame that does not fit any decision is left to the forwarder: false, and nothing is changed.
bool FastPath::forward(WritableFrame& frame) {
    if (frame.size < Wire::Ethernet::size + Lumo::MplsLabelEntry::size ||
        frame.size != frame.originalLength) {
        return false;
    }
    const auto etherType = Lumo::NetU16::load(frame.bytes + Wire::Ethernet::etherTypeAt).value();
    switch (etherType) {
    case Wire::EtherType::mpls:
        return forwardLabelled(frame);
    case Wire::EtherType::ipv4:
        return forwardIp(frame, PktHdrType::ipv4);
    case Wire::EtherType::ipv6:
        return forwardIp(frame, PktHdrType::ipv6);
    default:
        return false;
    }
}

bool FastPath::isForUs(const WritableFrame& frame, const Port& port) const noexcept {
    return port.anyMac || (frame.bytes[0] & 1U) != 0 ||
           std::memcmp(frame.bytes, port.mac.data(), Wire::Ethernet::macSize) == 0;
}

bool FastPath::forwardIp(WritableFrame& frame, PktHdrType type) {
    const Port& port = tables_->ports.ports()[frame.port];
    const Intake& intake = intakes_[frame.port];
    if (!intake.takesIp || !port.routesIp || !isForUs(frame, port)) {
        return false;
    }
    const PacketWork work{&frame, frame.bytes + Wire::Ethernet::size,
                          frame.size - static_cast<std::uint32_t>(Wire::Ethernet::size), type};
    Port* out = nullptr;
    const auto sent = ipHop_.route(tables_->vrfs->fibAt(intake.fib), work, out);
    if (!sent) {
        return false;
    }
    forwarder_->accounts().passed(frame.size);
    sent_.add(*out, *sent);
    return true;
}

bool FastPath::forwardLabelled(WritableFrame& frame) {
    const Port& port = tables_->ports.ports()[frame.port];
    const auto top = Lumo::MplsLabelEntry::load(frame.bytes + Wire::Ethernet::size);
    const std::uint32_t label = labelOf(top);
    if (label < firstOrdinaryLabel || top.ttl() <= 1 || !intakes_[frame.port].takesLabels ||
        !port.mpls || !isForUs(frame, port)) {
        return false;
    }
    PacketWork work{&frame, frame.bytes + Wire::Ethernet::size,
                    frame.size - static_cast<std::uint32_t>(Wire::Ethernet::size),
                    PktHdrType::mpls};
    const Decision* const decision = decisionFor(label, work.bytes());
    return decision != nullptr && follow(*decision, decisions_.at(label), work);
}

/// Whether the forwarder has done enough since to pay for a decision.
bool FastPath::mayDecide() noexcept {
    if (credit_ < costOfDecision) {
        return false;
    }
    credit_ -= costOfDecision;
    ++counts_.decided;
    return true;
}

/// Null: none can be made now, or not for this frame.
const Decision* FastPath::decisionFor(std::uint32_t label, Wire::Bytes packet) {
    const Decision& decision = decisions_.at(label);
    if (decisions_.isValid(decision) && decision.action != Action::byBeneath) [[likely]] {
        return &decision;
    }
    const std::optional<Beneath> beneath = beneathTop(packet);
    if (!beneath) {
        return nullptr;
    }
    if (!decisions_.isValid(decision)) {
        if (!mayDecide()) {
            return nullptr;
        }
        decider_.decide(label, *beneath);
    }
    return decision.action == Action::byBeneath ? decidedBeneath(decision, label, *beneath)
                                                : &decision;
}

const Decision* FastPath::decidedBeneath(const Decision& decision, std::uint32_t label,
                                         Beneath beneath) {
    const auto kind = static_cast<std::size_t>(beneath);
    if (!decisions_.isValid(decisions_.byBeneath[decision.value].decisions[kind])) {
        if (!mayDecide()) {
            return nullptr;
        }
        decider_.decideBeneath(label, beneath);
    }
    return &decisions_.byBeneath[decision.value].decisions[kind];
}

bool FastPath::follow(Decision decision, const Decision& top, PacketWork& work) {
    switch (decision.action) {
    case Action::swap:
        return followSwap(decision, top, work);
    case Action::rewrite:
        return followRewrite(decision, top, work);
    case Action::lookup:
        return followLookup(decision, top, work);
    case Action::drop:
        return followDrop(decision, top, work);
    case Action::choice:
        return follow(chosen(decision, work), top, work);
    default:
        return false;
    }
}

const Decision& FastPath::chosen(const Decision& decision, const PacketWork& work) {
    const DecidedChoice& choice = decisions_.choices[decision.value];
    const std::uint32_t residue =
        Ovix::flowHash(PktHdrType::mpls, work.bytes()) % choice.totalWeight;
    return choice.members[Tessel::weightedChoice(residue, choice.weights.size(),
                                                 [&](std::size_t i) { return choice.weights[i]; })];
}

bool FastPath::followSwap(Decision decision, const Decision& top, PacketWork& work) {
    InnerLookups inner;
    if (!lookUpInner(work, inner)) {
        return false;
    }
    const EgressLine& line = lines_[decision.egress];
    if (!line.takes(work.length) || !work.hasRoom(0)) {
        return false;
    }
    constexpr std::uint32_t kept = 0xf00; // TC and S
    const std::uint32_t entry = Lumo::MplsLabelEntry::load(work.packet).word().value();
    Lumo::NetU32(decision.value | (entry & kept) | ((entry & 0xffU) - 1)).store(work.packet);
    countLookups(top, inner);
    countLabel(entry >> 12U, *work.frame);
    send(work, line);
    return true;
}

bool FastPath::followRewrite(Decision decision, const Decision& top, PacketWork& work) {
    InnerLookups inner;
    if (!lookUpInner(work, inner)) {
        return false;
    }
    const DecidedRewrite& rewrite = decisions_.rewrites[decision.value];
    const EgressLine& line = lines_[rewrite.egress];
    const std::int32_t grows = growth(rewrite);
    if (!line.takes(work.length + static_cast<std::uint32_t>(grows)) ||
        !work.hasRoom(static_cast<std::size_t>(std::max(grows, 0)))) {
        return false;
    }
    const std::uint32_t label = labelOf(Lumo::MplsLabelEntry::load(work.packet));
    applyRewrite(rewrite, work);
    countLookups(top, inner);
    events_.count(rewrite.events);
    if (rewrite.isCounted) {
        countLabel(label, *work.frame);
    }
    send(work, line);
    return true;
}

bool FastPath::followLookup(Decision decision, const Decision& top, PacketWork& work) {
    const DecidedLookup& lookup = decisions_.lookups[decision.value];
    const std::uint32_t label = labelOf(Lumo::MplsLabelEntry::load(work.packet));
    work.packet += Lumo::MplsLabelEntry::size;
    work.length -= static_cast<std::uint32_t>(Lumo::MplsLabelEntry::size);
    work.type = Ovix::PacketParser::beneathLabels(work.bytes());
    Port* out = nullptr;
    const auto sent = ipHop_.route(tables_->vrfs->fibAt(lookup.fib), work, out);
    if (!sent) {
        return false;
    }
    countLookups(top, {});
    events_.count(lookup.events);
    if (lookup.isCounted) {
        countLabel(label, *work.frame);
    }
    forwarder_->accounts().passed(work.frame->size);
    sent_.add(*out, *sent);
    return true;
}

bool FastPath::followDrop(Decision decision, const Decision& top, PacketWork& work) {
    InnerLookups inner;
    if (top.isFound && !lookUpInner(work, inner)) {
        return false;
    }
    DecidedDrop& drop = decisions_.drops[decision.value];
    countLookups(top, inner);
    events_.count(drop.events);
    if (drop.fate == nullptr) {
        drop.fate = &forwarder_->accounts().counterOf(OvixAgent::drop(drop.reason));
    }
    ++drop.fate->count;
    forwarder_->accounts().passed(work.frame->size);
    return true;
}

/// Labels beneath one that was found are looked up, too, down to the first that is not found. False
/// when one of them is not known here.
bool FastPath::lookUpInner(const PacketWork& work, InnerLookups& inner) {
    auto entry = Lumo::MplsLabelEntry::load(work.packet);
    if (entry.bos()) [[likely]] {
        return true;
    }
    Wire::LabelWalk walk(work.bytes().subspan(Lumo::MplsLabelEntry::size));
    bool isFound = true;
    while (walk.next(entry)) {
        const std::uint32_t label = labelOf(entry);
        // The walk has positions for so many labels (Lumo::MplsStackEntryIndex).
        if (label < firstOrdinaryLabel ||
            inner.count + 2 >= std::size_t{Lumo::MplsStackEntryIndex::nullValue}) {
            return false;
        }
        if (!isFound) {
            continue;
        }
        Decision& decision = decisions_.at(label);
        if (!decisions_.isValid(decision)) {
            if (!mayDecide()) {
                return false;
            }
            decider_.decide(label, Beneath::label);
        }
        if (!decision.isLookupKnown) {
            return false;
        }
        inner.sets[inner.count++] = decision.lookup;
        isFound = decision.isFound;
    }
    return walk.isAtBottom();
}

void FastPath::countLookups(const Decision& top, const InnerLookups& inner) {
    events_.count(top.lookup);
    for (std::size_t i = 0; i < inner.count; ++i) {
        events_.count(inner.sets[i]);
    }
}

void FastPath::countLabel(std::uint32_t label, const WritableFrame& frame) {
    const auto key = Mpls::RouteKey::fromLabel(Lumo::MplsLabel(label));
    decider_.labelCounters()->counterCollectionIs(key).countBytes(frame.size);
}

void FastPath::send(const PacketWork& work, const EgressLine& line) {
    forwarder_->accounts().passed(work.frame->size);
    sent_.add(*line.port, withLinkHeader(work, line));
}

} // namespace OvixAgent
