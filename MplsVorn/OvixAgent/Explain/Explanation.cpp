#include "Explain/Explanation.h"

#include <fmt/format.h>

#include "Explain/ControlWordSigns.h"
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
    const Walk& walk = explanation.walk;
    if (walk.kind == FateKind::forwarded || explanation.steps.empty()) {
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
    if (const Ovix::RoadNote* const waits = walk.last("waits");
        walk.isWaiting && waits != nullptr) {
        const Ovix::RoadNote& note = *waits;
        return fmt::format("waiting: held for up to {} s until the MAC address of {} on {} is "
                           "known; the kernel is asked for it, and then the frame leaves by {}, or "
                           "is dropped if nobody answers",
                           *note.value("seconds"), *note.value("address"), *note.value("port"),
                           *note.value("port"));
    }
    const bool hasCopies = walk.kind == FateKind::dropped && !where.empty();
    return fmt::format("{}: {}{}", walk.fateWord(), Ovix::readableEvent({}, walk.reason).reason,
                       hasCopies ? "; other copies leave" + where : "");
}

std::string_view noChangeText(const Walk& walk) {
    return walk.kind == FateKind::punted
               ? "none, since such frames are for this router itself, which answers them"
               : "none was found that forwards the frame";
}

Tessel::Result<Explanation> explain(const Situation& situation, const GivenFrame& frame) {
    Explanation explanation;
    explanation.port = situation.config.ports.at(frame.port).name;
    explanation.frame = frame;
    explanation.tables = situation.tablesName;
    explanation.headers = parsedHeaders(frame);
    {
        const auto router = TrialRouter::of(situation);
        if (!router) {
            return router.refused();
        }
        explanation.walk = router.value()->walk(frame);
        explanation.generation = router.value()->published().tables().generation();
        explanation.steps = stepsOf(explanation.walk, *router.value());
        explanation.fastRoad = router.value()->fastRoad(frame);
    }
    markFailure(explanation);
    explanation.verdict = verdictText(explanation.walk);
    if (!explanation.walk.isForwarded()) {
        explanation.isChangeWanted = true;
        explanation.change = nearestChange(situation, frame, explanation.walk);
    }
    if (!frame.comment.empty()) {
        explanation.remarks.push_back(frame.comment);
    }
    if (std::string remark = controlWordRemark(explanation.walk); !remark.empty()) {
        explanation.remarks.push_back(std::move(remark));
    }
    return explanation;
}

} // namespace OvixAgent
