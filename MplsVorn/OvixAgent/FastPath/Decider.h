#pragma once

#include "FastPath/Decision.h"
#include "FastPath/DecisionTable.h"
#include "FastPath/EgressLines.h"
#include "FastPath/EventSets.h"
#include "Ovix/plugin/PluginManager.h"
#include "Ovix/routing/Handlers.h"
#include "State/ForwardingTables.h"

namespace OvixAgent {

/// Makes decisions: asks the routing handler what it does with a label, and finds the egress as the
/// forwarder does. What it cannot reduce to a record is left to the forwarder.
class Decider {
  public:
    /// Everything must outlive it.
    Decider(const Ptr<Ovix::PluginManager>& manager, ForwardingTables& tables,
            DecisionTable& decisions, EgressLines& lines, EventSets& events);

    /// What the routing handler answers about a label with that beneath it.
    struct Asked {
        std::uint32_t label = 0;
        Ovix::Beneath beneath = Ovix::Beneath::label;
        bool isExact = false; ///< otherwise the answer holds for one frame only
        Ovix::LabelDecision answer;

        /// Whether the answer is the same whatever lies beneath.
        bool isByLabel() const noexcept;
    };
    /// Changes nothing that others forward by.
    Asked ask(std::uint32_t label, Ovix::Beneath beneath);

    /// Decides for a label anew. `beneath` lies under it in the frame at hand.
    void decide(std::uint32_t label, Ovix::Beneath beneath) { decide(ask(label, beneath)); }
    void decide(Asked asked);
    /// The part of a decision by what lies beneath that is missing.
    void decideBeneath(std::uint32_t label, Ovix::Beneath beneath) {
        decideBeneath(ask(label, beneath));
    }
    void decideBeneath(Asked asked);

    /// Moves on when the decisions made so far may be wrong for another reason than a change of
    /// label tables or neighbours.
    std::uint64_t version() const noexcept;

    /// How often a label was decided, the first time included.
    std::uint64_t decided() const noexcept { return decided_; }

    /// No decision made so far is used any more; labels may be counted elsewhere from now on.
    void restart() noexcept { labelCounters_.reset(); }

    /// What labels are counted in now; empty when they are not counted.
    Ptr<Counter::OvixLfibCounterCollection> countedIn() const;

    /// The counters of labels; null until the first label that is counted.
    Counter::OvixLfibCounterCollection* labelCounters() const noexcept {
        return labelCounters_.get();
    }

  private:
    Decision decisionFor(Ovix::Beneath beneath);
    void setBeneath(Decision& whole, Ovix::Beneath beneath, const Decision& outcome);
    Decision decisionFor(const Ovix::LabelDecision::Choice& choice, Ovix::Beneath beneath);
    std::optional<std::uint16_t> setWithLookup(const Ovix::LabelDecision::Events& events);
    Decision dropFor(const Ovix::LabelDecision::Choice& choice);
    Decision choiceOf(Ovix::Beneath beneath);
    Decision replicasOf(Ovix::Beneath beneath);
    Decision lookupFor(const Ovix::LabelDecision::Choice& choice, Ovix::Beneath beneath);
    Decision rewriteFor(const Ovix::LabelDecision::Choice& choice, Ovix::Beneath beneath);
    std::optional<bool> readCounting(const Ovix::RoutingNexthop& nexthop);
    Decision towardFec(const Ovix::RoutingNexthop& nexthop, DecidedRewrite rewrite);
    Decision towardCircuit(PortIndex index, const DecidedRewrite& rewrite);
    std::optional<std::uint32_t> lineFor(PortIndex port, const Lumo::IpGenAddr& address,
                                         const Ovix::RoutingNexthop& nexthop,
                                         Ovix::PktHdrType outgoing, bool isGroup = false);
    bool hashesAsThePlugin() const;

    Ptr<Ovix::PluginManager> manager_;
    Ptr<Ovix::RoutingHandler> handler_;
    Ptr<Ovix::RewriteInfoImplMap> rewriteMap_;
    ForwardingTables* tables_;
    DecisionTable* decisions_;
    EgressLines* lines_;
    EventSets* events_;
    Ptr<Counter::OvixLfibCounterCollection> labelCounters_;
    std::uint64_t decided_ = 0;
    std::uint32_t label_ = 0;    ///< that is being decided
    Ovix::LabelDecision answer_; ///< about it
};

} // namespace OvixAgent
