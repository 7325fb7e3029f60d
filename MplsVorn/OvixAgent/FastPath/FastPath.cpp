#include "FastPath/FastPath.h"

#include <algorithm>
#include <cassert>

#include "Ovix/trace/Trace.h"
#include "Tessel/Changes.h"
#include "Tessel/Exceptions.h"

namespace OvixAgent {

FastPath::FastPath(Forwarder& forwarder, const Ptr<Ovix::PluginManager>& manager,
                   ForwardingTables& tables, Mpls::PublishedTables& published)
    : forwarder_(&forwarder), tables_(&tables), published_(&published),
      decided_(tables, published, manager),
      decider_(manager, tables, decided_.decisions, decided_.lines, decided_.events),
      road_(decided_, &decider_, forwarder.accounts(), nullptr),
      check_(tables, forwarder.accounts()) {}

std::size_t FastPath::receive(std::span<WritableFrame> burst) {
    if (Tessel::Changes::count() != plain_) [[unlikely]] {
        return receiveOther(burst);
    }
    // One frame takes least without what a loop over several holds ready.
    if (burst.size() != 1) {
        return forwardPlain(burst);
    }
    WritableFrame& frame = burst.front();
    if (!road_.forwardOne(frame)) [[unlikely]] {
        return forwardOther(frame);
    }
    ++counts_.fast;
    road_.settle();
    return 1;
}

/// One frame that is not as most are.
std::size_t FastPath::forwardOther(WritableFrame& frame) {
    if (!road_.forwardOther(frame)) {
        return forwardMixed({&frame, 1});
    }
    ++counts_.fast;
    road_.settle();
    return 1;
}

std::size_t FastPath::receiveOther(std::span<WritableFrame> burst) {
    if (Tessel::Changes::count() != seen_) {
        takeChanges();
    }
    if (decided_.traced.looksAtFrames && searched_.hasNext(burst.size())) {
        return forwardAround(burst);
    }
    return checkEvery_ == 0 ? forwardAll(burst) : checkSome(burst);
}

/// Nothing has changed since the last burst, and no frames are searched for or checked.
std::size_t FastPath::forwardPlain(std::span<WritableFrame> burst) {
    assert(burst.size() <= burstFrames);
    if (burst.size() > 1) {
        road_.loadAhead(burst);
    }
    std::size_t done = road_.forward(burst);
    counts_.fast += done;
    if (done < burst.size()) [[unlikely]] {
        done += forwardMixed(burst.subspan(done));
    }
    road_.settle();
    return done;
}

/// The first frame is for the forwarder, and others may be.
std::size_t FastPath::forwardMixed(std::span<WritableFrame> burst) {
    std::size_t done = 0;
    try {
        while (done < burst.size()) {
            forwardByDefinition(burst[done]);
            ++counts_.slow;
            const std::size_t fast = decided_.isUsable ? road_.forward(burst.subspan(done + 1)) : 0;
            counts_.fast += fast;
            done += 1 + fast;
        }
    } catch (const Tessel::SnapshotLost&) {
        // The caller refreshes the tables and passes the rest again.
    }
    return done;
}

/// The same with every Nth frame forwarded both ways.
std::size_t FastPath::checkSome(std::span<WritableFrame> burst) {
    std::size_t done = 0;
    while (done < burst.size()) {
        const std::size_t unchecked = std::min<std::uint64_t>(untilCheck_, burst.size() - done);
        const std::size_t passed = forwardAll(burst.subspan(done, unchecked));
        untilCheck_ -= passed;
        done += passed;
        if (passed < unchecked || (done < burst.size() && !check(burst[done]))) {
            return done;
        }
        if (done < burst.size()) {
            untilCheck_ = checkEvery_ - 1;
            ++done;
        }
    }
    return done;
}

/// False when the tables must be refreshed first.
bool FastPath::check(WritableFrame& frame) {
    if (Tessel::Changes::count() != seen_) {
        takeChanges();
    }
    FrameRecorder& recorder = forwarder_->accounts().recorder();
    const auto trial = [&](WritableFrame& copy) {
        recorder.isPausedIs(true);
        const bool isFast = decided_.isUsable && road_.forward({&copy, 1}) == 1;
        road_.settle();
        recorder.isPausedIs(false);
        return isFast;
    };
    const auto definition = [&] {
        forwardByDefinition(frame);
        ++counts_.slow;
    };
    try {
        const auto result = check_.run(frame, trial, definition, decider_.countedIn());
        counts_.checked += result != SelfCheck::Result::untried ? 1 : 0;
        if (result == SelfCheck::Result::different) {
            ++counts_.different;
            reportDifference_(check_.difference());
            voidAll();
        }
    } catch (const Tessel::SnapshotLost&) {
        return false;
    }
    return true;
}

std::size_t FastPath::forwardAll(std::span<WritableFrame> burst) {
    if (Tessel::Changes::count() != seen_) [[unlikely]] {
        takeChanges();
    }
    return decided_.isUsable ? forwardPlain(burst) : forwardMixed(burst);
}

void FastPath::forwardByDefinition(const WritableFrame& frame) {
    road_.settle();
    current_ = frame.frame();
    if (trace_ != nullptr && trace_->isOn()) [[unlikely]] {
        forwardTraced();
    } else {
        forwarder_->receive(current_);
    }
    road_.labels().earn();
}

void FastPath::forwardTraced() {
    trace_->follow(
        current_, forwarder_->accounts().number() + 1, [this] { forwarder_->receive(current_); },
        [this] { return forwarder_->lastFate(); });
}

/// The same as forwardAll, with the frames that the trace asks for by definition.
std::size_t FastPath::forwardAround(std::span<WritableFrame> burst) {
    const auto isAsked = [this](const WritableFrame& frame) {
        return trace_->filter().matches(frame.frame(), tables_->ports);
    };
    std::size_t done = 0;
    while (done < burst.size()) {
        const auto rest = burst.subspan(done);
        const auto asked = std::find_if(rest.begin(), rest.end(), isAsked);
        const auto others = static_cast<std::size_t>(asked - rest.begin());
        const std::size_t passed = forwardAll(rest.first(others));
        done += passed;
        if (passed < others || asked == rest.end()) {
            return done;
        }
        try {
            forwardByDefinition(*asked);
        } catch (const Tessel::SnapshotLost&) {
            return done;
        }
        ++counts_.slow;
        ++done;
    }
    return done;
}

/// Whether others may forward what they had to leave until now: since a neighbour is known, a port
/// takes more, a trace has ended, or decisions may be used again.
bool FastPath::mayBeOvertaken() const noexcept {
    return !decided_.isUsable || decided_.lines.isOutdated() ||
           (trace_ != nullptr && trace_->changes() != seenTrace_);
}

void FastPath::settleLeft() {
    if (settle_) {
        settle_();
    }
}

/// Something has changed, which need not concern decisions.
void FastPath::takeChanges() {
    decided_.decisions.lookAhead();
    const ForwardingGate::Closed closed(tables_->gate);
    plain_ = noCount;
    if (mayBeOvertaken()) {
        settleLeft();
    }
    const std::uint64_t changes = Tessel::Changes::count();
    forwarder_->accounts().recorder().generationIs(published_->tables().generation());
    if (trace_ != nullptr && trace_->changes() != seenTrace_) {
        takeTrace();
    }
    decided_.isUsable =
        isOn_ && !tracesAll_ && !Ovix::TraceSource::anyOn() && decided_.decisions.refresh();
    if (!decided_.isUsable) {
        return; // looked at again with the next burst
    }
    if (const std::uint64_t version = decider_.version();
        version != version_ || decided_.lines.isFull()) {
        version_ = version;
        voidAll();
        decided_.isUsable = decided_.decisions.refresh();
        decided_.intakes.restart();
    }
    decided_.intakes.refresh();
    decided_.lines.refresh();
    decided_.hops.refresh(decided_.decisions.isAwaitingReplacing());
    seen_ = changes;
    plain_ = checkEvery_ == 0 && !decided_.traced.looksAtFrames ? changes : noCount;
}

/// Frames that are asked for by their port, by a label that is looked up or by the reason that they
/// are dropped for find no decision, so that nobody has to look at the others.
void FastPath::takeTrace() {
    seenTrace_ = trace_->changes();
    const bool isOn = trace_->isOn();
    TracedFrames& traced = decided_.traced;
    traced.filter = isOn ? trace_->filter() : TraceFilter();
    const TraceFilter& filter = traced.filter;
    tracesAll_ = isOn && filter.isForAll();
    traced.asksDrops = !filter.reason.empty();
    const bool isByOne =
        !traced.asksDrops &&
        filter.port.has_value() + filter.label.has_value() + filter.prefix.has_value() == 1;
    ++traced.traces;
    if (traced.leftOut != TracedFrames::noLabel && decided_.decisions.isAwaitingReplacing()) {
        decided_.decisions.await(traced.leftOut);
    }
    traced.leftOut = isByOne && filter.label ? *filter.label : TracedFrames::noLabel;
    if (traced.leftOut != TracedFrames::noLabel) {
        decided_.decisions.makeVoid(traced.leftOut);
    }
    decided_.intakes.leftOutIs(isByOne ? filter.port : std::nullopt);
    traced.looksAtFrames = isOn && !tracesAll_ && !traced.asksDrops && !(isByOne && filter.port);
}

void FastPath::voidAll() {
    decided_.decisions.voidAll();
    decider_.restart();
    road_.labels().labelCountersAre(nullptr);
    decided_.lines.clear();
    decided_.hops.restart();
    decided_.hops.refresh(decided_.decisions.isAwaitingReplacing());
    decided_.tunnels.restart();
}

} // namespace OvixAgent
