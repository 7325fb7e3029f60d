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

namespace {

constexpr std::size_t shortest = Ethernet::size + Lumo::MplsLabelEntry::size;

/// Whether a frame was captured whole, has room for a label, and is no longer than a packet may be.
bool isPlainLength(const WritableFrame& frame) noexcept {
    return frame.size - shortest <= Lumo::Pkt::maxBytes - shortest &&
           frame.size == frame.originalLength;
}

bool isToGroup(const std::uint8_t* frame) noexcept {
    return (frame[0] & 1U) != 0;
}

/// For the port alone, not for a group.
bool isForStation(const std::uint8_t* frame, const Port& port) noexcept {
    return !isToGroup(frame) &&
           (port.anyMac || std::memcmp(frame, port.mac.data(), Ethernet::macSize) == 0);
}

bool isForPort(const std::uint8_t* frame, const Port& port) noexcept {
    return isToGroup(frame) || isForStation(frame, port);
}

} // namespace

FastPath::FastPath(Forwarder& forwarder, const Ptr<Ovix::PluginManager>& manager,
                   ForwardingTables& tables, Mpls::PublishedTables& published)
    : forwarder_(&forwarder), tables_(&tables), inputSteps_(manager->genericPipelineSteps()),
      departures_(forwarder.accounts()), ipHop_(tables), lines_(tables),
      labels_(forwarder.namedCounters(), manager, tables, published, lines_, ipHop_, departures_),
      circuits_(manager, tables, lines_, departures_) {}

/// Most frames are untagged, and come in at a port without sub-interfaces.
[[gnu::always_inline]] inline bool FastPath::forwardPlain(WritableFrame& frame) {
    const Intake& intake = intakes_[frame.port];
    if (!intake.isPlain || !isPlainLength(frame) || !isForStation(frame.bytes, *intake.port))
        [[unlikely]] {
        return forward(frame);
    }
    const auto etherType = Lumo::NetU16::load(frame.bytes + Ethernet::etherTypeAt).value();
    const bool isLabelled = etherType == Wire::EtherType::mpls;
    if (isLabelled && labels_.settleInPlace(frame)) [[likely]] {
        return true;
    }
    PacketWork work;
    work.frame = &frame;
    work.packet = frame.bytes + Ethernet::size;
    work.length = frame.size - static_cast<std::uint32_t>(Ethernet::size);
    work.port = frame.port;
    if (isLabelled) {
        return labels_.forward(work);
    }
    return etherType == Wire::EtherType::ipv4 ? forwardIp(work, PktHdrType::ipv4) : forward(frame);
}

std::size_t FastPath::receive(std::span<WritableFrame> burst) {
    if (Tessel::Changes::count() != seen_) [[unlikely]] {
        takeChanges();
    }
    std::size_t done = 0;
    try {
        for (; done < burst.size(); ++done) {
            if (isUsable_) [[likely]] {
                prefetch(burst, done);
                if (forwardPlain(burst[done])) {
                    ++counts_.fast;
                    continue;
                }
            }
            settle();
            current_ = burst[done].frame();
            forwarder_->receive(current_);
            ++counts_.slow;
            labels_.earn();
        }
    } catch (const Tessel::SnapshotLost&) {
        // The caller refreshes the tables and passes the rest again.
    }
    settle();
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
    isUsable_ = isOn_ && !Ovix::TraceSource::anyOn() && labels_.refresh();
    if (!isUsable_) {
        return; // looked at again with the next burst
    }
    if (const std::uint64_t version = labels_.version(); version != version_ || lines_.isFull()) {
        version_ = version;
        labels_.restart();
        lines_.clear();
        circuits_.restart();
        readPorts();
    }
    lines_.refresh();
    seen_ = changes;
}

