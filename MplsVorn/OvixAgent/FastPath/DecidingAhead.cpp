// Decisions for threads that cannot make them: for all labels and IP routes of the tables, before
// frames come.

#include "FastPath/FastPath.h"
#include "Tessel/Changes.h"
#include "Tessel/Exceptions.h"
#include "Wire/Ethernet.h"
#include "Wire/LabelStack.h"

namespace OvixAgent {

using Ovix::Beneath;

DecidedTables& FastPath::shared() {
    decided_.decisions.awaitsReplacing();
    tables_->gate.beforeOpeningIs([this] {
        if (Tessel::Changes::count() != seen_) {
            takeChanges();
        }
    });
    Tessel::Changes::notice();
    return decided_;
}

/// Asks the plugin about some labels, which takes longest, while others forward.
void FastPath::askAhead() {
    constexpr std::size_t atOnce = 64;
    constexpr std::uint32_t firstOrdinaryLabel = 16;
    DecisionTable& decisions = decided_.decisions;
    for (std::size_t i = 0; i < atOnce && decisions.areAwaited(); ++i) {
        const std::uint32_t label = decisions.takeAwaiting();
        if (label < firstOrdinaryLabel || label == decided_.traced.leftOut) {
            continue;
        }
        asked_.push_back(decider_.ask(label, Beneath::ipv4));
        if (asked_.back().isByLabel()) {
            continue;
        }
        for (const Beneath beneath : {Beneath::ipv6, Beneath::label, Beneath::ethernet}) {
            asked_.push_back(decider_.ask(label, beneath));
        }
    }
}

bool FastPath::decideAhead() {
    if (Tessel::Changes::count() != seen_) {
        takeChanges();
    }
    const auto areAwaited = [this] {
        return decided_.decisions.areAwaited() || decided_.hops.areAwaited();
    };
    if (!decided_.isUsable || !areAwaited()) {
        return false;
    }
    askAhead();
    const ForwardingGate::Closed closed(tables_->gate);
    settleLeft();
    for (Decider::Asked& asked : asked_) {
        if (asked.beneath == Beneath::ipv4) {
            decider_.decide(std::move(asked));
        } else if (decided_.decisions.at(asked.label).action == Action::byBeneath) {
            decider_.decideBeneath(std::move(asked));
        }
    }
    asked_.clear();
    decided_.hops.decideSome();
    return areAwaited();
}

/// Those that no table has are decided when frames bring them.
void FastPath::awaitLabels(Wire::Bytes frame) {
    const Wire::TagWalk tags = Wire::behindTags(frame);
    if (!Wire::EtherType::isMpls(tags.etherType())) {
        return;
    }
    Wire::LabelWalk labels(tags.rest());
    for (Lumo::MplsLabelEntry entry; labels.next(entry);) {
        const Decision& decision = decided_.decisions.at(entry.label().value());
        if (!decided_.decisions.isValid(decision) && road_.labels().mayDecide()) {
            decided_.decisions.await(entry.label().value());
        }
    }
}

bool FastPath::receiveLeft(const WritableFrame& frame) {
    try {
        if (decided_.isUsable) {
            awaitLabels({frame.bytes, frame.size});
        }
        forwardByDefinition(frame);
        ++counts_.slow;
        return true;
    } catch (const Tessel::SnapshotLost&) {
        return false;
    }
}

} // namespace OvixAgent
