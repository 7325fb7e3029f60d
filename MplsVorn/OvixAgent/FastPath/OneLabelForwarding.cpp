// The lane of frames with one label behind a plain Ethernet header, which most frames are: settled
// where they lie, without the detours of LabelForwarding.cpp.

#include "FastPath/LabelForwarding.h"
#include "FastPath/LabelRewrite.h"
#include "Ovix/packet/FlowHash.h"
#include "Wire/Ip.h"

namespace OvixAgent {

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
    case Action::choice:
        return chooseInPlace(decision, entry, frame);
    case Action::byBeneath:
        return endInPlace(decision, entry, frame);
    default:
        return false;
    }
}

bool LabelForwarding::leaveAnew(Counter::PktCounter* counter, const WritableFrame& frame,
                                Port& port, Sent sent) {
    events_.count(sent.lookup);
    labelCounters_->countBytes(static_cast<std::uint32_t>(counter - countersOfLabels_), frame.size);
    departures_.sendAs(frame, frame.port, port, {sent.bytes, sent.size});
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

bool LabelForwarding::imposeInPlace(const Decision& decision, std::uint16_t lookup,
                                    std::uint32_t entry, WritableFrame& frame) {
    const DecidedRewrite& rewrite = decisions_->rewrites.at(decision.value);
    const EgressLine& line = (*lines_)[decision.egress];
    const auto grows = static_cast<std::uint32_t>(rewrite.grows);
    if (!isAloneAndAlive(entry) || frame.headroom < grows || !line.takesFrame(frame.size + grows)) {
        return false;
    }
    std::uint8_t* const packet = frame.bytes + Wire::Ethernet::size - grows;
    const auto length = static_cast<std::uint32_t>(frame.size - Wire::Ethernet::size + grows);
    imposeLabels(rewrite, entry, packet);
    return leave(counterOf(entry), frame, *line.port,
                 sentAs(withPlainLinkHeader(packet, length, line, Wire::EtherType::mpls), lookup));
}

/// By the member of a choice that the flow takes.
inline bool LabelForwarding::followInPlace(const Decision& member, std::uint16_t lookup,
                                           std::uint32_t entry, WritableFrame& frame) {
    if (member.action == Action::swap) {
        return swapInPlace(lane(), member, lookup, entry, frame);
    }
    return member.action == Action::impose && imposeInPlace(member, lookup, entry, frame);
}

bool LabelForwarding::chooseInPlace(const Decision& decision, std::uint32_t entry,
                                    WritableFrame& frame) {
    const Wire::Bytes packet{frame.bytes + behindLabel, frame.size - behindLabel};
    if ((entry & bottom) == 0 || !Ovix::isPlainFlow(packet)) [[unlikely]] {
        return chooseByAll(decision, entry, frame);
    }
    return followInPlace(
        decisions_->choices.at(decision.value).member(Ovix::plainFlowHash(entry >> 12U, packet)),
        decision.lookup, entry, frame);
}

/// The same of packets that take longer to hash.
bool LabelForwarding::chooseByAll(const Decision& decision, std::uint32_t entry,
                                  WritableFrame& frame) {
    if ((entry & bottom) == 0) {
        return false;
    }
    const std::uint32_t hash =
        Ovix::flowHash(Ovix::PktHdrType::mpls,
                       {frame.bytes + Wire::Ethernet::size, frame.size - Wire::Ethernet::size});
    return followInPlace(decisions_->choices.at(decision.value).member(hash), decision.lookup,
                         entry, frame);
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
    const auto length = static_cast<std::uint32_t>(payload.size());
    return leave(counterOf(entry), frame, *line.port,
                 sentAs(withPlainLinkHeader(payload.data(), length, line, Wire::EtherType::ipv4),
                        decision.lookup));
}

bool LabelForwarding::lookUpInPlace(const Decision& decision, std::uint32_t entry,
                                    WritableFrame& frame) {
    const IpHop::Leaving leaving =
        ipHop_->routePlain(decision.egress, frame.bytes + behindLabel, frame.size - behindLabel,
                           frame.headroom + behindLabel);
    if (leaving.line == nullptr) {
        return false;
    }
    return leave(counterOf(entry), frame, *leaving.line->port,
                 sentAs(withPlainLinkHeader(leaving.packet, leaving.length, *leaving.line,
                                            leaving.etherType),
                        decision.lookup));
}

} // namespace OvixAgent
