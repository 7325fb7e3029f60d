#include "FastPath/DecisionTable.h"

#include <cassert>
#include <limits>
#include <utility>

#include "Tessel/Exceptions.h"
#include "Tessel/TypeName.h"

namespace OvixAgent {

namespace {

constexpr std::size_t allLabels = std::size_t{Lumo::MplsLabel::max} + 1;
constexpr std::size_t allPages = std::numeric_limits<std::size_t>::max();

Tessel::TableChanges changesOf(const Mpls::PublishedTables& published, Mpls::TableId table) {
    return Tessel::TableChanges::fromNothing(published.reader(), static_cast<std::size_t>(table));
}

} // namespace

DecisionTable::DecisionTable(const Mpls::PublishedTables& published)
    : published_(&published),
      adjacencyChanges_(changesOf(published, Mpls::TableId::hardwareAdjacencies)),
      decisions_(allLabels), links_(allLabels), ofAdjacency_(allLabels) {
    static_assert(allLabels == std::size_t{Tessel::TableLayout::maxKey} + 1);
    lookFromNothing();
}

void DecisionTable::lookFromNothing() {
    labelChanges_.clear();
    for (std::size_t i = 0; i < Mpls::lfibs; ++i) {
        labelChanges_.push_back(changesOf(*published_, static_cast<Mpls::TableId>(i)));
    }
    labelChanges_.push_back(changesOf(*published_, Mpls::TableId::hardwareRoutes));
    seen_ = 0;
}

void DecisionTable::voidAll() {
    ++stamp_;
    if (isAhead_) {
        lookFromNothing();
    }
}

void DecisionTable::awaitsReplacing() {
    isAhead_ = true;
    voidAll();
}

std::uint32_t DecisionTable::takeAwaiting() noexcept {
    assert(areAwaited());
    const std::uint32_t label = awaiting_[nextAwaiting_++];
    if (nextAwaiting_ == awaiting_.size()) {
        awaiting_.clear();
        nextAwaiting_ = 0;
    }
    return label;
}

void DecisionTable::noteChange(std::uint32_t label) {
    if (isAhead_) {
        await(label);
    } else {
        makeVoid(label);
    }
}

void DecisionTable::lookAtTables() {
    for (Tessel::TableChanges& changes : labelChanges_) {
        changes.restart();
        changes.look(allPages, [this](std::uint32_t label) { noteChange(label); });
    }
    adjacencyChanges_.restart();
    adjacencyChanges_.look(allPages, [this](std::uint32_t key) { makeAdjacencyVoid(key); });
    seen_ = published_->tables().held();
}

void DecisionTable::lookAhead() {
    if (!isAhead_ || isUpToDate()) {
        return;
    }
    try {
        lookAtTables();
    } catch (const Tessel::CorruptionDetected&) {
        isDamaged_ = true;
    } catch (const Tessel::SnapshotLost&) {
        // refresh() meets it again.
    }
}

bool DecisionTable::takeChanges() {
    try {
        if (!std::exchange(isDamaged_, false)) {
            lookAtTables();
            return true;
        }
    } catch (const Tessel::CorruptionDetected&) {
        // The next call goes on behind the damaged page.
    } catch (const Tessel::SnapshotLost&) {
        return false;
    }
    voidAll(); // what the damaged page has is unknown
    return false;
}

void DecisionTable::makeAdjacencyVoid(std::uint32_t adjacency) {
    for (std::uint32_t at = ofAdjacency_[adjacency]; at != 0; at = links_[at - 1].next) {
        noteChange(at - 1);
    }
}

void DecisionTable::leaveList(std::uint32_t label) {
    const Link link = links_[label];
    if (link.adjacency == 0) {
        return;
    }
    (link.previous != 0 ? links_[link.previous - 1].next : ofAdjacency_[link.adjacency - 1]) =
        link.next;
    if (link.next != 0) {
        links_[link.next - 1].previous = link.previous;
    }
    links_[label] = {};
}

void DecisionTable::dependsOnTables(std::uint32_t label) {
    leaveList(label);
    const auto key = Mpls::RouteKey::fromLabel(Lumo::MplsLabel(label));
    const Mpls::Hardware::Route route = published_->hardware()->route(key);
    if (route.isEq(Mpls::Hardware::Route())) {
        return;
    }
    assert(route.adjacencyKey <= Tessel::TableLayout::maxKey);
    std::uint32_t& first = ofAdjacency_[route.adjacencyKey];
    links_[label] = {first, 0, static_cast<std::uint32_t>(route.adjacencyKey) + 1};
    if (first != 0) {
        links_[first - 1].previous = label + 1;
    }
    first = label + 1;
}

void DecisionTable::release(Decision& decision) {
    switch (decision.action) {
    case Action::impose:
    case Action::rewrite:
        if (rewrites[decision.value].isToFec) {
            fecs.release(rewrites[decision.value].egress);
        }
        rewrites.release(decision.value);
        break;
    case Action::circuit:
        circuits.release(decision.value);
        break;
    case Action::lookup:
        lookups.release(decision.value);
        break;
    case Action::replicate:
        replicas.release(decision.value);
        break;
    case Action::choice:
        for (Decision& member : choices[decision.value].members()) {
            release(member);
        }
        choices.release(decision.value);
        break;
    case Action::byBeneath:
        for (Decision& one : byBeneath[decision.value].decisions) {
            release(one);
        }
        byBeneath.release(decision.value);
        break;
    default:
        break;
    }
    decision = {};
}

} // namespace OvixAgent
