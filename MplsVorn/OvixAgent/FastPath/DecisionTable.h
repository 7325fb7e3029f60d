#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <vector>

#include "FastPath/Decision.h"
#include "FastPath/Pool.h"
#include "Published/PublishedTables.h"
#include "Tessel/LazyArray.h"

namespace OvixAgent {

/// The decisions by label. Those whose table entries have changed are void, as all are when the
/// stamp moves on.
///
/// Memory for each label met: 16 bytes here, 12 for the list of its adjacency, 8 for each table
/// entry to compare, and what a decision with a record of its own takes (at most a few hundred).
class DecisionTable {
  public:
    explicit DecisionTable(const Mpls::PublishedTables& published);

    /// Takes over what has changed up to the generation held. False while that cannot be read: no
    /// decision may be used then.
    bool refresh() { return isUpToDate() || takeChanges(); }
    /// Takes most of the work from the next refresh() where decisions stay until they are replaced:
    /// what others forward by does not change.
    void lookAhead();
    /// Makes all decisions void.
    void voidAll();

    /// From now on decisions whose table entries have changed stay as they are until they are
    /// replaced, and the labels wait for that, as do those of all tables when all are void.
    void awaitsReplacing();
    /// A label for which no decision is valid waits, too.
    void await(std::uint32_t label) { awaiting_.push_back(label); }
    bool areAwaited() const noexcept { return nextAwaiting_ < awaiting_.size(); }
    /// The label that has waited longest, which waits no more.
    std::uint32_t takeAwaiting() noexcept;

    Decision& at(std::uint32_t label) noexcept { return decisions_[label]; }
    const Decision* place(std::uint32_t label) const noexcept { return decisions_.at(label); }
    bool isValid(const Decision& decision) const noexcept { return decision.stamp == stamp_; }
    std::uint32_t stamp() const noexcept { return stamp_; }

    /// Makes the decision for a label void.
    void makeVoid(std::uint32_t label) { decisions_[label].stamp = 0; }
    bool isAwaitingReplacing() const noexcept { return isAhead_; }

    /// Releases what a decision refers to.
    void release(Decision& decision);
    /// A decision for the label is being made from what the tables hold now.
    void dependsOnTables(std::uint32_t label);

    DropReasons reasons;
    Pool<DecidedRewrite> rewrites;
    Pool<DecidedFec> fecs;
    Pool<DecidedCircuit> circuits;
    Pool<DecidedLookup> lookups;
    Pool<DecidedReplicas> replicas;
    Pool<DecidedChoice> choices;
    Pool<DecidedByBeneath> byBeneath;

  private:
    /// A label among those whose hardware routes have the same adjacency.
    struct Link {
        std::uint32_t next = 0; ///< label + 1; 0: none
        std::uint32_t previous = 0;
        std::uint32_t adjacency = 0; ///< key + 1; 0: the label is in no list
    };

    bool isUpToDate() const noexcept { return seen_ == published_->tables().held(); }
    bool takeChanges();
    void lookAtTables();
    void lookFromNothing();
    void noteChange(std::uint32_t label);
    void makeAdjacencyVoid(std::uint32_t adjacency);
    void leaveList(std::uint32_t label);

    const Mpls::PublishedTables* published_;
    std::vector<Tessel::TableChanges> labelChanges_;
    Tessel::TableChanges adjacencyChanges_;
    Tessel::LazyArray<Decision> decisions_;
    Tessel::LazyArray<Link> links_;                ///< by label
    Tessel::LazyArray<std::uint32_t> ofAdjacency_; ///< the first label + 1; 0: none
    bool isAhead_ = false;                ///< decisions are replaced before they are asked for
    bool isDamaged_ = false;              ///< damage was found ahead
    std::vector<std::uint32_t> awaiting_; ///< labels
    std::size_t nextAwaiting_ = 0;        ///< those before it have been taken
    std::uint32_t stamp_ = 1;
    std::uint64_t seen_ = 0; ///< what the reader held then
};

} // namespace OvixAgent
