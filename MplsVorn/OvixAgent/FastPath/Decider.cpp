#include "FastPath/Decider.h"

#include <algorithm>
#include <cassert>
#include <exception>
#include <limits>
#include <utility>

#include "FastPath/RewriteReading.h"
#include "Ovix/packet/FlowHash.h"
#include "Tessel/Fib/FecId.h"

namespace OvixAgent {

using Ovix::Beneath;
using Ovix::LabelDecision;

namespace {

Decision made(Action action, std::uint32_t value, std::uint32_t egress = 0) noexcept {
    Decision decision;
    decision.action = action;
    decision.value = value;
    decision.egress = egress;
    return decision;
}

bool isPlainSwap(const DecidedRewrite& rewrite) noexcept {
    return rewrite.kind == DecidedRewrite::Kind::swap && rewrite.grows == 0 &&
           rewrite.tc == DecidedRewrite::keep && rewrite.isPlain();
}

bool isPlainImposition(const DecidedRewrite& rewrite) noexcept {
    return rewrite.kind != DecidedRewrite::Kind::pop && !rewrite.record && rewrite.isPlain();
}

} // namespace

Decider::Decider(const Ptr<Ovix::PluginManager>& manager, ForwardingTables& tables,
                 DecisionTable& decisions, EgressLines& lines, EventSets& events)
    : manager_(manager), handler_(manager->routingHandlers()->handler("Mpls")),
      rewriteMap_(Ovix::RewriteInfoImplMapSharedObject::getMap(manager->sharedObjects())),
      tables_(&tables), decisions_(&decisions), lines_(&lines), events_(&events) {}

// There are fewer VRFs than could reach the count of configurations.
std::uint64_t Decider::version() const noexcept {
    constexpr unsigned configurations = 32;
    return (tables_->configured << configurations) + tables_->vrfs->size() +
           rewriteMap_->changes() + manager_->genericPipelineSteps()->changes() +
           (handler_ ? handler_->decisionVersion() : 0);
}

/// What reading the tables throws is left to the forwarder, which meets it with the frame itself.
Decider::Asked Decider::ask(std::uint32_t label, Beneath beneath) {
    Asked asked{label, beneath, false, {}};
    try {
        decisions_->dependsOnTables(label);
        asked.isExact = handler_ && handler_->decide(Lumo::MplsLabel(label), beneath, asked.answer);
    } catch (const std::exception&) {
        asked.answer = {};
    }
    return asked;
}

bool Decider::Asked::isByLabel() const noexcept {
    return isExact && std::all_of(answer.choices.begin(), answer.choices.end(),
                                  [](const LabelDecision::Choice& choice) {
                                      return choice.by == Ovix::DecidedBy::label;
                                  });
}

void Decider::decide(Asked asked) {
    ++decided_;
    const bool isByLabel = asked.isByLabel();
    label_ = asked.label;
    answer_ = std::move(asked.answer);
    Decision& decision = decisions_->at(label_);
    decisions_->release(decision);
    const auto lookup = events_->setOf(answer_.lookup);
    const Decision outcome = asked.isExact && lookup ? decisionFor(asked.beneath) : Decision();
    if (isByLabel) {
        decision = outcome;
    } else {
        decision.action = Action::byBeneath;
        decision.value = decisions_->byBeneath.add({});
        setBeneath(decision, asked.beneath, outcome);
    }
    decision.lookup = lookup.value_or(EventSets::none);
    decision.isFound = answer_.isFound;
    decision.isLookupKnown = answer_.isLookupKnown && lookup;
    decision.stamp = decisions_->stamp();
}

void Decider::decideBeneath(Asked asked) {
    label_ = asked.label;
    answer_ = std::move(asked.answer);
    setBeneath(decisions_->at(label_), asked.beneath,
               asked.isExact ? decisionFor(asked.beneath) : Decision());
}

void Decider::setBeneath(Decision& whole, Beneath beneath, const Decision& outcome) {
    assert(whole.action == Action::byBeneath);
    decisions_->byBeneath[whole.value].is(beneath, outcome, decisions_->stamp());
    if (beneath != Beneath::ipv4) {
        return;
    }
    if (outcome.action == Action::rewrite) {
        const DecidedRewrite& rewrite = decisions_->rewrites[outcome.value];
        if (rewrite.kind == DecidedRewrite::Kind::pop && rewrite.isPlain()) {
            whole.popsIpv4 = true;
            whole.isUniform = rewrite.isUniform;
            whole.egress = rewrite.egress;
        }
    } else if (outcome.action == Action::lookup && decisions_->lookups[outcome.value].isPlain()) {
        whole.looksUpIpv4 = true;
        whole.egress = decisions_->lookups[outcome.value].fib;
    }
}

Decision Decider::decisionFor(Beneath beneath) {
    assert(!answer_.choices.empty());
    if (answer_.isMulticast) {
        return replicasOf(beneath);
    }
    return answer_.choices.size() == 1 ? decisionFor(answer_.choices.front(), beneath)
                                       : choiceOf(beneath);
}

Decision Decider::decisionFor(const LabelDecision::Choice& choice, Beneath beneath) {
    if (choice.terminates) {
        const auto events = events_->setOf(choice.events);
        return events && popsAsRecorded(*rewriteMap_) ? made(Action::terminate, *events)
                                                      : Decision();
    }
    if (!choice.nexthop) {
        return dropFor(choice);
    }
    if (choice.nexthop->isCpuTrapNexthop() || choice.nexthop->isReplica()) {
        return {};
    }
    return choice.by == Ovix::DecidedBy::destination ? lookupFor(choice, beneath)
                                                     : rewriteFor(choice, beneath);
}

/// The events of the label's lookup, and these.
std::optional<std::uint16_t> Decider::setWithLookup(const LabelDecision::Events& events) {
    LabelDecision::Events whole = answer_.lookup;
    whole.insert(whole.end(), events.begin(), events.end());
    return events_->setOf(whole);
}

/// The event counted last names the reason, lookups that missed apart.
Decision Decider::dropFor(const LabelDecision::Choice& choice) {
    const auto isReason = [](const auto* event) { return !event->isLookup; };
    const auto reason = std::find_if(choice.events.rbegin(), choice.events.rend(), isReason);
    const auto events = events_->setOf(choice.events);
    const auto all = setWithLookup(choice.events);
    if (reason == choice.events.rend() || !events || !all) {
        return {};
    }
    const auto number = decisions_->reasons.numberOf((*reason)->reason);
    return number ? made(Action::drop, *number, DecidedDrop{*events, *all}.packed()) : Decision();
}

/// The MPLS hash of a plugin or agent that hashes in another way is not known here.
bool Decider::hashesAsThePlugin() const {
    return dynamic_cast<const Ovix::MplsHasher*>(
               manager_->packetHashers()->hasher(Ovix::PktHdrType::mpls).get()) != nullptr;
}

Decision Decider::choiceOf(Beneath beneath) {
    DecidedChoice choice;
    for (const LabelDecision::Choice& one : answer_.choices) {
        choice.add(one.weight, decisionFor(one, beneath));
    }
    const std::uint64_t total = choice.totalWeight();
    if (total == 0 || total > std::numeric_limits<std::uint32_t>::max() || !hashesAsThePlugin()) {
        for (Decision& member : choice.members()) {
            decisions_->release(member);
        }
        return {};
    }
    return made(Action::choice, decisions_->choices.add(std::move(choice)));
}

/// Legs whose egress depends on more than the label are left to the forwarder.
Decision Decider::replicasOf(Beneath beneath) {
    DecidedReplicas replicas;
    const auto events = events_->setOf(answer_.choices.front().events);
    const auto all = setWithLookup(answer_.choices.front().events);
    for (const LabelDecision::Choice& one : answer_.choices) {
        const Ovix::RoutingNexthop& nexthop = *one.nexthop;
        const Port* const port = tables_->ports.byIntfId(nexthop.intfId());
        auto leg = readRewrites(nexthop.rewriteInfos(), beneath, *rewriteMap_);
        const std::optional<bool> isCounted = readCounting(nexthop);
        if (!events || !all || !leg || leg->record || port == nullptr || !nexthop.isReplica() ||
            !isCounted || !tables_->vrfs->number(nexthop.vrfName().view()) ||
            tables_->pseudowires.isCircuit(tables_->ports.indexOf(*port))) {
            return {};
        }
        leg->isCounted = *isCounted;
        leg->isToGroup = nexthop.address().family() == Lumo::IpFamily::none;
        if (leg->isToGroup ? leg->kind == DecidedRewrite::Kind::pop : nexthop.address().empty()) {
            return {};
        }
        const auto line = lineFor(tables_->ports.indexOf(*port), nexthop.address(), nexthop,
                                  leg->exposed, leg->isToGroup);
        if (!line) {
            return {};
        }
        leg->egress = *line;
        replicas.add(*std::move(leg));
    }
    replicas.events = *events;
    replicas.all = *all;
    return made(Action::replicate, decisions_->replicas.add(std::move(replicas)));
}

Decision Decider::lookupFor(const LabelDecision::Choice& choice, Beneath beneath) {
    const Ovix::RoutingNexthop& nexthop = *choice.nexthop;
    const auto rewrite = readRewrites(nexthop.rewriteInfos(), beneath, *rewriteMap_);
    const auto fib = tables_->vrfs->number(nexthop.vrfName().view());
    const auto events = events_->setOf(choice.events);
    const std::optional<bool> isCounted = readCounting(nexthop);
    // Behind a pop in the pipe model the packet keeps its own TTL (RFC 3443).
    if (!rewrite || rewrite->kind != DecidedRewrite::Kind::pop || rewrite->isUniform ||
        rewrite->exposesTc || !nexthop.intfId().empty() || nexthop.mtu() != 0 ||
        nexthop.vlanId() != 0 || !fib || !events || !isCounted) {
        return {};
    }
    return made(Action::lookup, decisions_->lookups.add({*fib, *isCounted, *events}));
}

Decision Decider::rewriteFor(const LabelDecision::Choice& choice, Beneath beneath) {
    const Ovix::RoutingNexthop& nexthop = *choice.nexthop;
    auto rewrite = readRewrites(nexthop.rewriteInfos(), beneath, *rewriteMap_);
    const auto events = events_->setOf(choice.events);
    const std::optional<bool> isCounted = readCounting(nexthop);
    if (!rewrite || !events || !isCounted || !tables_->vrfs->number(nexthop.vrfName().view())) {
        return {};
    }
    rewrite->isCounted = *isCounted;
    rewrite->events = *events;
    if (Tessel::Fib::FecId::isHierarchicalIntfId(nexthop.intfId())) {
        return towardFec(nexthop, *rewrite);
    }
    const Port* const port = tables_->ports.byIntfId(nexthop.intfId());
    if (port == nullptr) {
        return {};
    }
    const PortIndex index = tables_->ports.indexOf(*port);
    if (tables_->pseudowires.isCircuit(index)) {
        return nexthop.mtu() == 0 ? towardCircuit(index, *rewrite) : Decision();
    }
    const auto line = lineFor(index, nexthop.address(), nexthop, rewrite->exposed);
    if (!line) {
        return {};
    }
    rewrite->egress = *line;
    if (isPlainSwap(*rewrite)) {
        return made(Action::swap, rewrite->entries[0], *line);
    }
    return made(isPlainImposition(*rewrite) ? Action::impose : Action::rewrite,
                decisions_->rewrites.add(*rewrite), *line);
}

Decision Decider::towardFec(const Ovix::RoutingNexthop& nexthop, DecidedRewrite rewrite) {
    const auto members = tables_->fecs.nextHops(nexthop.intfId());
    if (members.empty() || rewrite.kind == DecidedRewrite::Kind::pop) {
        return {};
    }
    DecidedFec fec;
    for (const WeightedNextHop& member : members) {
        const auto line = lineFor(member.port, member.address, nexthop, rewrite.exposed);
        if (tables_->pseudowires.isCircuit(member.port) || !line) {
            return {};
        }
        fec.shares.add(member.weight);
        fec.lines.push_back(*line);
    }
    rewrite.isToFec = true;
    rewrite.egress = decisions_->fecs.add(std::move(fec));
    return made(Action::rewrite, decisions_->rewrites.add(std::move(rewrite)));
}

/// A frame toward a pseudowire's end has nothing left in front of it but, perhaps, a flow label.
Decision Decider::towardCircuit(PortIndex index, const DecidedRewrite& rewrite) {
    Port& port = tables_->ports.ports()[index];
    Pseudowire* const pseudowire = tables_->pseudowires.ofPort(index);
    const Ovix::PktHdrType expected =
        pseudowire->flowLabel ? Ovix::PktHdrType::mpls : Ovix::PktHdrType::eth;
    if (rewrite.kind != DecidedRewrite::Kind::pop || rewrite.exposed != expected ||
        port.out == nullptr || port.tagging.kind == Tagging::Kind::subInterface) {
        return {};
    }
    return made(Action::circuit,
                decisions_->circuits.add({&port, pseudowire, rewrite.isCounted, rewrite.events}));
}

/// Whether the label is counted; unset when more is.
std::optional<bool> Decider::readCounting(const Ovix::RoutingNexthop& nexthop) {
    const auto& actions = nexthop.rewriteInfos().finalCounterActions();
    if (actions.empty()) {
        return false;
    }
    const Ptr<Ovix::CounterActionInfo>& info = actions.front();
    const auto fromInfo = rewriteMap_->counterActionFn(info->typeName());
    if (actions.size() != 1 || fromInfo == nullptr ||
        info->typeName() != Ovix::LfibCounterActionInfo::infoTypeName) {
        return std::nullopt;
    }
    const auto& counted = static_cast<const Ovix::LfibCounterActionInfo&>(*info);
    const Ptr<Counter::OvixLfibCounterCollection> counters(fromInfo(info)->countsIn());
    if (!labelCounters_) {
        labelCounters_ = counters;
    }
    const bool isOfLabel =
        counters && counters == labelCounters_ &&
        counted.routeKey() == Mpls::RouteKey::fromLabel(Lumo::MplsLabel(label_)) &&
        counted.byteCount() == answer_.modelBytes;
    return isOfLabel ? std::optional(true) : std::nullopt;
}

Ptr<Counter::OvixLfibCounterCollection> Decider::countedIn() const {
    const auto fromInfo = rewriteMap_->counterActionFn(Ovix::LfibCounterActionInfo::infoTypeName);
    const auto any = Tessel::make<Ovix::LfibCounterActionInfo>(
        Mpls::RouteKey::fromLabel(Lumo::MplsLabel(0)), 0U);
    return Ptr<Counter::OvixLfibCounterCollection>(fromInfo != nullptr ? fromInfo(any)->countsIn()
                                                                       : nullptr);
}

/// Unset when the egress depends on the packet.
std::optional<std::uint32_t> Decider::lineFor(PortIndex port, const Lumo::IpGenAddr& address,
                                              const Ovix::RoutingNexthop& nexthop,
                                              Ovix::PktHdrType outgoing, bool isGroup) {
    const bool isAddressed = !address.empty();
    if (tables_->ports.ports()[port].out == nullptr || outgoing == Ovix::PktHdrType::eth ||
        (!isAddressed && outgoing != Ovix::PktHdrType::mpls)) {
        return std::nullopt;
    }
    return lines_->numberOf({port, nexthop.mtu(), nexthop.vlanId(), isGroup,
                             isAddressed ? address : Lumo::IpGenAddr()});
}

} // namespace OvixAgent
