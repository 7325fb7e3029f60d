#include "FastPath/FastPath.h"

#include <algorithm>
#include <cassert>

#include "Ovix/trace/Trace.h"
#include "Tessel/Changes.h"
#include "Tessel/Exceptions.h"
#include "Wire/Ethernet.h"

namespace OvixAgent {

using Ovix::PktHdrType;
using Wire::Ethernet;

FastPath::FastPath(Forwarder& forwarder, const Ptr<Ovix::PluginManager>& manager,
                   ForwardingTables& tables, Mpls::PublishedTables& published)
    : forwarder_(&forwarder), tables_(&tables), published_(&published),
      intakes_(tables, manager->genericPipelineSteps()), departures_(forwarder.accounts()),
      lines_(tables), ipHop_(tables, lines_),
      labels_(forwarder.namedCounters(), manager, tables, published, lines_, ipHop_, departures_),
      circuits_(manager, tables, lines_, departures_), check_(tables, forwarder.accounts()) {}

/// Most frames are untagged, and come in at a port without sub-interfaces.
[[gnu::always_inline]] inline bool FastPath::forwardPlain(WritableFrame& frame) {
    const Intake& intake = intakes_[frame.port];
    if (!isPlainLength(frame) || !intake.isForStation(frame.bytes)) [[unlikely]] {
        return forward(frame);
    }
    const auto etherType = Lumo::NetU16::load(frame.bytes + Ethernet::etherTypeAt).value();
    if (etherType == Wire::EtherType::mpls && intake.takesPlainLabels) [[likely]] {
        return labels_.settleInPlace(frame) || forwardLabels(frame);
    }
    return (etherType == Wire::EtherType::ipv4 && intake.takesPlainIp &&
            routeInPlace(intake, frame)) ||
           forward(frame);
}

bool FastPath::forwardLabels(WritableFrame& frame) {
    PacketWork work;
    work.frame = &frame;
    work.packet = frame.bytes + Ethernet::size;
    work.length = frame.size - static_cast<std::uint32_t>(Ethernet::size);
    work.port = frame.port;
    return labels_.forward(work);
}

std::size_t FastPath::receive(std::span<WritableFrame> burst) {
    assert(burst.size() <= burstFrames);
    if (Tessel::Changes::count() != seen_) [[unlikely]] {
        takeChanges();
    }
    if (looksAtFrames_ && isLookedAt(burst.size())) [[unlikely]] {
        return forwardAround(burst);
    }
    return checkEvery_ == 0 ? forwardAll(burst) : checkSome(burst);
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
        const bool isFast = isUsable_ && forwardPlain(copy);
        settle();
        recorder.isPausedIs(false);
        return isFast;
    };
    const auto definition = [&] {
        forwardByDefinition(frame);
        ++counts_.slow;
    };
    try {
        const auto result = check_.run(frame, trial, definition, labels_.countedIn());
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
    std::size_t done = 0;
    std::size_t slow = 0;
    try {
        if (!isUsable_) [[unlikely]] {
            for (; done < burst.size(); ++done, ++slow) {
                forwardByDefinition(burst[done]);
            }
        } else if (burst.size() > 1) {
            loadAhead(burst);
        }
        for (; done < burst.size(); ++done) {
            if (!forwardPlain(burst[done])) [[unlikely]] {
                forwardByDefinition(burst[done]);
                ++slow;
            }
        }
    } catch (const Tessel::SnapshotLost&) {
        // The caller refreshes the tables and passes the rest again.
    }
    settle();
    counts_.fast += done - slow;
    counts_.slow += slow;
    return done;
}

void FastPath::forwardByDefinition(const WritableFrame& frame) {
    settle();
    current_ = frame.frame();
    if (trace_ != nullptr && trace_->isOn()) [[unlikely]] {
        forwardTraced();
    } else {
        forwarder_->receive(current_);
    }
    labels_.earn();
}

void FastPath::forwardTraced() {
    trace_->follow(
        current_, forwarder_->accounts().number() + 1, [this] { forwarder_->receive(current_); },
        [this] { return forwarder_->lastFate(); });
}

/// Looking at a frame takes half as long as forwarding it. Where bursts are large, which they are
/// when there is no time to spare, that is done in few of them.
bool FastPath::isLookedAt(std::size_t frames) noexcept {
    constexpr std::size_t busy = burstFrames / 4;
    constexpr std::uint32_t oneOf = 32;
    if (frames < busy) {
        return true;
    }
    busyBursts_ = (busyBursts_ + 1) % oneOf;
    return busyBursts_ == 0;
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

/// What decisions have done so far is done before anything else.
void FastPath::settle() {
    labels_.settle();
    departures_.flush();
}

/// Something has changed, which need not concern decisions.
void FastPath::takeChanges() {
    const std::uint64_t changes = Tessel::Changes::count();
    forwarder_->accounts().recorder().generationIs(published_->tables().generation());
    if (trace_ != nullptr && trace_->changes() != seenTrace_) {
        takeTrace();
    }
    isUsable_ = isOn_ && !tracesAll_ && !Ovix::TraceSource::anyOn() && labels_.refresh();
    if (!isUsable_) {
        return; // looked at again with the next burst
    }
    if (const std::uint64_t version = labels_.version(); version != version_ || lines_.isFull()) {
        version_ = version;
        voidAll();
        intakes_.restart();
    }
    intakes_.refresh();
    lines_.refresh();
    ipHop_.refresh();
    seen_ = changes;
}

/// Frames that are asked for by their port, by a label that is looked up or by the reason that they
/// are dropped for find no decision, so that nobody has to look at the others.
void FastPath::takeTrace() {
    seenTrace_ = trace_->changes();
    const TraceFilter none;
    const bool isOn = trace_->isOn();
    const TraceFilter& filter = isOn ? trace_->filter() : none;
    tracesAll_ = isOn && filter.isForAll();
    const bool isByReason = !filter.reason.empty();
    const bool isByOne =
        !isByReason &&
        filter.port.has_value() + filter.label.has_value() + filter.prefix.has_value() == 1;
    labels_.tracedDropsAre(isByReason ? &filter : nullptr);
    labels_.leftOutIs(isByOne && filter.label ? *filter.label : LabelForwarding::noLabel);
    intakes_.leftOutIs(isByOne ? filter.port : std::nullopt);
    looksAtFrames_ = isOn && !tracesAll_ && !isByReason && !(isByOne && filter.port);
}

void FastPath::voidAll() {
    labels_.restart();
    lines_.clear();
    ipHop_.restart();
    ipHop_.refresh();
    circuits_.restart();
}

/// A frame that fits no decision is left to the forwarder: false, and nothing is changed.
bool FastPath::forward(WritableFrame& frame) {
    if (!isPlainLength(frame)) {
        return false;
    }
    PacketWork work;
    work.frame = &frame;
    work.port = frame.port;
    if (intakes_[work.port].isCircuit) {
        work.packet = frame.bytes;
        work.length = frame.size;
        const Intake& intake = intakes_[work.port];
        return !intake.hasVlans && !intake.isLeftOut && circuits_.forward(work);
    }
    switch (intakes_.takeIn(work).value_or(0)) {
    case Wire::EtherType::mpls:
        return intakes_[work.port].takesLabels && labels_.forward(work);
    case Wire::EtherType::ipv4:
        return forwardIp(work, PktHdrType::ipv4);
    case Wire::EtherType::ipv6:
        return forwardIp(work, PktHdrType::ipv6);
    default:
        return false;
    }
}

[[gnu::always_inline]] inline bool FastPath::routeInPlace(const Intake& intake,
                                                          WritableFrame& frame) {
    constexpr auto link = static_cast<std::uint32_t>(Ethernet::size);
    const IpHop::Leaving leaving =
        ipHop_.routePlain(intake.fib, frame.bytes + link, frame.size - link, frame.headroom + link);
    if (leaving.line == nullptr) {
        return false;
    }
    departures_.send(frame, *leaving.line, leaving.packet, leaving.length, leaving.etherType);
    return true;
}

bool FastPath::forwardIp(PacketWork& work, PktHdrType type) {
    const Intake& intake = intakes_[work.port];
    if (!intake.takesIp || work.isToGroup()) {
        return false;
    }
    work.type = type;
    const ReversePath asked = tables_->ports.ports()[work.port].reversePath;
    const EgressLine* const line = ipHop_.route(intake.fib, asked, work);
    if (line == nullptr) {
        return false;
    }
    departures_.send(work, *line, etherTypeOf(work.type));
    return true;
}

} // namespace OvixAgent
