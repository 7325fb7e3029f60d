#include "Forwarding/FrameIntake.h"

#include <array>
#include <cassert>

#include "Ovix/packet/PacketHeader.h"
#include "State/RoadSteps.h"
#include "Wire/Ethernet.h"

namespace OvixAgent {

namespace {

constexpr std::size_t maxTags = Ovix::VlanTagHeaderData::maxTags;

/// The VLAN ids of a frame, outermost first.
struct VlanIds {
    std::array<std::uint16_t, maxTags> ids;
    std::size_t count = 0;
};

VlanIds vlanIds(const Wire::Ethernet& header, Wire::Bytes frame) noexcept {
    VlanIds vlans;
    Wire::TagWalk walk(header.etherType(), frame.subspan(Wire::Ethernet::size));
    for (Wire::Tag tag; vlans.count < maxTags && walk.next(tag);) {
        vlans.ids[vlans.count++] = tag.vlanId();
    }
    return vlans;
}

} // namespace

Fate FrameIntake::admit(Frame& frame) {
    if (tables_->ports.hasVlans(frame.port)) [[unlikely]] {
        const Fate fate = findSubInterface(frame);
        if (fate.kind != FateKind::forwarded) {
            return fate;
        }
    }
    const Port& port = tables_->ports.ports()[frame.port];
    if (Ovix::RoadNotes::isOn()) [[unlikely]] {
        RoadSteps::takenIn(port,
                           (asReceived(frame).bytes.size() - frame.bytes.size()) / Wire::Tag::size);
    }
    const Wire::Ethernet header(frame.bytes);
    if (port.anyMac || !header || header.isToGroup() || header.destination() == port.mac ||
        tables_->pseudowires.isCircuit(frame.port)) {
        return forwarded;
    }
    return handOn(Reason::otherStation);
}

Fate FrameIntake::findSubInterface(Frame& frame) {
    const Wire::Ethernet header(frame.bytes);
    if (!header) {
        return forwarded; // a runt, which is dropped at whichever port
    }
    const VlanIds vlans = vlanIds(header, frame.bytes);
    const auto taker = tables_->ports.taker(frame.port, std::span(vlans.ids).first(vlans.count));
    // Tags beneath a sub-interface's own are a customer's, if the frame is one.
    if (!taker || (taker->ownTags > 0 && taker->ownTags < vlans.count &&
                   !tables_->pseudowires.isCircuit(taker->port))) {
        return drop(Reason::noVlan);
    }
    frame.port = taker->port;
    if (taker->ownTags > 0) {
        removeTags(frame, taker->ownTags);
    }
    return forwarded;
}

void FrameIntake::removeTags(Frame& frame, std::size_t tags) {
    const std::size_t size = tags * Wire::Tag::size;
    assert(frame.bytes.size() >= Wire::Ethernet::size + size);
    tagged_ = frame;
    const Wire::Bytes macs = frame.bytes.first(Wire::Ethernet::macsSize);
    const Wire::Bytes rest = frame.bytes.subspan(Wire::Ethernet::macsSize + size);
    untagged_.assign(macs.begin(), macs.end());
    untagged_.insert(untagged_.end(), rest.begin(), rest.end());
    frame.bytes = untagged_;
    frame.originalLength -= static_cast<std::uint32_t>(size);
}

Frame FrameIntake::asReceived(const Frame& frame) const noexcept {
    return frame.bytes.data() == untagged_.data() && !frame.bytes.empty() ? tagged_ : frame;
}

} // namespace OvixAgent
