#include "Forwarding/FrameAccounts.h"

#include <cassert>
#include <utility>

namespace OvixAgent {

namespace {

constexpr std::string_view module = "Ovix::Agent";

} // namespace

void FrameAccounts::takeBack(std::size_t bytes) {
    assert(in_.frames > 0 && in_.bytes >= bytes);
    counters_->takeBack();
    in_.frames -= 1;
    in_.bytes -= bytes;
}

Fate FrameAccounts::add(const Fate& fate, const Frame& received, const RecordedVia& via) {
    if (fate.kind == FateKind::forwarded) {
        return fate;
    }
    const FateLog log = logOf(fate);
    ++log.counter->count;
    recorder_.record(*log.frames, received, via);
    return {fate.kind, log.counter->reason};
}

FrameAccounts::FateLog FrameAccounts::logOf(const Fate& fate) {
    auto& counter = fates_->counter({Tessel::wordOf(fate.kind), module, fate.reason});
    return {&counter, &recorder_.logOf(fate, counter.hash)};
}

void FrameAccounts::addDelivered(std::uint64_t packets, std::size_t nexthops,
                                 const Frame& received) {
    assert(packets > 0);
    for (std::uint64_t i = 0; i < packets; ++i) {
        add(punt(Reason::delivered), received, {});
    }
    replicas_ += nexthops > 0 ? packets : packets - 1;
}

std::vector<std::uint64_t> FrameAccounts::countsOf(const Ovix::OvixNamedCounters& counters) {
    std::vector<std::uint64_t> counts;
    counts.reserve(counters.counters().size());
    for (const auto& counter : counters.counters()) {
        counts.push_back(counter.count);
    }
    return counts;
}

void FrameAccounts::absorb(FrameAccounts& other) {
    in_ += std::exchange(other.in_, {});
    replicas_ += std::exchange(other.replicas_, 0);
    counters_->absorb(*other.counters_);
    fates_->absorb(*other.fates_);
    recorder_.absorb(other.recorder_);
}

FrameAccounts::Counts FrameAccounts::counts() const {
    return {in_, replicas_, countsOf(*counters_), countsOf(*fates_)};
}

void FrameAccounts::setBack(const Counts& counts) {
    in_ = counts.in;
    replicas_ = counts.replicas;
    counters_->countsAre(counts.events);
    fates_->countsAre(counts.fates);
}

Fate FrameAccounts::byLastEvent(FateKind kind, std::string_view otherwise) const noexcept {
    const auto* last = counters_->last();
    return {kind, last != nullptr ? std::string_view(last->reason) : otherwise};
}

void FrameAccounts::addTo(Summary& summary) const {
    summary.in = in_;
    summary.replicas += replicas_;
    addFatesTo(summary, {});
    summary.counters = namedCounters(*counters_);
}

void FrameAccounts::addFatesTo(Summary& summary, const std::vector<std::uint64_t>& before) const {
    std::size_t i = 0;
    for (const auto& fate : fates_->counters()) {
        const auto kind = Tessel::valueOf<FateKind>(fate.category);
        Reasons& reasons = kind == FateKind::punted    ? summary.punted
                           : kind == FateKind::dropped ? summary.dropped
                                                       : summary.handedOn;
        reasons.add(fate.reason, fate.count - (i < before.size() ? before[i] : 0));
        ++i;
    }
}

} // namespace OvixAgent
