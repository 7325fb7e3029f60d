#include "FastPath/LabelForwarding.h"

#include <algorithm>
#include <cassert>

#include "FastPath/CircuitFrame.h"
#include "FastPath/LabelRewrite.h"
#include "Ovix/packet/FlowHash.h"

namespace OvixAgent {

namespace {

using Ovix::Beneath;
using Ovix::PktHdrType;

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

LabelForwarding::LabelForwarding(DecidedTables& decided, Decider* decider, FrameAccounts& accounts,
                                 OwnPorts* own, IpHop& ipHop)
    : decided_(&decided), decisions_(&decided.decisions), lines_(&decided.lines), decider_(decider),
      events_(decided.events, accounts.counters()), departures_(accounts, own), ipHop_(&ipHop) {}

// With the first label that is counted the decider knows where.
void LabelForwarding::decide(std::uint32_t label, Beneath beneath) {
    decider_->decide(label, beneath);
    labelCountersAre(decider_->labelCounters());
    assert(decisions_->at(label).action != Action::swap || countersOfLabels_ != nullptr);
}

void LabelForwarding::decideBeneath(std::uint32_t label, Beneath beneath) {
    decider_->decideBeneath(label, beneath);
    labelCountersAre(decider_->labelCounters());
}

/// Whether a decision may take the place of this one: of one that a change has made void at once,
/// since nobody but those who publish tables makes it so; of none when the forwarder has done
/// enough since to pay for it.
bool LabelForwarding::mayReplace(const Decision& former) noexcept {
    if (decider_ == nullptr) {
        return false;
    }
    if (former.isLookupKnown || former.action != Action::none) {
        return true;
    }
    return mayDecide();
}

bool LabelForwarding::mayDecide() noexcept {
    if (credit_ < costOfDecision) {
        return false;
    }
    credit_ -= costOfDecision;
    return true;
}

const Decision* LabelForwarding::decidedBeneath(const Decision& decision, std::uint32_t label,
                                                const PacketWork& work) {
    const std::optional<Beneath> beneath = beneathTop(work.bytes());
    if (!beneath) {
        return nullptr;
    }
    const auto kind = static_cast<std::size_t>(*beneath);
    const Decision& former = decisions_->byBeneath[decision.value].decisions[kind];
    if (!decisions_->isValid(former)) {
        if (!mayReplace(former)) {
            return nullptr;
        }
        decideBeneath(label, *beneath);
    }
    return &decisions_->byBeneath[decision.value].decisions[kind];
}

/// Null: none can be made now, or not for this frame.
inline const Decision* LabelForwarding::decisionFor(std::uint32_t label, const PacketWork& work) {
    const Decision& decision = decisions_->at(label);
    if (!decisions_->isValid(decision)) [[unlikely]] {
        const std::optional<Beneath> beneath = beneathTop(work.bytes());
        if (!beneath || label == decided_->traced.leftOut || !mayReplace(decision)) {
            return nullptr;
        }
        decide(label, *beneath);
    }
    return decision.action == Action::byBeneath ? decidedBeneath(decision, label, work) : &decision;
}

/// Notes the events of looking up a label that is found, and those beneath it. False when one of
/// them is not known here.
inline bool LabelForwarding::lookUpAll(const Decision& top, const PacketWork& work,
                                       Counted& counted) {
    if (counted.isFull()) {
        return false;
    }
    counted.add(top.lookup);
    return Lumo::MplsLabelEntry::load(work.packet).bos() || lookUpInner(work, counted);
}

/// The flow's hash is that of the packet as it leaves. Null, and the packet is as it was, when it
/// cannot leave now.
const EgressLine* LabelForwarding::rewriteTowardFec(const DecidedRewrite& rewrite,
                                                    PacketWork& work) const {
    const PacketWork before = work;
    std::array<std::uint8_t, DecidedRewrite::mostBytes> former;
    const auto changed = static_cast<std::size_t>(rewrite.grows) + Lumo::MplsLabelEntry::size;
    assert(rewrite.grows >= 0 && changed <= former.size());
    std::uint8_t* const first = work.packet - rewrite.grows;
    std::copy_n(first, changed, former.begin());
    applyRewrite(rewrite, work);
    const DecidedFec& fec = decisions_->fecs[rewrite.egress];
    const std::size_t chosen = fec.shares.chosen(Ovix::flowHash(work.type, work.bytes()));
    const EgressLine& line = (*lines_)[fec.lines[chosen]];
    if (line.takes(work.length)) {
        return &line;
    }
    std::copy_n(former.begin(), changed, first);
    work = before;
    return nullptr;
}

inline bool LabelForwarding::followRewrite(const Decision& decision, const Counted& counted,
                                           PacketWork& work) {
    const DecidedRewrite& rewrite = decisions_->rewrites[decision.value];
    const std::int32_t grows = rewrite.grows;
    const auto length = static_cast<std::uint32_t>(static_cast<std::int32_t>(work.length) + grows);
    const EgressLine* line = rewrite.isToFec ? nullptr : &(*lines_)[rewrite.egress];
    if (!work.hasRoom(static_cast<std::size_t>(std::max(grows, 0))) ||
        (line != nullptr && !line->takes(length))) {
        return false;
    }
    const auto entry = Lumo::MplsLabelEntry::load(work.packet);
    if (line != nullptr) {
        applyRewrite(rewrite, work);
    } else {
        line = rewriteTowardFec(rewrite, work);
        if (line == nullptr) {
            return false;
        }
    }
    count(counted, rewrite.events);
    if (rewrite.isCounted) {
        countLabel(entry, work);
    }
    departures_.send(work, *line, etherTypeOf(work.type));
    return true;
}

/// A flow's hash is that of the frame as it came in, for whatever needs it later, too.
Decision LabelForwarding::chosen(const Decision& decision, PacketWork& work) const {
    const DecidedChoice& choice = decisions_->choices[decision.value];
    work.hash = Ovix::flowHash(PktHdrType::mpls, work.received());
    work.isHashed = true;
    return choice.member(work.hash);
}

bool LabelForwarding::followSwap(const Decision& decision, const Counted& counted,
                                 PacketWork& work) {
    const EgressLine& line = (*lines_)[decision.egress];
    if (!line.takes(work.length) || !work.hasRoom(0)) {
        return false;
    }
    count(counted, EventSets::none);
    const auto top = Lumo::MplsLabelEntry::load(work.packet);
    Lumo::NetU32(swappedEntry(decision, top.word().value())).store(work.packet);
    countLabel(top, work);
    departures_.send(work, line, Wire::EtherType::mpls);
    return true;
}

bool LabelForwarding::followCircuit(const Decision& decision, const Counted& counted,
                                    PacketWork& work) {
    const DecidedCircuit& circuit = decisions_->circuits[decision.value];
    const Wire::Bytes frame = customersFrame(*circuit.pseudowire, work.bytes());
    if (frame.empty() || !circuit.port->isUp ||
        frame.size() > Wire::linkLength(frame) + circuit.port->mtu) {
        return false;
    }
    count(counted, circuit.events);
    if (circuit.isCounted) {
        countLabel(Lumo::MplsLabelEntry::load(work.packet), work);
    }
    departures_.countDelivered(*circuit.pseudowire, frame.size());
    departures_.sendAs(*work.frame, work.port, *circuit.port, frame);
    return true;
}

bool LabelForwarding::followLookup(const Decision& decision, const Counted& counted,
                                   PacketWork& work) {
    const DecidedLookup& lookup = decisions_->lookups[decision.value];
    const auto entry = Lumo::MplsLabelEntry::load(work.packet);
    work.packet += Lumo::MplsLabelEntry::size;
    work.length -= static_cast<std::uint32_t>(Lumo::MplsLabelEntry::size);
    work.type = Ovix::PacketParser::beneathLabels(work.bytes());
    const EgressLine* const line = ipHop_->route(lookup.fib, ReversePath::off, work);
    if (line == nullptr) {
        return false;
    }
    count(counted, lookup.events);
    if (lookup.isCounted) {
        countLabel(entry, work);
    }
    departures_.send(work, *line, etherTypeOf(work.type));
    return true;
}

bool LabelForwarding::dropUnknown(const Decision& decision, const WritableFrame& frame,
                                  PortIndex in) {
    const FrameAccounts::FateLog* const log = logOf(decision.value, frame);
    if (log == nullptr) {
        return false;
    }
    events_.count(DecidedDrop::of(decision).all);
    departures_.drop(frame, in, *log);
    return true;
}

/// The label was found, but leads nowhere.
bool LabelForwarding::drop(const Decision& decision, const Counted& counted, PacketWork& work) {
    const FrameAccounts::FateLog* const log = logOf(decision.value, *work.frame);
    if (log == nullptr) {
        return false;
    }
    count(counted, DecidedDrop::of(decision).events);
    departures_.drop(*work.frame, work.port, *log);
    return true;
}

inline bool LabelForwarding::follow(Decision decision, const Counted& counted, PacketWork& work) {
    const bool isOfTree = decision.action == Action::replicate && !work.ended;
    if (work.isToGroup() && !isOfTree && decision.action != Action::drop) [[unlikely]] {
        return false;
    }
    switch (decision.action) {
    case Action::swap:
        return followSwap(decision, counted, work);
    case Action::impose:
    case Action::rewrite:
        return followRewrite(decision, counted, work);
    case Action::circuit:
        return followCircuit(decision, counted, work);
    case Action::replicate:
        return followReplicas(decision, counted, work);
    case Action::lookup:
        return followLookup(decision, counted, work);
    case Action::drop:
        return !work.ended && drop(decision, counted, work);
    case Action::choice:
        return follow(chosen(decision, work), counted, work);
    default:
        return false;
    }
}

bool LabelForwarding::forward(PacketWork& work) {
    Counted counted;
    for (;;) {
        const auto top = Lumo::MplsLabelEntry::load(work.packet);
        const std::uint32_t label = labelOf(top);
        if (label < firstOrdinaryLabel || top.ttl() <= 1) {
            return false;
        }
        const Decision* const found = decisionFor(label, work);
        if (found == nullptr) {
            return false;
        }
        const Decision decision = *found;
        if (decision.action == Action::drop && !decisions_->at(label).isFound) {
            return !work.ended && dropUnknown(decision, *work.frame, work.port);
        }
        if (!lookUpAll(decisions_->at(label), work, counted)) {
            return false;
        }
        if (decision.action != Action::terminate) {
            return follow(decision, counted, work);
        }
        counted.add(static_cast<std::uint16_t>(decision.value));
        work.packet += Lumo::MplsLabelEntry::size;
        work.length -= static_cast<std::uint32_t>(Lumo::MplsLabelEntry::size);
        work.ended = true;
    }
}

} // namespace OvixAgent
