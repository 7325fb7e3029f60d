#include "FastPath/LabelForwarding.h"

#include <algorithm>
#include <cassert>

#include "FastPath/CircuitFrame.h"
#include "FastPath/LabelRewrite.h"
#include "Ovix/packet/FlowHash.h"
#include "Tessel/WeightedChoice.h"

namespace OvixAgent {

namespace {

using Ovix::Beneath;
using Ovix::PktHdrType;

constexpr std::uint32_t firstOrdinaryLabel = 16;

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

LabelForwarding::LabelForwarding(const Ptr<Ovix::OvixNamedCounters>& counters,
                                 const Ptr<Ovix::PluginManager>& manager, ForwardingTables& tables,
                                 const Mpls::PublishedTables& published, const IpHop& ipHop,
                                 Departures& departures)
    : events_(counters), lines_(tables), decisions_(published),
      decider_(manager, tables, decisions_, lines_, events_), ipHop_(&ipHop), tables_(&tables),
      departures_(&departures) {}

void LabelForwarding::restart() {
    decisions_.voidAll();
    lines_.resolveAll();
}

void LabelForwarding::prefetch(const std::uint8_t* top) const noexcept {
    __builtin_prefetch(decisions_.place(labelOf(Lumo::MplsLabelEntry::load(top))));
}

bool LabelForwarding::forward(PacketWork work) {
    const auto top = Lumo::MplsLabelEntry::load(work.packet);
    const std::uint32_t label = labelOf(top);
    if (label < firstOrdinaryLabel || top.ttl() <= 1) {
        return false;
    }
    const Decision* const decision = decisionFor(label, work);
    return decision != nullptr && follow(*decision, decisions_.at(label), work);
}

/// Whether the forwarder has done enough since to pay for a decision.
bool LabelForwarding::mayDecide() noexcept {
    if (credit_ < costOfDecision) {
        return false;
    }
    credit_ -= costOfDecision;
    ++decided_;
    return true;
}

/// Null: none can be made now, or not for this frame.
const Decision* LabelForwarding::decisionFor(std::uint32_t label, const PacketWork& work) {
    const Decision& decision = decisions_.at(label);
    if (decisions_.isValid(decision) && decision.action != Action::byBeneath) [[likely]] {
        return &decision;
    }
    const std::optional<Beneath> beneath = beneathTop(work.bytes());
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

const Decision* LabelForwarding::decidedBeneath(const Decision& decision, std::uint32_t label,
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

/// Labels beneath one that was found are looked up, too, down to the first that is not found. False
/// when one of them is not known here.
bool LabelForwarding::lookUpInner(const PacketWork& work, InnerLookups& inner) {
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

bool LabelForwarding::follow(Decision decision, const Decision& top, PacketWork& work) {
    switch (decision.action) {
    case Action::swap:
        return followSwap(decision, top, work);
    case Action::rewrite:
        return followRewrite(decision, top, work);
    case Action::circuit:
        return followCircuit(decision, top, work);
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

Decision LabelForwarding::chosen(const Decision& decision, const PacketWork& work) const {
    const DecidedChoice& choice = decisions_.choices[decision.value];
    const std::uint32_t residue =
        Ovix::flowHash(PktHdrType::mpls, work.bytes()) % choice.totalWeight;
    return choice.members[Tessel::weightedChoice(residue, choice.weights.size(),
                                                 [&](std::size_t i) { return choice.weights[i]; })];
}

bool LabelForwarding::followSwap(Decision decision, const Decision& top, PacketWork& work) {
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
    countLabel(Lumo::MplsLabelEntry(Lumo::NetU32(entry)), work);
    departures_->send(work, *line.port, withLinkHeader(work, line));
    return true;
}

bool LabelForwarding::followRewrite(Decision decision, const Decision& top, PacketWork& work) {
    InnerLookups inner;
    if (!lookUpInner(work, inner)) {
        return false;
    }
    const DecidedRewrite& rewrite = decisions_.rewrites[decision.value];
    const std::int32_t grows = growth(rewrite);
    const auto length = static_cast<std::uint32_t>(static_cast<std::int32_t>(work.length) + grows);
    const EgressLine* line = rewrite.isToFec ? nullptr : &lines_[rewrite.egress];
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
    countLookups(top, inner);
    events_.count(rewrite.events);
    if (rewrite.isCounted) {
        countLabel(entry, work);
    }
    departures_->send(work, *line->port, withLinkHeader(work, *line));
    return true;
}

/// The flow's hash is that of the packet as it leaves. Null, and the packet is as it was, when it
/// cannot leave now.
const EgressLine* LabelForwarding::rewriteTowardFec(const DecidedRewrite& rewrite,
                                                    PacketWork& work) const {
    const PacketWork before = work;
    std::array<std::uint8_t, DecidedRewrite::mostBytes> former;
    const auto changed = static_cast<std::size_t>(growth(rewrite)) + Lumo::MplsLabelEntry::size;
    assert(growth(rewrite) >= 0 && changed <= former.size());
    std::uint8_t* const first = work.packet - growth(rewrite);
    std::copy_n(first, changed, former.begin());
    applyRewrite(rewrite, work);
    const DecidedFec& fec = decisions_.fecs[rewrite.egress];
    const std::uint32_t residue = Ovix::flowHash(work.type, work.bytes()) % fec.totalWeight;
    const EgressLine& line = lines_[fec.lines[Tessel::weightedChoice(
        residue, fec.weights.size(), [&](std::size_t i) { return fec.weights[i]; })]];
    if (line.takes(work.length)) {
        return &line;
    }
    std::copy_n(former.begin(), changed, first);
    work = before;
    return nullptr;
}

bool LabelForwarding::followCircuit(Decision decision, const Decision& top, PacketWork& work) {
    InnerLookups inner;
    if (!lookUpInner(work, inner)) {
        return false;
    }
    const DecidedCircuit& circuit = decisions_.circuits[decision.value];
    const Wire::Bytes frame = customersFrame(*circuit.pseudowire, work.bytes());
    if (frame.empty() || !circuit.port->isUp ||
        frame.size() > linkLength(frame) + circuit.port->mtu) {
        return false;
    }
    countLookups(top, inner);
    events_.count(circuit.events);
    if (circuit.isCounted) {
        countLabel(Lumo::MplsLabelEntry::load(work.packet), work);
    }
    circuit.pseudowire->delivered.add(frame.size());
    departures_->send(
        work, *circuit.port,
        {work.port, work.frame->time, frame, static_cast<std::uint32_t>(frame.size())});
    return true;
}

bool LabelForwarding::followLookup(Decision decision, const Decision& top, PacketWork& work) {
    const DecidedLookup& lookup = decisions_.lookups[decision.value];
    const auto entry = Lumo::MplsLabelEntry::load(work.packet);
    work.packet += Lumo::MplsLabelEntry::size;
    work.length -= static_cast<std::uint32_t>(Lumo::MplsLabelEntry::size);
    work.type = Ovix::PacketParser::beneathLabels(work.bytes());
    Port* out = nullptr;
    const auto sent = ipHop_->route(tables_->vrfs->fibAt(lookup.fib), work, out);
    if (!sent) {
        return false;
    }
    countLookups(top, {});
    events_.count(lookup.events);
    if (lookup.isCounted) {
        countLabel(entry, work);
    }
    departures_->send(work, *out, *sent);
    return true;
}

bool LabelForwarding::followDrop(Decision decision, const Decision& top, PacketWork& work) {
    InnerLookups inner;
    if (top.isFound && !lookUpInner(work, inner)) {
        return false;
    }
    DecidedDrop& drop = decisions_.drops[decision.value];
    countLookups(top, inner);
    events_.count(drop.events);
    if (drop.fate == nullptr) {
        drop.fate = &departures_->fateOf(drop.reason);
    }
    departures_->drop(work, *drop.fate);
    return true;
}

void LabelForwarding::countLookups(const Decision& top, const InnerLookups& inner) {
    events_.count(top.lookup);
    for (std::size_t i = 0; i < inner.count; ++i) {
        events_.count(inner.sets[i]);
    }
}

void LabelForwarding::countLabel(Lumo::MplsLabelEntry entry, const PacketWork& work) {
    const auto key = Mpls::RouteKey::fromLabel(entry.label());
    decider_.labelCounters()->counterCollectionIs(key).countBytes(work.counted());
}

} // namespace OvixAgent
