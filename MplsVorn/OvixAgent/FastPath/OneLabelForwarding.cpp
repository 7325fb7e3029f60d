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

/// The frame's start moves back by what it grows.
inline void LabelForwarding::sendMoved(WritableFrame& frame, std::int32_t grows,
                                       const EgressLine& line, std::uint16_t etherType) {
    constexpr auto link = static_cast<std::int32_t>(Wire::Ethernet::size);
    departures_->send(
        frame, line, frame.bytes + link - grows,
        static_cast<std::uint32_t>(static_cast<std::int32_t>(frame.size) - link + grows),
        etherType);
}

bool LabelForwarding::imposeInPlace(const Decision& decision, std::uint16_t lookup,
                                    std::uint32_t entry, WritableFrame& frame) {
    const DecidedRewrite& rewrite = decisions_->rewrites.at(decision.value);
    const EgressLine& line = (*lines_)[rewrite.egress];
    const auto grows = static_cast<std::uint32_t>(rewrite.grows);
    if ((entry & bottom) == 0 || frame.headroom < grows ||
        !line.takesPlain(frame.size - static_cast<std::uint32_t>(Wire::Ethernet::size) + grows)) {
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
    return (member.action == Action::swap && swapInPlace(member, decision.lookup, entry, frame)) ||
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
    if (Wire::ipv4HeaderLength(payload) == 0 || !line.takesPlain(frame.size - behindLabel)) {
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
    departures_->send(frame, *leaving.line, leaving.packet, leaving.length, leaving.etherType);
    return true;
}

bool LabelForwarding::dropInPlace(const Decision& decision, WritableFrame& frame) {
    const DecidedDrop& drop = decisions_->drops[decision.value];
    if (decision.isFound || isLeftOut(drop, frame)) {
        return false;
    }
    countUnknown(drop, frame, frame.port);
    return true;
}

} // namespace OvixAgent