void FastPath::readPorts() {
    const auto isIgnored = [&](std::uint16_t etherType) {
        const auto& steps = inputSteps_->steps();
        return std::all_of(steps.begin(), steps.end(),
                           [&](const auto& step) { return step->ignores(etherType); });
    };
    const bool ignoresLabels = isIgnored(Wire::EtherType::mpls);
    const bool ignoresIp = isIgnored(Wire::EtherType::ipv4) && isIgnored(Wire::EtherType::ipv6);
    const std::vector<Port>& ports = tables_->ports.ports();
    intakes_.assign(ports.size(), {});
    for (PortIndex i = 0; i < ports.size(); ++i) {
        const bool isCircuit = tables_->pseudowires.isCircuit(i);
        const auto fib = tables_->vrfs->number(ports[i].vrf.view());
        const bool isVlan = ports[i].tagging.kind == Tagging::Kind::subInterface;
        const bool isPlain =
            ignoresLabels && ports[i].mpls && !isCircuit && !isVlan && !tables_->ports.hasVlans(i);
        intakes_[i] = {&ports[i],        isPlain,        ignoresLabels,
                       ignoresIp && fib, isCircuit,      tables_->ports.hasVlans(i),
                       isVlan,           fib.value_or(0)};
    }
}

/// Loads what the frames behind will need.
void FastPath::prefetch(std::span<const WritableFrame> burst, std::size_t at) const noexcept {
    constexpr std::size_t headersAhead = 16;
    constexpr std::size_t labelsAhead = 8;
    if (at + headersAhead < burst.size()) {
        __builtin_prefetch(burst[at + headersAhead].bytes);
    }
    if (at + labelsAhead < burst.size() && burst[at + labelsAhead].size >= shortest) {
        labels_.prefetch(burst[at + labelsAhead].bytes + Ethernet::size);
    }
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
        return !intakes_[work.port].hasVlans && circuits_.forward(work);
    }
    switch (takeIn(work).value_or(0)) {
    case Wire::EtherType::mpls:
        return intakes_[work.port].takesLabels && tables_->ports.ports()[work.port].mpls &&
               labels_.forward(work);
    case Wire::EtherType::ipv4:
        return forwardIp(work, PktHdrType::ipv4);
    case Wire::EtherType::ipv6:
        return forwardIp(work, PktHdrType::ipv6);
    default:
        return false;
    }
}

/// Finds the port that a frame is for and where its packet starts. Returns its EtherType; unset
/// when the frame is none that is for a port without further ado.
std::optional<std::uint16_t> FastPath::takeIn(PacketWork& work) const {
    const Intake& intake = intakes_[work.port];
    if (intake.isVlan || (intake.hasVlans && !findSubInterface(work))) [[unlikely]] {
        return std::nullopt;
    }
    const WritableFrame& frame = *work.frame;
    const std::uint32_t link = static_cast<std::uint32_t>(Ethernet::size) + work.tagBytes;
    if (frame.size < link + Lumo::MplsLabelEntry::size || intakes_[work.port].isCircuit ||
        !isForPort(frame.bytes, tables_->ports.ports()[work.port])) {
        return std::nullopt;
    }
    work.packet = frame.bytes + link;
    work.length = frame.size - link;
    return Lumo::NetU16::load(work.packet - Ethernet::etherTypeSize).value();
}

/// False when the frame's tags are not just those of a sub-interface.
bool FastPath::findSubInterface(PacketWork& work) const {
    const Wire::Bytes frame{work.frame->bytes, work.frame->size};
    Wire::TagWalk walk(Ethernet(frame).etherType(), frame.subspan(Ethernet::size));
    std::array<std::uint16_t, Wire::Tag::maxTags> vlans{};
    std::size_t count = 0;
    for (Wire::Tag tag; walk.next(tag);) {
        vlans[count++] = tag.vlanId();
    }
    const auto taker = tables_->ports.taker(work.port, std::span(vlans).first(count));
    if (!taker || taker->ownTags != count) {
        return false;
    }
    work.port = taker->port;
    work.tagBytes = static_cast<std::uint32_t>(count * Wire::Tag::size);
    return true;
}

bool FastPath::forwardIp(PacketWork& work, PktHdrType type) {
    const Intake& intake = intakes_[work.port];
    const Port& port = tables_->ports.ports()[work.port];
    if (!intake.takesIp || !port.routesIp || work.isToGroup()) {
        return false;
    }
    work.type = type;
    EgressLine line;
    if (!ipHop_.route(tables_->vrfs->fibAt(intake.fib), port.reversePath, work, line)) {
        return false;
    }
    departures_.send(work, line, etherTypeOf(work.type));
    return true;
}

} // namespace OvixAgent
