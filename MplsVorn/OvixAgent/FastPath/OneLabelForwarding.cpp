// The lane of frames with one label behind a plain Ethernet header, which most frames are: settled
// where they lie, without the detours of LabelForwarding.cpp.

#include "FastPath/LabelForwarding.h"
#include "FastPath/LabelRewrite.h"
#include "Ovix/packet/FlowHash.h"
#include "Wire/Ip.h"

namespace OvixAgent {

using Ovix::PktHdrType;

namespace {

constexpr auto behindLabel =
    static_cast<std::uint32_t>(Wire::Ethernet::size + Lumo::MplsLabelEntry::size);

} // namespace

bool LabelForwarding::settleOther(const Decision& decision, std::uint32_t entry,
                                  WritableFrame& frame) {
    if ((entry & ttlMask) <= 1) {
        return false;
    }
    switch (decision.action) {
    case Action::impose:
        return imposeInPlace(decision, decision.lookup, entry, frame);
    case Action::choice:
        return chooseInPlace(decision, entry, frame);
    case Action::byBeneath:
        return endInPlace(decision, entry, frame);
    default:
        return false;
    }
}

/// The frame has one label, and need not join those before it.
bool LabelForwarding::swapAnew(const Decision& decision, std::uint16_t lookup, std::uint32_t entry,
                               WritableFrame& frame) {
    const EgressLine& line = (*lines_)[decision.egress];
    if (!line.takesFrame(frame.size)) {
        return false;
    }
    settled(lookup, entry, frame);
    swap(decision, line, entry, frame.bytes);
    departures_.sendAs(frame, frame.port, *line.port, {frame.bytes, frame.size});
    return true;
}

/// Of a drop that has not been counted before, or whose frames a trace may ask for.
const FrameAccounts::FateLog* LabelForwarding::lookForLog(std::uint32_t reason,
                                                          const WritableFrame& frame) {
    DropLog& log = drops_[reason];
    const TracedFrames& traced = decided_->traced;
    const std::string& text = decisions_->reasons[reason];
    if (!traced.asksDrops || text.find(traced.filter.reason) == std::string::npos) {
        log.untracedBy = traced.traces;
    } else if (traced.filter.matches(frame.frame(), decided_->tables->ports)) {
        return nullptr;
    }
    if (log.log.counter == nullptr) {
        log.log = departures_.logOf(text);
    }
    return &log.log;
}

/// The frame's start moves back by what it grows.
inline void LabelForwarding::sendMoved(WritableFrame& frame, std::int32_t grows,
                                       const EgressLine& line, std::uint16_t etherType) {
    constexpr auto link = static_cast<std::int32_t>(Wire::Ethernet::size);
    departures_.send(
        frame, line, frame.bytes + link - grows,
        static_cast<std::uint32_t>(static_cast<std::int32_t>(frame.size) - link + grows),
        etherType);
}

bool LabelForwarding::imposeInPlace(const Decision& decision, std::uint16_t lookup,
                                    std::uint32_t entry, WritableFrame& frame) {
    const DecidedRewrite& rewrite = decisions_->rewrites.at(decision.value);
    const EgressLine& line = (*lines_)[rewrite.egress];
    const auto grows = static_cast<std::uint32_t>(rewrite.grows);
    if ((entry & bottom) == 0 || frame.headroom < grows || !line.takesFrame(frame.size + grows)) {
        return false;
    }
    imposeLabels(rewrite, entry, frame.bytes + Wire::Ethernet::size - grows);
    settled(lookup, entry, frame);
    sendMoved(frame, rewrite.grows, line, Wire::EtherType::mpls);
    return true;
}

bool LabelForwarding::chooseInPlace(const Decision& decision, std::uint32_t entry,
                                    WritableFrame& frame) {
    if ((entry & bottom) == 0) {
        return false;
    }
    const DecidedChoice& choice = decisions_->choices.at(decision.value);
    const std::uint32_t hash = Ovix::flowHash(
        PktHdrType::mpls, {frame.bytes + Wire::Ethernet::size, frame.size - Wire::Ethernet::size});
    const Decision& member = choice.member(hash);
    return (member.action == Action::swap &&
            swapInPlace(lane(), member, decision.lookup, entry, frame)) ||
           (member.action == Action::impose &&
            imposeInPlace(member, decision.lookup, entry, frame));
}

/// The label ends here.
bool LabelForwarding::endInPlace(const Decision& decision, std::uint32_t entry,
                                 WritableFrame& frame) {
    if ((entry & bottom) == 0) {
        return false;
    }
    return decision.popsIpv4 ? popInPlace(decision, entry, frame)
                             : decision.looksUpIpv4 && lookUpInPlace(decision, entry, frame);
}

bool LabelForwarding::popInPlace(const Decision& decision, std::uint32_t entry,
                                 WritableFrame& frame) {
    const Wire::WritableBytes payload{frame.bytes + behindLabel, frame.size - behindLabel};
    const EgressLine& line = (*lines_)[decision.egress];
    if (Wire::ipv4HeaderLength(payload) == 0 ||
        !line.takesFrame(frame.size - static_cast<std::uint32_t>(Lumo::MplsLabelEntry::size))) {
        return false;
    }
    if (decision.isUniform) {
        Wire::Ipv4Writer(payload).ttlWithChecksumIs(static_cast<std::uint8_t>((entry & 0xffU) - 1));
    }
    settled(decision.lookup, entry, frame);
    constexpr auto grows = -static_cast<std::int32_t>(Lumo::MplsLabelEntry::size);
    sendMoved(frame, grows, line, Wire::EtherType::ipv4);
    return true;
}

bool LabelForwarding::lookUpInPlace(const Decision& decision, std::uint32_t entry,
                                    WritableFrame& frame) {
    const IpHop::Leaving leaving =
        ipHop_->routePlain(decision.egress, frame.bytes + behindLabel, frame.size - behindLabel,
                           frame.headroom + behindLabel);
    if (leaving.line == nullptr) {
        return false;
    }
    settled(decision.lookup, entry, frame);
    departures_.send(frame, *leaving.line, leaving.packet, leaving.length, leaving.etherType);
    return true;
}

} // namespace OvixAgent
