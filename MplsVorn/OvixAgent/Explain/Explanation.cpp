#include "Explain/Explanation.h"

#include <fmt/format.h>

#include "Explain/FrameWords.h"
#include "Explain/NearestChanges.h"
#include "Explain/StepTexts.h"
#include "Ovix/trace/NamedCounters.h"
#include "State/LinkHeader.h"
#include "State/RoadSteps.h"

namespace OvixAgent {

namespace {

std::string headerText(const Ovix::PacketHeader& header) {
    const Wire::Bytes bytes = header.bytes();
    if (header.pktHdrType() == Ovix::PktHdrType::vlanTags) {
        std::string text = "VLAN";
        const auto& tags = static_cast<const Ovix::VlanTagHeaderData&>(*header.headerData());
        for (const Wire::Tag& tag : tags.vlanTags()) {
            text += fmt::format(" {} priority {}", tag.vlanId(), tag.priority());
        }
        return text;
    }
    if (header.pktHdrType() == Ovix::PktHdrType::udp) {
        return "UDP";
    }
    if (const Ovix::MplsHeaderData* const labels = Ovix::mplsHeaderData(header)) {
        std::string text;
        for (const Lumo::MplsLabelEntry entry : *labels) {
            text += fmt::format("{}label {} TC {} TTL {}{}", text.empty() ? "" : ", ",
                                entry.label().value(), entry.tc(), entry.ttl(),
                                entry.bos() ? ", bottom" : "");
        }
        return text;
    }
    // With what follows, for the transport's ports.
    const Wire::Bytes whole(bytes.data(), bytes.size() + header.payload().size());
    return headersText(header.pktHdrType(), whole);
}

void markFailure(Explanation& explanation) {
    if (explanation.walk.isForwarded() || explanation.steps.empty()) {
        return;
    }
    explanation.steps.back().isFailure = true;
    // What ends a walk is the step before the packet's bytes, where there is one.
    for (auto step = explanation.steps.rbegin(); step != explanation.steps.rend(); ++step) {
        if (step->kind != "headers") {
            explanation.steps.back().isFailure = false;
            step->isFailure = true;
            return;
        }
    }
}

} // namespace

std::vector<std::string> parsedHeaders(const GivenFrame& frame) {
    std::vector<std::string> all;
    Ovix::PacketContext packet(Lumo::globalPktManager()->newPkt(frame.bytes));
    packet.parsedPkt().maybeDoFullParse();
    for (std::int32_t i = 0; i < packet.parsedPkt().headers(); ++i) {
        const Ptr<Ovix::PacketHeader> header = packet.parsedPkt().header(i);
        if (header->pktHdrType() != Ovix::PktHdrType::udp) {
            all.push_back(headerText(*header));
        }
    }
    return all;
}

std::string verdictText(const Walk& walk) {
    std::string where;
    for (const Walk::Sent& sent : walk.sent) {
        where += fmt::format("{}{}, {} bytes", where.empty() ? " by " : "; by ", sent.port,
                             sent.originalLength);
    }
    if (walk.isForwarded()) {
        return "forwarded" + where;
    }
    const bool hasCopies = walk.kind == FateKind::dropped && !where.empty();
    return fmt::format("{}: {}{}", Tessel::wordOf(walk.kind),
                       Ovix::readableEvent({}, walk.reason).reason,
                       hasCopies ? "; other copies leave" + where : "");
}

Tessel::Result<Explanation> explain(const Situation& situation, const GivenFrame& frame) {
    Explanation told;
    told.port = situation.config.ports.at(frame.port).name;
    told.frame = frame;
    told.tables = situation.tablesName;
    told.headers = parsedHeaders(frame);
    {
        const auto router = TrialRouter::of(situation);
        if (!router) {
            return router.refused();
        }
        told.walk = router.value()->walk(frame);
        told.generation = router.value()->published().tables().generation();
        told.steps = stepsOf(told.walk, *router.value());
        told.fastRoad = router.value()->fastRoad(frame);
    }
    markFailure(told);
    told.verdict = verdictText(told.walk);
    if (!told.walk.isForwarded()) {
        told.isChangeWanted = true;
        told.change = nearestChange(situation, frame, told.walk);
    }
    if (!frame.comment.empty()) {
        told.remarks.push_back(frame.comment);
    }
    if (situation.isLive && told.walk.reason == Reason::noNeighbour) {
        told.remarks.emplace_back("a live router asks for the neighbour first, and lets the first "
                                  "packets wait for the answer");
    }
    return told;
}

} // namespace OvixAgent
