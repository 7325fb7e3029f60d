// The lane of frames with one label behind a plain Ethernet header, which most frames are: settled
// where they lie, without the detours of LabelForwarding.cpp.

#include "FastPath/LabelForwarding.h"
#include "FastPath/LabelRewrite.h"
#include "Ovix/packet/FlowHash.h"
#include "Wire/Ip.h"

namespace OvixAgent {

using Ovix::Beneath;
using Ovix::PktHdrType;

/// The frame's start moves back by what it grows.
inline void LabelForwarding::sendMoved(WritableFrame& frame, std::int32_t grows,
                                       const EgressLine& line, std::uint16_t etherType) {
    std::uint8_t* const start = frame.bytes - grows;
    std::memcpy(start, line.macs.data(), line.macs.size());
    Lumo::NetU16(etherType).store(start + Wire::Ethernet::etherTypeAt);
    departures_->sendAs(
        frame, frame.port, *line.port,
        {start, static_cast<std::size_t>(static_cast<std::int32_t>(frame.size) + grows)});
}

bool LabelForwarding::imposeInPlace(const Decision& decision, std::uint16_t lookup,
                                    std::uint32_t entry, WritableFrame& frame) {
    const DecidedRewrite& rewrite = decisions_.rewrites.at(decision.value);
    const EgressLine& line = (*lines_)[rewrite.egress];
    const auto grows = static_cast<std::uint32_t>(rewrite.grows);
    if ((entry & bottom) == 0 || frame.headroom < grows || line.tagBytes > 0 ||
        !line.takes(frame.size - static_cast<std::uint32_t>(Wire::Ethernet::size) + grows)) {
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
    const DecidedChoice& choice = decisions_.choices.at(decision.value);
    const std::uint32_t hash = Ovix::flowHash(
        PktHdrType::mpls, {frame.bytes + Wire::Ethernet::size, frame.size - Wire::Ethernet::size});
    const Decision& member = choice.member(hash);
    return (member.action == Action::swap && swapInPlace(member, decision.lookup, entry, frame)) ||
           (member.action == Action::impose &&
            imposeInPlace(member, decision.lookup, entry, frame));
}

bool LabelForwarding::popInPlace(const Decision& decision, std::uint32_t entry,
                                 WritableFrame& frame) {
    constexpr auto headers =
        static_cast<std::uint32_t>(Wire::Ethernet::size + Lumo::MplsLabelEntry::size);
    const Wire::WritableBytes payload{frame.bytes + headers, frame.size - headers};
    const auto beneath = static_cast<std::size_t>(Beneath::ipv4);
    const Decision& one = decisions_.byBeneath.at(decision.value).decisions[beneath];
    if ((entry & bottom) == 0 || !decisions_.isValid(one) || one.action != Action::rewrite ||
        Wire::ipv4HeaderLength(payload) == 0) {
        return false;
    }
    const DecidedRewrite& rewrite = decisions_.rewrites.at(one.value);
    const EgressLine& line = (*lines_)[rewrite.egress];
    if (rewrite.kind != DecidedRewrite::Kind::pop || !rewrite.isPlain() || line.tagBytes > 0 ||
        !line.takes(frame.size - headers)) {
        return false;
    }
    if (rewrite.isUniform) {
        Wire::Ipv4Writer(payload).ttlWithChecksumIs(static_cast<std::uint8_t>((entry & 0xffU) - 1));
    }
    settled(decision.lookup, entry, frame);
    sendMoved(frame, rewrite.grows, line, Wire::EtherType::ipv4);
    return true;
}

bool LabelForwarding::dropInPlace(const Decision& decision, WritableFrame& frame) {
    if (decision.isFound) {
        return false;
    }
    countUnknown(decisions_.drops[decision.value], frame);
    return true;
}

} // namespace OvixAgent
