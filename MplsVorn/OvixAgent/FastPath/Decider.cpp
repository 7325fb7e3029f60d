#include "FastPath/Decider.h"

#include <algorithm>
#include <cassert>
#include <exception>
#include <numeric>

#include "FastPath/RewriteReading.h"
#include "Ovix/packet/FlowHash.h"

namespace OvixAgent {

using Ovix::Beneath;
using Ovix::LabelDecision;

Decider::Decider(const Ptr<Ovix::PluginManager>& manager, ForwardingTables& tables,
                 DecisionTable& decisions, EgressLines& lines, EventSets& events)
    : manager_(manager), handler_(manager->routingHandlers()->handler("Mpls")),
      rewriteMap_(Ovix::RewriteInfoImplMapSharedObject::getMap(manager->sharedObjects())),
      tables_(&tables), decisions_(&decisions), lines_(&lines), events_(&events) {}

std::uint64_t Decider::version() const noexcept {
    return tables_->configured + tables_->vrfs->size() +
           (handler_ ? handler_->decisionVersion() : 0);
}

/// False when the answer holds for one frame only. What reading the tables throws is left to the
/// forwarder, which meets it with the frame itself.
bool Decider::ask(std::uint32_t label, Beneath beneath) {
    label_ = label;
    answer_ = {};
    try {
        decisions_->dependsOnTables(label);
        return handler_ && handler_->decide(Lumo::MplsLabel(label), beneath, answer_);
    } catch (const std::exception&) {
        answer_ = {};
        return false;
    }
}

void Decider::decide(std::uint32_t label, Beneath beneath) {
    Decision& decision = decisions_->at(label);
    decisions_->release(decision);
    const bool isExact = ask(label, beneath);
    const auto lookup = events_->setOf(answer_.lookup);
    const bool isByLabel = isExact && std::all_of(answer_.choices.begin(), answer_.choices.end(),
                                                  [](const auto& choice) {
                                                      return choice.by == Ovix::DecidedBy::label;
                                                  });
    const Decision made = isExact && lookup ? decisionFor(beneath) : Decision();
    if (isByLabel) {
        decision = made;
    } else {
        decision.action = Action::byBeneath;
        decision.value = decisions_->byBeneath.add({});
        decisions_->byBeneath[decision.value].is(beneath, made, decisions_->stamp());
    }
    decision.lookup = lookup.value_or(EventSets::none);
    decision.isFound = answer_.isFound;
    decision.isLookupKnown = answer_.isLookupKnown && lookup;
    decision.stamp = decisions_->stamp();
}

void Decider::decideBeneath(std::uint32_t label, Beneath beneath) {
    const Decision made = ask(label, beneath) ? decisionFor(beneath) : Decision();
    const Decision& whole = decisions_->at(label);
    assert(whole.action == Action::byBeneath);
    decisions_->byBeneath[whole.value].is(beneath, made, decisions_->stamp());
}

Decision Decider::decisionFor(Beneath beneath) {
    assert(!answer_.choices.empty());
    return answer_.choices.size() == 1 ? decisionFor(answer_.choices.front(), beneath)
                                       : choiceOf(beneath);
}

Decision Decider::decisionFor(const LabelDecision::Choice& choice, Beneath beneath) {
    if (!choice.nexthop) {
        return dropFor(choice);
    }
    if (choice.nexthop->isCpuTrapNexthop() || choice.nexthop->isReplica()) {
        return {};
    }
    return choice.by == Ovix::DecidedBy::destination ? lookupFor(choice, beneath)
                                                     : rewriteFor(choice, beneath);
}

/// The event counted last names the reason, lookups that missed apart.
Decision Decider::dropFor(const LabelDecision::Choice& choice) {
    const auto isReason = [](const auto* event) { return !event->isLookup; };
    const auto reason = std::find_if(choice.events.rbegin(), choice.events.rend(), isReason);
    const auto events = events_->setOf(choice.events);
    if (reason == choice.events.rend() || !events) {
        return {};
    }
    Decision decision;
    decision.action = Action::drop;
    decision.value = decisions_->drops.add({*events, (*reason)->reason, nullptr});
    return decision;
}

/// The MPLS hash of a plugin or agent that hashes in another way is not known here.
bool Decider::hashesAsThePlugin() const {
    return dynamic_cast<const Ovix::MplsHasher*>(
               manager_->packetHashers()->hasher(Ovix::PktHdrType::mpls).get()) != nullptr;
}

Decision Decider::choiceOf(Beneath beneath) {
    DecidedChoice choice;
    std::uint64_t total = 0;
    for (const LabelDecision::Choice& one : answer_.choices) {
        total += one.weight;
        choice.weights.push_back(one.weight);
        choice.members.push_back(decisionFor(one, beneath));
    }
    Decision decision;
    if (total == 0 || total > std::numeric_limits<std::uint32_t>::max() || !hashesAsThePlugin()) {
        for (Decision& member : choice.members) {
            decisions_->release(member);
        }
        return decision;
    }
    choice.totalWeight = static_cast<std::uint32_t>(total);
    decision.action = Action::choice;
    decision.value = decisions_->choices.add(std::move(choice));
    return decision;
}

Decision Decider::lookupFor(const LabelDecision::Choice& choice, Beneath beneath) {
    const Ovix::RoutingNexthop& nexthop = *choice.nexthop;
    const auto rewrite = readRewrites(nexthop.rewriteInfos(), beneath, *rewriteMap_);
    const auto fib = tables_->vrfs->number(nexthop.vrfName().view());
    const auto events = events_->setOf(choice.events);
    DecidedLookup lookup;
    // Behind a pop in the pipe model the packet keeps its own TTL (RFC 3443).
    if (!rewrite || rewrite->kind != DecidedRewrite::Kind::pop || rewrite->isUniform ||
        rewrite->exposesTc || !nexthop.intfId().empty() || nexthop.mtu() != 0 ||
        nexthop.vlanId() != 0 || !fib || !events || !readCounting(nexthop, lookup.isCounted)) {
        return {};
    }
    lookup.fib = *fib;
    lookup.events = *events;
    Decision decision;
    decision.action = Action::lookup;
    decision.value = decisions_->lookups.add(lookup);
    return decision;
}

Decision Decider::rewriteFor(const LabelDecision::Choice& choice, Beneath beneath) {
    const Ovix::RoutingNexthop& nexthop = *choice.nexthop;
    auto rewrite = readRewrites(nexthop.rewriteInfos(), beneath, *rewriteMap_);
    const auto events = events_->setOf(choice.events);
    if (!rewrite || !events || !readCounting(nexthop, rewrite->isCounted)) {
        return {};
    }
    const auto line = lineFor(nexthop, rewrite->exposed);
    if (!line) {
        return {};
    }
    rewrite->events = *events;
    rewrite->egress = *line;
    Decision decision;
    if (rewrite->kind == DecidedRewrite::Kind::swap && rewrite->labels == 1 &&
        rewrite->tc == DecidedRewrite::keep && rewrite->isCounted && *events == EventSets::none) {
        decision.action = Action::swap;
        decision.value = rewrite->label[0];
        decision.egress = *line;
        return decision;
    }
    decision.action = Action::rewrite;
    decision.value = decisions_->rewrites.add(*rewrite);
    return decision;
}

/// False when more is counted than the label.
bool Decider::readCounting(const Ovix::RoutingNexthop& nexthop, bool& isCounted) {
    const auto& actions = nexthop.rewriteInfos().finalCounterActions();
    isCounted = !actions.empty();
    if (actions.empty()) {
        return true;
    }
    const Ptr<Ovix::CounterActionInfo>& info = actions.front();
    const auto fromInfo = rewriteMap_->counterActionFn(info->typeName());
    if (actions.size() != 1 || fromInfo == nullptr ||
        info->typeName() != Ovix::LfibCounterActionInfo::infoTypeName) {
        return false;
    }
    const auto& counted = static_cast<const Ovix::LfibCounterActionInfo&>(*info);
    const Ptr<Counter::OvixLfibCounterCollection> counters(fromInfo(info)->countsIn());
    if (!labelCounters_) {
        labelCounters_ = counters;
    }
    return counters && counters == labelCounters_ &&
           counted.routeKey() == Mpls::RouteKey::fromLabel(Lumo::MplsLabel(label_)) &&
           counted.byteCount() == answer_.modelBytes;
}

/// Unset when the egress depends on the packet.
std::optional<std::uint32_t> Decider::lineFor(const Ovix::RoutingNexthop& nexthop,
                                              Ovix::PktHdrType outgoing) {
    const Port* const port = tables_->ports.byIntfId(nexthop.intfId());
    const bool isAddressed = !nexthop.address().empty();
    if (port == nullptr || (!isAddressed && outgoing != Ovix::PktHdrType::mpls)) {
        return std::nullopt;
    }
    const PortIndex index = tables_->ports.indexOf(*port);
    if (tables_->pseudowires.isCircuit(index) || port->out == nullptr ||
        !tables_->vrfs->number(nexthop.vrfName().view())) {
        return std::nullopt;
    }
    return lines_->numberOf({index, nexthop.mtu(), nexthop.vlanId(),
                             isAddressed ? nexthop.address() : Lumo::IpGenAddr()});
}

} // namespace OvixAgent
